// The check and hand-over of one received datagram, apart from the socket that carried
// it: the step of the network receive pass that runs for every ready UDP channel.
#pragma once

#include <cstdint>

namespace sdk {

// Checks datagram b of n bytes received on UDP channel n_channel (an index inside the
// table) and hands its reply to the request that waits for its label. True when the pass
// goes on with the next channel, *p_ret then holding the label search's result (0, or
// the negative code of an unmatched reply). False when the datagram ends the pass: *p_ret
// holds the refusal's code for a malformed frame and is left as it was for an unknown
// frame or body type.
bool recv_datagram(uint32_t n_channel, const uint8_t *b, uint32_t n, int32_t *p_ret);

// Receives one datagram of a datagram channel into p_rbuf (65535 bytes): its length;
// with b_wait false, 0 when none is waiting; -4000 for a channel of another kind, -3000
// when the receive fails ("socket error %d").
int32_t physical_recv(uint8_t *p_rbuf, uint32_t n_transfer_id, bool b_wait);

// One datagram of UDP channel n_channel, taken without waiting and handed over as
// recv_datagram does; true (nothing to do) when no datagram was waiting.
bool serve_datagram(uint32_t n_channel, int32_t *p_ret);

}  // namespace sdk
