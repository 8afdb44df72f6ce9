// The character format that sdk_uart_cfg works out. Pseudo-terminals only carry 8 bits
// without parity, so data bits and parity are checked on the computed settings.
#include <gtest/gtest.h>

#include <array>

#include "uart/uart_line.h"

namespace {

// Attributes with every flag set, so that each bit the driver must clear is seen cleared.
termios all_set() {
    termios t{};
    t.c_iflag = ~tcflag_t{0};
    t.c_oflag = ~tcflag_t{0};
    t.c_cflag = ~tcflag_t{0} & ~tcflag_t{CBAUD | CIBAUD};
    t.c_lflag = ~tcflag_t{0};
    cfsetispeed(&t, B9600);
    cfsetospeed(&t, B9600);
    t.c_cc[VMIN] = 5;
    t.c_cc[VTIME] = 5;
    return t;
}

tcflag_t cflag_for(int32_t bits, int32_t stop, int32_t parity) {
    termios t = all_set();
    EXPECT_TRUE(sdk::uart::make_line_settings(&t, 9600, 0, bits, stop, parity));
    return t.c_cflag & (CSIZE | PARENB | PARODD | CSTOPB);
}

TEST(UartLine, DataBits) {
    constexpr std::array<std::pair<int32_t, tcflag_t>, 4> sizes = {
        {{5, CS5}, {6, CS6}, {7, CS7}, {8, CS8}}};
    for (const auto &[bits, cs] : sizes)
        EXPECT_EQ(cflag_for(bits, 1, 'N') & CSIZE, cs) << bits;
    termios t = all_set();
    EXPECT_FALSE(sdk::uart::make_line_settings(&t, 9600, 0, 9, 1, 'N'));
}

TEST(UartLine, ParityEitherCase) {
    EXPECT_EQ(cflag_for(8, 1, 'O'), static_cast<tcflag_t>(CS8 | PARENB | PARODD));
    EXPECT_EQ(cflag_for(8, 1, 'o'), cflag_for(8, 1, 'O'));
    EXPECT_EQ(cflag_for(7, 1, 'E'), static_cast<tcflag_t>(CS7 | PARENB));
    EXPECT_EQ(cflag_for(7, 1, 'e'), cflag_for(7, 1, 'E'));
    EXPECT_EQ(cflag_for(8, 1, 'N') & PARENB, 0u);
    EXPECT_EQ(cflag_for(8, 1, 's'), cflag_for(8, 1, 'N'));
    EXPECT_EQ(cflag_for(8, 2, 'S'), cflag_for(8, 2, 'n'));  // the stop bits decide CSTOPB
    EXPECT_NE(cflag_for(8, 2, 'S') & CSTOPB, 0u);
    termios t = all_set();
    EXPECT_FALSE(sdk::uart::make_line_settings(&t, 9600, 0, 8, 1, 'M'));
}

TEST(UartLine, RawModeClearsEveryProcessingFlag) {
    termios t = all_set();
    ASSERT_TRUE(sdk::uart::make_line_settings(&t, 115200, 0, 8, 1, 'N'));
    EXPECT_EQ(t.c_iflag & (BRKINT | ICRNL | INPCK | ISTRIP | IXON | IXOFF | IXANY), 0u);
    EXPECT_EQ(t.c_oflag & OPOST, 0u);
    EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ECHOE | ISIG), 0u);
    EXPECT_EQ(t.c_cc[VMIN], 0);
    EXPECT_EQ(t.c_cc[VTIME], 0);
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B115200));

    // Software flow control keeps XON/XOFF through raw mode and leaves the speed alone.
    t = all_set();
    ASSERT_TRUE(sdk::uart::make_line_settings(&t, 38400, 2, 8, 1, 'N'));
    EXPECT_EQ(t.c_iflag & (IXON | IXOFF | IXANY), static_cast<tcflag_t>(IXON | IXOFF | IXANY));
    EXPECT_EQ(t.c_cflag & CRTSCTS, 0u);
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600));
}

}  // namespace
