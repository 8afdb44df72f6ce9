// The line settings of sdk_uart_cfg worked out on a copy of the port's attributes:
// speed, flow control, character format and raw mode.
#include "uart/uart_line.h"

#include <array>

#include "common/log.h"

namespace sdk::uart {

namespace {

struct Rate {
    int32_t bits_per_second;
    speed_t code;
};

// 38400 is deliberately absent: asking for it keeps the port's current speed.
constexpr std::array<Rate, 9> kRates = {{
    {4000000, B4000000},
    {115200, B115200},
    {57600, B57600},
    {19200, B19200},
    {9600, B9600},
    {4800, B4800},
    {2400, B2400},
    {1200, B1200},
    {300, B300},
}};

constexpr tcflag_t kSoftwareFlow = IXON | IXOFF | IXANY;

// The bits of each flag word that the settings decide.
constexpr tcflag_t kRawInput = BRKINT | ICRNL | INPCK | ISTRIP | INLCR | IGNCR | PARMRK;
constexpr tcflag_t kInputBits = kRawInput | kSoftwareFlow;
constexpr tcflag_t kOutputBits = OPOST;
constexpr tcflag_t kLocalBits = ICANON | ECHO | ECHOE | ECHONL | ISIG | IEXTEN;
constexpr tcflag_t kFramingBits = CSIZE | PARENB;
constexpr tcflag_t kControlBits = kFramingBits | PARODD | CSTOPB | CRTSCTS | CLOCAL | CREAD;

void set_speed(termios *tio, int32_t n_speed) {
    for (const Rate &r : kRates) {
        if (r.bits_per_second == n_speed) {
            cfsetispeed(tio, r.code);
            cfsetospeed(tio, r.code);
            return;
        }
    }
}

void set_flow_control(termios *tio, int32_t n_flow_ctrl) {
    tio->c_cflag |= CLOCAL | CREAD;
    switch (n_flow_ctrl) {
        case 0:
            tio->c_cflag &= ~CRTSCTS;
            tio->c_iflag &= ~kSoftwareFlow;
            break;
        case 1:
            tio->c_cflag |= CRTSCTS;
            tio->c_iflag &= ~kSoftwareFlow;
            break;
        case 2:
            // Open point settled here: 2 means software flow control, XON/XOFF in the
            // input flags (where those bits belong; in the control flags they would
            // corrupt the speed field) with hardware flow control off. raw_mode() keeps
            // IXON for this setting.
            tio->c_cflag &= ~CRTSCTS;
            tio->c_iflag |= kSoftwareFlow;
            break;
        default:
            break;  // hardware and software flow control stay as the port had them
    }
}

bool set_data_bits(termios *tio, int32_t n_databits) {
    tcflag_t size;
    switch (n_databits) {
        case 5:
            size = CS5;
            break;
        case 6:
            size = CS6;
            break;
        case 7:
            size = CS7;
            break;
        case 8:
            size = CS8;
            break;
        default:
            LOGE(LOG_HAL, "Unsupported data size\n");
            return false;
    }
    tio->c_cflag = (tio->c_cflag & ~CSIZE) | size;
    return true;
}

bool set_parity(termios *tio, int32_t n_parity) {
    switch (n_parity) {
        case 'n':
        case 'N':
            tio->c_cflag &= ~PARENB;
            break;
        case 'o':
        case 'O':
            tio->c_cflag |= PARENB | PARODD;
            break;
        case 'e':
        case 'E':
            tio->c_cflag |= PARENB;
            tio->c_cflag &= ~PARODD;
            break;
        case 's':
        case 'S':
            // Space parity is not available as such; the stop-bit step below decides
            // CSTOPB, so this ends up the same as 'N'.
            tio->c_cflag &= ~(PARENB | CSTOPB);
            break;
        default:
            LOGE(LOG_HAL, "Unsupported parity\n");
            return false;
    }
    return true;
}

bool set_stop_bits(termios *tio, int32_t n_stopbits) {
    if (n_stopbits == 1) {
        tio->c_cflag &= ~CSTOPB;
    } else if (n_stopbits == 2) {
        tio->c_cflag |= CSTOPB;
    } else {
        LOGE(LOG_HAL, "Unsupported stop bits\n");
        return false;
    }
    return true;
}

// Frames are binary: every byte must pass unchanged in both directions, whatever line
// discipline settings the port had before (CR/NL mapping, parity marking and the
// extended input processing would all alter or swallow frame bytes).
void set_raw_mode(termios *tio, int32_t n_flow_ctrl) {
    tcflag_t iclear = kRawInput;
    if (n_flow_ctrl != 2) iclear |= IXON;
    tio->c_iflag &= ~iclear;
    tio->c_oflag &= ~kOutputBits;
    tio->c_lflag &= ~kLocalBits;
    tio->c_cc[VTIME] = 0;
    tio->c_cc[VMIN] = 0;
}

}  // namespace

bool make_line_settings(termios *tio, int32_t n_speed, int32_t n_flow_ctrl, int32_t n_databits,
                        int32_t n_stopbits, int32_t n_parity) {
    set_speed(tio, n_speed);
    set_flow_control(tio, n_flow_ctrl);
    if (!set_data_bits(tio, n_databits) || !set_parity(tio, n_parity) ||
        !set_stop_bits(tio, n_stopbits)) {
        return false;
    }
    set_raw_mode(tio, n_flow_ctrl);
    return true;
}

bool line_settings_held(const termios &want, const termios &now, bool framing_held) {
    const tcflag_t control = framing_held ? kControlBits : kControlBits & ~kFramingBits;
    return cfgetispeed(&want) == cfgetispeed(&now) && cfgetospeed(&want) == cfgetospeed(&now) &&
           (want.c_cflag & control) == (now.c_cflag & control) &&
           (want.c_iflag & kInputBits) == (now.c_iflag & kInputBits) &&
           (want.c_oflag & kOutputBits) == (now.c_oflag & kOutputBits) &&
           (want.c_lflag & kLocalBits) == (now.c_lflag & kLocalBits) &&
           want.c_cc[VMIN] == now.c_cc[VMIN] && want.c_cc[VTIME] == now.c_cc[VTIME];
}

}  // namespace sdk::uart
