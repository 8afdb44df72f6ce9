// The transport table's entries: UDP and report channels on connected datagram sockets,
// serial channels on a port opened through the uart unit.
#include "channel/transport.h"

#include <sys/socket.h>

#include <cstring>

#include "common/log.h"
#include "common/result.h"
#include "setup/channel_setup.h"
#include "uart.h"

namespace sdk {

namespace {

constexpr uint32_t kDumpLimit = 2048;

int32_t open_udp(transfer_data_t *ch, const char *where, uint32_t port, int64_t /*n_id*/) {
    sock_addr_t addr{};
    const size_t n = strnlen(where, sizeof(addr.p_ip));
    if (n >= sizeof(addr.p_ip)) return kErrRefused;
    memcpy(addr.p_ip, where, n + 1);
    addr.n_port = port;
    const int32_t ret = sdk_udp_init(addr, ch);
    LOGD(LOG_DEVICE, "n_fd %d", ch->n_fd);
    if (ret < 0) TLOGE("error code %d", ret);
    return ret < 0 ? ret : kOk;
}

int32_t open_serial(transfer_data_t *ch, const char *where, uint32_t port, int64_t n_id) {
    ch->n_fd = sdk_uart_init(reinterpret_cast<int8_t *>(const_cast<char *>(where)), port);
    LOGD(LOG_DEVICE, "n_fd %d", ch->n_fd);
    // Open point settled here: a serial port that cannot be opened does not stop
    // start-up (the rest of the chassis still works), but the channel is left unopened:
    // n_state stays 0 so nothing is sent on it, n_fd keeps the negative result, and the
    // host's MCU-programming descriptor is not overwritten with it.
    if (ch->n_fd < 0) {
        TLOGE("serial channel %lld on %s not opened, left unused", static_cast<long long>(n_id),
              where);
        return kOk;
    }
    ch->n_state = CHANNEL_OK;
    n_mcu_isp_uart_fd = static_cast<uint32_t>(ch->n_fd);
    return kOk;
}

int32_t send_udp(const transfer_data_t &ch, uint8_t *b, uint32_t n_len) {
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
    return kOk;
}

int32_t send_uart(const transfer_data_t &ch, uint8_t *b, uint32_t n_len) {
    if (n_len >= 26) {
        TLOGI(" uart : lable: %02x %02x   type: %02x  device_type: %02x   addr: %02x%02x%02x%02x  ",
              b[6], b[7], b[10], b[11], b[25], b[24], b[23], b[22]);
    }
    if (n_len < kDumpLimit) print_24_per_line(b, static_cast<int>(n_len));
    TLOGI("\n");
    int32_t n_written = sdk_uart_write(static_cast<uint32_t>(ch.n_fd), b, n_len);
    if (n_written != static_cast<int32_t>(n_len)) return n_written;
    TLOGI("send ok len %d ", n_len);
    return kOk;
}

constexpr Transport kTransports[] = {
    {UDP, setup::kOpenUdp, Receiver::kNet, true, open_udp, send_udp},
    {REPORT_UDP, setup::kOpenReportUdp, Receiver::kReport, false, open_udp, nullptr},
    {UART, setup::kOpenUart, Receiver::kUart, true, open_serial, send_uart},
};

}  // namespace

const Transport *transport_of(int32_t type) {
    for (const Transport &t : kTransports) {
        if (t.type == type) return &t;
    }
    return nullptr;
}

}  // namespace sdk
