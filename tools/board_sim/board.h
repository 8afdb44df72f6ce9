// One simulated board: answers request frames from its register store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "board_sim/frame.h"
#include "board_sim/registers.h"

namespace board_sim {

struct Stats {
    uint64_t requests = 0;  // well-formed request frames
    uint64_t bad = 0;       // datagrams refused as malformed
    uint64_t replies = 0;   // frames sent in answer, duplicates and unsolicited included
    uint64_t dropped = 0;   // replies withheld by --drop
    uint64_t duplicated = 0;
    uint64_t corrupted = 0;
    uint64_t unsolicited = 0;  // extra frames with an unknown label
    uint64_t reports = 0;
    uint64_t noise = 0;  // bursts of noise written before serial replies
    uint64_t polls = 0;  // polls of receiving cards (also counted in requests)
    uint64_t send_errors = 0;
};

struct BoardOptions {
    bool reply_writes = true;  // false: acknowledged writes are stored but never answered
};

class Board {
  public:
    explicit Board(BoardOptions options = {}) : options_(options) {}

    // Handles one datagram; returns the reply frame, or an empty vector when none is due.
    std::vector<uint8_t> handle(const uint8_t *p, size_t n, Stats *stats);

  private:
    BoardOptions options_;
    RegisterStore registers_;
};

SpaceKey space_of(const Request &r);

}  // namespace board_sim
