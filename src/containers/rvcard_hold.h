// Between the send lists and the receiving-card queues: the hold that a send list has on
// a card queue while it lists it.
#pragma once

#include "transfer_manage.h"

namespace sdk {

// Takes the list's hold; the caller holds the queue's lock and has just listed it.
inline void rvcard_queue_hold_listing(send_queue_t *p_queue) {
    if (p_queue->p_eth_node != nullptr) p_queue->n_hold_num++;
}

// Drops the list's hold after the queue was unlisted, with no lock held; frees the queue
// when that was its last hold. No-op for a channel queue.
void rvcard_queue_drop_listing(send_queue_t *p_queue);

}  // namespace sdk
