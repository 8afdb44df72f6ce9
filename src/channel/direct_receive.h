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
// A caller's hold on a UDP channel, taken when no other caller holds it: the channel is
// paused in the receive thread's set until the hold ends. Taken before the request's
// frame goes out (sdk_request_run), so a reply however fast can only reach the caller;
// or on the way into the wait. While the hold lasts, the holder's own code must lead
// straight to serve_until_released: nobody else reads the channel meanwhile.
class ChannelClaim {
  public:
    explicit ChannelClaim(uint32_t n_channel);
    ~ChannelClaim();  // the receive thread reads the channel again
    ChannelClaim(const ChannelClaim &) = delete;
    ChannelClaim &operator=(const ChannelClaim &) = delete;
    // Serves the channel until request x (one of its requests) is released; returns at
    // once when the hold was not taken (the caller then waits as usual).
    void serve_until_released(InFlight *x);

  private:
    uint32_t n_channel_;
    int n_sock_ = -1;
    int n_wake_ = -1;  // the holder's wake descriptor; -1 when the hold was not taken
};

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
