// Raw reads and writes on an open serial port: one system call each, no waiting.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "common/log.h"
#include "common/result.h"
#include "uart.h"

namespace {

// The result is an int32_t count, so one call moves at most INT32_MAX bytes.
size_t clamp_len(uint32_t n_len) {
    return n_len > INT32_MAX ? INT32_MAX : n_len;
}

}  // namespace

extern "C" SDK_API int32_t sdk_uart_write(uint32_t n_fd, uint8_t *pdata, uint32_t n_len) {
    if (pdata == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    ssize_t ret;
    // A signal that arrives before any byte has gone out is not a device failure: the
    // frame is offered again rather than lost.
    do {
        ret = write(static_cast<int>(n_fd), pdata, clamp_len(n_len));
    } while (ret < 0 && errno == EINTR);
    if (ret < 0) {
        const int err = errno;  // before the log call, which may change it
        // Logged, not printed: standard output belongs to the host program.
        TLOGE("uart write error(%d) err(%s)\n", static_cast<int>(ret), strerror(err));
        return sdk::kErrRefused;
    }
    return static_cast<int32_t>(ret);
}

extern "C" SDK_API int32_t sdk_uart_read(uint32_t n_fd, uint8_t *p_buf, uint32_t n_buflen,
                                         uint32_t n_wait_ms) {
    (void)n_wait_ms;  // the port is set up with VMIN 0 / VTIME 0: the caller waits first
    if (p_buf == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    return static_cast<int32_t>(read(static_cast<int>(n_fd), p_buf, clamp_len(n_buflen)));
}
