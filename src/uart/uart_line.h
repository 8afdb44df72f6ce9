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

// True when the attributes read back from a port (now) hold everything make_line_settings
// decided in want: speeds, flow control, character format and raw mode. With
// framing_held false, character size and parity are not compared: a pseudo-terminal
// keeps every character 8 bits wide without parity, whatever it is given.
bool line_settings_held(const termios &want, const termios &now, bool framing_held);

}  // namespace sdk::uart
