// Per-channel counters of the engine, read by hosts through sdk_transfer_get_stats. Each
// count is a relaxed atomic add on the channel's own counters: no lock on the hot path.
#pragma once

#include <cstdint>

namespace sdk {

enum class Count : uint8_t {
    kSent,           // request frames sent the first time
    kRetransmitted,  // request frames sent again
    kPolled,         // poll frames sent
    kMatched,        // replies that found their request
    kUnmatched,      // replies no request waited for (unknown label, or late)
    kBadFrame,       // frames dropped as malformed
    kTimedOut,       // requests ended as timed out
    kReportQueued,
    kReportDropped,
    kNum
};

// Counts one event of channel n_channel; channels outside the table are not counted.
void count(int64_t n_channel, Count c);

// Sized for the channel table at start-up (all zero); freed by the engine's teardown.
// Both only while no engine thread runs. False when memory runs out.
bool stats_setup(int32_t n_channels);
void stats_free();

}  // namespace sdk
