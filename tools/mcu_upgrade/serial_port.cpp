#include "mcu_upgrade/serial_port.h"

#include <poll.h>

#include <cerrno>
#include <cstring>

#include "isp.h"
#include "transfer_server.h"
#include "uart.h"

namespace mcu_upgrade {

namespace {

// The programmer's callbacks take no context: the port they use lives here.
int g_fd = -1;
int g_timeout_ms = 1000;

int port_write(unsigned char *buf, uint16_t len) {
    uint16_t done = 0;
    while (done < len) {
        const int32_t n = sdk_uart_write(static_cast<uint32_t>(g_fd), buf + done, len - done);
        if (n < 0) return -1;
        if (n == 0) {
            pollfd p{g_fd, POLLOUT, 0};
            if (poll(&p, 1, g_timeout_ms) <= 0) return -1;
        }
        done = static_cast<uint16_t>(done + n);
    }
    return len;
}

// Up to len bytes; waits at most the time-out for each piece. 0 when nothing came.
int port_read(unsigned char *buf, uint16_t len) {
    uint16_t got = 0;
    while (got < len) {
        pollfd p{g_fd, POLLIN, 0};
        const int r = poll(&p, 1, g_timeout_ms);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return -1;
        if (r == 0) break;
        const int32_t n = sdk_uart_read(static_cast<uint32_t>(g_fd), buf + got, len - got, 0);
        if (n < 0) return got > 0 ? got : -1;
        if (n == 0 && (p.revents & (POLLHUP | POLLERR)) != 0) break;
        got = static_cast<uint16_t>(got + n);
    }
    return got;
}

}  // namespace

void release_uart_flag() {
    sdk_uart_release();
}

bool SerialPort::open(const std::string &device, uint32_t baud, uint32_t timeout_ms,
                      std::string *error) {
    std::string path = device;
    errno = 0;
    const int32_t fd = sdk_uart_open(reinterpret_cast<uint8_t *>(path.data()));
    if (fd < 0) {
        *error = "cannot open " + device + (errno != 0 ? std::string(": ") + strerror(errno) : "");
        return false;
    }
    // The bootloader's line: 8 data bits, even parity, 1 stop bit, no flow control.
    if (sdk_uart_cfg(fd, static_cast<int32_t>(baud), 0, 8, 1, 'E') != 0) {
        sdk_uart_close(static_cast<uint32_t>(fd));
        *error = "cannot set up " + device + " (not a serial device?)";
        return false;
    }
    // Takes the lines from the library's serial receive thread, should one run in this
    // process, before the first byte goes to the bootloader.
    if (sdk_uart_hold(2000) != 0) {
        sdk_uart_close(static_cast<uint32_t>(fd));
        *error = "the serial receive thread did not let go of " + device;
        return false;
    }
    g_fd = fd;
    g_timeout_ms = static_cast<int>(timeout_ms);
    mcu_isp_write_func_reg(reinterpret_cast<void *>(&port_write));
    mcu_isp_read_func_reg(reinterpret_cast<void *>(&port_read));
    open_ = true;
    return true;
}

void SerialPort::close() {
    if (!open_) return;
    mcu_isp_write_func_reg(nullptr);
    mcu_isp_read_func_reg(nullptr);
    sdk_uart_close(static_cast<uint32_t>(g_fd));
    g_fd = -1;
    release_uart_flag();
    open_ = false;
}

SerialPort::~SerialPort() {
    close();
}

}  // namespace mcu_upgrade
