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
#include "channel/receive_loop.h"
#include "codec/codec.h"
#include "engine/state.h"
#include "engine/stats.h"
#include "codec/layout.h"

namespace {

constexpr uint32_t kRecvBufLen = 65535;
constexpr useconds_t kCyclePauseUs = 1000;
}  // namespace

namespace {

// One datagram of report channel n_channel: checked and queued whole with its slot.
bool serve_channel(uint32_t n_channel, int32_t *p_ret) {
    static thread_local uint8_t arr_buf[kRecvBufLen];
    TLOGD("select %d ", n_channel);
    const int32_t n_recv = sdk_physical_recv(arr_buf, n_channel);
    if (n_recv < 0) return false;
    const auto n_len = static_cast<uint32_t>(n_recv);
    if (n_len < SDK_FRAME_HEADER_LEN) {
        sdk::count(n_channel, sdk::Count::kBadFrame);
        TLOGE(" max num error code %d", sdk::kErrRefused);
        *p_ret = sdk::kErrRefused;
        return false;
    }
    const uint32_t n_frame_len = sdk::codec::length_field(arr_buf) + 10u;
    if (n_frame_len != n_len) {
        sdk::count(n_channel, sdk::Count::kBadFrame);
        TLOGE(" %d %d error code %d", n_frame_len, n_len, sdk::kErrRefused);
        *p_ret = sdk::kErrRefused;
        return false;
    }
    *p_ret = sdk_report_queue_push(&g_st_report_queue, arr_buf, n_len,
                                   static_cast<uint32_t>(g_st_transfer.st_info[n_channel].n_slot));
    if (*p_ret != sdk::kOk) {
        sdk::count(n_channel, sdk::Count::kReportDropped);
        LOGE(LOG_REPORT, "error code %d", *p_ret);
        return false;
    }
    sdk::count(n_channel, sdk::Count::kReportQueued);
    return true;
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_report_recv_manage(fd_set n_fd_event) {
    int32_t n_ret = sdk::kOk;
    if (g_st_transfer.n_num <= 0 || g_st_transfer.st_info == nullptr) return n_ret;
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        if (!sdk::channel_ready(g_st_transfer.st_info[i], sdk::Receiver::kReport, n_fd_event))
            continue;
        if (!serve_channel(static_cast<uint32_t>(i), &n_ret)) break;
    }
    return n_ret;
}

SDK_API void *sdk_transfer_report_recv_thread(void * /*arg*/) {
    pthread_setname_np(pthread_self(), "report_recv");
    sdk::receive_loop(sdk::Receiver::kReport, {serve_channel, [](int32_t n_ret) {
                                                   LOGD(LOG_REPORT, "report thread run");
                                                   if (n_ret < 0) TLOGE("report recv error");
                                                   usleep(kCyclePauseUs);
                                               }});
    return nullptr;
}

}  // extern "C"
