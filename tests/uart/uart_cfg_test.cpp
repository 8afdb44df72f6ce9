// Line settings of the serial driver, checked on the slave side of a pseudo-terminal.
#include <gtest/gtest.h>

#include <array>

#include "support/log_capture.h"
#include "support/pty.h"
#include "uart.h"

namespace {

using sdk::test::PtyPair;

class UartCfg : public ::testing::Test {
  protected:
    void SetUp() override {
        fd_ = sdk_uart_open(pty_.uart_name());
        ASSERT_GE(fd_, 0);
    }
    void TearDown() override {
        if (fd_ >= 0) sdk_uart_close(static_cast<uint32_t>(fd_));
    }
    int32_t cfg(int32_t speed, int32_t flow, int32_t bits, int32_t stop, int32_t parity) {
        return sdk_uart_cfg(fd_, speed, flow, bits, stop, parity);
    }

    PtyPair pty_;
    int32_t fd_ = -1;
};

TEST_F(UartCfg, EveryRateOfTheTableSetsBothSpeeds) {
    constexpr std::array<std::pair<int32_t, speed_t>, 9> rates = {{{4000000, B4000000},
                                                                   {115200, B115200},
                                                                   {57600, B57600},
                                                                   {19200, B19200},
                                                                   {9600, B9600},
                                                                   {4800, B4800},
                                                                   {2400, B2400},
                                                                   {1200, B1200},
                                                                   {300, B300}}};
    for (const auto &[rate, code] : rates) {
        ASSERT_EQ(cfg(rate, 0, 8, 1, 'N'), 0) << rate;
        termios t = pty_.slave_attrs();
        EXPECT_EQ(cfgetispeed(&t), code) << rate;
        EXPECT_EQ(cfgetospeed(&t), code) << rate;
    }
}

TEST_F(UartCfg, RateOutsideTheTableKeepsTheSpeedButSucceeds) {
    ASSERT_EQ(cfg(9600, 0, 8, 1, 'N'), 0);
    for (int32_t rate : {38400, 0, -1, 115201}) {
        EXPECT_EQ(cfg(rate, 0, 8, 2, 'N'), 0) << rate;
        termios t = pty_.slave_attrs();
        EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600)) << rate;
        EXPECT_NE(t.c_cflag & CSTOPB, 0u);  // the rest still applied
    }
    // The open-and-configure used for channels behaves the same at 38400.
    int32_t fd = sdk_uart_init(pty_.dev_name(), 38400);
    ASSERT_GE(fd, 0);
    termios t = pty_.slave_attrs();
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600));
    EXPECT_EQ(t.c_cflag & CSTOPB, 0u);
    sdk_uart_close(static_cast<uint32_t>(fd));
}

TEST_F(UartCfg, RefusedArgumentLeavesThePortAsItWas) {
    auto &log = sdk::test::log_capture();
    ASSERT_EQ(cfg(115200, 1, 8, 2, 'N'), 0);
    const termios before = pty_.slave_attrs();
    pty_.send({0x01, 0x02, 0x03});  // pending input survives a refusal (no flush)

    struct Bad {
        int32_t bits, stop, parity;
        const char *msg;
    };
    for (const Bad &b : {Bad{9, 1, 'N', "ERROR [HAL] Unsupported data size"},
                         Bad{4, 1, 'N', "ERROR [HAL] Unsupported data size"},
                         Bad{8, 1, 'x', "ERROR [HAL] Unsupported parity"},
                         Bad{8, 3, 'N', "ERROR [HAL] Unsupported stop bits"},
                         Bad{8, 0, 'o', "ERROR [HAL] Unsupported stop bits"}}) {
        log.clear();
        EXPECT_EQ(cfg(4800, 0, b.bits, b.stop, b.parity), -4000) << b.msg;
        EXPECT_TRUE(log.contains(b.msg)) << b.msg;
        const termios after = pty_.slave_attrs();
        EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));
        EXPECT_EQ(after.c_cflag, before.c_cflag);
        EXPECT_EQ(after.c_iflag, before.c_iflag);
        EXPECT_EQ(after.c_lflag, before.c_lflag);
    }
    ASSERT_TRUE(sdk::test::wait_readable(fd_, 1000));
    uint8_t buf[8];
    EXPECT_EQ(sdk_uart_read(static_cast<uint32_t>(fd_), buf, sizeof(buf), 0), 3);
}

