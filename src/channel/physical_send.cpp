// Puts one frame on a channel, and the hex dump of frames for the log.
#include <sys/socket.h>

#include <cstdio>

#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "uart.h"

namespace {

constexpr uint32_t kDumpLimit = 2048;

int32_t send_udp(const transfer_data_t &ch, const uint8_t *b, uint32_t n_len) {
    TLOGI("n_slot %d n_section %d n_fd %d data_len %d", ch.n_slot, ch.n_section, ch.n_fd, n_len);
    ssize_t n_sent = send(ch.n_fd, b, n_len, 0);
    if (n_sent != static_cast<ssize_t>(n_len)) return static_cast<int32_t>(n_sent);
    if (n_len >= 26) {
        TLOGI(
            "lable: %02x %02x  type: %02x  device_type: %02x  port: %02x recvrcard: %02x%02x  "
            "addr: %02x%02x%02x%02x ",
            b[6], b[7], b[10], b[11], b[23], b[24], b[25], b[25], b[24], b[23], b[22]);
    }
    LOGD(LOG_DEVICE, "send ok len %d", static_cast<int32_t>(n_sent));
    return sdk::kOk;
}

int32_t send_uart(const transfer_data_t &ch, uint8_t *b, uint32_t n_len) {
    if (n_len >= 26) {
        TLOGI(" uart : lable: %02x %02x   type: %02x  device_type: %02x   addr: %02x%02x%02x%02x  ",
              b[6], b[7], b[10], b[11], b[25], b[24], b[23], b[22]);
    }
    if (n_len < kDumpLimit) print_24_per_line(b, static_cast<int>(n_len));
    TLOGI("\n");
    int32_t n_written = sdk_uart_write(ch.n_fd, b, n_len);
    if (n_written != static_cast<int32_t>(n_len)) return n_written;
    TLOGI("send ok len %d ", n_len);
    return sdk::kOk;
}

}  // namespace

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
    switch (ch.n_type) {
        case UDP:
            n_ret = send_udp(ch, p_send_buf, n_send_len);
            break;
        case UART:
            n_ret = send_uart(ch, p_send_buf, n_send_len);
            break;
        default:
            TLOGE("unknow transfer type %d", ch.n_type);
            break;
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
