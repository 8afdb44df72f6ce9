// Fault injection on the replies of all boards. Every reply draws the same number of random
// values whatever the outcome, so one seed gives the same faults for the same requests.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "board_sim/board.h"

namespace board_sim {

struct FaultConfig {
    double drop_pct = 0;
    double dup_pct = 0;
    double corrupt_pct = 0;
    double unsolicited_pct = 0;
    uint32_t delay_ms = 0;
    uint32_t seed = 1;
};

enum class Corruption : uint8_t { kLength = 0, kBodyType = 1, kLabel = 2 };

class FaultInjector {
  public:
    explicit FaultInjector(const FaultConfig &config) : config_(config), rng_(config.seed) {}

    // The frames to send for one reply, in order (all of them config.delay_ms late).
    std::vector<std::vector<uint8_t>> apply(const std::vector<uint8_t> &reply, Stats *stats);

    uint32_t delay_ms() const { return config_.delay_ms; }

  private:
    bool roll(double pct);

    FaultConfig config_;
    std::mt19937 rng_;
};

// Spoils one field of a frame so that the library refuses it or matches nothing.
void corrupt_frame(std::vector<uint8_t> *frame, Corruption kind, uint32_t random);

// A label far from `label`: the library's labels count upwards, so one a quarter of the
// label space away is not waited for by any request in flight.
uint16_t foreign_label(uint16_t label, uint32_t random);

}  // namespace board_sim
