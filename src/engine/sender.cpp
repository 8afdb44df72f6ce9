// The sender thread: puts the head frame of every listed queue on the wire when the flow
// rule allows it.
#include <pthread.h>
#include <semaphore.h>
#include "common/clock.h"
#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "channel/transport.h"
#include "transfer_server.h"
#include "engine/state.h"
#include "engine/request_state.h"

namespace {

constexpr uint32_t kOccupy = 2;

// The frame is taken off the queue unsent: the request timed out while it waited, or
// (settled) it was withdrawn. It still occupies its channel and becomes PACKET_SEND_END,
// so the monitor retransmits it or ends it like a sent request that got no reply, and
// nothing stays in PACKET_WAIT_SEND.
void hand_on_unsent(uint32_t n_list, queue_list_data_t *p_node, send_queue_t *q,
                    packet_general_data_t *g) {
    sdk_transfer_channel_state_update(&q->st_general, g, kOccupy);
    sdk_send_queue_pull(q);
    sdk_send_list_pull(&g_st_send_manage_list, n_list, p_node);  // q may be gone after this
    sdk::mark_set(g, sdk::kMarkUnsent);
    {
        sdk::MutexLock lock(&g->st_lock);
        sdk::state_move(g, PACKET_WAIT_SEND, PACKET_SEND_END);
    }
    if (sdk::request_enabled(g)) {
        TLOGE("send packet time out  ");
    } else {
        TLOGE("packet enable err ");
    }
    sdk::mark_set(g, sdk::kMarkTaken);  // last touch: the monitor may end it from here on
}

void serve(uint32_t n_list, queue_list_data_t *p_node) {
    send_queue_t *q = p_node->p_data;
    if (sdk_transfer_channel_check(q) != sdk::kOk) return;
    queue_data_t st_head{};
    if (sdk_send_queue_get_first(&st_head, q) != sdk::kOk) return;
    packet_general_data_t *g = st_head.p_packet;
    const int32_t n_channel = q->st_general.n_channel_id;

    if (!sdk::request_enabled(g) || sdk_packet_timeout_check(g) != sdk::kOk) {
        hand_on_unsent(n_list, p_node, q, g);
        return;
    }
    if (!sdk::sends(g_st_transfer.st_info[n_channel])) return;
    {
        // The receive path marks a reply under the same lock, so the change to
        // PACKET_SEND_END can not overwrite a reply that arrives very fast.
        sdk::MutexLock lock(&g->st_lock);
        sdk_transfer_channel_state_update(&q->st_general, g, kOccupy);
        sdk_physical_send(st_head.p_send_data->arr_buf, st_head.p_send_data->n_len,
                          static_cast<uint32_t>(n_channel));
        g->st_send_time = sdk::clock_now();
        sdk_send_queue_pull(q);
        sdk_send_list_pull(&g_st_send_manage_list, n_list, p_node);
        sdk::state_move(g, PACKET_WAIT_SEND, PACKET_SEND_END);
    }
    const bool b_no_ack = !sdk::expects_reply(g);
    // Last touch: the monitor may end it from here on. A walk that ran before the mark
    // skipped the request; when its reply was stored meanwhile, nothing else would wake
    // the monitor before the trigger does, so wake it here as after a frame that expects
    // no acknowledgement.
    const uint32_t n_marks = sdk::mark_set(g, sdk::kMarkTaken);
    if (b_no_ack || (n_marks & sdk::kMarkReplied) != 0) sem_post(&g_st_monitor_manage_list.sem);
}

void walk(uint32_t n_list) {
    send_packet_list_t *p_list = g_st_send_manage_list.p_list[n_list];
    if (p_list == nullptr || p_list->p_info_head == nullptr || p_list->n_state != 1) return;
    queue_list_data_t *p_node = nullptr;
    sdk_send_list_get_next(p_list, &p_node, p_list->p_info_head);
    if (p_node == nullptr) return;
    p_list->n_state = 2;
    while (p_node != nullptr) {
        queue_list_data_t *p_next = nullptr;
        sdk_send_list_get_next(p_list, &p_next, p_node);
        serve(n_list, p_node);
        p_node = p_next;
    }
    p_list->n_state = 1;
}

}  // namespace

extern "C" {

SDK_API void *sdk_transfer_sender_thread(void * /*arg*/) {
    pthread_setname_np(pthread_self(), "sender_thread");
    TLOGI("start");
    for (;;) {
        sem_wait(&g_st_send_manage_list.sem);
        if (sdk::stopping()) break;
        for (uint32_t i = 0; i < g_st_send_manage_list.n_list_num; ++i)
            walk(i);
    }
    return nullptr;
}

}  // extern "C"
