// The read-back of the written image (Read Memory) and the start of the application (Go).
#include <algorithm>
#include <cstdio>

#include "isp/isp_internal.h"

namespace {

using namespace sdk::isp;

std::atomic<int> g_verify_cnt{0};

// One answer byte, which must be an ACK. The read function's time-out bounds the wait.
bool acknowledged() {
    unsigned char answer = 0;
    return mcu_serial_read(&answer, 1) == 1 && answer == kAck;
}

// One Read Memory exchange: n bytes (1 to 256) from addr into out. nullptr, or what failed:
// a step not acknowledged, or data that stop short.
const char *read_block(uint32_t addr, unsigned char *out, unsigned int n) {
    if (ack_sendcmd(kCmdReadMemory) != 0) return "read memory command not acknowledged";
    send_address(addr);
    if (!acknowledged()) return "read memory address not acknowledged";
    unsigned char count[2] = {static_cast<unsigned char>(n - 1),
                              static_cast<unsigned char>(~(n - 1))};
    (void)mcu_serial_write(count, sizeof(count));
    if (!acknowledged()) return "read memory length not acknowledged";
    if (mcu_serial_read_full(out, static_cast<uint16_t>(n)) != static_cast<int>(n))
        return "read memory answer incomplete";
    return nullptr;
}

}  // namespace

extern "C" {

SDK_API int mcu_isp_verify(const unsigned char *data, unsigned int len,
                           mcu_isp_verify_info_t *where) {
    if (bad_image(data, len)) {
        puts("mcu_isp_verify: invalid image.");
        return MCU_ISP_ERR_BAD_IMAGE;
    }
    g_verify_cnt.store(0, std::memory_order_relaxed);
    unsigned char block[MCU_ISP_BLOCK_SIZE];
    for (unsigned int done = 0; done < len;) {
        const uint32_t addr = MCU_ISP_FLASH_BASE + done;
        // The last block asks only the bytes left: the flash may end right behind the image.
        const unsigned int n = std::min(len - done, MCU_ISP_BLOCK_SIZE);
        if (const char *failed = read_block(addr, block, n)) {
            printf("\n%s at 0x%08x\n", failed, addr);
            if (where != nullptr) *where = mcu_isp_verify_info_t{addr, 0, 0};
            return MCU_ISP_ERR_READ_FAILED;
        }
        const auto diff = std::mismatch(block, block + n, data + done);
        if (diff.first != block + n) {
            const auto at = static_cast<uint32_t>(diff.first - block);
            printf("\nverify: 0x%08x holds 0x%02x, the image 0x%02x\n", addr + at, *diff.first,
                   *diff.second);
            if (where != nullptr)
                *where = mcu_isp_verify_info_t{addr + at, *diff.second, *diff.first};
            return MCU_ISP_ERR_VERIFY_MISMATCH;
        }
        done += n;
        const int pct = static_cast<int>(static_cast<uint64_t>(done) * 100 / len);
        printf("\r verify mcu internal flash: [%d%%]", pct);
        fflush(stdout);
        g_verify_cnt.store(pct, std::memory_order_relaxed);
    }
    if (len > 0) printf("\n");
    g_verify_cnt.store(100, std::memory_order_relaxed);
    return MCU_ISP_OK;
}

SDK_API int mcu_isp_verify_cnt(void) {
    return g_verify_cnt.load(std::memory_order_relaxed);
}

SDK_API int mcu_isp_verify_cnt_clear(void) {
    g_verify_cnt.store(0, std::memory_order_relaxed);
    return 0;
}

SDK_API int mcu_isp_go(uint32_t addr) {
    if (ack_sendcmd(kCmdGo) != 0) {
        puts("go command not acknowledged.");
        return MCU_ISP_ERR_GO_REFUSED;
    }
    send_address(addr);
    if (!acknowledged()) {
        printf("go address 0x%08x not acknowledged.\n", addr);
        return MCU_ISP_ERR_GO_REFUSED;
    }
    printf("go: the application starts at 0x%08x\n", addr);
    return MCU_ISP_OK;
}

}  // extern "C"
