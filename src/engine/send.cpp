// The send step shared by every thread that sends a request's frame.
#include "engine/send.h"

#include "channel/transport.h"
#include "common/clock.h"
#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "containers/queue_append.h"
#include "engine/deadlines.h"
#include "engine/request_state.h"
#include "engine/state.h"
#include "engine/stats.h"

namespace sdk {

namespace {

uint64_t ns_of(const struct timeval &t) {
    return static_cast<uint64_t>(t.tv_sec) * 1000000000u + static_cast<uint64_t>(t.tv_usec) * 1000u;
}

// Lists the request's label, before its frame first goes out (now, or by a retransmission).
void list_label(queue_general_data_t *qg, packet_general_data_t *g) {
    InFlight *x = inflight_of(g);
    send_lable_manage_t *p_list =
        lable_list_of(qg->e_packet_code_type, g->n_eth_id, g->n_recvcard_id,
                      static_cast<uint32_t>(qg->n_channel_id));
    if (p_list != nullptr && sdk_lable_list_push(p_list, &x->rec) == kOk) x->b_labelled = true;
}

// The frame is taken off its queue unsent: the request timed out while it waited, or it
// was withdrawn. It still occupies its channel and becomes PACKET_SEND_END, marked unsent,
// so the monitor retransmits it (its label is listed for that) or ends it like a sent
// request that got no reply.
void hand_on_unsent(queue_general_data_t *qg, packet_general_data_t *g) {
    list_label(qg, g);
    mark_set(g, kMarkUnsent);
    state_move(g, PACKET_WAIT_SEND, PACKET_SEND_END);
    if (request_enabled(g)) {
        TLOGE("send packet time out  ");
    } else {
        TLOGE("packet enable err ");
    }
    deadline_set(inflight_of(g), now_ns());
}

}  // namespace

uint64_t first_deadline(const packet_general_data_t *g) {
    if (!expects_reply(g) && !polled(g))
        return ns_of(g->st_send_time) + static_cast<uint64_t>(g->n_write_wait_time) * 1000u;
    if (polled(g)) return now_ns();  // the first polling frame goes at once
    return ns_of(g->st_start_time) + static_cast<uint64_t>(g->n_timeout) * 1000000u;
}

void send_locked(queue_general_data_t *qg, packet_general_data_t *g, data_buf_t *d) {
    if (!request_enabled(g) || sdk_packet_timeout_check(g) != kOk) {
        hand_on_unsent(qg, g);
        return;
    }
    InFlight *x = inflight_of(g);
    // Listed before it goes out, so that a reply however fast finds it. Only frames taken
    // off their queue are listed: a reply can never be matched to a request still queued.
    list_label(qg, g);
    sdk_physical_send(d->arr_buf, d->n_len, static_cast<uint32_t>(qg->n_channel_id));
    count(qg->n_channel_id, Count::kSent);
    g->st_send_time = clock_now();
    state_move(g, PACKET_WAIT_SEND, PACKET_SEND_END);
    deadline_set(x, first_deadline(g));
}

bool send_channel_head(send_queue_t *q) {
    queue_data_t st_head{};
    {
        MutexLock queue_lock(&q->st_lock);
        if (q->st_general.n_len == 0) return false;
        int32_t n_free = CHANNEL_OK;
        if (!__atomic_compare_exchange_n(&g_st_transfer.st_info[q->st_general.n_channel_id].n_state,
                                         &n_free, static_cast<int32_t>(CHANNEL_BUSY), false,
                                         __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
            return false;
        }
        st_head = queue_pop_locked(q);
    }
    MutexLock send_lock(&st_head.p_packet->st_lock);
    send_locked(&q->st_general, st_head.p_packet, st_head.p_send_data);
    return true;
}

}  // namespace sdk
