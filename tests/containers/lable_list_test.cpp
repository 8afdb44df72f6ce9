// Label lists: order, search by label, removal, and searches racing producers.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "manage_fixtures.h"

namespace {

class LableList : public ::testing::Test {
  protected:
    test::Config cfg{{PACKET_VIDEO}};
    send_lable_manage_t *list = &cfg.channels[0].p_list;
    std::vector<std::unique_ptr<packet_data_t>> reqs;
    void SetUp() override { ASSERT_EQ(sdk_lable_list_manage_init(&cfg.info), 0); }
    packet_data_t *make(uint32_t lable) {
        reqs.push_back(std::make_unique<packet_data_t>());
        reqs.back()->p_packet.n_send_lable = lable;
        return reqs.back().get();
    }
};

TEST_F(LableList, TakeFindsOldestMatchAndUnlinks) {
    packet_data_t *a = make(7), *b = make(9), *c = make(7);
    EXPECT_EQ(sdk_lable_list_pull(list, list->p_info_head), -4000);
    for (packet_data_t *p : {a, b, c})
        ASSERT_EQ(sdk_lable_list_push(list, p), 0);

    send_lable_list_t copy{};
    ASSERT_EQ(sdk_lable_list_take(list, 7, &copy), 0);
    EXPECT_EQ(copy.p_list, a);
    ASSERT_EQ(sdk_lable_list_take(list, 7, &copy), 0);
    EXPECT_EQ(copy.p_list, c);
    EXPECT_EQ(list->p_info_end->p_list, b);  // c was the end: b is again
    EXPECT_EQ(sdk_lable_list_take(list, 7, &copy), -4008);
    EXPECT_EQ(sdk_lable_list_take(list, 0x10009, nullptr), -4008);  // compared on 32 bits

    EXPECT_EQ(sdk_lable_list_remove(list, b), 0);
    EXPECT_EQ(sdk_lable_list_remove(list, b), -4008);
    EXPECT_EQ(list->p_info_end, list->p_info_head);
    ASSERT_EQ(sdk_lable_list_push(list, a), 0);  // appends behind the sentinel again
    ASSERT_EQ(sdk_lable_list_pull(list, list->p_info_end), 0);
    EXPECT_EQ(list->p_info_head->p_st_next, nullptr);
}

TEST(LableListInit, SenderChannelsGetOneListPerCard) {
    test::Config cfg({PACKET_VIDEO, PACKET_SENDER}, 2, 3);
    ASSERT_EQ(sdk_rvcard_queue_manage_init(&cfg.info), 0);
    ASSERT_EQ(sdk_lable_list_manage_init(&cfg.info), 0);
    EXPECT_EQ(cfg.channels[0].p_rvcard_manage.p_eth_list, nullptr);
    for (transfer_data_t &ch : cfg.channels)
        EXPECT_EQ(ch.p_list.p_info_end, ch.p_list.p_info_head);
    for (int e = 0; e < 2; e++) {
        for (int r = 0; r < 3; r++) {
            send_lable_manage_t *card = cfg.channels[1].p_rvcard_manage.p_eth_list[e]->p_list[r];
            ASSERT_NE(card, nullptr);
            EXPECT_EQ(card->p_info_end, card->p_info_head);
        }
    }
}

// Producers append while threads search by label (the receive paths) and remove by request
// (the end of a request): every request leaves the list exactly once.
TEST_F(LableList, ConcurrentPushTakeAndRemove) {
    constexpr uint32_t kProducers = 4, kTotal = 1600;
    for (uint32_t i = 0; i < kTotal; i++)
        make(i + 1);
    std::vector<std::atomic<bool>> published(kTotal);
    std::vector<std::atomic<int>> seen(kTotal);
    std::atomic<uint32_t> next{0};
    std::vector<std::thread> threads;
    for (uint32_t p = 0; p < kProducers; p++) {
        threads.emplace_back([&, p] {
            for (uint32_t i = p; i < kTotal; i += kProducers) {
                EXPECT_EQ(sdk_lable_list_push(list, reqs[i].get()), 0);
                published[i].store(true, std::memory_order_release);
            }
        });
    }
    for (int t = 0; t < 3; t++) {
        threads.emplace_back([&, t] {
            for (uint32_t i; (i = next.fetch_add(1)) < kTotal;) {
                while (!published[i].load(std::memory_order_acquire))
                    std::this_thread::yield();
                send_lable_list_t copy{};
                if (t == 0) {
                    EXPECT_EQ(sdk_lable_list_remove(list, reqs[i].get()), 0);
                } else {
                    EXPECT_EQ(sdk_lable_list_take(list, i + 1, &copy), 0);
                    EXPECT_EQ(copy.p_list, reqs[i].get());
                }
                seen[i]++;
                EXPECT_EQ(sdk_lable_list_take(list, kTotal + 1, nullptr), -4008);
            }
        });
    }
    for (std::thread &t : threads)
        t.join();
    for (uint32_t i = 0; i < kTotal; i++)
        ASSERT_EQ(seen[i].load(), 1) << i;
    EXPECT_EQ(list->p_info_head->p_st_next, nullptr);
    EXPECT_EQ(list->p_info_end, list->p_info_head);
}

}  // namespace
