// Send queues, the report queue and the time test.
#include <gtest/gtest.h>

#include <sys/time.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "common/clock.h"
#include "manage_fixtures.h"
#include "transfer_server.h"

namespace {

class SendQueue : public ::testing::Test {
  protected:
    test::Config cfg{{PACKET_VIDEO, PACKET_SENDER}};
    send_queue_list_t ql{};
    send_queue_t *q = nullptr;
    data_buf_t buf{};
    void SetUp() override {
        ASSERT_EQ(sdk_basics_send_queue_init(&ql, cfg.info), 0);
        q = &ql.p_queue[0];
    }
    void TearDown() override { test::free_sender_queues(&ql); }
};

TEST_F(SendQueue, InitAndEmptyEdges) {
    ASSERT_EQ(ql.n_num, 2u);
    const queue_general_data_t &g = ql.p_queue[1].st_general;
    EXPECT_EQ(g.n_channel_id, 1);
    EXPECT_EQ(g.n_fd, cfg.channels[1].n_fd);
    EXPECT_EQ(g.e_packet_code_type, PACKET_SENDER);
    EXPECT_EQ(g.n_recv_state, 1);
    queue_data_t head{};
    packet_general_data_t gen{};
    EXPECT_EQ(sdk_send_queue_get_first(&head, q), -4000);
    EXPECT_EQ(sdk_send_queue_pull(q), -4000);
    ASSERT_EQ(sdk_send_queue_push(q, &buf, &gen), 0);  // empty again after a pull: refilled
    ASSERT_EQ(sdk_send_queue_get_first(&head, q), 0);
    EXPECT_EQ(head.p_packet, &gen);
}

// Producers push while the sender's pattern (read the head, pull it) drains the queue:
// every frame comes out once, each producer's frames in their order.
TEST_F(SendQueue, ConcurrentProducersAgainstConsumer) {
    constexpr int kProducers = 4, kPer = 2000;
    std::vector<packet_general_data_t> gen(kProducers * kPer);
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; p++) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPer; i++)
                EXPECT_EQ(sdk_send_queue_push(q, &buf, &gen[p * kPer + i]), 0);
        });
    }
    std::vector<int> last(kProducers, -1), seen(gen.size());
    for (size_t got = 0; got < gen.size();) {
        queue_data_t head{};
        if (sdk_send_queue_get_first(&head, q) != 0) {
            std::this_thread::yield();
            continue;
        }
        auto idx = static_cast<int>(head.p_packet - gen.data());
        ASSERT_EQ(sdk_send_queue_pull(q), 0);
        EXPECT_GT(idx % kPer, last[idx / kPer]);
        last[idx / kPer] = idx % kPer;
        seen[idx]++;
        got++;
    }
    for (std::thread &t : producers)
        t.join();
    for (int s : seen)
        ASSERT_EQ(s, 1);
}

struct ReportQueue : public ::testing::Test {
    report_queue_t rq{};
    std::unique_ptr<report_queue_data_t> out = std::make_unique<report_queue_data_t>();
    void SetUp() override { ASSERT_EQ(sdk_report_queue_init(&rq), 0); }
    void TearDown() override {
        while (sdk_report_queue_pull(&rq) == 0) {
        }
    }
};

TEST_F(ReportQueue, WholeRecordsInOrderAndLengthLimit) {
    std::vector<uint8_t> big(SDK_REPORT_BUF_LEN + 1);
    for (size_t i = 0; i < big.size(); i++)
        big[i] = static_cast<uint8_t>(i * 7);
    EXPECT_EQ(sdk_report_queue_get_first(out.get(), &rq), -4000);
    EXPECT_EQ(sdk_report_queue_push(&rq, big.data(), SDK_REPORT_BUF_LEN + 1, 3), -4000);
    EXPECT_EQ(sdk_report_queue_push(&rq, nullptr, 4, 3), -5);
    ASSERT_EQ(sdk_report_queue_push(&rq, big.data(), SDK_REPORT_BUF_LEN, 3), 0);
    ASSERT_EQ(sdk_report_queue_push(&rq, nullptr, 0, 4), 0);
    ASSERT_EQ(sdk_report_queue_get_first(out.get(), &rq), 0);
    EXPECT_EQ(out->n_len, SDK_REPORT_BUF_LEN);
    EXPECT_EQ(out->n_slot, 3u);
    EXPECT_EQ(memcmp(out->arr_buf, big.data(), SDK_REPORT_BUF_LEN), 0);
    ASSERT_EQ(sdk_report_queue_pull(&rq), 0);
    ASSERT_EQ(sdk_report_queue_get_first(out.get(), &rq), 0);
    EXPECT_EQ(out->n_slot, 4u);
    ASSERT_EQ(sdk_report_queue_pull(&rq), 0);
    EXPECT_EQ(sdk_report_queue_pull(&rq), -4000);
}

