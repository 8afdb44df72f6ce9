// The serial receive thread: reads the serial channels and hands the stream to the frame
// cutter, keeping an incomplete frame's bytes for the next read. It hands the lines over
// to the host on request (b_uart_used_flg, sdk_uart_hold).
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "common/clock.h"
#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "channel/channel_fds.h"
#include "engine/state.h"
#include "uart.h"

namespace {

constexpr uint32_t kStreamBufLen = 65535;
constexpr uint32_t kReadWaitMs = 1000;
constexpr uint32_t kMaxTries = 1000;
constexpr useconds_t kPauseUs = 1000;
// A port that fails to read, or reads nothing right after select found it readable (a
// hung-up line), stays readable for select. Settled: such a line rests this long, left
// out of the descriptor set, while the other lines are served as usual; a dead port can
// neither keep the thread spinning nor delay its neighbours.
constexpr uint32_t kDeadLineRestMs = 100;

bool port_used() {
    return __atomic_load_n(&b_uart_used_flg, __ATOMIC_ACQUIRE);
}

// The hand-over of the lines to the host. The thread touches a line (select aside) only
// after it has seen the flag clear; it parks, and says so, when it sees the flag set.
// Settled: sdk_uart_hold returns only once the thread is parked, so a host never talks
// on a line that a read already under way could take bytes from.
struct HandOver {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    sdk::MonotonicCond cond;  // the hand-over's time-outs run on the monotonic clock
    bool b_running = false;  // the thread exists; under lock
    bool b_parked = false;   // the thread has let go of every line; under lock
};
HandOver g_hand;

// Waits, parked, while the host holds the lines. The flag is read afresh at each test,
// with a pause between tests; leaving the park re-tests it under the lock, so a hold
// that comes meanwhile finds the thread still parked or waits for it to park again.
void park_while_port_used() {
    if (!port_used()) return;
    {
        sdk::MutexLock lock(&g_hand.lock);
        g_hand.b_parked = true;
        pthread_cond_broadcast(g_hand.cond.get());
    }
    for (;;) {
        usleep(kPauseUs);
        if (port_used() && !sdk::stopping()) continue;
        sdk::MutexLock lock(&g_hand.lock);
        if (port_used()) continue;
        g_hand.b_parked = false;
        return;
    }
}

// One channel's turn: reads until the stream is used up or the tries run out; bytes
// still held then are given up. False when the line looks dead: a read error, or no byte
// at all from the read that select announced. The turn ends at once when the host asks
// for the lines.
bool serve_channel(int32_t n_channel, uint8_t *p_buf) {
    const int32_t n_fd = sdk::channel_fd(g_st_transfer.st_info[n_channel]);
    uint32_t n_held = 0;
    for (uint32_t n_tries = kMaxTries; n_tries > 0; --n_tries) {
        if (port_used()) return true;
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
        // Settled: the dump's lines are whole log lines, so no empty line is written
        // after them (it showed as an empty error line after every read).
        print_24_per_line(p_buf, static_cast<int>(n_total));
        const int32_t n_used = sdk_uart_recv_manage(p_buf, n_total, n_channel);
        n_held = n_total - static_cast<uint32_t>(n_used);
        if (n_held == 0) return true;
        memmove(p_buf, p_buf + n_used, n_held);
        usleep(kPauseUs);
    }
    return true;
}

// The lines to watch this cycle: every opened serial channel that is not resting, and
// the wake pipe. Settled: the wait has no time limit unless a resting line comes back
// (the 1-second time-out served nothing: the host's hold, a channel opened later and the
// engine's exit all come through the wake pipe), so an idle engine costs no wake-ups.
// Returns whether the wait is timed.
bool build_set(const std::vector<struct timeval> &rest_until, fd_set *p_set, int *p_max_fd,
               struct timeval *p_timeout) {
    sdk::channel_fd_set(sdk::Receiver::kUart, p_set, p_max_fd);
    constexpr uint32_t kUntimed = UINT32_MAX;
    uint32_t n_wait_ms = kUntimed;
    const struct timeval now = sdk::clock_now();
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        const transfer_data_t &ch = g_st_transfer.st_info[i];
        if (!sdk::channel_watched(ch, sdk::Receiver::kUart) || !timercmp(&now, &rest_until[i], <))
            continue;
        FD_CLR(sdk::channel_fd(ch), p_set);
        struct timeval left = {};
        timersub(&rest_until[i], &now, &left);
        const auto n_left_ms = static_cast<uint32_t>(left.tv_sec * 1000 + left.tv_usec / 1000 + 1);
        if (n_left_ms < n_wait_ms) n_wait_ms = n_left_ms;
    }
    sdk::wake_pipe_add(sdk::Receiver::kUart, p_set, p_max_fd);
    if (n_wait_ms == kUntimed) return false;
    p_timeout->tv_sec = n_wait_ms / 1000;
    p_timeout->tv_usec = static_cast<suseconds_t>((n_wait_ms % 1000) * 1000);
    return true;
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_get_uart_fd(void) {
    const auto n_fd = static_cast<int32_t>(n_mcu_isp_uart_fd);
    TLOGD("uart_fd is %d ", n_fd);
    return n_fd;
}

SDK_API int32_t sdk_uart_hold(uint32_t n_wait_ms) {
    __atomic_store_n(&b_uart_used_flg, true, __ATOMIC_SEQ_CST);
    sdk::MutexLock lock(&g_hand.lock);
    if (!g_hand.b_running || g_hand.b_parked) return sdk::kOk;
    sdk::wake_receiver(sdk::Receiver::kUart);
    const struct timespec until = sdk::deadline_in_ms(n_wait_ms);
    while (g_hand.b_running && !g_hand.b_parked) {
        if (pthread_cond_timedwait(g_hand.cond.get(), &g_hand.lock, &until) != 0) break;
    }
    if (g_hand.b_running && !g_hand.b_parked) {
        TLOGE("uart hold: the serial receive thread did not let go in %u ms", n_wait_ms);
        return sdk::kErrTimeout;
    }
    return sdk::kOk;
}

SDK_API void sdk_uart_release(void) {
    __atomic_store_n(&b_uart_used_flg, false, __ATOMIC_SEQ_CST);
}

SDK_API void *sdk_transfer_uart_recv_thread(void * /*arg*/) {
    pthread_setname_np(pthread_self(), "uart_recv");
    {
        sdk::MutexLock lock(&g_hand.lock);
        g_hand.b_running = true;
    }
    // The stream buffer lives for the thread's whole life; nothing is allocated per frame.
    static uint8_t arr_stream[kStreamBufLen];
    const size_t n_channels =
        g_st_transfer.n_num > 0 ? static_cast<size_t>(g_st_transfer.n_num) : 0;
    std::vector<struct timeval> rest_until(n_channels, timeval{0, 0});
    int n_max_fd = 0;
    while (!sdk::stopping()) {
        park_while_port_used();
        struct timeval st_timeout = {};
        fd_set st_set;
        const bool b_timed = build_set(rest_until, &st_set, &n_max_fd, &st_timeout);
        if (select(n_max_fd + 1, &st_set, nullptr, nullptr, b_timed ? &st_timeout : nullptr) < 0) {
            usleep(kPauseUs);
            TLOGE("select error");
            FD_ZERO(&st_set);  // the set says nothing after a failure
        }
        sdk::wake_pipe_taken(sdk::Receiver::kUart, st_set);
        for (int32_t i = 0; i < g_st_transfer.n_num && !port_used(); ++i) {
            const transfer_data_t &ch = g_st_transfer.st_info[i];
            if (!sdk::channel_ready(ch, sdk::Receiver::kUart, st_set)) continue;
            if (!serve_channel(i, arr_stream)) {
                rest_until[static_cast<size_t>(i)] =
                    sdk::clock_add_ms(sdk::clock_now(), kDeadLineRestMs);
            }
            sem_post(&g_st_monitor_manage_list.sem);
        }
    }
    sdk::MutexLock lock(&g_hand.lock);
    g_hand.b_running = false;
    pthread_cond_broadcast(g_hand.cond.get());
    return nullptr;
}

}  // extern "C"