// A pseudo-terminal keeps every character 8 bits wide without parity. Whatever the line
// held before, a request gets the same answer, also right after the same request (the
// bootloader's 8E1 on every run of the upgrade tool).
TEST_F(UartCfg, SameRequestSameAnswerOnAPseudoTerminal) {
    auto &log = sdk::test::log_capture();
    log.clear();
    struct Line {
        int32_t speed;
        speed_t code;
        int32_t bits, stop, parity;
    };
    for (const Line &l : {Line{115200, B115200, 7, 1, 'e'}, Line{115200, B115200, 7, 1, 'E'},
                          Line{115200, B115200, 8, 1, 'E'}, Line{9600, B9600, 5, 2, 'O'},
                          Line{9600, B9600, 8, 1, 'n'}}) {
        for (int round = 0; round < 2; ++round) {
            SCOPED_TRACE(testing::Message()
                         << l.speed << " " << l.bits << static_cast<char>(l.parity) << l.stop
                         << " round " << round);
            EXPECT_EQ(cfg(l.speed, 0, l.bits, l.stop, l.parity), 0);
            const termios t = pty_.slave_attrs();
            EXPECT_EQ(cfgetospeed(&t), l.code);
            EXPECT_EQ((t.c_cflag & CSTOPB) != 0, l.stop == 2);
            EXPECT_EQ(t.c_lflag & ICANON, 0u);
        }
    }
    EXPECT_FALSE(log.contains("com set error!"));
}

TEST_F(UartCfg, FlowControl) {
    constexpr tcflag_t kSoft = IXON | IXOFF | IXANY;
    ASSERT_EQ(cfg(57600, 1, 8, 1, 'N'), 0);
    termios t = pty_.slave_attrs();
    EXPECT_NE(t.c_cflag & CRTSCTS, 0u);
    EXPECT_EQ(t.c_iflag & kSoft, 0u);

    // Values other than 0, 1 and 2 leave the flow control as it was.
    ASSERT_EQ(cfg(57600, 7, 8, 1, 'N'), 0);
    EXPECT_NE(pty_.slave_attrs().c_cflag & CRTSCTS, 0u);

    // 2 is software flow control: XON/XOFF in the input flags, hardware off, the speed
    // field untouched.
    ASSERT_EQ(cfg(57600, 2, 8, 1, 'N'), 0);
    t = pty_.slave_attrs();
    EXPECT_EQ(t.c_cflag & CRTSCTS, 0u);
    EXPECT_EQ(t.c_iflag & kSoft, kSoft);
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B57600));
    EXPECT_EQ(cfgetispeed(&t), static_cast<speed_t>(B57600));
    EXPECT_EQ(t.c_cflag & (CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));

    ASSERT_EQ(cfg(57600, 0, 8, 1, 'N'), 0);
    t = pty_.slave_attrs();
    EXPECT_EQ(t.c_cflag & CRTSCTS, 0u);
    EXPECT_EQ(t.c_iflag & kSoft, 0u);
    ASSERT_EQ(cfg(57600, -3, 8, 1, 'N'), 0);
    EXPECT_EQ(pty_.slave_attrs().c_cflag & CRTSCTS, 0u);
}

TEST_F(UartCfg, RawModeFromACookedLine) {
    // openpty gives a cooked line: canonical input, echo, signals, CR/NL mapping.
    termios t = pty_.slave_attrs();
    ASSERT_NE(t.c_lflag & ICANON, 0u);
    ASSERT_EQ(cfg(115200, 0, 8, 1, 'N'), 0);
    t = pty_.slave_attrs();
    EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ECHOE | ISIG), 0u);
    EXPECT_EQ(t.c_iflag & (BRKINT | ICRNL | INPCK | ISTRIP | IXON), 0u);
    EXPECT_EQ(t.c_oflag & OPOST, 0u);
    EXPECT_EQ(t.c_cc[VMIN], 0);
    EXPECT_EQ(t.c_cc[VTIME], 0);
    EXPECT_EQ(t.c_cflag & (CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));
}

}  // namespace
