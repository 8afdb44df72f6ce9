// A simulated chassis for the reliability runs: a transfer configuration written to a
// temporary folder and the board simulators answering it, each card in a board_sim
// process of its own with its own fault profile.
//
//   main card, slot 100: FPGA on UDP 127.0.0.2:6000, MCU on a serial pty, a report
//                        channel on 127.0.0.2:6100 fed by the simulator
//   sub card s (1..n):   FPGA on UDP 127.0.1.s:6000, a sender card with receiving cards,
//                        MCU on UDP 127.0.2.s:6000
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/sim_process.h"

namespace sdk::reliability {

struct FaultProfile {
    double drop_pct = 0;
    double dup_pct = 0;
    double corrupt_pct = 0;
    double unsolicited_pct = 0;
    double serial_noise_pct = 0;
    bool serial_split = false;
    uint32_t delay_ms = 0;
    uint32_t seed = 1;

    std::vector<std::string> args() const;
};

// A profile that spoils about `pct` % of the replies in all the ways the simulator
// knows, spread over drops, duplicates, corruption, unsolicited frames and serial noise.
FaultProfile mixed_faults(double pct, uint32_t seed);

enum class TargetKind { kUdp, kSerial, kCard };

// One place requests can go to.
struct Target {
    TargetKind kind;
    uint32_t slot;
    bool mcu;           // MCU section (else FPGA)
    uint32_t port = 0;  // receiving cards
    uint32_t card = 0;
    std::string name;
};

struct ChassisPlan {
    int sub_cards = 2;
    int ports = 2;           // Ethernet ports of each sender card used
    int cards_per_port = 2;  // receiving cards used behind each port
    uint32_t report_interval_ms = 100;
};

class SimChassis {
  public:
    // profile_of(i): fault profile of board process i (0 = main card, s = sub card s).
    SimChassis(const ChassisPlan &plan, const std::vector<FaultProfile> &profiles);
    ~SimChassis();
    SimChassis(const SimChassis &) = delete;
    SimChassis &operator=(const SimChassis &) = delete;

    // Empty when every simulator reported "ready"; else what went wrong.
    const std::string &error() const { return error_; }
    const std::string &config_path() const { return config_path_; }
    const std::vector<Target> &targets() const { return targets_; }

    // Stops the simulators and returns the sum of a counter of their stats lines
    // ("requests", "replies", "dropped", ...).
    void stop();
    uint64_t stat(const std::string &name) const;

  private:
    sdk::test::TempDir dir_;
    std::string config_path_;
    std::string error_;
    std::vector<Target> targets_;
    std::vector<std::unique_ptr<sdk::test::SimProcess>> sims_;
    std::vector<std::string> stats_;
};

}  // namespace sdk::reliability
