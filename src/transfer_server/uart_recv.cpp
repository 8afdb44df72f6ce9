// The serial receive thread: reads the serial channels and hands the stream to the frame
// cutter, keeping an incomplete frame's bytes for the next read.
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstring>

#include "common/log.h"
#include "transfer_server.h"
#include "transfer_server/channel_fds.h"
#include "transfer_server/engine_globals.h"
#include "uart.h"

namespace {

constexpr uint32_t kStreamBufLen = 65535;
constexpr uint32_t kReadWaitMs = 1000;
constexpr uint32_t kMaxTries = 1000;
constexpr useconds_t kPauseUs = 1000;
// A port that fails to read, or reads nothing right after select found it readable (a
// hung-up line), stays readable for select: the cycle after such a turn waits this long,
// so a dead port cannot keep the thread spinning.
constexpr useconds_t kReadErrorPauseUs = 100000;

// Settled: channels whose port failed to open (negative descriptor) or whose descriptor
// select cannot hold stay out of the set.
// Settled: the host's flag is read with a fresh atomic load at each test, and the wait
// sleeps between tests instead of spinning on a core.
void wait_port_free() {
    while (__atomic_load_n(&b_uart_used_flg, __ATOMIC_ACQUIRE))
        usleep(kPauseUs);
}

// One channel's turn: reads until the stream is used up or the tries run out; bytes
// still held then are given up. False when the line looks dead: a read error, or no byte
// at all from the read that select announced.
bool serve_channel(int32_t n_channel, uint8_t *p_buf) {
    const int32_t n_fd = g_st_transfer.st_info[n_channel].n_fd;
    uint32_t n_held = 0;
    for (uint32_t n_tries = kMaxTries; n_tries > 0; --n_tries) {
        TLOGD("select %d ", n_channel);
        const int32_t n_read = sdk_uart_read(static_cast<uint32_t>(n_fd), p_buf + n_held,
                                             kStreamBufLen - n_held, kReadWaitMs);
        // Settled: a read error ends the channel's turn without cutting frames.
        if (n_read < 0) {
            TLOGD("uart read error %d", n_read);
            return false;
        }
        if (n_read == 0 && n_held == 0 && n_tries == kMaxTries) return false;
        const uint32_t n_total = n_held + static_cast<uint32_t>(n_read);
        print_24_per_line(p_buf, static_cast<int>(n_total));
        SDK_PRINTF(LOG_TRANSFER, ZLOG_LEVEL_ERROR, "\n");
        const int32_t n_used = sdk_uart_recv_manage(p_buf, n_total, n_channel);
        n_held = n_total - static_cast<uint32_t>(n_used);
        if (n_held == 0) return true;
        memmove(p_buf, p_buf + n_used, n_held);
        usleep(kPauseUs);
    }
    return true;
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_get_uart_fd(void) {
    const auto n_fd = static_cast<int32_t>(n_mcu_isp_uart_fd);
    TLOGD("uart_fd is %d ", n_fd);
    return n_fd;
}

SDK_API void *sdk_transfer_uart_recv_thread(void * /*arg*/) {
    pthread_setname_np(pthread_self(), "uart_recv");
    // The stream buffer lives for the thread's whole life; nothing is allocated per frame.
    static uint8_t arr_stream[kStreamBufLen];
    int n_max_fd = 0;
    for (;;) {
        wait_port_free();
        struct timeval st_timeout = {1, 0};
        fd_set st_set;
        sdk::channel_fd_set(UART, &st_set, &n_max_fd);
        if (select(n_max_fd + 1, &st_set, nullptr, nullptr, &st_timeout) < 0) {
            usleep(kPauseUs);
            TLOGE("select error");
            FD_ZERO(&st_set);  // the set says nothing after a failure
        }
        bool b_read_failed = false;
        for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
            const transfer_data_t &ch = g_st_transfer.st_info[i];
            if (!sdk::channel_watched(ch, UART) || !FD_ISSET(ch.n_fd, &st_set)) continue;
            if (!serve_channel(i, arr_stream)) b_read_failed = true;
            sem_post(&g_st_monitor_manage_list.sem);
        }
        if (b_read_failed) usleep(kReadErrorPauseUs);
    }
    return nullptr;
}

}  // extern "C"
