// The simulated bootloader on a pseudo-terminal, written and verified by stm32flash: an
// independent client of the protocol keeps the simulator that the programmer's tests
// (and mcu_upgrade's) run against honest.
#include <unistd.h>

#include "isp_fixture.h"
#include "isp_sim/pty_server.h"
#include "tools/run_tool.h"

// An image whose length is no multiple of 4, with the page-list Extended Erase of an
// STM32H750 and the page-list Erase of a GD32F303.
TEST(IspPty, Stm32flashWritesTheSimulator) {
    constexpr const char *kStm32flash = "/usr/bin/stm32flash";
    if (access(kStm32flash, X_OK) != 0) GTEST_SKIP() << kStm32flash << " is not installed";
    for (const char *name : {"stm32h750", "gd32f303"}) {
        SCOPED_TRACE(name);
        isp_sim::Config cfg;
        ASSERT_TRUE(isp_sim::part_config(name, &cfg));
        isp_sim::PtyServer server(cfg);
        ASSERT_TRUE(server.open());
        server.start();
        sdk::test::TempDir dir;
        const std::vector<uint8_t> image = isp_test::make_image(70001);
        const std::string file = dir.write("image.bin", std::string(image.begin(), image.end()));
        const auto run = tools_test::run_tool(
            kStm32flash, {"-b", "0", "-w", file, "-v", server.slave_path()}, {}, 60);
        server.stop();
        EXPECT_EQ(run.status, 0) << run.out << run.err;
        std::vector<uint8_t> flash = server.flash();
        EXPECT_EQ(flash[image.size()], 0xFF);  // padding to a multiple of 4
        flash.resize(image.size());
        EXPECT_EQ(flash, image);
        const isp_sim::Stats stats = server.stats();
        EXPECT_EQ(stats.page_erases, 1);
        EXPECT_EQ(stats.writes, static_cast<int>((image.size() + 255) / 256));
        EXPECT_EQ(stats.reads, stats.writes);
        EXPECT_EQ(stats.nacks, 0);
    }
}
