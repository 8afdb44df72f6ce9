// A simulated chassis for the reliability runs and the host threads that drive
// it.
//
// The chassis: a transfer configuration in a temporary folder and board_sim
// processes answering it, one per card, each with its own fault options.
//   main card, slot 100: FPGA on UDP 127.0.0.2:6000, MCU on a serial pty, a
//   report
//                        channel on 127.0.0.2:6100 fed by the simulator
//   sub card s (1..n):   FPGA on UDP 127.0.1.s:6000, a sender card with
//   receiving cards
//                        (2 ports, 2 cards each), MCU on UDP 127.0.2.s:6000
//
// The workload: each host thread writes values of its own to registers of its
// own and reads them back, so a read must return exactly what was written last
// (requests always reach the boards; only replies are spoiled). Receiving-card
// writes are confirmed by polling.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/sim_process.h"

namespace sdk::reliability {

struct Target {
    enum Kind { kUdp, kSerial, kCard } kind;
    uint32_t slot;
    bool mcu;             // MCU section (else FPGA)
    uint32_t port, card;  // receiving cards
    std::string name;
};

class SimChassis {
  public:
    // faults[i]: board_sim fault options of card i (0 = main card, s = sub card
    // s).
    SimChassis(int sub_cards, const std::vector<std::vector<std::string>> &faults);
    ~SimChassis() { stop(); }
    void stop();  // stops the simulators; stat() then sums a counter of their
                  // stats lines
    uint64_t stat(const std::string &name) const;

    std::string error;  // empty when every simulator is ready
    std::string config_path;
    std::vector<Target> targets;

  private:
    sdk::test::TempDir dir_;
    std::vector<std::unique_ptr<sdk::test::SimProcess>> sims_;
    std::vector<std::string> stats_;
};

// Fault options spoiling about `pct` % of the replies in every way the
// simulator knows.
std::vector<std::string> mixed_faults(double pct, uint32_t seed);

struct Outcomes {
    uint64_t reads_ok = 0, writes_ok = 0, timeouts = 0;
    uint64_t bad = 0;  // refused, wrong data, any other result, or a record left attached
    uint64_t total() const { return reads_ok + writes_ok + timeouts + bad; }
    void add(const Outcomes &o) {
        reads_ok += o.reads_ok, writes_ok += o.writes_ok, timeouts += o.timeouts, bad += o.bad;
    }
};

struct Workload {
    Workload(const std::vector<Target> &t, uint64_t n, int threads, uint32_t timeout_ms)
        : targets(t), requests(n), threads(threads), timeout_ms(timeout_ms), per_target(t.size()) {}
    void run();  // returns when every request has ended
    Outcomes totals() const;

    const std::vector<Target> targets;
    const uint64_t requests;
    const int threads;
    const uint32_t timeout_ms;
    std::atomic<uint64_t> ended{0};
    std::vector<Outcomes> per_target;
    std::vector<std::string> failures;  // the first few

  private:
    void host(int thread);
    std::atomic<uint64_t> next_{0};
    std::mutex lock_;  // per_target and failures
};

}  // namespace sdk::reliability
