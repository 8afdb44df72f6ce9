// The simulated bootloader on a pseudo-terminal: written by stm32flash (an independent
// client of the protocol), by the programmer through host serial functions, and served
// by the isp_sim_pty program.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>

#include "isp_fixture.h"
#include "isp_sim/pty_server.h"
#include "support/log_capture.h"

extern char **environ;

using isp_test::make_image;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

constexpr const char *kStm32flash = "/usr/bin/stm32flash";

// The host's serial functions, as a host program writes them over a real port.
int g_fd = -1;

int port_write(unsigned char *buf, uint16_t len) {
    size_t done = 0;
    while (done < len) {
        ssize_t n = write(g_fd, buf + done, len - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        done += static_cast<size_t>(n);
    }
    return len;
}

// Up to len bytes, waiting at most 100 ms for each.
int port_read(unsigned char *buf, uint16_t len) {
    size_t got = 0;
    while (got < len) {
        pollfd pfd = {g_fd, POLLIN, 0};
        int r = poll(&pfd, 1, 100);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return -1;
        if (r == 0) break;
        ssize_t n = read(g_fd, buf + got, len - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return got > 0 ? static_cast<int>(got) : -1;
        got += static_cast<size_t>(n);
    }
    return static_cast<int>(got);
}

// Opens the slave as the host's port and registers the functions.
class HostPort {
  public:
    explicit HostPort(const std::string &path) {
        g_fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (g_fd >= 0) tcflush(g_fd, TCIOFLUSH);
        mcu_isp_write_func_reg(reinterpret_cast<void *>(&port_write));
        mcu_isp_read_func_reg(reinterpret_cast<void *>(&port_read));
    }
    ~HostPort() {
        mcu_isp_write_func_reg(nullptr);
        mcu_isp_read_func_reg(nullptr);
        if (g_fd >= 0) close(g_fd);
        g_fd = -1;
    }
    bool ok() const { return g_fd >= 0; }
};

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string write_image(const sdk::test::TempDir &dir, const std::string &name,
                        const std::vector<uint8_t> &image) {
    return dir.write(name, std::string(image.begin(), image.end()));
}

// Starts args[0] with stdout (and stderr, when to_err) going to out_fd.
pid_t spawn(std::vector<std::string> args, int out_fd, bool to_err) {
    std::vector<char *> argv;
    for (auto &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out_fd, 1);
    if (to_err) posix_spawn_file_actions_adddup2(&actions, out_fd, 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

// Runs a program with its output in log; its exit status, or -1 when it had to be killed
// after timeout_s seconds.
int run_program(const std::vector<std::string> &args, const std::string &log, int timeout_s) {
    int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    pid_t pid = spawn(args, fd, true);
    close(fd);
    if (pid < 0) return -1;
    int status = 0;
    for (int waited_ms = 0;; waited_ms += 20) {
        if (waitpid(pid, &status, WNOHANG) == pid) break;
        if (waited_ms >= timeout_s * 1000) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        usleep(20000);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<uint8_t> head(const std::vector<uint8_t> &flash, size_t len) {
    return std::vector<uint8_t>(flash.begin(), flash.begin() + static_cast<std::ptrdiff_t>(len));
}

}  // namespace

// stm32flash writes and verifies (Read Memory) an image whose length is no multiple of 4,
// with the page-list Extended Erase of an STM32H750 and the page-list Erase of a GD32F303.
TEST(IspPty, Stm32flashWritesTheSimulator) {
    if (access(kStm32flash, X_OK) != 0) {
        GTEST_SKIP() << kStm32flash << " is not installed: the cross-check needs it";
    }
    for (const char *name : {"stm32h750", "gd32f303"}) {
        SCOPED_TRACE(name);
        isp_sim::Config cfg;
        ASSERT_TRUE(isp_sim::part_config(name, &cfg));
        isp_sim::PtyServer server(cfg);
        ASSERT_TRUE(server.open());
        server.start();

        sdk::test::TempDir dir;
        std::vector<uint8_t> image = make_image(70001);
        std::string file = write_image(dir, "image.bin", image);
        std::string log = dir.path() + "/stm32flash.log";
        int rc =
            run_program({kStm32flash, "-b", "0", "-w", file, "-v", server.slave_path()}, log, 60);
        server.stop();
        EXPECT_EQ(rc, 0) << read_file(log);
        EXPECT_EQ(head(server.flash(), image.size()), image);
        EXPECT_EQ(server.flash()[image.size()], 0xFF);  // padding to a multiple of 4
        isp_sim::Stats stats = server.stats();
        EXPECT_EQ(stats.page_erases, 1);
        EXPECT_EQ(stats.writes, static_cast<int>((image.size() + 255) / 256));
        EXPECT_EQ(stats.reads, stats.writes);
        EXPECT_EQ(stats.nacks, 0);
    }
}

// The programmer through host serial functions on the slave: both image sizes, and then,
// on a bootloader that stm32flash has just written, a second image over the first.
TEST(IspPty, ProgrammerOverThePty) {
    for (bool extended : {true, false}) {
        SCOPED_TRACE(extended ? "extended erase" : "global erase");
        isp_sim::Config cfg;
        cfg.extended_erase = extended;
        isp_sim::PtyServer server(cfg);
        ASSERT_TRUE(server.open());
        server.start();
        for (size_t len : {size_t{600}, size_t{256 * 1024}}) {
            HostPort port(server.slave_path());
            ASSERT_TRUE(port.ok());
            std::vector<uint8_t> image = make_image(len, static_cast<unsigned>(len));
            CaptureStdout();
            int rc = mcu_isp(image.data(), static_cast<unsigned int>(image.size()));
            GetCapturedStdout();
            EXPECT_EQ(rc, MCU_ISP_OK);
            EXPECT_EQ(head(server.flash(), len), image);
        }
        server.stop();
    }

    if (access(kStm32flash, X_OK) != 0) {
        GTEST_SKIP() << kStm32flash << " is not installed: the cross-check needs it";
    }
    isp_sim::PtyServer server;
    ASSERT_TRUE(server.open());
    server.start();
    sdk::test::TempDir dir;
    std::vector<uint8_t> first = make_image(4000, 1);
    std::string log = dir.path() + "/stm32flash.log";
    ASSERT_EQ(run_program({kStm32flash, "-b", "0", "-w", write_image(dir, "a.bin", first), "-v",
                           server.slave_path()},
                          log, 60),
              0)
        << read_file(log);
    ASSERT_EQ(head(server.flash(), first.size()), first);

    HostPort port(server.slave_path());
    std::vector<uint8_t> second = make_image(600, 2);
    CaptureStdout();
    int rc = mcu_isp(second.data(), static_cast<unsigned int>(second.size()));
    GetCapturedStdout();
    server.stop();
    EXPECT_EQ(rc, MCU_ISP_OK);
    std::vector<uint8_t> expected = second;
    expected.resize(first.size(), 0xFF);  // the mass erase took the rest of the first image
    EXPECT_EQ(head(server.flash(), first.size()), expected);
}

// isp_sim_pty prints its slave path, serves it, and dumps the flash on SIGUSR1.
TEST(IspPty, SimulatorProgram) {
    sdk::test::TempDir dir;
    std::string dump = dir.path() + "/flash.bin";
    int out[2];
    ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
    pid_t pid = spawn({ISP_SIM_PTY_PATH, "--part", "gd32f303", "--flash-size", "65536", "--dump",
                       dump, "--exit-with-parent"},
                      out[1], false);
    ASSERT_GT(pid, 0);
    close(out[1]);

    // Lines the program prints, each read within 5 s.
    std::string pending;
    auto next_line = [&]() -> std::string {
        for (;;) {
            size_t nl = pending.find('\n');
            if (nl != std::string::npos) {
                std::string line = pending.substr(0, nl);
                pending.erase(0, nl + 1);
                return line;
            }
            pollfd pfd = {out[0], POLLIN, 0};
            if (poll(&pfd, 1, 5000) <= 0) return "";
            char buf[256];
            ssize_t n = read(out[0], buf, sizeof(buf));
            if (n <= 0) return "";
            pending.append(buf, static_cast<size_t>(n));
        }
    };

    std::string slave = next_line();
    EXPECT_EQ(slave.rfind("/dev/pts/", 0), 0u) << slave;
    std::vector<uint8_t> image = make_image(600, 3);
    {
        HostPort port(slave);
        ASSERT_TRUE(port.ok());
        CaptureStdout();
        int rc = mcu_isp(image.data(), static_cast<unsigned int>(image.size()));
        std::string printed = GetCapturedStdout();
        EXPECT_EQ(rc, MCU_ISP_OK);
        EXPECT_NE(printed.find("erase_type = 1\n"), std::string::npos);
        CaptureStdout();
        mcu_type_detect();
        EXPECT_NE(GetCapturedStdout().find("type: MCU_GD32F303\n"), std::string::npos);
    }
    kill(pid, SIGUSR1);
    EXPECT_EQ(next_line(), "dumped " + dump);
    std::string dumped = read_file(dump);
    ASSERT_EQ(dumped.size(), 65536u);
    EXPECT_EQ(std::vector<uint8_t>(dumped.begin(), dumped.begin() + 600), image);
    EXPECT_EQ(static_cast<uint8_t>(dumped[600]), 0xFF);

    kill(pid, SIGTERM);
    EXPECT_EQ(next_line(), "dumped " + dump);  // the dump at exit
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    close(out[0]);
}