TEST_F(ReportQueue, BoundRefusesNewestAndCounts) {
    EXPECT_EQ(rq.n_max_len, SDK_REPORT_QUEUE_DEFAULT_MAX);
    EXPECT_EQ(sdk_report_queue_set_max(&rq, 0), -4000);
    ASSERT_EQ(sdk_report_queue_set_max(&rq, 2), 0);
    for (uint8_t i = 0; i < 4; i++)
        EXPECT_EQ(sdk_report_queue_push(&rq, &i, 1, 0), i < 2 ? 0 : -4000);
    uint32_t drops = 0;
    ASSERT_EQ(sdk_report_queue_get_drop_num(&rq, &drops), 0);
    EXPECT_EQ(drops, 2u);
    ASSERT_EQ(sdk_report_queue_get_first(out.get(), &rq), 0);
    EXPECT_EQ(out->arr_buf[0], 0);                   // the oldest stays
    ASSERT_EQ(sdk_report_queue_set_max(&rq, 1), 0);  // below the length: nothing is dropped
    EXPECT_EQ(rq.n_len, 2u);
    ASSERT_EQ(sdk_report_queue_pull(&rq), 0);
    ASSERT_EQ(sdk_report_queue_pull(&rq), 0);
    uint8_t b = 9;
    EXPECT_EQ(sdk_report_queue_push(&rq, &b, 1, 0), 0);

    report_queue_t *global = sdk_get_report_queue();  // the host's way to the process queue
    ASSERT_EQ(sdk_report_queue_init(global), 0);
    ASSERT_EQ(sdk_report_queue_push(global, &b, 1, 5), 0);
    ASSERT_EQ(sdk_report_queue_get_first(out.get(), global), 0);
    EXPECT_EQ(out->n_slot, 5u);
    EXPECT_EQ(sdk_report_queue_pull(global), 0);
}

// Receive threads push into a small bounded queue while the host drains it: what was
// accepted comes out once and in order per producer, and refusals match the drop count.
TEST_F(ReportQueue, ConcurrentProducersAgainstBoundedConsumer) {
    constexpr uint32_t kProducers = 3, kPer = 600;
    ASSERT_EQ(sdk_report_queue_set_max(&rq, 8), 0);
    std::atomic<uint32_t> accepted{0}, refused{0}, done{0};
    std::vector<std::thread> producers;
    for (uint32_t p = 0; p < kProducers; p++) {
        producers.emplace_back([&, p] {
            for (uint32_t i = 0; i < kPer; i++) {
                uint32_t payload[2] = {p, i};
                int32_t ret = sdk_report_queue_push(&rq, reinterpret_cast<uint8_t *>(payload),
                                                    sizeof payload, 100 + p);
                (ret == 0 ? accepted : refused)++;
                EXPECT_TRUE(ret == 0 || ret == -4000) << ret;
            }
            done++;
        });
    }
    std::vector<int64_t> last(kProducers, -1);
    uint32_t consumed = 0;
    for (bool finished = false; !finished;) {
        finished = done.load() == kProducers;  // read before the queue is found empty
        if (sdk_report_queue_get_first(out.get(), &rq) != 0) {
            std::this_thread::yield();
            continue;
        }
        uint32_t payload[2];
        ASSERT_EQ(out->n_len, sizeof payload);
        memcpy(payload, out->arr_buf, sizeof payload);
        ASSERT_LT(payload[0], kProducers);
        EXPECT_EQ(out->n_slot, 100 + payload[0]);
        EXPECT_GT(static_cast<int64_t>(payload[1]), last[payload[0]]);
        last[payload[0]] = payload[1];
        ASSERT_EQ(sdk_report_queue_pull(&rq), 0);
        consumed++;
        finished = false;
    }
    for (std::thread &t : producers)
        t.join();
    uint32_t drops = 0;
    ASSERT_EQ(sdk_report_queue_get_drop_num(&rq, &drops), 0);
    EXPECT_EQ(accepted + refused, kProducers * kPer);
    EXPECT_EQ(consumed, accepted.load());
    EXPECT_EQ(drops, refused.load());
}

TEST(TimeoutCheck, MillisecondsSinceStart) {
    packet_general_data_t gen{};
    gen.st_start_time = sdk::clock_now();  // time stamps are taken on the monotonic clock
    EXPECT_EQ(sdk_packet_timeout_check(&gen), -4001);  // a time-out of 0 is expired at once
    gen.n_timeout = 10000;
    EXPECT_EQ(sdk_packet_timeout_check(&gen), 0);
    gen.n_timeout = 100;
    gen.st_start_time.tv_sec -= 1;
    EXPECT_EQ(sdk_packet_timeout_check(&gen), -4001);
    EXPECT_EQ(sdk_packet_timeout_check(nullptr), -4000);
}

}  // namespace
