// The simulated bootloader on a pseudo-terminal, written by stm32flash (an independent
// client of the protocol) and by the programmer through host serial functions.
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "isp_fixture.h"
#include "isp_sim/pty_server.h"
#include "tools/run_tool.h"

using isp_test::make_image;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr const char *kStm32flash = "/usr/bin/stm32flash";

// The host's serial functions over the slave, as a host program writes them.
int g_fd = -1;

int port_write(unsigned char *buf, uint16_t len) {
    return write(g_fd, buf, len) == len ? len : -1;
}

// Up to len bytes, waiting at most 100 ms for each.
int port_read(unsigned char *buf, uint16_t len) {
    int got = 0;
    for (pollfd pfd = {g_fd, POLLIN, 0}; got < len && poll(&pfd, 1, 100) > 0;) {
        ssize_t n = read(g_fd, buf + got, static_cast<size_t>(len - got));
        if (n <= 0) return got > 0 ? got : -1;
        got += static_cast<int>(n);
    }
    return got;
}

// Opens the slave as the host's port, runs the programmer with the image, closes it.
int program(const std::string &slave, Bytes image) {
    g_fd = open(slave.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(g_fd, 0) << slave;
    tcflush(g_fd, TCIOFLUSH);
    mcu_isp_write_func_reg(reinterpret_cast<void *>(&port_write));
    mcu_isp_read_func_reg(reinterpret_cast<void *>(&port_read));
    testing::internal::CaptureStdout();
    const int rc = mcu_isp(image.data(), static_cast<unsigned int>(image.size()));
    testing::internal::GetCapturedStdout();
    mcu_isp_write_func_reg(nullptr);
    mcu_isp_read_func_reg(nullptr);
    close(g_fd);
    return rc;
}

Bytes head(const Bytes &flash, size_t len) {
    return Bytes(flash.begin(), flash.begin() + static_cast<std::ptrdiff_t>(len));
}

}  // namespace

// On both erase variants (the page-list Extended Erase of an STM32H750, the page-list
// Erase of a GD32F303): stm32flash writes and verifies (Read Memory) an image whose length
// is no multiple of 4; then the programmer writes a large image and a short one over it,
// whose mass erase takes the rest of the large one.
TEST(IspPty, Stm32flashAndTheProgrammer) {
    const bool have_stm32flash = access(kStm32flash, X_OK) == 0;
    for (const char *name : {"stm32h750", "gd32f303"}) {
        SCOPED_TRACE(name);
        isp_sim::Config cfg;
        ASSERT_TRUE(isp_sim::part_config(name, &cfg));
        isp_sim::PtyServer server(cfg);
        ASSERT_TRUE(server.open());
        server.start();
        if (have_stm32flash) {
            sdk::test::TempDir dir;
            const Bytes image = make_image(70001);
            const std::string file =
                dir.write("image.bin", std::string(image.begin(), image.end()));
            const auto run = tools_test::run_tool(
                kStm32flash, {"-b", "0", "-w", file, "-v", server.slave_path()}, {}, 60);
            EXPECT_EQ(run.status, 0) << run.out << run.err;
            EXPECT_EQ(head(server.flash(), image.size()), image);
            EXPECT_EQ(server.flash()[image.size()], 0xFF);  // padding to a multiple of 4
            const isp_sim::Stats stats = server.stats();
            EXPECT_EQ(stats.page_erases, 1);
            EXPECT_EQ(stats.writes, static_cast<int>((image.size() + 255) / 256));
            EXPECT_EQ(stats.reads, stats.writes);
            EXPECT_EQ(stats.nacks, 0);
        }
        const Bytes large = make_image(256 * 1024, 1), small = make_image(600, 2);
        EXPECT_EQ(program(server.slave_path(), large), MCU_ISP_OK);
        EXPECT_EQ(head(server.flash(), large.size()), large);
        EXPECT_EQ(program(server.slave_path(), small), MCU_ISP_OK);
        Bytes expected = small;
        expected.resize(large.size(), 0xFF);
        EXPECT_EQ(head(server.flash(), large.size()), expected);
        server.stop();
    }
    if (!have_stm32flash) GTEST_SKIP() << kStm32flash << " is not installed for the cross-check";
}
