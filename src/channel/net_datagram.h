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

}  // namespace sdk
