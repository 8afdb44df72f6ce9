// The time-out monitor: whenever the trigger finds a deadline due, it takes the due
// requests off the deadline heap and, request by request, ends it (write-wait passed,
// polling answered, time-out with no retransmission left), retransmits it or polls its
// receiving card, and puts it back with its next deadline. Replies end their requests on
// the receive path; the monitor sees only what is due.
#include <pthread.h>
#include <semaphore.h>

#include <algorithm>
#include <cstring>

#include "channel/direct_receive.h"
#include "channel/transport.h"
#include "codec/codec.h"
#include "common/clock.h"
#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "engine/deadlines.h"
#include "engine/ending.h"
#include "engine/request_state.h"
#include "engine/send.h"
#include "engine/state.h"
#include "engine/stats.h"
#include "transfer_server.h"

namespace {

using sdk::Why;

// A deadline check that the millisecond arithmetic of the time test does not yet see
// as passed is looked at again this much later.
constexpr uint64_t kRecheckNs = 1000000;

uint64_t ns_of(const struct timeval &t) {
    return static_cast<uint64_t>(t.tv_sec) * 1000000000u + static_cast<uint64_t>(t.tv_usec) * 1000u;
}

// The end of the current attempt.
uint64_t attempt_deadline(const packet_general_data_t *g) {
    return ns_of(g->st_start_time) + static_cast<uint64_t>(g->n_timeout) * 1000000u;
}

// A next look no earlier than a little from now: the time test counts whole
// milliseconds, so a deadline just reached may not yet count as passed.
uint64_t later(uint64_t n_due_ns) {
    return std::max(n_due_ns, sdk::now_ns() + kRecheckNs);
}

// When a request that goes on must next be looked at.
uint64_t next_look(const packet_data_t *p) {
    const packet_general_data_t *g = &p->p_packet;
    if (!sdk::expects_reply(g) && !sdk::polled(g)) return later(sdk::first_deadline(g));
    if (sdk::expects_reply(g)) return later(attempt_deadline(g));
    const packet_state s = sdk::state_load(g);
    if (s == PACKET_SEND_END) return later(0);  // its first polling frame is due
    uint64_t n_due = later(attempt_deadline(g));
    if (s == PACKET_POLLING_SEND && p->p_queue_general->e_packet_code_type == PACKET_RECV) {
        n_due = std::min(n_due, later(ns_of(g->st_polling_time) +
                                      static_cast<uint64_t>(g->n_polling_time) * 1000000u));
    }
    return n_due;
}

void send_polling_frame(packet_general_data_t *g, uint16_t n_lable) {
    rvcard_polling_packet_t st_frame;
    sdk::codec::encode_poll(n_lable, g->n_eth_id, g->n_recvcard_id, &st_frame);
    sdk_physical_send(reinterpret_cast<uint8_t *>(&st_frame), sizeof(st_frame), g->n_channel_id);
    sdk::count(g->n_channel_id, sdk::Count::kPolled);
    g->st_polling_time = sdk::clock_now();
}

// What the rules decided for one request.
struct Outcome {
    bool b_ended = false;
    uint64_t n_due_ns = sdk::kNever;  // the next look, when it goes on
};

// Ends the request; when a reply has just taken its label, the reply ends it (or, for a
// write without acknowledgement, stores itself) and the monitor looks again shortly.
Outcome end(sdk::InFlight *x, packet_state e_final, Why why, send_queue_t **pp_next) {
    if (sdk::end_locked(x, e_final, why, pp_next)) return Outcome{true, sdk::kNever};
    return Outcome{false, later(0)};
}

// A time-out: retransmission while one is left, else the end.
Outcome expire(sdk::InFlight *x, Why why, send_queue_t **pp_next) {
    packet_general_data_t *g = &x->rec.p_packet;
    if (g->n_reply_num < g->n_reply_times) {
        sdk_reply_send(&x->rec);
        g->n_reply_num++;
        return Outcome{false, next_look(&x->rec)};
    }
    return end(x, PACKET_WAIT_TIMEOUT, why, pp_next);
}

// The rules for one due request, under its st_wait_lock and st_lock.
Outcome handle(sdk::InFlight *x, send_queue_t **pp_next) {
    packet_data_t *p = &x->rec;
    packet_general_data_t *g = &p->p_packet;
    const packet_state s = sdk::state_load(g);
    if (!sdk::expects_reply(g) && !sdk::polled(g)) {
        // Settled: a write that timed out while still queued never left the host, so its
        // write-wait proves nothing. Like a sent request that got no reply, it goes out
        // with a retransmission if one is left, and otherwise ends timed out.
        if (sdk::mark_test(g, sdk::kMarkUnsent)) {
            if (g->n_reply_num >= g->n_reply_times)
                return end(x, PACKET_WAIT_TIMEOUT, Why::kTimeout, pp_next);
            sdk_reply_send(p);
            g->n_reply_num++;
            g->st_send_time = sdk::clock_now();
            sdk::mark_clear(g, sdk::kMarkUnsent);
            return Outcome{false, sdk::first_deadline(g)};
        }
        // Settled: a reply that came anyway (PACKET_RECV_DONE) ends it too, after the wait.
        if (sdk::elapsed_us(g->st_send_time) < g->n_write_wait_time)
            return Outcome{false, next_look(p)};
        return end(x, PACKET_END, Why::kDone, pp_next);
    }
    if (s == PACKET_RECV_DONE) return end(x, PACKET_END, Why::kDone, pp_next);
    const bool b_polled = !sdk::expects_reply(g);
    if (sdk_packet_timeout_check(g) == sdk::kOk) {
        if (b_polled) sdk_send_polling(p);
        return Outcome{false, next_look(p)};
    }
    return expire(x, b_polled ? Why::kPollTimeout : Why::kTimeout, pp_next);
}

void look_at(sdk::InFlight *x) {
    packet_data_t *p = &x->rec;
    send_queue_t *p_next = nullptr;
    {
        sdk::MutexLock wait_lock(&p->st_wait_lock);
        if (sdk::state_final(sdk::state_load(&p->p_packet))) {
            // Ended meanwhile by its reply: only let go, and tell the caller.
            sdk::deadline_release(x, sdk::kNever, false);
            pthread_cond_signal(&p->st_wait_signal);
            sdk::wake_direct_receiver(p->p_packet.n_channel_id);
            return;
        }
        Outcome o;
        {
            sdk::MutexLock send_lock(&p->p_packet.st_lock);
            o = handle(x, &p_next);
        }
        sdk::deadline_release(x, o.n_due_ns, !o.b_ended);
        // A caller receiving on the channel itself waits for the monitor to let go too.
        if (o.b_ended) sdk::wake_direct_receiver(p->p_packet.n_channel_id);
    }
    if (p_next != nullptr) sdk::send_channel_head(p_next);
}

}  // namespace

