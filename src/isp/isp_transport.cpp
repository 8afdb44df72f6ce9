// Registration of the host's serial functions, the forwarding to them, the command
// exchange with the bootloader and the progress counter.
#include <cstdio>

#include "isp/isp_internal.h"

namespace sdk::isp {

std::atomic<int> g_cnt{0};

namespace {

mcu_isp_fun_t st_mcu_isp_fun = {nullptr, nullptr};

// The registration may be replaced from another thread than the one that programs;
// atomic accesses keep a run from reading a torn pointer.
mcu_isp_write_fn registered_write() {
    return __atomic_load_n(&st_mcu_isp_fun.uart_wirte, __ATOMIC_ACQUIRE);
}
mcu_isp_read_fn registered_read() {
    return __atomic_load_n(&st_mcu_isp_fun.uart_read, __ATOMIC_ACQUIRE);
}

}  // namespace

int mcu_serial_write(unsigned char *data, uint16_t len) {
    mcu_isp_write_fn fn = registered_write();
    if (fn == nullptr) {
        puts("st_mcu_isp_fun.uart_wirte NULL ");
        return -1;
    }
    return fn(data, len);
}

int mcu_serial_read(unsigned char *buff, uint16_t len) {
    mcu_isp_read_fn fn = registered_read();
    if (fn == nullptr) {
        puts("st_mcu_isp_fun.uart_read NULL ");
        return -1;
    }
    return fn(buff, len);
}

int mcu_serial_read_full(unsigned char *buff, uint16_t len) {
    // A host read function may return what has arrived so far (a tty read with a
    // time-out does); the protocol needs whole answers, so ask again for the rest until
    // a read brings nothing.
    uint16_t got = 0;
    while (got < len) {
        int n = mcu_serial_read(buff + got, static_cast<uint16_t>(len - got));
        if (n < 0) return got == 0 ? n : got;
        if (n == 0) break;
        got = static_cast<uint16_t>(got + (n > len - got ? len - got : n));
    }
    return got;
}

void mcu_serial_drain(unsigned int len) {
    unsigned char scratch[64];
    while (len > 0) {
        uint16_t chunk = len < sizeof(scratch) ? static_cast<uint16_t>(len) : sizeof(scratch);
        if (mcu_serial_read_full(scratch, chunk) <= 0) return;
        len -= chunk;
    }
}

int ack_sendcmd(uint8_t cmd) {
    unsigned char frame[2] = {cmd, static_cast<unsigned char>(~cmd)};
    (void)mcu_serial_write(frame, sizeof(frame));

    unsigned char answer = 0;
    int n = mcu_serial_read(&answer, 1);
    if (n < 0) {
        puts("mcu_serial_read err\r");
        return n;
    }
    if (answer == kAck) return 0;
    if (answer == kNack) return -1;
    return -2;
}

}  // namespace sdk::isp

using sdk::isp::g_cnt;

extern "C" {

SDK_API int mcu_isp_write_func_reg(void *func) {
    // The host hands the function over as void*, as the registration interface has it.
    __atomic_store_n(&sdk::isp::st_mcu_isp_fun.uart_wirte, reinterpret_cast<mcu_isp_write_fn>(func),
                     __ATOMIC_RELEASE);
    return 0;
}

SDK_API int mcu_isp_read_func_reg(void *func) {
    __atomic_store_n(&sdk::isp::st_mcu_isp_fun.uart_read, reinterpret_cast<mcu_isp_read_fn>(func),
                     __ATOMIC_RELEASE);
    return 0;
}

SDK_API int mcu_isp_cnt(void) {
    return g_cnt.load(std::memory_order_relaxed);
}

SDK_API int mcu_isp_cnt_clear(void) {
    g_cnt.store(0, std::memory_order_relaxed);
    return 0;
}

}  // extern "C"
