// Putting a request's frame on its channel: the one step that every sending thread takes
// (a caller whose channel is idle, the thread that ends the request before it, the sender
// thread for receiving-card queues), under the flow rule.
#pragma once

#include "engine/inflight.h"

namespace sdk {

// Sends the head frame of channel queue q when its channel is free: takes the channel
// (its busy counter from 1 to 2, atomically, so two threads never both take it), takes
// the frame off the queue and sends it. False when the queue is empty or the channel busy.
bool send_channel_head(send_queue_t *q);

// The frame of request g, just taken off queue qg whose channel or card the caller has
// occupied: sent, its label listed first so that a fast reply finds it, and its deadline
// set; or, when its time ran out while it waited, handed on unsent (the monitor then
// retransmits or ends it). The caller holds g's st_lock.
void send_locked(queue_general_data_t *qg, packet_general_data_t *g, data_buf_t *d);

// When the monitor must next look at a request that has just been sent.
uint64_t first_deadline(const packet_general_data_t *g);

}  // namespace sdk
