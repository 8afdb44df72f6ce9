// The ending sequence of a request.
#include "engine/ending.h"

#include <semaphore.h>

#include "channel/direct_receive.h"
#include "common/log.h"
#include "common/result.h"
#include "engine/deadlines.h"
#include "engine/request_state.h"
#include "engine/state.h"
#include "engine/stats.h"

namespace sdk {

namespace {
constexpr uint32_t kRelease = 1;
}  // namespace

bool end_locked(InFlight *x, packet_state e_final, Why why, send_queue_t **pp_next) {
    packet_data_t *p = &x->rec;
    packet_general_data_t *g = &p->p_packet;
    queue_general_data_t *q = p->p_queue_general;
    *pp_next = nullptr;
    // Whoever removes the label first owns the outcome; the record is found by identity
    // because labels repeat after the wrap.
    if (x->b_labelled) {
        send_lable_manage_t *p_list =
            lable_list_of(q->e_packet_code_type, g->n_eth_id, g->n_recvcard_id,
                          static_cast<uint32_t>(q->n_channel_id));
        if (p_list != nullptr && sdk_lable_list_remove(p_list, p) == kErrNoLabel) return false;
        x->b_labelled = false;
    }
    state_store(g, e_final);
    if (why == Why::kDone && !expects_reply(g)) p->st_recv_data.n_len = 0;
    if (why != Why::kDone) count(g->n_channel_id, Count::kTimedOut);
    if (why == Why::kPollTimeout) TLOGE("packet time out %d ", g->n_timeout);
    if (why == Why::kTimeout) {
        TLOGE("time out lable: %02x %02x p_packet->p_packet.e_state [%d] ", g->n_send_lable & 0xFFu,
              (g->n_send_lable >> 8) & 0xFFu, e_final);
    }
    deadline_remove(x);
    if (q->e_packet_code_type == PACKET_RECV) {
        // A card: its counters, its queue's hold, and the sender for the port's next frame.
        sdk_transfer_channel_state_update(q, g, kRelease);
    } else {
        // A channel: free again, and its next frame goes from the thread that ends this one.
        counter_add(&g_st_transfer.st_info[q->n_channel_id].n_state, -1);
        *pp_next = queue_of(q);
    }
    if (why == Why::kPollTimeout) TLOGD("packet end ");
    if (why == Why::kTimeout) TLOGD("packet end");
    pthread_cond_signal(&p->st_wait_signal);
    wake_direct_receiver(g->n_channel_id);
    return true;
}

bool released(InFlight *x) {
    return state_final(state_load(&x->rec.p_packet)) &&
           !__atomic_load_n(&x->b_monitor_busy, __ATOMIC_ACQUIRE);
}

}  // namespace sdk
