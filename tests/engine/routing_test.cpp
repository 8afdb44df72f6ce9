// Slot, section and section index to channel index, on the example
// configuration: main card slot 100, sub cards from slot 1 (three channels
// each, MCU rows after the FPGA rows), the backplane at slot 101.
#include <gtest/gtest.h>

#include "support/config_fixture.h"
#include "support/log_capture.h"
#include "transfer_server.h"

namespace {

TEST(Routing, ChannelOfEachTarget) {
    sdk::test::log_capture();
    sdk::test::load_example_config();
    const struct {
        transfer_section mode;
        uint32_t mode_id, slot;
        int32_t channel;
    } cases[] = {
        {FPGA, 0, 1, 3},
        {MCU, 0, 1, 4},
        {FPGA, 0, 3, 7},
        {MCU, 0, 16, 34},
        {MCU, 0, 100, 1},
        {FPGA, 0, 101, 35},
        {MCU, 0, 101, 35},
        {MAX_MODE, 0, 1, -3},
        {FPGA, 0, 55, -4000},  // no such slot
        // A flattened section index of ten or more would read past the step rows.
        {MCU, 9, 1, -4000},
        {FPGA, 10, 1, -4000},
        {FPGA, 0xFFFFFFFFu, 1, -4000},
    };
    for (const auto &c : cases) {
        transfer_op_t op{};
        op.e_mode = c.mode;
        op.n_mode_id = c.mode_id;
        op.n_slot = c.slot;
        EXPECT_EQ(sdk_get_transfer_map_id(op), c.channel)
            << c.mode << " " << c.mode_id << " " << c.slot;
    }
    // A huge slot inside a huge range must not wrap into a valid index.
    const transfer_id_map_t saved = g_st_transfer.st_sub_card;
    g_st_transfer.st_sub_card.n_slot_max = INT32_MAX;
    g_st_transfer.st_sub_card.n_offset = 1 << 20;
    transfer_op_t op{};
    op.n_slot = 0x40000000u;
    EXPECT_EQ(sdk_get_transfer_map_id(op), -4000);
    g_st_transfer.st_sub_card = saved;
}

}  // namespace
