// Host threads driving requests at a simulated chassis and checking every outcome: each
// thread writes values of its own to registers of its own and reads them back, so a read
// must return exactly what was written last (requests always reach the boards; only
// replies are spoiled). Receiving cards get writes confirmed by polling.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "chassis.h"

namespace sdk::reliability {

struct Outcomes {
    uint64_t reads_ok = 0;
    uint64_t writes_ok = 0;
    uint64_t timeouts = 0;
    uint64_t wrong_data = 0;  // a reply that is not what the board holds
    uint64_t other = 0;       // any other result, or a record left attached
    uint64_t refused = 0;     // sdk_request itself refused the request

    uint64_t total() const {
        return reads_ok + writes_ok + timeouts + wrong_data + other + refused;
    }
    bool clean() const { return wrong_data == 0 && other == 0 && refused == 0; }
    void add(const Outcomes &o);
};

struct WorkloadOptions {
    uint64_t requests = 1000;
    int threads = 8;
    uint32_t timeout_ms = 100;
    uint32_t reply_times = 2;
    uint32_t polling_ms = 10;
};

class Workload {
  public:
    Workload(const std::vector<Target> &targets, const WorkloadOptions &options);

    // Runs the requests on options.threads host threads; returns when all have ended.
    void run();

    // Requests ended so far (for a watchdog) and in flight now.
    uint64_t ended() const { return ended_.load(std::memory_order_relaxed); }
    // One line per thread with a request in flight for longer than `ms`.
    std::string stuck_report(int64_t ms) const;

    const std::vector<Outcomes> &per_target() const { return per_target_; }
    Outcomes totals() const;
    // The first few failures, for the log of a failing run.
    const std::vector<std::string> &failures() const { return failures_; }

  private:
    struct InFlight {
        std::atomic<int64_t> since_ms{-1};  // -1: idle
        std::atomic<int> target{-1};
    };
    void host(int thread);
    void record(int target, const Outcomes &o, const std::string &failure);

    std::vector<Target> targets_;
    WorkloadOptions options_;
    std::atomic<uint64_t> next_{0};
    std::atomic<uint64_t> ended_{0};
    std::vector<Outcomes> per_target_;
    std::vector<InFlight> in_flight_;
    std::vector<std::string> failures_;
    std::mutex lock_;  // per_target_ and failures_
};

int64_t now_ms();

}  // namespace sdk::reliability
