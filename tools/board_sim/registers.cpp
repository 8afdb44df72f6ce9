#include "board_sim/registers.h"

namespace board_sim {

void RegisterStore::write(const SpaceKey &space, uint32_t addr, const uint8_t *data, size_t n) {
    if (n == 0) return;
    auto &bytes = spaces_[space];
    for (size_t i = 0; i < n; ++i)
        bytes[static_cast<uint32_t>(addr + i)] = data[i];
}

void RegisterStore::read(const SpaceKey &space, uint32_t addr, uint8_t *out, size_t n) const {
    auto it = spaces_.find(space);
    for (size_t i = 0; i < n; ++i) {
        out[i] = 0;
        if (it == spaces_.end()) continue;
        auto byte = it->second.find(static_cast<uint32_t>(addr + i));
        if (byte != it->second.end()) out[i] = byte->second;
    }
}

}  // namespace board_sim
