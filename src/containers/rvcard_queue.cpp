// Receiving-card queues: per sender channel, a matrix of Ethernet ports by cards, each
// card slot holding a send queue while the card has traffic.
//
// Settled (who frees a card queue last): a queue counts its holds in n_hold_num, one per
// accepted request until sdk_rvcard_queue_release and one while a send list lists it.
// The hold count changes under the queue lock; the hold that reaches zero is dropped under
// the port lock as well and frees the queue, emptying its slot in the same critical
// section, so a push (which finds queues only through the slot, under the port lock)
// can never revive a queue that is being freed, and exactly one party frees it. The
// contract for the request path, the sender and the request end is in transfer_manage.h.
//
// Locks: port st_lock, then queue st_lock.
#include <cstdlib>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_manage.h"
#include "containers/queue_append.h"
#include "containers/rvcard_hold.h"

namespace {

// Nothing holds the queue any more and nothing is queued or listed. Queue lock held.
bool unused(const send_queue_t *p_queue) {
    return p_queue->n_hold_num == 0 && p_queue->st_general.n_len == 0 &&
           p_queue->st_general.n_list_state == 0;
}

void free_queue(send_queue_t *p_queue) {
    if (p_queue == nullptr) return;
    pthread_mutex_destroy(&p_queue->st_lock);
    free(p_queue);
}

// Drops one hold on p_queue, the queue in *p_slot, with the port lock held; returns the
// queue when that was its last hold, after emptying the slot. The caller frees it.
// Settled: the last hold frees the card queue, whichever party (request end, send list).
send_queue_t *drop_hold(send_queue_t **p_slot, send_queue_t *p_queue) {
    if (*p_slot != p_queue) {
        TLOGE("rvcard queue not in its slot error code %d", sdk::kErrRefused);
        return nullptr;
    }
    {
        sdk::MutexLock queue_lock(&p_queue->st_lock);
        p_queue->n_hold_num--;
        if (p_queue->n_hold_num != 0) return nullptr;
        if (!unused(p_queue)) {
            // Only a release made before the request's frame left the queue gets here;
            // freeing would leave the frame dangling, so the queue stays in its slot.
            TLOGE("ethid %u rvcard %u released with %u frames error code %d",
                  p_queue->st_general.n_eth_id, p_queue->st_general.n_recvcard_id,
                  p_queue->st_general.n_len, sdk::kErrRefused);
            return nullptr;
        }
    }
    *p_slot = nullptr;
    return p_queue;
}

int32_t port_init(rvcard_eth_queue_manage_t **pp_port, uint32_t n_cards) {
    auto *p_port =
        static_cast<rvcard_eth_queue_manage_t *>(calloc(1, sizeof(rvcard_eth_queue_manage_t)));
    if (p_port == nullptr) return sdk::kErrNoMemory;
    *pp_port = p_port;
    p_port->n_recv_state = 1;
    p_port->n_max_rvcard_num = static_cast<int32_t>(n_cards);
    pthread_mutex_init(&p_port->st_lock, nullptr);
    if (n_cards == 0) return sdk::kOk;
    p_port->p_queue = static_cast<send_queue_t **>(calloc(n_cards, sizeof(send_queue_t *)));
    return p_port->p_queue != nullptr ? sdk::kOk : sdk::kErrNoMemory;
}

int32_t channel_init(rvcard_send_queue_manage_t *p_manage, uint32_t n_eths, uint32_t n_cards) {
    p_manage->n_max_eth_num = static_cast<int32_t>(n_eths);
    if (n_eths == 0) return sdk::kOk;
    p_manage->p_eth_list = static_cast<rvcard_eth_queue_manage_t **>(
        calloc(n_eths, sizeof(rvcard_eth_queue_manage_t *)));
    if (p_manage->p_eth_list == nullptr) return sdk::kErrNoMemory;
    for (uint32_t e = 0; e < n_eths; e++) {
        int32_t n_ret = port_init(&p_manage->p_eth_list[e], n_cards);
        if (n_ret != sdk::kOk) return n_ret;
    }
    return sdk::kOk;
}

}  // namespace

