// Working out a serial port's line settings without touching the port.
#pragma once

#include <termios.h>

#include <cstdint>

namespace sdk::uart {

// Applies speed, flow control, character format and raw mode to *tio, with the argument
// meanings of sdk_uart_cfg. False (after logging the reason) when the data bits, parity
// or stop bits are not supported; *tio is then partly changed and must not be applied.
bool make_line_settings(termios *tio, int32_t n_speed, int32_t n_flow_ctrl, int32_t n_databits,
                        int32_t n_stopbits, int32_t n_parity);

}  // namespace sdk::uart
