// Puts one frame on a channel, and the hex dump of frames for the log.
#include <cstdio>

#include "channel/transport.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"

extern "C" {

SDK_API int32_t sdk_physical_send(uint8_t *p_send_buf, uint32_t n_send_len,
                                  uint32_t n_transfer_id) {
    int32_t n_ret = sdk::kErrRefused;
    if (p_send_buf == nullptr || g_st_transfer.st_info == nullptr ||
        n_transfer_id >= static_cast<uint32_t>(g_st_transfer.n_num)) {
        TLOGE("error code %d", n_ret);
        return n_ret;
    }
    const transfer_data_t &ch = g_st_transfer.st_info[n_transfer_id];
    const sdk::Transport *t = sdk::transport_of(ch.n_type);
    if (t != nullptr && t->b_sends) {
        n_ret = t->send(ch, p_send_buf, n_send_len);
    } else {
        TLOGE("unknow transfer type %d", ch.n_type);
    }
    TLOGI("end ret :%d", n_ret);
    return n_ret;
}

SDK_API void print_24_per_line(const uint8_t *buf, int len) {
    if (buf == nullptr || len <= 0) return;
    char line[73] = "";
    int n_used = 0;
    for (int i = 0; i < len; ++i) {
        snprintf(line + n_used, sizeof(line) - static_cast<size_t>(n_used), "%02x ", buf[i]);
        n_used += 3;
        if (n_used == 72) {
            TLOGD("%s", line);
            n_used = 0;
            line[0] = '\0';
        }
    }
    if (n_used != 0) TLOGD("%s", line);
}

}  // extern "C"
