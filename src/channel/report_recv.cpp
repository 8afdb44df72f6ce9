// The report thread: unsolicited frames from the report channels go whole, with the slot
// of their channel, into the report queue for the host.
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include "common/bytes.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "channel/channel_fds.h"
#include "engine/state.h"
#include "codec/layout.h"

namespace {

constexpr uint32_t kRecvBufLen = 65535;
constexpr useconds_t kCyclePauseUs = 1000;
}  // namespace

extern "C" {

SDK_API int32_t sdk_report_recv_manage(fd_set n_fd_event) {
    int32_t n_ret = sdk::kOk;
    if (g_st_transfer.n_num <= 0 || g_st_transfer.st_info == nullptr) return n_ret;
    static thread_local uint8_t arr_buf[kRecvBufLen];
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        const transfer_data_t &ch = g_st_transfer.st_info[i];
        if (!sdk::channel_ready(ch, sdk::Receiver::kReport, n_fd_event)) continue;
        TLOGD("select %d ", i);
        const int32_t n_recv = sdk_physical_recv(arr_buf, static_cast<uint32_t>(i));
        if (n_recv < 0) return n_ret;
        const auto n_len = static_cast<uint32_t>(n_recv);
        if (n_len < SDK_FRAME_HEADER_LEN) {
            TLOGE(" max num error code %d", sdk::kErrRefused);
            return sdk::kErrRefused;
        }
        const uint32_t n_frame_len = sdk::get_le16(arr_buf + sdk::frame::kOffLen) + 10u;
        if (n_frame_len != n_len) {
            TLOGE(" %d %d error code %d", n_frame_len, n_len, sdk::kErrRefused);
            return sdk::kErrRefused;
        }
        n_ret = sdk_report_queue_push(&g_st_report_queue, arr_buf, n_len,
                                      static_cast<uint32_t>(ch.n_slot));
        if (n_ret != sdk::kOk) {
            LOGE(LOG_REPORT, "error code %d", n_ret);
            return n_ret;
        }
    }
    return n_ret;
}

SDK_API void *sdk_transfer_report_recv_thread(void * /*arg*/) {
    pthread_setname_np(pthread_self(), "report_recv");
    int n_max_fd = 0;
    for (;;) {
        fd_set st_set;
        sdk::channel_fd_set(sdk::Receiver::kReport, &st_set, &n_max_fd);
        sdk::wake_pipe_add(sdk::Receiver::kReport, &st_set, &n_max_fd);
        if (select(n_max_fd + 1, &st_set, nullptr, nullptr, nullptr) < 0) {
            TLOGE("select error");
            // Settled: after a failed select the set tells nothing and the sockets block,
            // so nothing is received this cycle.
            FD_ZERO(&st_set);
        }
        if (sdk::wake_pipe_taken(sdk::Receiver::kReport, st_set)) continue;  // new set only
        LOGD(LOG_REPORT, "report thread run");
        if (sdk_report_recv_manage(st_set) < 0) TLOGE("report recv error");
        usleep(kCyclePauseUs);
    }
    return nullptr;
}

}  // extern "C"
