// The report receiver's checks on a report channel, and the serial receive thread's
// hand-over of the lines to the host and its handling of a hung-up line, on the example channel
// table with a datagram socket pair and pseudo-terminals.
#include <pty.h>
#include <sys/socket.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "isp.h"
#include "isp/isp_fixture.h"
#include "isp_sim/pty_server.h"
#include "support/config_fixture.h"
#include "support/log_capture.h"
#include "support/pty.h"
#include "support/wait.h"
#include "transfer_server.h"
#include "uart.h"

namespace {

using Bytes = std::vector<uint8_t>;
using std::chrono::milliseconds;
int g_isp_fd = -1;  // the bootloader's line, for the programmer's read and write

Bytes report_frame(uint8_t first, uint8_t second, uint8_t seq) {
    Bytes f(36, 0);
    f[0] = first;
    f[1] = second;
    f[5] = 1;
    f[8] = 26;
    f[10] = 0x10;
    f[28] = 4;
    f[30] = seq;
    return f;
}

// The next queued report in *out and its slot; negative when the queue is empty.
int32_t pull(Bytes *out) {
    auto rec = std::make_unique<report_queue_data_t>();
    if (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) != 0) return -1;
    sdk_report_queue_pull(sdk_get_report_queue());
    out->assign(rec->arr_buf, rec->arr_buf + rec->n_len);
    return static_cast<int32_t>(rec->n_slot);
}

class ReceiveThreads : public ::testing::Test {
  protected:
    void SetUp() override {
        sdk::test::log_capture();
        static const bool loaded = [] {
            sdk::test::load_example_config();
            for (int32_t i = 0; i < g_st_transfer.n_num; ++i)
                g_st_transfer.st_info[i].n_fd = -1;
            return sdk_transfer_containers_init() == 0;
        }();
        ASSERT_TRUE(loaded);
    }
};

TEST_F(ReceiveThreads, ReportManagerChecksLengthsAndKeepsTheQueueBounded) {
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, sv), 0);
    g_st_transfer.st_info[2].n_fd = sv[0];
    fd_set set;
    FD_ZERO(&set);
    FD_SET(sv[0], &set);
    auto deliver = [&](const Bytes &d) {
        EXPECT_EQ(send(sv[1], d.data(), d.size(), 0), static_cast<ssize_t>(d.size()));
        return sdk_report_recv_manage(set);
    };
    Bytes wrong = report_frame(0x55, 0xBB, 1), bare = report_frame(0x55, 0xBB, 1);
    wrong[8] = 30;  // says 40 bytes, 36 came
    bare.resize(10);
    bare[8] = 0;
    const struct {
        Bytes bytes;
        int32_t result;
    } cases[] = {{{0x55, 0xBB, 0, 0, 0}, -4000}, {wrong, -4000}, {bare, 0}};
    for (const auto &c : cases)
        EXPECT_EQ(deliver(c.bytes), c.result) << c.bytes.size();
    Bytes got;
    EXPECT_EQ(pull(&got), 100);
    EXPECT_EQ(got, bare);

    ASSERT_EQ(sdk_report_queue_set_max(sdk_get_report_queue(), 1), 0);
    EXPECT_EQ(deliver(report_frame(0x55, 0xBB, 2)), 0);
    EXPECT_LT(deliver(report_frame(0x55, 0xBB, 3)), 0);  // full: refused
    EXPECT_EQ(pull(&got), 100);
    EXPECT_EQ(got, report_frame(0x55, 0xBB, 2));
    EXPECT_LT(pull(&got), 0) << "nothing else was queued";
    ASSERT_EQ(sdk_report_queue_set_max(sdk_get_report_queue(), 128), 0);
    g_st_transfer.st_info[2].n_fd = -1;
    close(sv[0]);
    close(sv[1]);
}

