// Library-wide state shared between the C entry points.
#pragma once

#include <atomic>

#include "epoch.h"

namespace zl {

// True between a successful zlog_init and zlog_fini.
extern std::atomic<bool> g_ready;
inline bool initialised() {
    return g_ready.load(std::memory_order_acquire);
}

// Guards every reader of a configuration against its release by a reload or zlog_fini.
extern Epoch g_epoch;

}  // namespace zl
