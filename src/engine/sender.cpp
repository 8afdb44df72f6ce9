// The sender thread: sends the head frame of every listed queue whose channel, card and
// port are free. Channel queues are served by whoever frees their channel (see send.h);
// the sender carries the receiving-card queues, whose ports several cards share.
#include <pthread.h>
#include <semaphore.h>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "engine/request_state.h"
#include "engine/send.h"
#include "engine/state.h"
#include "transfer_server.h"

namespace {

constexpr uint32_t kOccupy = 2;

void serve_card(uint32_t n_list, queue_list_data_t *p_node, send_queue_t *q) {
    if (sdk_transfer_channel_check(q) != sdk::kOk) return;
    queue_data_t st_head{};
    if (sdk_send_queue_get_first(&st_head, q) != sdk::kOk) return;
    packet_general_data_t *g = st_head.p_packet;
    // The receive path ends a request under the same lock, so nothing is ended, nor
    // freed, while the frame goes out and its state changes.
    sdk::MutexLock lock(&g->st_lock);
    sdk_transfer_channel_state_update(&q->st_general, g, kOccupy);
    sdk_send_queue_pull(q);
    // What the send needs of the queue is fixed for its life; copied, since q may be
    // gone after the list pull (n_len, which producers change, is not read).
    queue_general_data_t st_general{};
    st_general.n_channel_id = q->st_general.n_channel_id;
    st_general.e_packet_code_type = q->st_general.e_packet_code_type;
    st_general.n_recvcard_id = q->st_general.n_recvcard_id;
    st_general.n_eth_id = q->st_general.n_eth_id;
    sdk_send_list_pull(&g_st_send_manage_list, n_list, p_node);
    sdk::send_locked(&st_general, g, st_head.p_send_data);
}

void serve(uint32_t n_list, queue_list_data_t *p_node) {
    send_queue_t *q = p_node->p_data;
    if (q->st_general.e_packet_code_type == PACKET_RECV) {
        serve_card(n_list, p_node, q);
        return;
    }
    sdk::send_channel_head(q);
    sdk_send_list_pull(&g_st_send_manage_list, n_list, p_node);  // unlisted once empty
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
    // Settled: each walk starts one list further than the one before. Queues of cards
    // that share a port wait in different lists, and a walk that always began with list
    // 0 would give the port to the same card every time it frees.
    uint32_t n_first = 0;
    for (;;) {
        sem_wait(&g_st_send_manage_list.sem);
        if (sdk::stopping()) break;
        const uint32_t n_lists = g_st_send_manage_list.n_list_num;
        if (n_lists == 0) continue;
        n_first = (n_first + 1) % n_lists;
        for (uint32_t k = 0; k < n_lists; ++k)
            walk((n_first + k) % n_lists);
    }
    return nullptr;
}

}  // extern "C"
