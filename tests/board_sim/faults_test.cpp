// Fault injection: the faults asked for, and the same faults again for the same seed.
#include <gtest/gtest.h>

#include "board_sim/faults.h"
#include "request_frames.h"

using namespace board_sim;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes sample_reply(uint16_t label) {
    Request r;
    Bytes req = board_sim_test::addr_request(label, true, 0, 0x10, 0, {});
    EXPECT_EQ(parse_request(req.data(), req.size(), &r), ParseError::kNone);
    const Bytes data = {1, 2, 3, 4};
    return build_reply(r, 0, data.data(), data.size());
}

std::vector<std::vector<Bytes>> run(const FaultConfig &config, int replies, Stats *stats) {
    FaultInjector faults(config);
    std::vector<std::vector<Bytes>> out;
    out.reserve(static_cast<size_t>(replies));
    for (int i = 0; i < replies; ++i)
        out.push_back(faults.apply(sample_reply(static_cast<uint16_t>(i + 1)), stats));
    return out;
}

}  // namespace

TEST(FaultsTest, NoFaultsPassesRepliesUnchanged) {
    Stats stats;
    auto out = run(FaultConfig{}, 100, &stats);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(out[i].size(), 1u);
        EXPECT_EQ(out[i][0], sample_reply(static_cast<uint16_t>(i + 1)));
    }
}

TEST(FaultsTest, SameSeedSameFaultsOtherSeedOthers) {
    FaultConfig config;
    config.drop_pct = 20;
    config.dup_pct = 20;
    config.corrupt_pct = 20;
    config.unsolicited_pct = 20;
    config.seed = 7;
    Stats a, b, c;
    auto first = run(config, 500, &a);
    EXPECT_EQ(first, run(config, 500, &b));
    config.seed = 8;
    EXPECT_NE(first, run(config, 500, &c));
    // 20 % of 500, with generous room for chance.
    for (uint64_t n : {a.dropped, a.duplicated, a.corrupted, a.unsolicited}) {
        EXPECT_GT(n, 60u);
        EXPECT_LT(n, 140u);
    }
}

TEST(FaultsTest, EveryCorruptionMakesTheFrameUnusable) {
    const Bytes reply = sample_reply(100);
    for (uint32_t random = 0; random < 2000; random += 7) {
        Bytes f = reply;
        corrupt_frame(&f, Corruption::kLength, random);
        EXPECT_NE(sdk::get_le16(&f[8]) + 10u, f.size());
        f = reply;
        corrupt_frame(&f, Corruption::kBodyType, random);
        EXPECT_GE(f[10] & kParamBodyMask, 3);
        EXPECT_EQ(f[10] & 0xF0, reply[10] & 0xF0);
        f = reply;
        corrupt_frame(&f, Corruption::kLabel, random);
        // Far from the label, so it cannot hit another request in flight.
        auto distance = static_cast<uint16_t>(sdk::get_le16(&f[6]) - 100);
        EXPECT_GE(distance, 0x4000);
        EXPECT_LT(distance, 0xC000);
    }
}

TEST(FaultsTest, UnsolicitedFrameFollowsTheReplyWithAForeignLabel) {
    FaultConfig config;
    config.unsolicited_pct = 100;
    Stats stats;
    auto out = run(config, 1, &stats);
    ASSERT_EQ(out[0].size(), 2u);
    EXPECT_EQ(out[0][0], sample_reply(1));
    const Bytes &extra = out[0][1];
    EXPECT_NE(sdk::get_le16(&extra[6]), 1);
    EXPECT_EQ(sdk::get_le16(&extra[extra.size() - 2]),
              sdk::byte_sum16(extra.data(), extra.size() - 2));

    config.unsolicited_pct = 0;
    config.drop_pct = 100;
    EXPECT_TRUE(run(config, 1, &stats)[0].empty());
    EXPECT_EQ(stats.dropped, 1u);
}
