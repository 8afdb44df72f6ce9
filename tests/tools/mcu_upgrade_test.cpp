// mcu_upgrade as a child process against the simulated bootloader served on a pty.
#include <gtest/gtest.h>

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
}
