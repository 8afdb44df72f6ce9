// The time-out monitor: ends requests (reply, write-wait, polling answered, time-out),
// retransmits them and polls receiving cards.
#include <pthread.h>
#include <semaphore.h>
#include <cstring>

#include "codec/codec.h"
#include "common/clock.h"
#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "channel/transport.h"
#include "transfer_server.h"
#include "engine/state.h"
#include "engine/request_state.h"

namespace {

constexpr uint32_t kRelease = 1;

enum class Why { kDone, kPollTimeout, kTimeout };

void send_polling_frame(packet_general_data_t *g, uint16_t n_lable) {
    rvcard_polling_packet_t st_frame;
    sdk::codec::encode_poll(n_lable, g->n_eth_id, g->n_recvcard_id, &st_frame);
    sdk_physical_send(reinterpret_cast<uint8_t *>(&st_frame), sizeof(st_frame), g->n_channel_id);
    g->st_polling_time = sdk::clock_now();
}

// The ending sequence. Returns false, changing nothing, when the request must wait: a
// reply has taken its label but not yet stored itself. Whoever removes the label first
// owns the outcome; the record is removed by identity because labels repeat after the
// wrap.
bool end_request(packet_data_t *p, uint32_t n_list, packet_list_t *p_node, packet_state e_final,
                 Why why) {
    sdk::MutexLock wait_lock(&p->st_wait_lock);
    packet_general_data_t *g = &p->p_packet;
    queue_general_data_t *q = p->p_queue_general;
    if (sdk::state_load(g) == PACKET_RECV_DONE) {
        if (e_final == PACKET_WAIT_TIMEOUT) return false;  // the reply won: end it next walk
    } else {
        send_lable_manage_t *p_list =
            sdk::lable_list_of(q->e_packet_code_type, g->n_eth_id, g->n_recvcard_id,
                               static_cast<uint32_t>(q->n_channel_id));
        if (p_list != nullptr && sdk_lable_list_remove(p_list, p) == sdk::kErrNoLabel) return false;
    }
    sdk::state_store(g, e_final);
    if (why == Why::kDone && !sdk::expects_reply(g)) p->st_recv_data.n_len = 0;
    if (why == Why::kPollTimeout) TLOGE("packet time out %d ", g->n_timeout);
    if (why == Why::kTimeout) {
        TLOGE("time out lable: %02x %02x p_packet->p_packet.e_state [%d] ", g->n_send_lable & 0xFFu,
              (g->n_send_lable >> 8) & 0xFFu, e_final);
    }
    sdk_monitor_list_pull(&g_st_monitor_manage_list, n_list, p_node);
    sdk_transfer_channel_state_update(q, g, kRelease);
    if (why == Why::kPollTimeout) TLOGD("packet end ");
    if (why == Why::kTimeout) TLOGD("packet end");
    pthread_cond_signal(&p->st_wait_signal);
    return true;
}

// A withdrawn request (its registration failed in sdk_request): drop the node and tell
// the requester, who frees the record.
void drop_withdrawn(packet_data_t *p, uint32_t n_list, packet_list_t *p_node) {
    sdk::MutexLock wait_lock(&p->st_wait_lock);
    sdk_monitor_list_pull(&g_st_monitor_manage_list, n_list, p_node);
    sdk::state_store(&p->p_packet, PACKET_WAIT_TIMEOUT);
    pthread_cond_signal(&p->st_wait_signal);
}

void expire(packet_data_t *p, uint32_t n_list, packet_list_t *p_node, Why why) {
    packet_general_data_t *g = &p->p_packet;
    if (g->n_reply_num < g->n_reply_times) {
        sdk_reply_send(p);
        g->n_reply_num++;
        return;
    }
    end_request(p, n_list, p_node, PACKET_WAIT_TIMEOUT, why);
}

void handle(uint32_t n_list, packet_list_t *p_node) {
    packet_data_t *p = p_node->p_data;
    packet_general_data_t *g = &p->p_packet;
    if (!sdk::request_enabled(g)) {
        drop_withdrawn(p, n_list, p_node);
        return;
    }
    // Settled: a request is ended, retransmitted or polled only once the sender is done
    // with it (it then has left its queue and holds its channel). Before that it waits;
    // if its queue could not be listed, it is listed again here.
    if (!sdk::mark_test(g, sdk::kMarkTaken)) {
        if (sdk::mark_test(g, sdk::kMarkRelist) &&
            sdk_send_list_push(&g_st_send_manage_list, sdk::queue_of(p->p_queue_general)) ==
                sdk::kOk) {
            sdk::mark_clear(g, sdk::kMarkRelist);
        }
        return;
    }
    const packet_state s = sdk::state_load(g);
    if (!sdk::expects_reply(g) && !sdk::polled(g)) {
        // Settled: a write that timed out while still queued never left the host, so its
        // write-wait proves nothing. Like a sent request that got no reply, it goes out
        // with a retransmission if one is left, and otherwise ends timed out.
        if (sdk::mark_test(g, sdk::kMarkUnsent)) {
            if (g->n_reply_num < g->n_reply_times) {
                sdk_reply_send(p);
                g->n_reply_num++;
                g->st_send_time = sdk::clock_now();
                sdk::mark_clear(g, sdk::kMarkUnsent);
            } else {
                end_request(p, n_list, p_node, PACKET_WAIT_TIMEOUT, Why::kTimeout);
            }
            return;
        }
        // Settled: a reply that came anyway (PACKET_RECV_DONE) ends it too, after the wait.
        if (sdk::elapsed_us(g->st_send_time) < g->n_write_wait_time) return;
        if (s != PACKET_SEND_END && s != PACKET_RECV_DONE) return;
        end_request(p, n_list, p_node, PACKET_END, Why::kDone);
        return;
    }
    const bool b_polled = !sdk::expects_reply(g);
    if (s == PACKET_RECV_DONE) {
        end_request(p, n_list, p_node, PACKET_END, Why::kDone);
        return;
    }
    if (sdk_packet_timeout_check(g) == sdk::kOk) {
        if (b_polled) sdk_send_polling(p);
        return;
    }
    expire(p, n_list, p_node, b_polled ? Why::kPollTimeout : Why::kTimeout);
}

void walk(uint32_t n_list) {
    monitor_packet_list_t *p_list = g_st_monitor_manage_list.p_list[n_list];
    if (p_list == nullptr || p_list->p_info_head == nullptr || p_list->n_state != 1) return;
    packet_list_t *p_node = nullptr;
    sdk_monitor_list_get_next(p_list, &p_node, p_list->p_info_head);
    if (p_node == nullptr) return;
    p_list->n_state = 2;
    while (p_node != nullptr) {
        packet_list_t *p_next = nullptr;  // the cursor
        sdk_monitor_list_get_next(p_list, &p_next, p_node);
        handle(n_list, p_node);
        p_node = p_next;
    }
    p_list->n_state = 1;
}

}  // namespace

