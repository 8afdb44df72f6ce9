// Appending a frame to a send queue, shared by the channel queues and the card queues.
#pragma once

#include <cstdlib>

#include "common/log.h"
#include "common/result.h"
#include "transfer_manage.h"

namespace sdk {

// Appends an entry for the frame and its request; the caller holds the queue's st_lock.
// On a failed allocation the queue is unchanged and -5 is returned (and logged).
inline int32_t queue_append_locked(send_queue_t *p_queue, data_buf_t *p_send_data,
                                   packet_general_data_t *p_packet) {
    auto *p_node = static_cast<queue_node_t *>(calloc(1, sizeof(queue_node_t)));
    auto *p_entry = static_cast<queue_data_t *>(calloc(1, sizeof(queue_data_t)));
    if (p_node == nullptr || p_entry == nullptr) {
        free(p_node);
        free(p_entry);
        TLOGE("error code %d", kErrNoMemory);
        return kErrNoMemory;
    }
    p_entry->p_send_data = p_send_data;
    p_entry->p_packet = p_packet;
    p_node->p_data = p_entry;
    // The rear is stale once the queue has emptied: an empty queue starts afresh.
    if (p_queue->st_general.n_len != 0) {
        p_queue->p_rear->p_next = p_node;
    } else {
        p_queue->p_front = p_node;
    }
    p_queue->p_rear = p_node;
    p_queue->st_general.n_len++;
    return kOk;
}

}  // namespace sdk

namespace sdk {

// Takes the head entry off the queue (the caller holds its st_lock and knows it is not
// empty) and returns it; the node is freed.
inline queue_data_t queue_pop_locked(send_queue_t *p_queue) {
    queue_node_t *p_old = p_queue->p_front;
    const queue_data_t st_head = *p_old->p_data;
    p_queue->p_front = p_old->p_next;
    p_queue->st_general.n_len--;
    free(p_old->p_data);
    free(p_old);
    return st_head;
}

}  // namespace sdk
