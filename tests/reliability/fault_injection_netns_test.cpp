// Every request ends once with the outcome the boards' behaviour allows, whatever they do
// to the replies. Each card of the chassis has its own fault profile:
//   main card  duplicated and unsolicited replies, serial replies split and after noise
//   sub card 1 dropped replies
//   sub card 2 corrupted replies (length fields, body kinds, labels)
//   sub card 3 replies delayed past every time-out
#include <malloc.h>

#include <gtest/gtest.h>

#include <thread>

#include "chassis.h"
#include "support/netns_helpers.h"
#include "transfer_server.h"
#include "workload.h"

namespace {

using sdk::reliability::FaultProfile;
using sdk::reliability::Outcomes;

TEST(FaultInjection, EveryRequestEndsOnceWithWhatTheBoardAllowed) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    FaultProfile main_card;
    main_card.dup_pct = 30;
    main_card.unsolicited_pct = 30;
    main_card.serial_noise_pct = 50;
    main_card.serial_split = true;
    FaultProfile dropping;
    dropping.drop_pct = 30;
    FaultProfile corrupting;
    corrupting.corrupt_pct = 30;
    FaultProfile late;
    late.delay_ms = 400;
    sdk::reliability::ChassisPlan plan;
    plan.sub_cards = 3;
    sdk::reliability::SimChassis chassis(plan, {main_card, dropping, corrupting, late});
    ASSERT_EQ(chassis.error(), "");
    const char slots[] = {1, 2, 3};
    ASSERT_EQ(sdk_transfer_init(const_cast<char *>(slots), 3,
                                const_cast<char *>(chassis.config_path().c_str())),
              0);

    sdk::reliability::WorkloadOptions wo;
    wo.requests = 800;
    wo.timeout_ms = 60;
    wo.reply_times = 2;
    sdk::reliability::Workload work(chassis.targets(), wo);
    work.run();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the late replies come in
    chassis.stop();

    for (const auto &f : work.failures())
        ADD_FAILURE() << f;
    const Outcomes all = work.totals();
    EXPECT_EQ(all.total(), wo.requests);
    EXPECT_TRUE(all.clean());
    for (size_t i = 0; i < chassis.targets().size(); ++i) {
        const auto &t = chassis.targets()[i];
        const Outcomes &o = work.per_target()[i];
        SCOPED_TRACE(t.name);
        EXPECT_GT(o.total(), 0u);
        switch (t.slot) {
            case 100:  // every reply gets through, at least once
                EXPECT_EQ(o.timeouts, 0u);
                break;
            case 3:  // no reply is ever in time
                EXPECT_EQ(o.timeouts, o.total());
                break;
            default:
                // Three attempts: a request times out only when all three replies are spoiled.
                EXPECT_LT(o.timeouts, o.total() / 4 + 1);
                break;
        }
    }
    // Dropped replies were made good by retransmission; duplicates and noise were there.
    EXPECT_GT(chassis.stat("dropped"), 0u);
    EXPECT_GT(chassis.stat("duplicated"), 0u);
    EXPECT_GT(chassis.stat("corrupted"), 0u);
    EXPECT_GT(chassis.stat("noise"), 0u);
    EXPECT_GT(chassis.stat("requests"), wo.requests);
}

}  // namespace
