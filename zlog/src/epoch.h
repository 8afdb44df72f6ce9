// A minimal read-copy-update scheme. Logging threads read the current configuration
// inside a read section; a reload publishes the new configuration, then synchronize()
// waits until every read section that could still see the old one has ended, after
// which the old one can be freed. Readers never block; writers are serialised by the
// caller.
#pragma once

#include <atomic>

namespace zl {

class Epoch {
  public:
    // Starts a read section; pass the result to leave().
    unsigned enter();
    void leave(unsigned slot);

    // Waits for the read sections started before the call.
    void synchronize();

  private:
    struct alignas(64) Counter {
        std::atomic<long> readers{0};
    };
    alignas(64) std::atomic<unsigned> epoch_{0};
    Counter slots_[2];
};

// Keeps a read section open for the lifetime of the guard.
class ReadSection {
  public:
    explicit ReadSection(Epoch &e) : epoch_(e), slot_(e.enter()) {}
    ~ReadSection() { epoch_.leave(slot_); }
    ReadSection(const ReadSection &) = delete;
    ReadSection &operator=(const ReadSection &) = delete;

  private:
    Epoch &epoch_;
    unsigned slot_;
};

}  // namespace zl
