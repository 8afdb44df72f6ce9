// Waiting for a condition instead of sleeping a fixed time: polls the predicate until it
// holds or the (generous) bound runs out, and says which.
#pragma once

#include <chrono>
#include <thread>

namespace sdk::test {

template <typename Pred>
bool wait_until(Pred pred, std::chrono::milliseconds bound = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= end) return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace sdk::test
