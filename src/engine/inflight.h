// A request in flight as the engine keeps it: the public record (what the caller's
// descriptor points to) followed by the engine's own bookkeeping, in one allocation made
// by sdk_request and freed by sdk_request_wait or sdk_request_free.
#pragma once

#include <cstddef>
#include <cstdint>

#include "transfer_server.h"

namespace sdk {

constexpr uint64_t kNever = UINT64_MAX;
constexpr size_t kNotListed = SIZE_MAX;

struct InFlight {
    packet_data_t rec;  // first: a record's address is its InFlight's address
    // Under the deadline lock (deadlines.cpp):
    uint64_t n_due_ns = kNever;        // when the monitor next has to look at it
    size_t n_heap_index = kNotListed;  // its place in the deadline heap
    bool b_monitor_busy = false;       // the monitor took it off the heap and handles it
    // Under st_lock: its label is in its label list (from the send on).
    bool b_labelled = false;
};

static_assert(offsetof(InFlight, rec) == 0, "the record leads its InFlight");

inline InFlight *inflight_of(packet_data_t *p) {
    return reinterpret_cast<InFlight *>(p);
}
inline InFlight *inflight_of(packet_general_data_t *g) {
    return inflight_of(reinterpret_cast<packet_data_t *>(reinterpret_cast<char *>(g) -
                                                         offsetof(packet_data_t, p_packet)));
}

}  // namespace sdk
