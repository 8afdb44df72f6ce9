// The label counter: its sequence, its wrap and its use from several threads.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "transfer_server.h"

namespace {

// One test, in its own process, because it depends on the counter's start.
TEST(Lable, StartsAtOneWrapsPast65535AndNeverRepeatsAcrossThreads) {
    EXPECT_EQ(sdk_get_next_lable(), 1);
    for (uint32_t expect = 2; expect <= 65535; ++expect) {
        ASSERT_EQ(sdk_get_next_lable(), expect);
    }
    EXPECT_EQ(sdk_get_next_lable(), 1);  // label 0 is never issued

    constexpr int kThreads = 4;
    constexpr int kPerThread = 16000;  // 64000 labels: less than one full turn
    std::vector<std::vector<uint16_t>> got(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&got, t] {
            for (int i = 0; i < kPerThread; ++i)
                got[t].push_back(sdk_get_next_lable());
        });
    }
    for (auto &th : threads)
        th.join();
    std::vector<int> seen(65536, 0);
    for (const auto &v : got) {
        for (uint16_t l : v) {
            ASSERT_NE(l, 0);
            ++seen[l];
        }
    }
    for (int l = 0; l < 65536; ++l)
        ASSERT_LE(seen[l], 1) << "label " << l << " issued twice";
}

}  // namespace
