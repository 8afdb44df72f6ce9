// The serial driver with a pseudo-terminal playing the device: line settings read back on
// the slave, bytes both ways, and the failures it logs.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <numeric>

#include "support/log_capture.h"
#include "support/pty.h"
#include "uart.h"
#include "uart/uart_line.h"

namespace {

using sdk::test::PtyPair;
constexpr tcflag_t kSoft = IXON | IXOFF | IXANY;

// Applied in order on one line, each twice: the same request gets the same answer (as
// the bootloader's 8E1 on every run of the upgrade tool). A rate outside the table keeps
// the speed, a flow control other than 0, 1 or 2 keeps the flow control, and a refused
// argument keeps everything, pending input included.
TEST(UartSettings, SameRequestSameAnswerOnAPseudoTerminal) {
    PtyPair pty;
    ASSERT_NE(pty.slave_attrs().c_lflag & ICANON, 0u);  // openpty gives a cooked line
    const int32_t fd = sdk_uart_open(pty.uart_name());
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    auto &log = sdk::test::log_capture();
    log.clear();
    const struct {
        int32_t speed, flow, bits, stop, parity;
        speed_t code;
        bool two_stop, hardware_flow, software_flow;
        const char *refused = nullptr;
    } cases[] = {
        {4000000, 0, 8, 1, 'N', B4000000, false, false, false},
        {115200, 1, 7, 1, 'e', B115200, false, true, false},
        {57600, 7, 8, 1, 'E', B57600, false, true, false},
        {19200, 2, 8, 2, 'N', B19200, true, false, true},
        {4800, 0, 8, 1, 'n', B4800, false, false, false},
        {9600, -3, 5, 2, 'O', B9600, true, false, false},
        {38400, 1, 8, 2, 'N', B9600, true, true, false},
        {4800, 0, 9, 1, 'N', B9600, true, true, false, "Unsupported data size"},
        {4800, 0, 8, 1, 'x', B9600, true, true, false, "Unsupported parity"},
        {4800, 0, 8, 3, 'N', B9600, true, true, false, "Unsupported stop bits"},
        {2400, 0, 8, 1, 'N', B2400, false, false, false},
        {1200, 0, 8, 1, 'N', B1200, false, false, false},
        {300, 0, 8, 1, 'N', B300, false, false, false},
        {115201, 0, 8, 1, 'N', B300, false, false, false},
    };
    // An emulator may know fewer rates than the table (qemu-user: none above 3.5 Mbaud).
    const char *max_env = getenv("TRANSFER_TEST_MAX_BAUD");
    const long max_baud = max_env != nullptr ? atol(max_env) : 0;
    bool after_refusal = false;
    for (const auto &c : cases) {
        if (max_baud > 0 && c.speed > max_baud) continue;
        if (c.refused && !after_refusal) pty.send({0x01, 0x02, 0x03});
        if (!c.refused && after_refusal) {  // the input is still there, not flushed
            ASSERT_TRUE(sdk::test::wait_readable(fd, 1000));
            uint8_t buf[8];
            EXPECT_EQ(sdk_uart_read(static_cast<uint32_t>(fd), buf, sizeof(buf), 0), 3);
        }
        after_refusal = c.refused != nullptr;
        for (int round = 0; round < 2; ++round) {
            SCOPED_TRACE(testing::Message()
                         << c.speed << " " << c.bits << static_cast<char>(c.parity) << c.stop
                         << " flow " << c.flow << " round " << round);
            log.clear();
            EXPECT_EQ(sdk_uart_cfg(fd, c.speed, c.flow, c.bits, c.stop, c.parity),
                      c.refused ? -4000 : 0);
            EXPECT_TRUE(c.refused ? log.contains(std::string("ERROR [HAL] ") + c.refused)
                                  : !log.contains("com set error!"));
            const termios t = pty.slave_attrs();
            // Speeds, stop bits, flow control, receiver on, and raw: no line processing.
            // clang-format off
            const std::vector<unsigned long> got = {
                cfgetispeed(&t), cfgetospeed(&t), t.c_cflag & (CSTOPB | CRTSCTS | CLOCAL | CREAD),
                t.c_iflag & (kSoft | BRKINT | ICRNL | INPCK | ISTRIP),
                t.c_lflag & (ICANON | ECHO | ECHOE | ISIG), t.c_oflag & OPOST,
                t.c_cc[VMIN] + t.c_cc[VTIME] * 256ul};
            const std::vector<unsigned long> want = {
                c.code, c.code,
                (c.two_stop ? CSTOPB : 0u) | (c.hardware_flow ? CRTSCTS : 0u) | CLOCAL | CREAD,
                c.software_flow ? kSoft : 0u, 0, 0, 0};
            // clang-format on
            EXPECT_EQ(got, want);
        }
    }
    // The open-and-configure of channels: 8N1, and 38400 keeps the speed too.
    const int32_t other = sdk_uart_init(pty.dev_name(), 38400);
    ASSERT_GE(other, 0);
    const termios t = pty.slave_attrs();
    EXPECT_EQ(t.c_cflag & (CSTOPB | CRTSCTS), 0u);
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B300));
    sdk_uart_close(static_cast<uint32_t>(other));
    EXPECT_EQ(sdk_uart_close(static_cast<uint32_t>(fd)), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(sdk_uart_close(static_cast<uint32_t>(fd)), 0);  // 0 even when nothing to close
}

