// Slot, section and device index to channel index.
#include <gtest/gtest.h>

#include "support/config_fixture.h"
#include "support/log_capture.h"
#include "transfer_server.h"

namespace {

transfer_op_t target(transfer_section mode, uint32_t mode_id, uint32_t slot) {
    transfer_op_t op{};
    op.e_mode = mode;
    op.n_mode_id = mode_id;
    op.n_slot = slot;
    return op;
}

class RoutingTest : public ::testing::Test {
  protected:
    void SetUp() override {
        sdk::test::load_example_config();
        sdk::test::log_capture().clear();
    }
    sdk::test::LogCapture &log = sdk::test::log_capture();
};

TEST_F(RoutingTest, SubCardSlotsStrideThroughTheirBlock) {
    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 0, 1)), 3);
    EXPECT_EQ(sdk_get_transfer_map_id(target(MCU, 0, 1)), 4);
    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 0, 3)), 7);
    EXPECT_EQ(sdk_get_transfer_map_id(target(MCU, 0, 16)), 34);
    EXPECT_TRUE(log.contains(" st_sub_card  : 16"));
}

TEST_F(RoutingTest, IndexPastTheTableIsRefused) {
    // The worked example: sub cards from id 2, three per slot, ten channels in all.
    transfer_id_map_t saved = g_st_transfer.st_sub_card;
    int32_t saved_num = g_st_transfer.n_num;
    g_st_transfer.n_num = 10;
    g_st_transfer.st_sub_card = transfer_id_map_t{2, 1, 8, {0, 1, 2}, {2, 0}, 3};
    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 1, 3)), 9);
    EXPECT_EQ(sdk_get_transfer_map_id(target(MCU, 0, 3)), -4000);
    EXPECT_TRUE(log.contains(" max num error code -4000"));
    g_st_transfer.st_sub_card = saved;
    g_st_transfer.n_num = saved_num;
}

TEST_F(RoutingTest, MainCardAndBackplaneCountTheirOwnFpgaRows) {
    EXPECT_EQ(sdk_get_transfer_map_id(target(MCU, 0, 100)), 1);
    EXPECT_TRUE(log.contains(" st_main_card  : 100"));
    EXPECT_FALSE(log.contains("n_step_offset"));

    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 0, 101)), 35);
    EXPECT_FALSE(log.contains("n_step_offset"));
    log.clear();
    EXPECT_EQ(sdk_get_transfer_map_id(target(MCU, 0, 101)), 35);
    // The section line comes before the map's own line.
    auto lines = log.lines();
    auto at = [&](const std::string &text) {
        for (size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].find(text) != std::string::npos) return static_cast<int>(i);
        }
        return -1;
    };
    EXPECT_GE(at("n_step_offset 0 FPGA 0 "), 0);
    EXPECT_LT(at("n_step_offset 0 FPGA 0 "), at(" st_backplane  : 101"));
}

TEST_F(RoutingTest, OverlappingRangesPreferTheMainCard) {
    transfer_id_map_t saved = g_st_transfer.st_sub_card;
    g_st_transfer.st_sub_card.n_slot_max = 100;
    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 0, 100)), 0);
    g_st_transfer.st_sub_card = saved;
}

TEST_F(RoutingTest, RefusalsAndTheirLogLines) {
    EXPECT_EQ(sdk_get_transfer_map_id(target(MAX_MODE, 0, 1)), -3);
    EXPECT_TRUE(log.lines().empty());

    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 0, 55)), -4000);
    EXPECT_TRUE(log.contains("unknow slot id 55"));

    // A flattened section index of ten or more would read past the step rows.
    EXPECT_EQ(sdk_get_transfer_map_id(target(MCU, 9, 1)), -4000);
    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 10, 1)), -4000);
    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 0xFFFFFFFFu, 1)), -4000);

    // A huge slot inside a huge range must not wrap into a valid index.
    transfer_id_map_t saved = g_st_transfer.st_sub_card;
    g_st_transfer.st_sub_card.n_slot_max = INT32_MAX;
    g_st_transfer.st_sub_card.n_offset = 1 << 20;
    EXPECT_EQ(sdk_get_transfer_map_id(target(FPGA, 0, 0x40000000u)), -4000);
    g_st_transfer.st_sub_card = saved;
}

}  // namespace