namespace sdk {

void rvcard_queue_drop_listing(send_queue_t *p_queue) {
    // p_eth_node and the card index are fixed for the queue's life, which the list's hold
    // (not yet dropped) guarantees here.
    rvcard_eth_queue_manage_t *p_port = p_queue->p_eth_node;
    if (p_port == nullptr) return;
    send_queue_t *p_free = nullptr;
    {
        MutexLock port_lock(&p_port->st_lock);
        p_free = drop_hold(&p_port->p_queue[p_queue->st_general.n_recvcard_id], p_queue);
    }
    free_queue(p_free);
}

}  // namespace sdk

extern "C" {

SDK_API int32_t sdk_rvcard_queue_manage_init(transfer_info_t *st_transfer) {
    TLOGI("start");
    int32_t n_ret = sdk::kOk;
    if (st_transfer == nullptr || (st_transfer->n_num > 0 && st_transfer->st_info == nullptr)) {
        n_ret = sdk::kErrRefused;
    } else {
        uint32_t n_eths = st_transfer->st_format.n_rvcard_eth_max;
        uint32_t n_cards = st_transfer->st_format.n_rvcard_max;
        // Both land in int32 fields: larger counts could never be allocated anyway.
        if (n_eths > INT32_MAX || n_cards > INT32_MAX) n_ret = sdk::kErrNoMemory;
        for (int32_t i = 0; n_ret == sdk::kOk && i < st_transfer->n_num; i++) {
            transfer_data_t *p_channel = &st_transfer->st_info[i];
            if (p_channel->e_packet_code_type != PACKET_SENDER) continue;
            TLOGI("rv queue manage init eth max %d rvcard max%d", static_cast<int>(n_eths),
                  static_cast<int>(n_cards));
            n_ret = channel_init(&p_channel->p_rvcard_manage, n_eths, n_cards);
        }
    }
    if (n_ret != sdk::kOk) TLOGE("error code %d", n_ret);
    TLOGI("end");
    return n_ret;
}

// Settled: ports and cards are reached only through this bounds-checked lookup (-4000).
SDK_API int32_t sdk_rvcard_port_lookup(const transfer_info_t *p_transfer, uint32_t n_channel_id,
                                       uint32_t n_eth_id, uint32_t n_rvcard_id,
                                       rvcard_eth_queue_manage_t **pp_port) {
    if (p_transfer == nullptr || pp_port == nullptr || p_transfer->st_info == nullptr ||
        p_transfer->n_num <= 0 || n_channel_id >= static_cast<uint32_t>(p_transfer->n_num)) {
        return sdk::kErrRefused;
    }
    const rvcard_send_queue_manage_t &st_manage = p_transfer->st_info[n_channel_id].p_rvcard_manage;
    if (p_transfer->st_info[n_channel_id].e_packet_code_type != PACKET_SENDER ||
        st_manage.p_eth_list == nullptr || st_manage.n_max_eth_num <= 0 ||
        n_eth_id >= static_cast<uint32_t>(st_manage.n_max_eth_num)) {
        return sdk::kErrRefused;
    }
    rvcard_eth_queue_manage_t *p_port = st_manage.p_eth_list[n_eth_id];
    if (p_port == nullptr || p_port->p_queue == nullptr || p_port->n_max_rvcard_num <= 0 ||
        n_rvcard_id >= static_cast<uint32_t>(p_port->n_max_rvcard_num)) {
        return sdk::kErrRefused;
    }
    *pp_port = p_port;
    return sdk::kOk;
}

SDK_API int32_t sdk_rvcard_queue_push(send_queue_t **p_sender_queue,
                                      rvcard_eth_queue_manage_t *p_eth_manage,
                                      transfer_info_t st_transfer, data_buf_t *p_send_data,
                                      packet_general_data_t *p_packet) {
    if (p_sender_queue == nullptr || p_eth_manage == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    sdk::MutexLock port_lock(&p_eth_manage->st_lock);
    if (p_send_data == nullptr || p_packet == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    // The queue's card index must name its slot: the send list finds the slot by it.
    if (p_eth_manage->p_queue == nullptr || p_eth_manage->n_max_rvcard_num <= 0 ||
        p_packet->n_recvcard_id >= static_cast<uint32_t>(p_eth_manage->n_max_rvcard_num) ||
        p_sender_queue != &p_eth_manage->p_queue[p_packet->n_recvcard_id]) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    send_queue_t *p_queue = *p_sender_queue;
    if (p_queue == nullptr) {
        if (st_transfer.st_info == nullptr || st_transfer.n_num <= 0 ||
            p_packet->n_channel_id >= static_cast<uint32_t>(st_transfer.n_num)) {
            TLOGE("error code %d", sdk::kErrRefused);
            return sdk::kErrRefused;
        }
        p_queue = static_cast<send_queue_t *>(calloc(1, sizeof(send_queue_t)));
        if (p_queue == nullptr) {
            TLOGE("error code %d", sdk::kErrRefused);
            return sdk::kErrRefused;
        }
        pthread_mutex_init(&p_queue->st_lock, nullptr);
        p_queue->p_eth_node = p_eth_manage;
        queue_general_data_t &st_general = p_queue->st_general;
        st_general.n_fd = st_transfer.st_info[p_packet->n_channel_id].n_fd;
        st_general.n_channel_id = static_cast<int32_t>(p_packet->n_channel_id);
        st_general.e_packet_code_type = PACKET_RECV;
        st_general.n_recv_state = 1;
        st_general.n_recvcard_id = p_packet->n_recvcard_id;
        st_general.n_eth_id = p_packet->n_eth_id;
        *p_sender_queue = p_queue;
    }
    sdk::MutexLock queue_lock(&p_queue->st_lock);
    if (int32_t n_ret = sdk::queue_append_locked(p_queue, p_send_data, p_packet);
        n_ret != sdk::kOk) {
        return n_ret;
    }
    p_queue->n_hold_num++;  // the request's hold, dropped by sdk_rvcard_queue_release
    return sdk::kOk;
}

SDK_API int32_t sdk_rvcard_queue_release(send_queue_t **p_sender_queue,
                                         rvcard_eth_queue_manage_t *p_eth_manage) {
    if (p_sender_queue == nullptr || p_eth_manage == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    send_queue_t *p_free = nullptr;
    {
        sdk::MutexLock port_lock(&p_eth_manage->st_lock);
        send_queue_t *p_queue = *p_sender_queue;
        bool b_held = false;
        if (p_queue != nullptr) {
            sdk::MutexLock queue_lock(&p_queue->st_lock);
            b_held = p_queue->n_hold_num > 0;
        }
        if (!b_held) {
            TLOGE("release without push error code %d", sdk::kErrRefused);
            return sdk::kErrRefused;
        }
        p_free = drop_hold(p_sender_queue, *p_sender_queue);
    }
    free_queue(p_free);
    return sdk::kOk;
}

SDK_API int32_t sdk_rvcard_queue_distory(send_queue_t **p_sender_queue,
                                         rvcard_eth_queue_manage_t *p_eth_manage) {
    if (p_sender_queue == nullptr || p_eth_manage == nullptr) return sdk::kOk;
    send_queue_t *p_free = nullptr;
    {
        sdk::MutexLock port_lock(&p_eth_manage->st_lock);
        send_queue_t *p_queue = *p_sender_queue;
        if (p_queue == nullptr) return sdk::kOk;
        {
            sdk::MutexLock queue_lock(&p_queue->st_lock);
            // Settled: an empty queue may still be listed or held by a request in flight;
            // only a queue nothing holds is freed here, the rest is freed by its last hold.
            if (!unused(p_queue)) return sdk::kOk;
        }
        *p_sender_queue = nullptr;
        p_free = p_queue;
    }
    free_queue(p_free);
    return sdk::kOk;
}

}  // extern "C"
