// Monitor and send lists: the least-loaded choice, the listing rules, and each manager
// against its consumer's walk (get-next first, then handle and maybe pull).
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "manage_fixtures.h"

namespace {

// One walk over every list of the manager, as the monitor and the sender make it.
template <class Node, class Manager, class GetNext, class Handle>
void walk(Manager *m, GetNext get_next, Handle handle) {
    for (uint32_t i = 0; i < static_cast<uint32_t>(m->n_list_num); i++) {
        auto *list = m->p_list[i];
        list->n_state = 2;
        Node *node = nullptr;
        get_next(list, &node, list->p_info_head);
        while (node != nullptr) {
            Node *next = nullptr;
            get_next(list, &next, node);
            handle(i, node);
            node = next;
        }
        list->n_state = 1;
    }
}

struct MonitorLists : public ::testing::Test {
    test::Config cfg{{PACKET_VIDEO}, 0, 0, 3};
    monitor_list_manage_t m{};
    std::vector<std::unique_ptr<packet_data_t>> reqs;
    void SetUp() override {
        ASSERT_EQ(sdk_monitor_list_manage_init(&m, cfg.info), 0);
        for (uint16_t i = 0; i < 2000; i++) {
            reqs.push_back(std::make_unique<packet_data_t>());
            reqs.back()->n_port_id = i;
        }
    }
    void TearDown() override { test::free_manager(&m); }
};

TEST_F(MonitorLists, LeastLoadedListTakesEachPush) {
    std::vector<int> order;
    for (int i = 0; i < 6; i++) {
        order.push_back(m.n_min_id);
        ASSERT_EQ(sdk_monitor_list_push(&m, reqs[i].get()), 0);
    }
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 0, 1, 2}));
    EXPECT_EQ(m.n_list_node_num, 6u);
    EXPECT_EQ(sdk_monitor_list_pull(&m, 0, m.p_list[0]->p_info_head), -4000);
    EXPECT_EQ(sdk_monitor_list_pull(&m, 3, m.p_list[0]->p_info_end), -4000);

    // A pull that leaves list 1 the shortest makes it the next target.
    ASSERT_EQ(sdk_monitor_list_pull(&m, 1, m.p_list[1]->p_info_end), 0);
    EXPECT_EQ(m.n_min_id, 1);
    EXPECT_EQ(m.n_min_num, 1);
    ASSERT_EQ(sdk_monitor_list_push(&m, reqs[6].get()), 0);
    EXPECT_EQ(m.p_list[1]->p_info_end->p_data, reqs[6].get());
    EXPECT_EQ(m.n_min_id, 0);  // equal lengths: the lowest index

    test::Config zero({PACKET_VIDEO}, 0, 0, 0);
    monitor_list_manage_t none{};
    EXPECT_EQ(sdk_monitor_list_manage_init(&none, zero.info), -3);
}

// Producers push while the monitor's walk visits requests and pulls each on its second
// visit (a request is looked at a few times before it ends).
TEST_F(MonitorLists, ConcurrentProducersAgainstWalkingConsumer) {
    constexpr uint32_t kProducers = 4, kTotal = 2000;
    std::vector<std::thread> producers;
    for (uint32_t p = 0; p < kProducers; p++) {
        producers.emplace_back([&, p] {
            for (uint32_t i = p; i < kTotal; i += kProducers) {
                EXPECT_EQ(sdk_monitor_list_push(&m, reqs[i].get()), 0);
            }
        });
    }
    std::vector<int> visits(kTotal), pulled(kTotal);
    for (uint32_t ended = 0; ended < kTotal;) {
        walk<packet_list_t>(&m, sdk_monitor_list_get_next, [&](uint32_t i, packet_list_t *node) {
            uint16_t idx = node->p_data->n_port_id;
            if (++visits[idx] < 2) return;
            ASSERT_EQ(sdk_monitor_list_pull(&m, i, node), 0);
            pulled[idx]++;
            ended++;
        });
    }
    for (std::thread &t : producers)
        t.join();
    for (uint32_t i = 0; i < kTotal; i++)
        ASSERT_EQ(pulled[i], 1) << i;
    EXPECT_EQ(m.n_list_node_num, 0u);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(m.p_list[i]->p_info_end, m.p_list[i]->p_info_head);
}