double cpu_seconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Channel 1 is a line whose far end has hung up (every read fails), channel 35 a working
// line. The thread must leave both alone while the host holds the port, then serve the
// working line without spinning on the dead one and without delaying it.
TEST_F(ReceiveThreads, SerialThreadWaitsForTheHostAndSurvivesADeadLine) {
    int dead_master = -1, dead_slave = -1;
    ASSERT_EQ(openpty(&dead_master, &dead_slave, nullptr, nullptr, nullptr), 0);
    close(dead_master);
    sdk::test::PtyPair line;
    termios raw = line.slave_attrs();
    cfmakeraw(&raw);
    ASSERT_EQ(tcsetattr(line.slave(), TCSANOW, &raw), 0);

    ASSERT_EQ(sdk_uart_hold(0), 0);  // no thread yet: the lines are the host's at once
    g_st_transfer.st_info[1].n_fd = dead_slave;
    g_st_transfer.st_info[35].n_fd = line.slave();
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, sdk_transfer_uart_recv_thread, nullptr), 0);
    pthread_detach(thread);
    line.send(report_frame(0xBB, 0x55, 7));
    std::this_thread::sleep_for(milliseconds(300));  // the span in which nothing may be read
    Bytes got;
    EXPECT_LT(pull(&got), 0) << "read while the host held the port";

    const double cpu_before = cpu_seconds();
    sdk_uart_release();
    int32_t slot = -1;
    EXPECT_TRUE(sdk::test::wait_until([&] { return (slot = pull(&got)) >= 0; }));
    EXPECT_EQ(slot, 101);
    EXPECT_EQ(got, report_frame(0xBB, 0x55, 7));

    // Reports on the working line arrive promptly while the dead line rests.
    std::vector<long> delays;
    for (uint8_t seq = 10; seq < 20; ++seq) {
        const auto t0 = std::chrono::steady_clock::now();
        line.send(report_frame(0xBB, 0x55, seq));
        EXPECT_TRUE(sdk::test::wait_until([&] { return pull(&got) >= 0; }));
        delays.push_back(
            std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - t0)
                .count());
        EXPECT_EQ(got, report_frame(0xBB, 0x55, seq));
    }
    std::sort(delays.begin(), delays.end());
    EXPECT_LT(delays[delays.size() / 2], 20) << "the dead line delays the working one";
    // The span whose CPU time counts: an idle thread uses next to none; a spinning one, even
    // on a loaded machine, a good part of it.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_LT(cpu_seconds() - cpu_before, 0.15) << "the dead line keeps the serial thread busy";

    // The host gets the lines at once also while a board keeps talking in the middle of a
    // long frame: the thread's turn on that line ends when the host asks.
    std::atomic<bool> talking{true};
    std::thread board([&] {
        line.send({0xBB, 0x55, 0, 0, 0, 1, 0, 0, 0xA0, 0x0F});  // a frame of 4010 bytes
        for (; talking; std::this_thread::sleep_for(milliseconds(1)))
            line.send(Bytes(4, 0x77));
    });
    std::this_thread::sleep_for(milliseconds(50));  // the thread is in its turn on the line
    EXPECT_EQ(sdk_uart_hold(500), 0) << "the thread went on reading while the host waited";
    talking = false;
    board.join();

    // An MCU programmed through its bootloader on a line the thread was reading: once the
    // hold has returned no answer is lost to the thread, so the first sync is answered.
    isp_sim::PtyServer bootloader;
    ASSERT_TRUE(bootloader.open());
    bootloader.start();
    std::string path = bootloader.slave_path();
    g_isp_fd = sdk_uart_init(reinterpret_cast<int8_t *>(path.data()), 115200);
    ASSERT_EQ(sdk_uart_cfg(g_isp_fd, 115200, 0, 8, 1, 'E'), 0);
    g_st_transfer.st_info[35].n_fd = g_isp_fd;
    g_st_transfer.st_info[1].n_fd = line.slave();
    tcflush(line.slave(), TCIFLUSH);  // the talking board's unfinished frame goes
    sdk_uart_release();
    line.send(report_frame(0xBB, 0x55, 30));  // the thread serves the lines again
    EXPECT_TRUE(sdk::test::wait_until([&] { return pull(&got) >= 0; }));
    ASSERT_EQ(sdk_uart_hold(2000), 0);
    mcu_isp_write_func_reg(reinterpret_cast<void *>(
        +[](unsigned char *b, uint16_t n) { return static_cast<int>(write(g_isp_fd, b, n)); }));
    mcu_isp_read_func_reg(reinterpret_cast<void *>(+[](unsigned char *b, uint16_t n) {
        int got = 0;  // the whole answer, as host read functions usually wait for it
        for (ssize_t r = 1; got < n && r > 0 && sdk::test::wait_readable(g_isp_fd, 200);)
            got += static_cast<int>(r = read(g_isp_fd, b + got, n - got));
        return got > 0 ? got : -1;
    }));
    const Bytes image = isp_test::make_image(1000);
    testing::internal::CaptureStdout();
    EXPECT_EQ(mcu_isp(const_cast<uint8_t *>(image.data()), 1000), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(bootloader.stats().syncs, 1);
    EXPECT_TRUE(std::equal(image.begin(), image.end(), bootloader.flash().begin()));
    mcu_isp_write_func_reg(nullptr);
    mcu_isp_read_func_reg(nullptr);
    g_st_transfer.st_info[35].n_fd = g_st_transfer.st_info[1].n_fd = -1;
    sdk_uart_release();
    bootloader.stop();
    close(g_isp_fd);
    close(dead_slave);
}

}  // namespace
