// Configuring an open serial port. The settings are worked out on a copy of the port's
// attributes and applied in one call at the end, so a refused argument leaves the port
// exactly as it was.
#include <termios.h>

#include <cstdio>

#include "common/log.h"
#include "common/result.h"
#include "uart.h"
#include "uart/uart_line.h"

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
    if (tcsetattr(n_fd, TCSANOW, &tio) != 0) {
        printf("com set error!\n");
        // A driver may take part of the settings before it reports the failure (the C
        // library checks afterwards whether character size and parity were kept). Put
        // the old settings back so a refusal never leaves a half-set line.
        tcsetattr(n_fd, TCSANOW, &old_tio);
        return sdk::kErrRefused;
    }
    return sdk::kOk;
}