struct SendLists : public ::testing::Test {
    test::Config cfg{{PACKET_VIDEO, PACKET_VIDEO, PACKET_VIDEO, PACKET_VIDEO}, 0, 0, 2};
    send_list_manage_t m{};
    send_queue_list_t ql{};
    data_buf_t buf{};
    void SetUp() override {
        ASSERT_EQ(sdk_send_list_manage_init(&m, cfg.info), 0);
        ASSERT_EQ(sdk_basics_send_queue_init(&ql, cfg.info), 0);
    }
    void TearDown() override {
        test::free_manager(&m);
        test::free_sender_queues(&ql);
    }
    int posts() {
        int v = -1;
        sem_getvalue(&m.sem, &v);
        return v;
    }
};

TEST_F(SendLists, ListsOnlyQueuesWithFramesAndOnlyOnce) {
    send_queue_t *q = &ql.p_queue[0];
    packet_general_data_t gen{};
    ASSERT_EQ(sdk_send_list_push(&m, q), 0);  // empty: nothing to send
    EXPECT_EQ(q->st_general.n_list_state, 0);
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(sdk_send_queue_push(q, &buf, &gen), 0);
        ASSERT_EQ(sdk_send_list_push(&m, q), 0);  // the second finds it listed
    }
    EXPECT_EQ(q->st_general.n_list_state, 1);
    EXPECT_EQ(m.n_list_node_num, 1u);
    EXPECT_EQ(posts(), 1);

    queue_list_data_t *node = m.p_list[0]->p_info_end;
    ASSERT_EQ(sdk_send_list_pull(&m, 0, node), 0);  // frames wait: stays listed
    EXPECT_EQ(m.p_list[0]->n_len, 1u);
    ASSERT_EQ(sdk_send_queue_pull(q), 0);
    ASSERT_EQ(sdk_send_queue_pull(q), 0);
    ASSERT_EQ(sdk_send_list_pull(&m, 0, node), 0);
    EXPECT_EQ(q->st_general.n_list_state, 0);
    EXPECT_EQ(m.n_list_node_num, 0u);
    EXPECT_EQ(sdk_send_list_pull(&m, 0, m.p_list[0]->p_info_head), -4000);
}

// Producers queue frames on four channels and list the queues; the sender's walk takes the
// head frame of each listed queue and pulls the queue from its list after every frame.
TEST_F(SendLists, ConcurrentProducersAgainstSender) {
    constexpr uint32_t kProducers = 4, kPer = 500, kTotal = kProducers * kPer;
    std::vector<packet_general_data_t> frames(kTotal);
    std::vector<std::thread> producers;
    for (uint32_t p = 0; p < kProducers; p++) {
        producers.emplace_back([&, p] {
            for (uint32_t i = 0; i < kPer; i++) {
                send_queue_t *q = &ql.p_queue[(p + i) % 4];
                EXPECT_EQ(sdk_send_queue_push(q, &buf, &frames[p * kPer + i]), 0);
                EXPECT_EQ(sdk_send_list_push(&m, q), 0);
            }
        });
    }
    std::vector<int> seen(kTotal);
    std::vector<int64_t> last(kProducers * 4, -1);  // per producer and queue
    for (uint32_t got = 0, before = 1; got < kTotal;) {
        if (got == before) {  // idle: sleep on the semaphore (the trigger thread posts it too)
            timespec ts{};
            clock_gettime(CLOCK_REALTIME, &ts);
            ts.tv_sec += ts.tv_nsec >= 990000000 ? 1 : 0;
            ts.tv_nsec = (ts.tv_nsec + 10000000) % 1000000000;
            sem_timedwait(&m.sem, &ts);
        }
        before = got;
        walk<queue_list_data_t>(&m, sdk_send_list_get_next, [&](uint32_t i, queue_list_data_t *n) {
            queue_data_t head{};
            if (sdk_send_queue_get_first(&head, n->p_data) == 0) {
                auto idx = static_cast<uint32_t>(head.p_packet - frames.data());
                ASSERT_EQ(sdk_send_queue_pull(n->p_data), 0);
                seen[idx]++;
                got++;
                uint32_t p = idx / kPer, k = idx % kPer, key = p * 4 + (p + k) % 4;
                EXPECT_GT(static_cast<int64_t>(k), last[key]);
                last[key] = k;
            }
            ASSERT_EQ(sdk_send_list_pull(&m, i, n), 0);
        });
    }
    for (std::thread &t : producers)
        t.join();
    for (uint32_t i = 0; i < kTotal; i++)
        ASSERT_EQ(seen[i], 1) << i;
    EXPECT_EQ(m.n_list_node_num, 0u);
    for (uint32_t c = 0; c < 4; c++)
        EXPECT_EQ(ql.p_queue[c].st_general.n_list_state, 0);
}

}  // namespace
