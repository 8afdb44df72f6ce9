// mcu_upgrade as a child process against the simulated bootloader served on a pty.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "isp_sim/pty_server.h"
#include "run_tool.h"

using tools_test::run_tool;

namespace {

std::string random_image(size_t len) {
    std::mt19937 gen(11);
    std::string image(len, 0);
    for (auto &c : image)
        c = static_cast<char>(gen());
    return image;
}

class McuUpgrade : public testing::Test {
  protected:
    void SetUp() override {
        if (tools_test::tool_path("mcu_upgrade").empty())
            GTEST_SKIP() << "TRANSFER_BINARY_DIR not set: run through ctest";
    }
    sdk::test::TempDir dir_;
};

}  // namespace

TEST_F(McuUpgrade, WritesTheImageAndNamesThePart) {
    isp_sim::Config cfg;
    ASSERT_TRUE(isp_sim::part_config("gd32f303", &cfg));
    isp_sim::PtyServer server(cfg);
    ASSERT_TRUE(server.open());
    server.start();
    const std::string image = random_image(3000);
    const std::string file = dir_.write("fw.bin", image);

    auto run = run_tool("mcu_upgrade", {"-p", file, "-t", "200", server.slave_path()});
    server.stop();
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    const std::vector<uint8_t> flash = server.flash();
    ASSERT_GE(flash.size(), image.size());
    EXPECT_EQ(std::string(flash.begin(), flash.begin() + static_cast<long>(image.size())), image);
    EXPECT_EQ(server.stats().writes, 12);
    EXPECT_NE(run.out.find("3000 bytes written at 0x08000000, part MCU_GD32F303"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.err.find("100%"), std::string::npos) << run.err;  // the progress bar
    EXPECT_EQ(run.out.find("try_times"), std::string::npos);        // programmer chatter kept
}

TEST_F(McuUpgrade, TimesTheWholeRun) {
    // The part is named only after a read that waits out the time-out: a run timed
    // without it would report about a second less than it took.
    isp_sim::PtyServer server{isp_sim::Config()};
    ASSERT_TRUE(server.open());
    server.start();
    const std::string file = dir_.write("fw.bin", random_image(600));
    const auto start = std::chrono::steady_clock::now();
    auto run = run_tool("mcu_upgrade", {"-p", file, "-t", "1000", server.slave_path()});
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    server.stop();
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    const size_t at = run.out.find("done in ");
    ASSERT_NE(at, std::string::npos) << run.out;
    const double reported = std::stod(run.out.substr(at + 8));
    EXPECT_GT(reported, wall - 0.5) << run.out;
    EXPECT_LE(reported, wall + 0.1) << run.out;
}

TEST_F(McuUpgrade, ReportsFailures) {
    const std::string file = dir_.write("fw.bin", random_image(600));
    isp_sim::Config cfg;
    cfg.refuse_erase = true;
    isp_sim::PtyServer server(cfg);
    ASSERT_TRUE(server.open());
    server.start();
    auto run = run_tool("mcu_upgrade", {"-p", file, "-t", "200", server.slave_path()});
    server.stop();
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("failed (-2): the bootloader refused the erase"), std::string::npos)
        << run.err;
    EXPECT_EQ(server.stats().writes, 0);

    run = run_tool("mcu_upgrade", {"-p", file, dir_.path() + "/no-such-tty"});
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.err.find("cannot open"), std::string::npos) << run.err;

    run = run_tool("mcu_upgrade", {"-p", file});  // no device, no slot to look it up
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("TRANSFER_CONFIG"), std::string::npos) << run.err;

    // A silent bootloader: the explanation comes first, the programmer's lines after it.
    isp_sim::Config silent;
    silent.ignore_syncs = 100;
    isp_sim::PtyServer quiet(silent);
    ASSERT_TRUE(quiet.open());
    quiet.start();
    run = run_tool("mcu_upgrade", {"-p", file, "-t", "100", quiet.slave_path()});
    quiet.stop();
    EXPECT_EQ(run.status, 1);
    const size_t explained = run.err.find("failed (-1): the bootloader did not answer");
    EXPECT_NE(explained, std::string::npos) << run.err;
    EXPECT_LT(explained, run.err.find("try_times")) << run.err;

    // Refused before any port is opened: inputs that are not regular files or do not fit
    // the flash, numbers not taken whole, a path longer than the field holds.
    const std::string tty = dir_.path() + "/no-such-tty";
    const struct {
        std::vector<std::string> args;
        int status;
        std::string message;
    } refused[] = {
        {{"-p", dir_.path(), tty}, 3, " is not a regular file"},
        {{"-p", "/dev/zero", tty}, 3, "/dev/zero is not a regular file"},
        {{"-p", file, "-l", "abc", tty}, 2, "-l 'abc': must be a number from 1 to 3145728"},
        {{"-p", file, "-l", "4x", tty}, 2, "-l '4x'"},
        {{"-p", file, "-t", "-5", tty}, 2, "-t '-5'"},
        {{"-p", file, "-s", "-1"}, 2, "-s '-1'"},
        {{"-p", dir_.path() + "/" + std::string(270, 'f'), tty}, 2, "at most 254 fit"},
    };
    for (const auto &r : refused) {
        run = run_tool("mcu_upgrade", r.args);
        EXPECT_EQ(run.status, r.status) << r.message << ": " << run.err;
        EXPECT_NE(run.err.find(r.message), std::string::npos) << run.err;
    }
    const std::string big = dir_.write("big.bin", std::string((3u << 20) + 1, '\0'));
    run = run_tool("mcu_upgrade", {"-p", big, tty});
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.err.find("at most 3145728 fit the flash"), std::string::npos) << run.err;
}

TEST(HostPrograms, AnswerBothHelpFlags) {
    if (tools_test::tool_path("mcu_upgrade").empty())
        GTEST_SKIP() << "TRANSFER_BINARY_DIR not set: run through ctest";
    for (const char *name :
         {"transfer_tool", "mcu_upgrade", "board_sim", "isp_sim/isp_sim_pty", "example_host"}) {
        const auto h = run_tool(name, {"-h"});
        const auto help = run_tool(name, {"--help"});
        EXPECT_EQ(h.status, 0) << name << ": " << h.err;
        EXPECT_EQ(help.status, 0) << name << ": " << help.err;
        const std::string text = h.out + h.err;
        EXPECT_NE(text.find("Usage"), std::string::npos) << name << ": " << text;
        EXPECT_EQ(text, help.out + help.err) << name;
        EXPECT_EQ(text.find("%%"), std::string::npos) << name << ": " << text;
    }
    // transfer_tool keeps the library's usage text in front of its own notes.
    EXPECT_EQ(run_tool("transfer_tool", {"-h"}).err.rfind("Usage: [OPTION...]\n", 0), 0u);
    EXPECT_NE(run_tool("isp_sim/isp_sim_pty", {"-h"}).out.find("first line printed is the device"),
              std::string::npos);
}
