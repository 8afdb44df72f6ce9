// Idle cost: CPU time of the running engine over a window with no traffic, in all and per
// thread (by name; the trigger thread has none and shows as "unnamed"), and the wake-ups
// of the engine's threads: context switches, voluntary and not, of every thread but the
// main one (this case starts no thread of its own), per thread and in all.
#include <thread>

#include "cases.h"
#include "chassis.h"

namespace bench {

int case_idle(const CaseContext &ctx, Metrics &m) {
    if (!start_engine(ctx, ctx.udp_config, kUdpSlots)) return 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // start-up settles
    const auto threads0 = named_threads();
    const uint64_t cpu0 = process_cpu_ns();
    const uint64_t t0 = now_ns();
    std::this_thread::sleep_for(std::chrono::duration<double>(ctx.seconds));
    const double wall = static_cast<double>(now_ns() - t0);
    const double cpu = static_cast<double>(process_cpu_ns() - cpu0);
    const auto threads1 = named_threads();
    m["seconds"] = wall / 1e9;
    m["cpu_pct"] = 100.0 * cpu / wall;
    uint64_t total = 0;
    size_t engine_threads = 0;
    for (const auto &[name, d] : thread_deltas(threads0, threads1)) {
        if (name == "main") continue;  // the case's own thread, asleep
        m["wakeups_" + name + "_per_s"] = static_cast<double>(d.switches) * 1e9 / wall;
        m["thread_" + name + "_pct"] = 100.0 * d.cpu_ns / wall;
        total += d.switches;
    }
    for (const auto &[tid, s] : threads1)
        engine_threads += s.name != "main";
    m["wakeups_per_s"] = static_cast<double>(total) * 1e9 / wall;
    m["wakeups"] = static_cast<double>(total);
    m["engine_threads"] = static_cast<double>(engine_threads);
    return 0;
}

}  // namespace bench
