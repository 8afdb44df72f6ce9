// Idle cost: CPU time of the running engine over a window with no traffic, in all and per
// thread (by name; the trigger thread has none and shows as the program's name).
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "cases.h"
#include "chassis.h"

namespace bench {

int case_idle(const CaseContext &ctx, Metrics &m) {
    if (!start_engine(ctx, ctx.udp_config, kUdpSlots)) return 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // start-up settles
    const auto ticks0 = thread_ticks();
    const uint64_t cpu0 = process_cpu_ns();
    const uint64_t t0 = now_ns();
    std::this_thread::sleep_for(std::chrono::duration<double>(ctx.seconds));
    const double wall = static_cast<double>(now_ns() - t0);
    const double cpu = static_cast<double>(process_cpu_ns() - cpu0);
    const auto ticks1 = thread_ticks();
    m["seconds"] = wall / 1e9;
    m["cpu_pct"] = 100.0 * cpu / wall;
    const double tick_ns = 1e9 / static_cast<double>(ticks_per_second());
    for (const auto &[name, t1] : ticks1) {
        const auto it = ticks0.find(name);
        const uint64_t t = t1 - (it == ticks0.end() ? 0 : it->second);
        m["thread_" + name + "_pct"] = 100.0 * static_cast<double>(t) * tick_ns / wall;
    }
    return 0;
}

}  // namespace bench
