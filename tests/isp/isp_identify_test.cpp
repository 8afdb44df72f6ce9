// Part identification and the erase-type query against the simulated bootloader.
#include <cstring>

#include "isp_fixture.h"

using isp_test::SimulatedMcu;
using isp_test::synced;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

isp_sim::Config part(const char *name) {
    isp_sim::Config cfg;
    EXPECT_TRUE(isp_sim::part_config(name, &cfg)) << name;
    return synced(cfg);
}

}  // namespace

TEST(IspIdentify, EachPartIsRecognised) {
    const struct {
        const char *part;
        en_mcu_type_t type;
    } cases[] = {{"gd32f303", MCU_GD32F303},
                 {"gd32f470", MCU_GD32F470},
                 {"stm32h750", MCU_STM32H750},
                 {"gd32e503", MCU_GD32E503}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.part);
        SimulatedMcu mcu(part(c.part));
        CaptureStdout();
        mcu_type_detect();
        std::string out = GetCapturedStdout();
        EXPECT_EQ(mcu_type_get(), c.type);
        EXPECT_NE(out.find(std::string("type: ") + str_mcu_type[c.type] + "\n"), std::string::npos);
    }
}

TEST(IspIdentify, GdIdentifierAnswers) {
    {
        SimulatedMcu mcu(part("gd32f303"));
        CaptureStdout();
        EXPECT_EQ(read_gd_mcu_pid(), 0x46455633u);
        EXPECT_EQ(GetCapturedStdout(), "read_gd_mcu_pid : read gd pid data len = 4\n");
    }
    {
        // An STM32 refuses the GD32 command; its Get ID answer is read instead.
        SimulatedMcu mcu(part("stm32h750"));
        EXPECT_EQ(read_gd_mcu_pid(), 0u);
        EXPECT_EQ(read_st_mcu_pid(), 0x450);
    }
    {
        // 20 identifier bytes: 16 kept, the rest read and dropped, so the next command
        // gets its own answer.
        isp_sim::Config cfg = part("gd32f470");
        cfg.gd_id.resize(20, 0xAB);
        SimulatedMcu mcu(cfg);
        CaptureStdout();
        EXPECT_EQ(read_gd_mcu_pid(), 0x4E455A30u);
        std::string out = GetCapturedStdout();
        EXPECT_NE(out.find("read_gd_mcu_pid : read gd pid data len = 20\n"
                           "read_gd_mcu_pid : read gd pid length(16) is larger than max "
                           "size(16), use max size\n"),
                  std::string::npos);
        EXPECT_EQ(mcu_erasetype_get(), 0);
    }
    {
        // A bootloader that answers neither identifier is taken for a GD32E503.
        isp_sim::Config cfg = synced();
        cfg.pid = 0x413;
        SimulatedMcu mcu(cfg);
        EXPECT_EQ(read_st_mcu_pid(), 0);
        CaptureStdout();
        mcu_type_detect();
        EXPECT_NE(GetCapturedStdout().find("type: MCU_GD32E503\n"), std::string::npos);
    }
}

TEST(IspIdentify, EraseTypeQuery) {
    const std::vector<uint8_t> thirteen = {0x00, 0x01, 0x02, 0x06, 0x11, 0x21, 0x31,
                                           0x63, 0x73, 0x82, 0x92, 0x43, 0x44};
    std::vector<uint8_t> fourteen = thirteen;
    fourteen.push_back(0x45);
    // 13 codes fit the answer buffer (with the version and the ACK), 14 do not.
    const struct {
        bool extended;
        std::vector<uint8_t> codes;  // empty: the simulator's own
        int type;
        const char *printed;
        bool whole;  // the whole output, or a part of it
    } cases[] = {
        {true, {}, 0, "mcu_erasetype_get : read command support len = 7\nerase_type = 0\n", true},
        {false, {}, 1, "erase_type = 1\n", false},
        {true, thirteen, 0, "support len = 13\n", false},
        {true, fourteen, -1,
         "mcu_erasetype_get : read command support len = 14\nread length overflow.\n", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.printed);
        isp_sim::Config cfg = synced();
        cfg.extended_erase = c.extended;
        if (!c.codes.empty()) cfg.get_codes = c.codes;
        SimulatedMcu mcu(cfg);
        CaptureStdout();
        EXPECT_EQ(mcu_erasetype_get(), c.type);
        std::string out = GetCapturedStdout();
        EXPECT_TRUE(c.whole ? out == c.printed : out.find(c.printed) != std::string::npos) << out;
        EXPECT_EQ(read_st_mcu_pid(), 0x450);  // the stream is still in step
    }
    SimulatedMcu unsynced;  // not synchronised: the bootloader ignores the command
    EXPECT_EQ(mcu_erasetype_get(), -1);
}
