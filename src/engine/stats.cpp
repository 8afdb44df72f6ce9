// The engine's per-channel counters.
#include "engine/stats.h"

#include <array>
#include <atomic>
#include <new>

#include "common/result.h"
#include "transfer_server.h"

namespace sdk {

namespace {

using Counters = std::array<std::atomic<uint64_t>, static_cast<size_t>(Count::kNum)>;

// Set at start-up before the threads run and cleared after they stopped, so the counting
// threads never see it change.
Counters *g_counters = nullptr;
int32_t g_n_channels = 0;

}  // namespace

void count(int64_t n_channel, Count c) {
    if (g_counters == nullptr || n_channel < 0 || n_channel >= g_n_channels) return;
    g_counters[n_channel][static_cast<size_t>(c)].fetch_add(1, std::memory_order_relaxed);
}

bool stats_setup(int32_t n_channels) {
    stats_free();
    if (n_channels <= 0) return true;
    g_counters = new (std::nothrow) Counters[static_cast<size_t>(n_channels)]();
    if (g_counters == nullptr) return false;
    g_n_channels = n_channels;
    return true;
}

void stats_free() {
    delete[] g_counters;
    g_counters = nullptr;
    g_n_channels = 0;
}

}  // namespace sdk

extern "C" {

SDK_API int32_t sdk_transfer_get_stats(sdk_transfer_stats_t *p_stats, uint32_t n_max) {
    if (p_stats == nullptr && n_max > 0) return sdk::kErrNullBuffer;
    if (sdk::g_counters == nullptr || g_st_transfer.st_info == nullptr) return 0;
    const int32_t n_num = sdk::g_n_channels;
    for (uint32_t i = 0; i < n_max && i < static_cast<uint32_t>(n_num); ++i) {
        const transfer_data_t &ch = g_st_transfer.st_info[i];
        const sdk::Counters &c = sdk::g_counters[i];
        auto get = [&c](sdk::Count k) {
            return c[static_cast<size_t>(k)].load(std::memory_order_relaxed);
        };
        sdk_transfer_stats_t &s = p_stats[i];
        s.n_transfer_id = static_cast<int32_t>(i);
        s.n_slot = ch.n_slot;
        s.n_type = ch.n_type;
        s.n_opened = ch.n_fd >= 0 && ch.n_type != 0 ? 1 : 0;
        s.n_frames_sent = get(sdk::Count::kSent);
        s.n_retransmissions = get(sdk::Count::kRetransmitted);
        s.n_polls = get(sdk::Count::kPolled);
        s.n_replies_matched = get(sdk::Count::kMatched);
        s.n_replies_unmatched = get(sdk::Count::kUnmatched);
        s.n_bad_frames = get(sdk::Count::kBadFrame);
        s.n_timeouts = get(sdk::Count::kTimedOut);
        s.n_reports_queued = get(sdk::Count::kReportQueued);
        s.n_reports_dropped = get(sdk::Count::kReportDropped);
    }
    return n_num;
}

}  // extern "C"
