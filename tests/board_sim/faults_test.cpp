// Fault injection of the simulated boards: the rates asked for, and the same faults again
// for the same seed (what the reliability tests rely on to replay a run).
#include <gtest/gtest.h>

#include "board_sim/faults.h"
#include "worked_example.h"

using namespace board_sim;
using Bytes = std::vector<uint8_t>;

TEST(Faults, SameSeedSameFaultsOtherSeedOthers) {
    Request r;
    const Bytes &req = board_sim_test::kAddrRead, data = {1, 2, 3, 4};
    ASSERT_EQ(parse_request(req.data(), req.size(), &r), ParseError::kNone);
    const Bytes reply = build_reply(r, 0, data.data(), data.size());
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
