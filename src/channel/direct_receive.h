// A caller that waits for its request on a UDP channel receives the channel's datagrams
// itself, instead of sleeping while the network receive thread wakes up, receives the
// reply and wakes it in turn: one thread hand-over less per round trip, which counts most
// when the controller's cores are busy.
//
// One caller at a time owns a channel this way; the receive thread then leaves the channel
// alone (its descriptor is paused in the thread's epoll set) until the owner lets go. The
// owner serves every datagram of the channel as the receive thread would (other requests'
// replies included) until its own request has ended and been let go by the engine.
#pragma once

#include <cstdint>

#include "engine/inflight.h"

namespace sdk {

// Makes (true) or frees (false) the per-channel ownership table; start-up and teardown.
bool direct_receive_setup(bool b_make);
// Serves the request's channel until the request is released; returns at once when the
// channel is not a UDP channel or another caller owns it (the caller then waits as usual).
void receive_until_released(InFlight *x);
// Waits until no caller receives directly any more; sdk_transfer_exit, once the engine
// stops and every request has ended, before the table goes.
void direct_receive_drain();
// Wakes the caller that owns channel n_channel, if any: a request of the channel ended
// or was let go elsewhere (a time-out, an exit).
void wake_direct_receiver(uint32_t n_channel);

}  // namespace sdk
