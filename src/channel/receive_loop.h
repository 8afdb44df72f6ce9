// The receive loop of the network and report threads: epoll over the open channels that
// the thread reads, and its wake pipe.
#pragma once

#include <cstdint>

#include "channel/transport.h"

namespace sdk {

struct ReceivePass {
    // Serves channel n_channel, whose descriptor is readable, updating the pass's result.
    // False ends the pass: the channels after it are served by a later pass (their
    // descriptors stay readable).
    bool (*serve)(uint32_t n_channel, int32_t *p_ret);
    // Runs after every pass with its result.
    void (*after)(int32_t n_ret);
};

// Stops or resumes the watch of receive thread r on channel n_channel (descriptor n_fd):
// a caller that receives on the channel itself keeps the thread from waking for it.
void receive_pause(Receiver r, uint32_t n_channel, int n_fd);
void receive_resume(Receiver r, uint32_t n_channel, int n_fd);

// Runs receive thread r until the engine stops. A wake rebuilds the set of descriptors
// (a channel was opened) or, once the engine stops, ends the loop.
void receive_loop(Receiver r, const ReceivePass &pass);

}  // namespace sdk
