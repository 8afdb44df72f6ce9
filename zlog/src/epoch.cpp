#include "epoch.h"

#include <chrono>
#include <thread>

namespace zl {

// All operations are sequentially consistent: a reader that counted itself in slot s and
// then still saw the epoch that maps to s is seen by a writer that flips the epoch and
// then reads slot s; a reader that sees the new epoch sees the new configuration.
unsigned Epoch::enter() {
    for (;;) {
        unsigned e = epoch_.load();
        unsigned slot = e & 1U;
        slots_[slot].readers.fetch_add(1);
        if (epoch_.load() == e) return slot;
        slots_[slot].readers.fetch_sub(1);  // a writer flipped meanwhile: count again
    }
}

void Epoch::leave(unsigned slot) {
    slots_[slot].readers.fetch_sub(1);
}

void Epoch::synchronize() {
    unsigned old_slot = epoch_.fetch_add(1) & 1U;
    for (int spins = 0; slots_[old_slot].readers.load() != 0; ++spins) {
        if (spins < 100) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
}

}  // namespace zl
