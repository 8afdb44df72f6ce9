// Configuring an open serial port. The settings are worked out on a copy of the port's
// attributes and applied in one call at the end, so a refused argument leaves the port
// exactly as it was.
#include <linux/major.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>

#include <cerrno>

#include "common/log.h"
#include "common/result.h"
#include "uart.h"
#include "uart/uart_line.h"

namespace {

// The slave side of a pseudo-terminal (Unix98 or legacy BSD). Its driver stores every
// character size as 8 bits and drops the parity bit on each set: there is no line on
// which characters would be framed.
bool is_pty_slave(int fd) {
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISCHR(st.st_mode)) return false;
    const unsigned int maj = major(st.st_rdev);
    return maj == PTY_SLAVE_MAJOR ||
           (maj >= UNIX98_PTY_SLAVE_MAJOR && maj < UNIX98_PTY_SLAVE_MAJOR + UNIX98_PTY_MAJOR_COUNT);
}

// Applies tio and tells whether the port now holds it. tcsetattr's result alone does not
// say so: it succeeds when the driver took any part of the settings, and the C library
// turns it into EINVAL only when nothing changed while a character-size or parity bit
// was dropped. On a pseudo-terminal the same 8E1 request therefore succeeded coming from
// another setting and failed when repeated. What the port holds afterwards decides
// instead; a pseudo-terminal is not asked for the framing it cannot keep.
bool apply(int fd, const termios &tio) {
    if (tcsetattr(fd, TCSANOW, &tio) != 0 && errno != EINVAL) return false;
    termios now{};
    return tcgetattr(fd, &now) == 0 && sdk::uart::line_settings_held(tio, now, !is_pty_slave(fd));
}

}  // namespace

extern "C" SDK_API int32_t sdk_uart_cfg(int32_t n_fd, int32_t n_speed, int32_t n_flow_ctrl,
                                        int32_t n_databits, int32_t n_stopbits, int32_t n_parity) {
    termios old_tio{};
    if (tcgetattr(n_fd, &old_tio) != 0) {
        LOGE(LOG_HAL, "SetupSerial 1");
        return sdk::kErrRefused;
    }
    termios tio = old_tio;
    if (!sdk::uart::make_line_settings(&tio, n_speed, n_flow_ctrl, n_databits, n_stopbits,
                                       n_parity)) {
        return sdk::kErrRefused;
    }

    tcflush(n_fd, TCIFLUSH);
    if (!apply(n_fd, tio)) {
        // Logged, not printed: standard output belongs to the host program.
        LOGE(LOG_HAL, "com set error!");
        // A driver may have taken part of the settings; put the old ones back so a
        // refusal never leaves a half-set line.
        tcsetattr(n_fd, TCSANOW, &old_tio);
        return sdk::kErrRefused;
    }
    return sdk::kOk;
}
