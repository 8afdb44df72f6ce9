// Opening, closing, reading and writing a serial port, with a pseudo-terminal playing
// the device.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/pty.h"
#include "uart.h"

namespace {

using sdk::test::PtyPair;

class UartIo : public ::testing::Test {
  protected:
    void SetUp() override {
        fd_ = sdk_uart_init(pty_.dev_name(), 115200);
        ASSERT_GE(fd_, 0);
    }
    void TearDown() override {
        if (fd_ >= 0) sdk_uart_close(ufd());
    }
    uint32_t ufd() const { return static_cast<uint32_t>(fd_); }

    PtyPair pty_;
    int32_t fd_ = -1;
};

std::vector<uint8_t> every_byte_value() {
    std::vector<uint8_t> v(256);
    std::iota(v.begin(), v.end(), 0);
    return v;
}

TEST_F(UartIo, BinaryBytesPassUnchangedBothWays) {
    // CR, NL, XON/XOFF, the interrupt character, 0xFF: a raw line must not touch any.
    std::vector<uint8_t> out = every_byte_value();
    EXPECT_EQ(sdk_uart_write(ufd(), out.data(), static_cast<uint32_t>(out.size())), 256);
    EXPECT_EQ(pty_.receive(out.size() + 1, 300), out);

    pty_.send(out);
    std::vector<uint8_t> in;
    uint8_t buf[512];
    while (in.size() < out.size() && sdk::test::wait_readable(fd_, 1000)) {
        int32_t n = sdk_uart_read(ufd(), buf, sizeof(buf), 1000);
        ASSERT_GE(n, 0);
        in.insert(in.end(), buf, buf + n);
    }
    EXPECT_EQ(in, out);
    EXPECT_FALSE(sdk::test::wait_readable(pty_.master(), 50));  // no echo
}

TEST_F(UartIo, ReadReturnsAtOnceWithWhatIsWaiting) {
    uint8_t buf[16];
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(sdk_uart_read(ufd(), buf, sizeof(buf), 5000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));

    pty_.send({0xBB, 0x55, 0x01, 0x02, 0x03});
    ASSERT_TRUE(sdk::test::wait_readable(fd_, 1000));
    EXPECT_EQ(sdk_uart_read(ufd(), buf, 2, 0), 2);  // never more than the room given
    EXPECT_EQ(sdk_uart_read(ufd(), buf, sizeof(buf), 0), 3);
    EXPECT_EQ(buf[2], 0x03);
}

TEST_F(UartIo, NullBuffersAreRefused) {
    auto &log = sdk::test::log_capture();
    log.clear();
    EXPECT_EQ(sdk_uart_write(ufd(), nullptr, 4), -5);
    EXPECT_EQ(sdk_uart_read(ufd(), nullptr, 4, 0), -5);
    EXPECT_EQ(log.count("ERROR [TRANSFER] error code -5"), 2);
}

TEST_F(UartIo, WriteTheDeviceTakesOnlyInPartReturnsThePart) {
    // A non-blocking descriptor lets the pty buffer fill up instead of waiting.
    ASSERT_EQ(fcntl(fd_, F_SETFL, O_NONBLOCK), 0);
    std::vector<uint8_t> big(1 << 20, 0x5A);
    int32_t n = sdk_uart_write(ufd(), big.data(), static_cast<uint32_t>(big.size()));
    EXPECT_GT(n, 0);
    EXPECT_LT(n, static_cast<int32_t>(big.size()));

    // Once nothing more fits, the write fails (EAGAIN) rather than waiting.
    auto &log = sdk::test::log_capture();
    log.clear();
    int32_t ret = 0;
    for (int i = 0; i < 100000 && ret >= 0; ++i) {
        ret = sdk_uart_write(ufd(), big.data(), 4096);
    }
    EXPECT_EQ(ret, -4000);
    EXPECT_TRUE(log.contains(
        "ERROR [TRANSFER] uart write error(-1) err(Resource temporarily unavailable)"));
    pty_.drain();
}

// Failures are logged; standard output is the host's and stays untouched.
TEST(UartDevice, OpenFailures) {
    auto &log = sdk::test::log_capture();
    log.clear();
    std::string missing = "/dev/no-such-serial-port";
    testing::internal::CaptureStdout();
    EXPECT_EQ(sdk_uart_open(reinterpret_cast<uint8_t *>(missing.data())), -4000);
    EXPECT_EQ(sdk_uart_open(nullptr), -4000);
    EXPECT_EQ(log.count("ERROR [HAL] Can't Open Serial Port"), 2);

    EXPECT_EQ(sdk_uart_init(reinterpret_cast<int8_t *>(missing.data()), 9600), -4000);
    EXPECT_TRUE(log.contains("ERROR [HAL] uart open failed /dev/no-such-serial-port "));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(UartDevice, InitOnSomethingThatIsNoTerminalLeavesNothingOpen) {
    auto &log = sdk::test::log_capture();
    log.clear();
    sdk::test::TempDir dir;
    std::string file = dir.write("not-a-tty", "");
    const int before = sdk::test::open_fd_count();
    testing::internal::CaptureStdout();
    EXPECT_EQ(sdk_uart_init(reinterpret_cast<int8_t *>(file.data()), 9600), -4000);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(log.contains("ERROR [HAL] uart set fail " + file + " "));
    EXPECT_TRUE(log.contains("ERROR [HAL] SetupSerial 1"));
    EXPECT_EQ(sdk::test::open_fd_count(), before);
}

TEST(UartDevice, OpenLeavesABlockingDescriptorAndCloseReleasesIt) {
    PtyPair pty;
    int32_t fd = sdk_uart_open(pty.uart_name());
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(sdk_uart_close(static_cast<uint32_t>(fd)), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(sdk_uart_close(static_cast<uint32_t>(fd)), 0);  // 0 even when nothing to close

    // The descriptor of a channel that never opened.
    const uint32_t unopened = static_cast<uint32_t>(-1);
    uint8_t buf[4] = {};
    EXPECT_LT(sdk_uart_read(unopened, buf, sizeof(buf), 0), 0);
    auto &log = sdk::test::log_capture();
    log.clear();
    EXPECT_EQ(sdk_uart_write(unopened, buf, sizeof(buf)), -4000);
    EXPECT_TRUE(log.contains("ERROR [TRANSFER] uart write error(-1) err(Bad file descriptor)"));
}

}  // namespace
