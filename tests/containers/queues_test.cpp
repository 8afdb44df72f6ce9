// The engine's containers through their exported functions, as a host uses them: label
// lists, send queues and lists, the report queue, receiving-card queues and the time test. The
// engine never tears its containers down; here they stay reachable from a static table for the life
// of the process, so LeakSanitizer has nothing to report.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "common/clock.h"
#include "transfer_manage.h"
#include "transfer_server.h"

namespace {

template <class T>
T *kept(T *p) {
    static auto *all = new std::vector<void *>;
    all->push_back(p);
    return p;
}

// Channel 0 plain, channel 1 a sender channel of 2 ports with 3 receiving cards each;
// `lists` lists in each manager.
transfer_info_t &table(uint32_t lists = 2) {
    auto *ch = kept(new transfer_data_t[2]{});
    ch[1].e_packet_code_type = PACKET_SENDER;
    ch[1].n_fd = 101;
    auto *info = kept(new transfer_info_t{});
    info->st_info = ch;
    info->n_num = 2;
    info->st_format = {1, lists, 1, lists, 2, 3};
    EXPECT_EQ(sdk_rvcard_queue_manage_init(info), 0);
    EXPECT_EQ(sdk_lable_list_manage_init(info), 0);
    return *info;
}

// The listed queues of every send list as (list, node), walked as the sender does.
std::vector<std::pair<uint32_t, queue_list_data_t *>> send_listed(send_list_manage_t *m) {
    std::vector<std::pair<uint32_t, queue_list_data_t *>> out;
    for (uint32_t i = 0; i < static_cast<uint32_t>(m->n_list_num); i++) {
        send_packet_list_t *l = m->p_list[i];
        for (auto *n = l->p_info_head; sdk_send_list_get_next(l, &n, n) == 0 && n;)
            out.emplace_back(i, n);
    }
    return out;
}

TEST(LableList, SearchTakesTheOldestWithTheLabelOnce) {
    send_lable_manage_t *list = &table().st_info[0].p_list;
    std::vector<packet_data_t> r(3);
    for (int i = 0; i < 3; i++) {
        r[i].p_packet.n_send_lable = i == 1 ? 9 : 7;
        ASSERT_EQ(sdk_lable_list_push(list, &r[i]), 0);
    }
    send_lable_list_t copy{};
    ASSERT_EQ(sdk_lable_list_take(list, 7, &copy), 0);
    EXPECT_EQ(copy.p_list, &r[0]);
    ASSERT_EQ(sdk_lable_list_take(list, 7, &copy), 0);
    EXPECT_EQ(copy.p_list, &r[2]);
    EXPECT_EQ(sdk_lable_list_take(list, 7, &copy), -4008);
    EXPECT_EQ(sdk_lable_list_take(list, 0x10009, nullptr), -4008);  // compared on 32 bits
    EXPECT_EQ(sdk_lable_list_remove(list, &r[1]), 0);
    EXPECT_EQ(sdk_lable_list_remove(list, &r[1]), -4008);
}

// A queue with frames is listed once, stays listed while frames wait, and leaves its list
// once the sender has taken the last one; frames come out first in first out.
TEST(SendLists, ListQueuesWithFramesOnceUntilEmpty) {
    transfer_info_t &t = table();
    auto *ql = kept(new send_queue_list_t{});
    auto *m = kept(new send_list_manage_t{});
    ASSERT_EQ(sdk_basics_send_queue_init(ql, t), 0);
    ASSERT_EQ(sdk_send_list_manage_init(m, t), 0);
    send_queue_t *q = &ql->p_queue[0];
    queue_data_t head{};
    ASSERT_EQ(sdk_send_list_push(m, q), 0);  // empty: nothing to send
    EXPECT_TRUE(send_listed(m).empty());
    packet_general_data_t g[2]{};
    data_buf_t buf{};
    for (auto &one : g) {
        ASSERT_EQ(sdk_send_queue_push(q, &buf, &one), 0);
        ASSERT_EQ(sdk_send_list_push(m, q), 0);
    }
    auto nodes = send_listed(m);
    ASSERT_EQ(nodes.size(), 1u);
    int posts = -1;
    sem_getvalue(&m->sem, &posts);
    EXPECT_EQ(posts, 1);
    for (auto &one : g) {
        ASSERT_EQ(sdk_send_queue_get_first(&head, q), 0);
        EXPECT_EQ(head.p_packet, &one);
        ASSERT_EQ(sdk_send_queue_pull(q), 0);
        ASSERT_EQ(sdk_send_list_pull(m, nodes[0].first, nodes[0].second), 0);
        ASSERT_EQ(send_listed(m).size(), &one == &g[0] ? 1u : 0u);  // else its node is gone
    }
}

TEST(ReportQueue, WholeRecordsInOrderUpToItsBound) {
    report_queue_t *rq = sdk_get_report_queue();  // the host's way to the process queue
    ASSERT_EQ(sdk_report_queue_init(rq), 0);
    auto out = std::make_unique<report_queue_data_t>();
    std::vector<uint8_t> big(SDK_REPORT_BUF_LEN + 1);
    for (size_t i = 0; i < big.size(); i++)
        big[i] = static_cast<uint8_t>(i * 7);
    EXPECT_EQ(sdk_report_queue_push(rq, big.data(), SDK_REPORT_BUF_LEN + 1, 3), -4000);
    ASSERT_EQ(sdk_report_queue_set_max(rq, 3), 0);
    // Three fit; the newest are refused and counted, the oldest stay.
    for (uint32_t i = 0; i < 5; i++)
        EXPECT_EQ(sdk_report_queue_push(rq, big.data(), i ? i : SDK_REPORT_BUF_LEN, i),
                  i < 3 ? 0 : -4000);
    uint32_t drops = 0;
    ASSERT_EQ(sdk_report_queue_get_drop_num(rq, &drops), 0);
    EXPECT_EQ(drops, 2u);
    ASSERT_EQ(sdk_report_queue_set_max(rq, 1), 0);  // below the length: nothing is dropped
    for (uint32_t i = 0; i < 3; i++) {
        ASSERT_EQ(sdk_report_queue_get_first(out.get(), rq), 0);
        EXPECT_EQ(out->n_slot, i);
        ASSERT_EQ(out->n_len, i ? i : SDK_REPORT_BUF_LEN);
        EXPECT_EQ(memcmp(out->arr_buf, big.data(), out->n_len), 0);
        ASSERT_EQ(sdk_report_queue_pull(rq), 0);
        EXPECT_EQ(sdk_report_queue_push(rq, big.data(), 1, 9), i < 2 ? -4000 : 0);
    }
    EXPECT_EQ(sdk_report_queue_pull(rq), 0);
    EXPECT_EQ(sdk_report_queue_pull(rq), -4000);
}

constexpr uint32_t kEths = 2, kCards = 3;

rvcard_eth_queue_manage_t *port(transfer_info_t &t, uint32_t e, uint32_t r = 0) {
    rvcard_eth_queue_manage_t *p = nullptr;
    EXPECT_EQ(sdk_rvcard_port_lookup(&t, 1, e, r, &p), 0);
    return p;
}

packet_general_data_t card_request(uint32_t e, uint32_t r) {
    packet_general_data_t g{};
    g.n_channel_id = 1;
    g.n_eth_id = e;
    g.n_recvcard_id = r;
    return g;
}

// A card's queue is made by the first push and freed by whoever drops the last hold: the
// end of its last request, or the sender's list pull.
TEST(RvcardQueues, LookupPushAndTheLastHolderFrees) {
    transfer_info_t &t = table();
    auto *m = kept(new send_list_manage_t{});
    ASSERT_EQ(sdk_send_list_manage_init(m, t), 0);
    rvcard_eth_queue_manage_t *p = nullptr;
    EXPECT_EQ(sdk_rvcard_port_lookup(&t, 1, 0, kCards, &p), -4000);
    EXPECT_EQ(sdk_rvcard_port_lookup(&t, 0, 0, 0, &p), -4000);  // not a sender channel
    p = port(t, 1);
    packet_data_t waiting{};
    ASSERT_EQ(sdk_lable_list_push(p->p_list[2], &waiting), 0);  // each card has its list
    EXPECT_EQ(sdk_lable_list_remove(p->p_list[2], &waiting), 0);
    data_buf_t buf{};
    packet_general_data_t g[2] = {card_request(1, 2), card_request(1, 2)};
    EXPECT_EQ(sdk_rvcard_queue_push(&p->p_queue[1], p, t, &buf, &g[0]), -4000);  // not its slot
    auto release = [&] { return sdk_rvcard_queue_release(&p->p_queue[2], p); };
    for (bool end_first : {true, false}) {
        for (auto &one : g)
            ASSERT_EQ(sdk_rvcard_queue_push(&p->p_queue[2], p, t, &buf, &one), 0);
        send_queue_t *q = p->p_queue[2];
        EXPECT_EQ(q->st_general.n_fd, 101);  // the frames go out on the sender channel
        ASSERT_EQ(sdk_send_list_push(m, q), 0);
        ASSERT_EQ(sdk_send_queue_pull(q), 0);
        ASSERT_EQ(sdk_send_queue_pull(q), 0);
        EXPECT_EQ(sdk_rvcard_queue_distory(&p->p_queue[2], p), 0);  // held: stays
        EXPECT_EQ(end_first ? release() + release() : release(), 0);
        EXPECT_EQ(p->p_queue[2], q);  // still listed or still held by a request
        auto nodes = send_listed(m);
        ASSERT_EQ(nodes.size(), 1u);
        ASSERT_EQ(sdk_send_list_pull(m, nodes[0].first, nodes[0].second), 0);
        EXPECT_EQ(end_first ? 0 : release(), 0);
        EXPECT_EQ(p->p_queue[2], nullptr);
    }
    EXPECT_EQ(release(), -4000);
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
}

}  // namespace