namespace sdk {

void end_requests_in_flight() {
    for (InFlight *x : deadline_all()) {
        packet_data_t *p = &x->rec;
        MutexLock wait_lock(&p->st_wait_lock);
        TLOGE("time out lable: %02x %02x p_packet->p_packet.e_state [%d] ",
              p->p_packet.n_send_lable & 0xFFu, (p->p_packet.n_send_lable >> 8) & 0xFFu,
              PACKET_WAIT_TIMEOUT);
        state_store(&p->p_packet, PACKET_WAIT_TIMEOUT);
        pthread_cond_signal(&p->st_wait_signal);
        wake_direct_receiver(p->p_packet.n_channel_id);
    }
}

}  // namespace sdk

extern "C" {

SDK_API void *sdk_transfer_timeout_monitor_thread(void * /*arg*/) {
    pthread_setname_np(pthread_self(), "monitor_thread");
    TLOGI("start");
    for (;;) {
        sem_wait(&g_st_monitor_manage_list.sem);
        if (sdk::stopping()) break;
        while (sdk::InFlight *x = sdk::deadline_take_due())
            look_at(x);
        sdk::deadline_done();
    }
    return nullptr;
}

SDK_API int32_t sdk_reply_send(packet_data_t *p_packet) {
    packet_general_data_t *g = &p_packet->p_packet;
    if (!sdk::sends(g_st_transfer.st_info[g->n_channel_id])) return 0;
    TLOGI("timeout reply send");
    sdk_physical_send(p_packet->st_send_data.arr_buf, p_packet->st_send_data.n_len,
                      g->n_channel_id);
    sdk::count(g->n_channel_id, sdk::Count::kRetransmitted);
    g->st_start_time = sdk::clock_now();
    return 0;
}

SDK_API int32_t sdk_send_polling(packet_data_t *p_packet) {
    packet_general_data_t *g = &p_packet->p_packet;
    const queue_general_data_t *q = p_packet->p_queue_general;
    const packet_state s = sdk::state_load(g);
    if (s == PACKET_SEND_END) {
        if (!sdk::state_move(g, PACKET_SEND_END, PACKET_POLLING_SEND)) return 0;
        if (q->e_packet_code_type != PACKET_RECV) {
            TLOGI("not polling channel %d", q->e_packet_code_type);
            return 0;
        }
        const uint16_t n_lable = sdk_get_next_lable();
        if (sdk::state_load(g) == PACKET_RECV_DONE) return 0;
        // Stored atomically: the receive thread compares it while searching by label.
        __atomic_store_n(&g->n_send_lable, n_lable, __ATOMIC_RELEASE);
        send_polling_frame(g, n_lable);
        return 0;
    }
    // Settled: a polled request on a queue other than a receiving card's has no polling
    // target, so no repetitions are sent either; its time-out ends it.
    if (s != PACKET_POLLING_SEND || q->e_packet_code_type != PACKET_RECV) return 0;
    if (sdk::elapsed_ms(g->st_polling_time) < g->n_polling_time) return 0;
    if (sdk::state_load(g) != PACKET_RECV_DONE) {
        TLOGI("!!!!!!!!!!polling repet send lable  :%x", g->n_send_lable);
        send_polling_frame(g, static_cast<uint16_t>(g->n_send_lable));
    }
    return 0;
}

}  // extern "C"
