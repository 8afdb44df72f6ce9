// A simulated chassis for the reliability runs and the host threads that drive it.
//
// The chassis: a transfer configuration in a temporary folder and board_sim processes
// answering it, one per card, each with its own fault options.
//   main card, slot 100: FPGA on UDP 127.0.0.2:6000, MCU on a serial pty, a report
//                        channel on 127.0.0.2:6100 fed by the simulator
//   sub card s (1..n):   FPGA on UDP 127.0.1.s:6000, a sender card with receiving cards
//                        (2 ports, 2 cards each), MCU on UDP 127.0.2.s:6000
//
// The workload: each host thread writes values of its own to registers of its own and
// reads them back, so a read must return exactly what was written last (requests always
// reach the boards; only replies are spoiled). Receiving-card writes are confirmed by
// polling.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/sim_process.h"

namespace sdk::reliability {

enum class TargetKind { kUdp, kSerial, kCard };

struct Target {
    TargetKind kind;
    uint32_t slot;
    bool mcu;             // MCU section (else FPGA)
    uint32_t port, card;  // receiving cards
    std::string name;
};

class SimChassis {
  public:
    // faults[i]: board_sim fault options of card i (0 = main card, s = sub card s).
    SimChassis(int sub_cards, const std::vector<std::vector<std::string>> &faults);
    ~SimChassis() { stop(); }

    const std::string &error() const { return error_; }  // empty when all are ready
    const std::string &config_path() const { return config_path_; }
    const std::vector<Target> &targets() const { return targets_; }
    // Stops the simulators; stat() then sums a counter of their stats lines.
    void stop();
    uint64_t stat(const std::string &name) const;

  private:
    sdk::test::TempDir dir_;
    std::string config_path_, error_;
    std::vector<Target> targets_;
    std::vector<std::unique_ptr<sdk::test::SimProcess>> sims_;
    std::vector<std::string> stats_;
};

// Fault options spoiling about `pct` % of the replies in every way the simulator knows.
std::vector<std::string> mixed_faults(double pct, uint32_t seed);

struct Outcomes {
    uint64_t reads_ok = 0, writes_ok = 0, timeouts = 0;
    uint64_t bad = 0;  // refused, wrong data, any other result, or a record left attached
    uint64_t total() const { return reads_ok + writes_ok + timeouts + bad; }
};

class Workload {
  public:
    Workload(const std::vector<Target> &targets, uint64_t requests, int threads,
             uint32_t timeout_ms);
    void run();  // returns when every request has ended
    uint64_t ended() const { return ended_.load(); }
    const std::vector<Outcomes> &per_target() const { return per_target_; }
    Outcomes totals() const;
    const std::vector<std::string> &failures() const { return failures_; }  // the first few

  private:
    void host(int thread);
    std::vector<Target> targets_;
    uint64_t requests_;
    int threads_;
    uint32_t timeout_ms_;
    std::atomic<uint64_t> next_{0}, ended_{0};
    std::vector<Outcomes> per_target_;
    std::vector<std::string> failures_;
    std::mutex lock_;  // per_target_ and failures_
};

}  // namespace sdk::reliability