namespace sdk {

void end_requests_in_flight() {
    for (int32_t i = 0; i < g_st_monitor_manage_list.n_list_num; ++i) {
        monitor_packet_list_t *p_list = g_st_monitor_manage_list.p_list[i];
        for (packet_list_t *p_node = p_list != nullptr && p_list->p_info_head != nullptr
                                         ? p_list->p_info_head->p_st_next
                                         : nullptr;
             p_node != nullptr; p_node = p_node->p_st_next) {
            packet_data_t *p = p_node->p_data;
            MutexLock wait_lock(&p->st_wait_lock);
            TLOGE("time out lable: %02x %02x p_packet->p_packet.e_state [%d] ",
                  p->p_packet.n_send_lable & 0xFFu, (p->p_packet.n_send_lable >> 8) & 0xFFu,
                  PACKET_WAIT_TIMEOUT);
            state_store(&p->p_packet, PACKET_WAIT_TIMEOUT);
            pthread_cond_signal(&p->st_wait_signal);
        }
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
        for (int32_t i = 0; i < g_st_monitor_manage_list.n_list_num; ++i)
            walk(static_cast<uint32_t>(i));
    }
    return nullptr;
}

SDK_API int32_t sdk_reply_send(packet_data_t *p_packet) {
    packet_general_data_t *g = &p_packet->p_packet;
    if (!sdk::sends(g_st_transfer.st_info[g->n_channel_id])) return 0;
    TLOGI("timeout reply send");
    sdk_physical_send(p_packet->st_send_data.arr_buf, p_packet->st_send_data.n_len,
                      g->n_channel_id);
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
