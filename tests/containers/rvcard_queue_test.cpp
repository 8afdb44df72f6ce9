// Receiving-card queues: the matrix, creation on first push, and the lifetime contract
// between the request path, the sender's send-list pull and the end of a request.
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "manage_fixtures.h"

namespace {

constexpr uint32_t kEths = 2, kCards = 3;

struct RvcardQueues : public ::testing::Test {
    test::Config cfg{{PACKET_VIDEO, PACKET_SENDER}, kEths, kCards, 2};
    send_list_manage_t lists{};
    data_buf_t buf{};
    void SetUp() override {
        ASSERT_EQ(sdk_rvcard_queue_manage_init(&cfg.info), 0);
        ASSERT_EQ(sdk_send_list_manage_init(&lists, cfg.info), 0);
    }
    void TearDown() override { test::free_manager(&lists); }
    rvcard_eth_queue_manage_t *port(uint32_t e, uint32_t r = 0) {
        rvcard_eth_queue_manage_t *p = nullptr;
        EXPECT_EQ(sdk_rvcard_port_lookup(&cfg.info, 1, e, r, &p), 0);
        return p;
    }
    static packet_general_data_t request(uint32_t e, uint32_t r) {
        packet_general_data_t g{};
        g.n_channel_id = 1;
        g.n_eth_id = e;
        g.n_recvcard_id = r;
        return g;
    }
    // The sender on a listed queue: take its head frame, then pull it from its list.
    void send_head(send_queue_t *q) {
        for (uint32_t i = 0; i < 2; i++) {
            queue_list_data_t *n = lists.p_list[i]->p_info_head->p_st_next;
            if (n == nullptr || n->p_data != q) continue;
            ASSERT_EQ(sdk_send_queue_pull(q), 0);
            ASSERT_EQ(sdk_send_list_pull(&lists, i, n), 0);
            return;
        }
        FAIL() << "queue not listed";
    }
};

TEST_F(RvcardQueues, MatrixLookupAndPush) {
    rvcard_eth_queue_manage_t *p = nullptr;
    EXPECT_EQ(cfg.channels[0].p_rvcard_manage.n_max_eth_num, 0);
    EXPECT_EQ(sdk_rvcard_port_lookup(&cfg.info, 1, kEths, 0, &p), -4000);
    EXPECT_EQ(sdk_rvcard_port_lookup(&cfg.info, 1, 0, kCards, &p), -4000);
    EXPECT_EQ(sdk_rvcard_port_lookup(&cfg.info, 0, 0, 0, &p), -4000);  // not a sender channel
    p = port(1);
    EXPECT_EQ(p->n_recv_state, 1);
    packet_general_data_t g[2] = {request(1, 2), request(1, 2)};
    EXPECT_EQ(sdk_rvcard_queue_push(&p->p_queue[2], p, cfg.info, nullptr, &g[0]), -5);
    EXPECT_EQ(sdk_rvcard_queue_push(&p->p_queue[1], p, cfg.info, &buf, &g[0]),
              -4000);  // not its slot
    EXPECT_EQ(p->p_queue[1], nullptr);
    for (auto &one : g)
        ASSERT_EQ(sdk_rvcard_queue_push(&p->p_queue[2], p, cfg.info, &buf, &one), 0);
    send_queue_t *q = p->p_queue[2];
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(q->p_eth_node, p);
    EXPECT_EQ(q->st_general.n_len, 2u);
    EXPECT_EQ(q->st_general.n_fd, cfg.channels[1].n_fd);
    EXPECT_EQ(q->st_general.e_packet_code_type, PACKET_RECV);
    EXPECT_EQ(q->st_general.n_recvcard_id, 2u);
    EXPECT_EQ(q->n_hold_num, 2u);

    // Neither destroy nor a release frees a queue that frames or requests still hold.
    EXPECT_EQ(sdk_rvcard_queue_distory(&p->p_queue[2], p), 0);
    ASSERT_EQ(sdk_send_queue_pull(q), 0);
    ASSERT_EQ(sdk_rvcard_queue_release(&p->p_queue[2], p), 0);
    EXPECT_EQ(p->p_queue[2], q);
    ASSERT_EQ(sdk_send_queue_pull(q), 0);
    ASSERT_EQ(sdk_rvcard_queue_release(&p->p_queue[2], p), 0);
    EXPECT_EQ(p->p_queue[2], nullptr);
    EXPECT_EQ(sdk_rvcard_queue_release(&p->p_queue[2], p), -4000);
}

// Either party may drop the last hold: the request end before the sender's list pull,
// and the other way round.
TEST_F(RvcardQueues, LastHolderFreesTheQueue) {
    rvcard_eth_queue_manage_t *p = port(0);
    packet_general_data_t g = request(0, 1);
    for (bool end_first : {true, false}) {
        ASSERT_EQ(sdk_rvcard_queue_push(&p->p_queue[1], p, cfg.info, &buf, &g), 0);
        send_queue_t *q = p->p_queue[1];
        EXPECT_EQ(q->st_general.n_list_state, 0);  // a fresh queue each round
        ASSERT_EQ(sdk_send_list_push(&lists, q), 0);
        EXPECT_EQ(q->n_hold_num, 2u);
        if (end_first) {
            ASSERT_EQ(sdk_send_queue_pull(q), 0);
            ASSERT_EQ(sdk_rvcard_queue_release(&p->p_queue[1], p), 0);
            EXPECT_EQ(p->p_queue[1], q);  // still listed
            EXPECT_EQ(sdk_rvcard_queue_distory(&p->p_queue[1], p), 0);
            EXPECT_EQ(p->p_queue[1], q);
            for (uint32_t i = 0; i < 2; i++) {
                queue_list_data_t *n = lists.p_list[i]->p_info_head->p_st_next;
                if (n != nullptr) {
                    EXPECT_EQ(sdk_send_list_pull(&lists, i, n), 0);
                }
            }
        } else {
            send_head(q);
            EXPECT_EQ(p->p_queue[1], q);  // the request has not ended
            ASSERT_EQ(sdk_rvcard_queue_release(&p->p_queue[1], p), 0);
        }
        EXPECT_EQ(p->p_queue[1], nullptr);
    }
}

struct Req {
    packet_general_data_t gen{};  // first member: the queue entry points here
    pthread_mutex_t wait_lock = PTHREAD_MUTEX_INITIALIZER;
    send_queue_t *queue = nullptr;  // what the request path keeps as p_queue_general
    std::atomic<int> sent{0};
};

// Host threads register card requests under their wait lock; the sender walks the send
// lists, takes head frames and pulls queues; an ending thread releases each sent request.
// Every frame goes out once, no queue is used after it is freed (ASan), all slots end empty.
TEST_F(RvcardQueues, ConcurrentRequestsSenderAndEnds) {
    constexpr uint32_t kProducers = 3, kTotal = 1200;
    std::vector<std::unique_ptr<Req>> reqs(kTotal);
    for (auto &r : reqs)
        r = std::make_unique<Req>();
    std::atomic<bool> stop{false};
    std::mutex hand_mutex;
    std::condition_variable hand_cv;
    std::deque<Req *> to_end;
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < kProducers; t++) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(t);
            for (uint32_t i = t; i < kTotal; i += kProducers) {
                Req &r = *reqs[i];
                r.gen = request(rng() % kEths, rng() % kCards);
                rvcard_eth_queue_manage_t *p = port(r.gen.n_eth_id, r.gen.n_recvcard_id);
                send_queue_t **slot = &p->p_queue[r.gen.n_recvcard_id];
                pthread_mutex_lock(&r.wait_lock);
                EXPECT_EQ(sdk_rvcard_queue_push(slot, p, cfg.info, &buf, &r.gen), 0);
                r.queue = *slot;  // stable while the request holds it
                EXPECT_EQ(sdk_send_list_push(&lists, r.queue), 0);
                pthread_mutex_unlock(&r.wait_lock);
            }
        });
    }
    std::thread sender([&] {
        while (!stop.load()) {
            for (uint32_t i = 0; i < 2; i++) {
                send_packet_list_t *list = lists.p_list[i];
                queue_list_data_t *node = nullptr, *next = nullptr;
                for (sdk_send_list_get_next(list, &node, list->p_info_head); node; node = next) {
                    sdk_send_list_get_next(list, &next, node);
                    send_queue_t *q = node->p_data;
                    queue_data_t head{};
                    if (sdk_send_queue_get_first(&head, q) == 0) {
                        auto *r = reinterpret_cast<Req *>(head.p_packet);
                        EXPECT_EQ(sdk_send_queue_pull(q), 0);
                        EXPECT_EQ(q->st_general.n_recvcard_id, r->gen.n_recvcard_id);
                        r->sent++;
                        std::lock_guard<std::mutex> g(hand_mutex);
                        to_end.push_back(r);
                        hand_cv.notify_one();
                    }
                    EXPECT_EQ(sdk_send_list_pull(&lists, i, node), 0);
                }
            }
            std::this_thread::yield();
        }
    });
    for (uint32_t ended = 0; ended < kTotal; ended++) {  // the request ends, in this thread
        std::unique_lock<std::mutex> g(hand_mutex);
        hand_cv.wait(g, [&] { return !to_end.empty(); });
        Req *r = to_end.front();
        to_end.pop_front();
        g.unlock();
        pthread_mutex_lock(&r->wait_lock);
        EXPECT_EQ(r->queue->st_general.n_eth_id, r->gen.n_eth_id);  // the state update's read
        rvcard_eth_queue_manage_t *p = port(r->gen.n_eth_id, r->gen.n_recvcard_id);
        EXPECT_EQ(sdk_rvcard_queue_release(&p->p_queue[r->gen.n_recvcard_id], p), 0);
        pthread_mutex_unlock(&r->wait_lock);
    }
    for (std::thread &t : threads)
        t.join();
    stop = true;
    sender.join();
    for (auto &r : reqs)
        ASSERT_EQ(r->sent.load(), 1);
    EXPECT_EQ(lists.n_list_node_num, 0u);
    for (uint32_t e = 0; e < kEths; e++) {
        for (uint32_t r = 0; r < kCards; r++)
            EXPECT_EQ(port(e)->p_queue[r], nullptr);
    }
}

}  // namespace
