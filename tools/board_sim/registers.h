// The registers of one simulated board: a sparse byte map per address space. Boards are
// addressed by body kind, device type and device index; receiving cards by port and card.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>
#include <unordered_map>

namespace board_sim {

struct SpaceKey {
    uint8_t kind = 0;  // BodyKind of the requests that reach the space
    uint16_t a = 0;    // device type, or the port of a receiving card
    uint16_t b = 0;    // device index, or the card behind the port

    bool operator<(const SpaceKey &o) const {
        return std::tie(kind, a, b) < std::tie(o.kind, o.a, o.b);
    }
};

class RegisterStore {
  public:
    // Addresses wrap at 2^32, as a 32-bit register address would.
    void write(const SpaceKey &space, uint32_t addr, const uint8_t *data, size_t n);
    // Bytes never written read as zero.
    void read(const SpaceKey &space, uint32_t addr, uint8_t *out, size_t n) const;

  private:
    std::map<SpaceKey, std::unordered_map<uint32_t, uint8_t>> spaces_;
};

}  // namespace board_sim