// A pseudo-terminal carries every character 8 bits wide without parity, so data bits and
// parity are checked on the settings the driver works out (from attributes with every
// flag set, so that each bit it must clear is seen cleared).
TEST(UartSettings, CharacterFormat) {
    const struct {
        int32_t bits, stop, parity;
        tcflag_t cflag;
    } cases[] = {
        {5, 1, 'N', CS5},
        {6, 1, 'n', CS6},
        {7, 1, 'E', CS7 | PARENB},
        {7, 1, 'e', CS7 | PARENB},
        {8, 1, 'O', CS8 | PARENB | PARODD},
        {8, 1, 'o', CS8 | PARENB | PARODD},
        {8, 1, 's', CS8},
        {8, 2, 'S', CS8 | CSTOPB},  // the stop bits decide CSTOPB
    };
    for (const auto &c : cases) {
        termios t{};
        t.c_cflag = ~tcflag_t{0} & ~tcflag_t{CBAUD | CIBAUD};
        ASSERT_TRUE(sdk::uart::make_line_settings(&t, 9600, 0, c.bits, c.stop, c.parity));
        const tcflag_t mask = CSIZE | PARENB | CSTOPB | ((c.cflag & PARENB) ? PARODD : 0);
        EXPECT_EQ(t.c_cflag & mask, c.cflag) << c.bits << c.parity;
    }
}

TEST(UartIo, BinaryBytesPassUnchangedBothWays) {
    PtyPair pty;
    const int32_t fd = sdk_uart_init(pty.dev_name(), 115200);
    ASSERT_GE(fd, 0);
    const uint32_t ufd = static_cast<uint32_t>(fd);
    // CR, NL, XON/XOFF, the interrupt character, 0xFF: a raw line must not touch any.
    std::vector<uint8_t> out(256);
    std::iota(out.begin(), out.end(), 0);
    EXPECT_EQ(sdk_uart_write(ufd, out.data(), 256), 256);
    EXPECT_EQ(pty.receive(out.size() + 1, 300), out);
    pty.send(out);
    std::vector<uint8_t> in;
    uint8_t buf[512];
    while (in.size() < out.size() && sdk::test::wait_readable(fd, 1000)) {
        const int32_t n = sdk_uart_read(ufd, buf, sizeof(buf), 1000);
        ASSERT_GE(n, 0);
        in.insert(in.end(), buf, buf + n);
    }
    EXPECT_EQ(in, out);
    EXPECT_FALSE(sdk::test::wait_readable(pty.master(), 50));  // no echo

    // A read returns at once with what is waiting, never more than the room given.
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(sdk_uart_read(ufd, buf, sizeof(buf), 5000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
    pty.send({0xBB, 0x55, 0x01, 0x02, 0x03});
    ASSERT_TRUE(sdk::test::wait_readable(fd, 1000));
    EXPECT_EQ(sdk_uart_read(ufd, buf, 2, 0), 2);
    EXPECT_EQ(sdk_uart_read(ufd, buf, sizeof(buf), 0), 3);
    EXPECT_EQ(buf[2], 0x03);
    sdk_uart_close(ufd);
}

// Failures are logged, standard output is the host's and stays untouched, and nothing is
// left open.
TEST(UartDevice, Failures) {
    auto &log = sdk::test::log_capture();
    log.clear();
    sdk::test::TempDir dir;
    std::string file = dir.write("not-a-tty", "");
    std::string missing = "/dev/no-such-serial-port";
    testing::internal::CaptureStdout();
    const int before = sdk::test::open_fd_count();
    EXPECT_EQ(sdk_uart_open(reinterpret_cast<uint8_t *>(missing.data())), -4000);
    EXPECT_EQ(sdk_uart_open(nullptr), -4000);
    EXPECT_EQ(sdk_uart_init(reinterpret_cast<int8_t *>(missing.data()), 9600), -4000);
    EXPECT_EQ(sdk_uart_init(reinterpret_cast<int8_t *>(file.data()), 9600), -4000);
    EXPECT_EQ(sdk::test::open_fd_count(), before);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(log.count("ERROR [HAL] Can't Open Serial Port"), 3);
    EXPECT_TRUE(log.contains("ERROR [HAL] uart open failed /dev/no-such-serial-port "));
    EXPECT_TRUE(log.contains("ERROR [HAL] uart set fail " + file + " "));
    EXPECT_TRUE(log.contains("ERROR [HAL] SetupSerial 1"));

    // Null buffers, and the descriptor of a channel that never opened.
    log.clear();
    uint8_t buf[4] = {};
    EXPECT_EQ(sdk_uart_write(static_cast<uint32_t>(-1), nullptr, 4), -5);
    EXPECT_EQ(sdk_uart_read(static_cast<uint32_t>(-1), nullptr, 4, 0), -5);
    EXPECT_EQ(log.count("ERROR [TRANSFER] error code -5"), 2);
    EXPECT_LT(sdk_uart_read(static_cast<uint32_t>(-1), buf, sizeof(buf), 0), 0);
    EXPECT_EQ(sdk_uart_write(static_cast<uint32_t>(-1), buf, sizeof(buf)), -4000);
    EXPECT_TRUE(log.contains("ERROR [TRANSFER] uart write error(-1) err(Bad file descriptor)"));
}

}  // namespace
