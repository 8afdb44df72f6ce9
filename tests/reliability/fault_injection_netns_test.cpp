// Every request ends once with the outcome the boards' behaviour allows,
// whatever they do to the replies. Each card of the chassis has its own faults:
//   main card  duplicated and unsolicited replies, serial replies split and
//   after noise sub card 1 dropped replies sub card 2 corrupted replies (length
//   fields, body kinds, labels) sub card 3 replies delayed past every time-out
#include <gtest/gtest.h>

#include <thread>

#include "chassis.h"
#include "support/netns_helpers.h"
#include "transfer_server.h"

namespace {

TEST(FaultInjection, EveryRequestEndsOnceWithWhatTheBoardAllowed) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    sdk::reliability::SimChassis chassis(3, {{"--seed", "1", "--dup", "30", "--unsolicited", "30",
                                              "--serial-noise", "50", "--serial-split"},
                                             {"--seed", "1", "--drop", "30"},
                                             {"--seed", "1", "--corrupt", "30"},
                                             {"--seed", "1", "--delay-ms", "1500"}});
    ASSERT_EQ(chassis.error, "");
    const char slots[] = {1, 2, 3};
    ASSERT_EQ(sdk_transfer_init(const_cast<char *>(slots), 3,
                                const_cast<char *>(chassis.config_path.c_str())),
              0);
    // Time-outs of 100 ms, three attempts; sub card 3's replies come 1.5 s late, far
    // beyond the last time-out even when a loaded machine lets the monitor look late.
    sdk::reliability::Workload work(chassis.targets, 800, 8, 100);
    work.run();
    // The engine runs on while the last late replies arrive: they must find
    // nothing.
    std::this_thread::sleep_for(std::chrono::milliseconds(1600));
    chassis.stop();

    for (const auto &f : work.failures)
        ADD_FAILURE() << f;
    EXPECT_EQ(work.totals().total(), 800u);
    EXPECT_EQ(work.totals().bad, 0u);
    for (size_t i = 0; i < chassis.targets.size(); ++i) {
        const auto &o = work.per_target[i];
        const uint32_t slot = chassis.targets[i].slot;
        SCOPED_TRACE(chassis.targets[i].name);
        EXPECT_GT(o.total(), 0u);
        // Main card: every reply gets through at least once. Sub card 3: no reply
        // is ever in time. Else three attempts: a request times out only when all
        // three are spoiled.
        EXPECT_LE(o.timeouts, slot == 100 ? 0 : slot == 3 ? o.total() : o.total() / 4);
        EXPECT_GE(o.timeouts, slot == 3 ? o.total() : 0);
    }
    // The faults were there; dropped replies were made good by retransmission.
    for (const char *stat : {"dropped", "duplicated", "corrupted", "noise"})
        EXPECT_GT(chassis.stat(stat), 0u) << stat;
    EXPECT_GT(chassis.stat("requests"), 800u);
}

}  // namespace
