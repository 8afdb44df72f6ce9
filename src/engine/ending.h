// The end of a request, the same whoever ends it (the receive path on its reply, the
// monitor on a time-out, a write-wait or an answered poll, sdk_transfer_exit).
#pragma once

#include "engine/inflight.h"

namespace sdk {

enum class Why { kDone, kPollTimeout, kTimeout };

// Ends the request, whose st_wait_lock and st_lock the caller holds: final state (and no
// reply data for a request that expected none), the time-out log line, its label and
// deadline gone, its channel or card released, its caller woken. False, changing nothing,
// when a reply has taken its label and is about to end it instead. *pp_next is the channel
// queue whose next frame may go now (the caller sends it once it has let go of the
// request's locks), or nullptr.
bool end_locked(InFlight *x, packet_state e_final, Why why, send_queue_t **pp_next);

// The caller's condition for taking the record back: it has ended and the monitor no
// longer looks at it.
bool released(InFlight *x);

}  // namespace sdk
