// A simulated board in-process: the library's worked-example requests and their replies,
// and fault injection that is the same for the same seed.
#include <gtest/gtest.h>

#include "board_sim/board.h"
#include "board_sim/faults.h"
#include "common/bytes.h"
#include "worked_example.h"

using namespace board_sim;
using board_sim_test::kAddrRead;
using board_sim_test::kRvcardRead;
using Bytes = std::vector<uint8_t>;

namespace {

bool checksum_ok(const Bytes &f) {
    return f.size() >= 2 &&
           sdk::get_le16(&f[f.size() - 2]) == sdk::byte_sum16(f.data(), f.size() - 2);
}

}  // namespace

TEST(Board, AnswersTheWorkedExamples) {
    Request r;
    ASSERT_EQ(parse_request(kAddrRead.data(), kAddrRead.size(), &r), ParseError::kNone);
    EXPECT_EQ(r.label, 1);
    EXPECT_TRUE(r.ack);
    EXPECT_FALSE(r.write);
    EXPECT_EQ(r.addr, 0x1000u);
    EXPECT_EQ(r.read_len, 4);
    ASSERT_EQ(parse_request(kRvcardRead.data(), kRvcardRead.size(), &r), ParseError::kNone);
    EXPECT_EQ(r.body, BodyKind::kRvcard);
    EXPECT_EQ(r.port, 1);
    EXPECT_EQ(r.card, 5);
    EXPECT_EQ(r.read_len, 8);

    Board board;
    Stats stats;
    for (const Bytes &request : {kAddrRead, kRvcardRead}) {
        const Bytes reply = board.handle(request.data(), request.size(), &stats);
        ASSERT_EQ(reply.size(), request == kAddrRead ? 36u : 34u);
        EXPECT_EQ(sdk::get_le16(&reply[0]), 0xBB55);
        EXPECT_EQ(reply[6], request[6]);  // the label
        EXPECT_EQ(sdk::get_le16(&reply[8]) + 10u, reply.size());
        EXPECT_TRUE(checksum_ok(reply));
    }
    Bytes bad = kAddrRead;
    bad.back() ^= 1;
    EXPECT_TRUE(board.handle(bad.data(), bad.size(), &stats).empty());
    EXPECT_EQ(stats.bad, 1u);
}

TEST(Board, SameSeedSameFaultsOtherSeedOthers) {
    Request r;
    ASSERT_EQ(parse_request(kAddrRead.data(), kAddrRead.size(), &r), ParseError::kNone);
    const Bytes data = {1, 2, 3, 4}, reply = build_reply(r, 0, data.data(), data.size());
    auto run = [&](FaultConfig config, Stats *stats) {
        FaultInjector faults(config);
        std::vector<std::vector<Bytes>> out;
        for (int i = 0; i < 500; ++i)
            out.push_back(faults.apply(reply, stats));
        return out;
    };
    Stats none, a, b, c;
    for (const auto &frames : run(FaultConfig{}, &none))
        EXPECT_EQ(frames, std::vector<Bytes>{reply});
    FaultConfig config{20, 20, 20, 20, 0, 7};
    const auto first = run(config, &a);
    EXPECT_EQ(first, run(config, &b));
    config.seed = 8;
    EXPECT_NE(first, run(config, &c));
    // 20 % of 500, with generous room for chance.
    for (uint64_t n : {a.dropped, a.duplicated, a.corrupted, a.unsolicited}) {
        EXPECT_GT(n, 60u);
        EXPECT_LT(n, 140u);
    }
}
