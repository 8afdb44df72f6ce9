// Sequential round trips on one UDP channel: through the engine, with sdk_request_run
// (and, for comparison, sdk_request then sdk_request_wait), also with every core kept
// busy by hog processes, with the context switches and CPU time of each engine
// thread per round trip, and as a plain synchronous ping-pong of the same frames against
// the same simulated board (also under the hog, for information).
#include <algorithm>

#include "cases.h"
#include "chassis.h"
#include "pingpong.h"
#include "requests.h"

namespace bench {

namespace {

constexpr int kWarmup = 200;
constexpr int kSlot = 1;

void fill(Metrics &m, Latencies &lat, uint64_t n, uint64_t errors, uint64_t wall_ns,
          uint64_t cpu_ns) {
    const double secs = static_cast<double>(wall_ns) / 1e9;
    m["requests"] = static_cast<double>(n);
    m["errors"] = static_cast<double>(errors);
    m["rate"] = static_cast<double>(n) / secs;
    m["p50_us"] = lat.percentile_us(50);
    m["p99_us"] = lat.percentile_us(99);
    m["slow_1ms_pct"] = lat.percent_at_least_us(1000);
    m["cpu_us_per_req"] = n ? static_cast<double>(cpu_ns) / 1e3 / static_cast<double>(n) : 0;
}

std::string cdf_path(const CaseContext &ctx, const char *name) {
    return ctx.out_dir + "/data/lat_" + name + "_" + std::to_string(ctx.round) + ".dat";
}

int run_engine_seq(const CaseContext &ctx, Metrics &m, bool hog, bool two_calls = false) {
    if (!start_engine(ctx, ctx.udp_config, kUdpSlots)) return 1;
    char rbuf[SDK_DATA_BUF_LEN];
    auto one = [&rbuf, two_calls]() {
        transfer_op_t op = fpga_read(kSlot);
        if (!two_calls) return sdk_request_run(nullptr, 0, rbuf, &op) > 0;
        if (sdk_request(nullptr, 0, &op) != 0) return false;
        return sdk_request_wait(rbuf, &op) > 0;
    };
    CpuHogs hogs;
    if (hog && !start_hogs(&hogs, m)) return 1;
    for (int i = 0; i < kWarmup; ++i)
        one();
    const auto threads0 = named_threads();
    LoopResult r = timed_loop(ctx.seconds, 0, 200000, one);
    const auto threads1 = named_threads();
    hogs.stop();
    fill(m, r.lat, r.lat.size(), r.errors, r.wall_ns, r.cpu_ns);
    // Where the round trips' wake-ups and CPU time go, thread by thread.
    const double n = static_cast<double>(std::max<uint64_t>(r.lat.size() + r.errors, 1));
    for (const auto &[name, d] : thread_deltas(threads0, threads1)) {
        m["wakeups_per_req_" + name] = static_cast<double>(d.switches) / n;
        m["cpu_us_per_req_" + name] = d.cpu_ns / 1e3 / n;
    }
    if (!two_calls) r.lat.write_cdf(cdf_path(ctx, hog ? "engine_hog" : "engine"));
    return r.errors > r.lat.size() / 100 ? 1 : 0;
}

int run_pingpong(const CaseContext &ctx, Metrics &m, bool hog) {
    UdpPingPong pp;
    if (!pp.open(kSlot)) return 1;
    CpuHogs hogs;
    if (hog && !start_hogs(&hogs, m)) return 1;
    LoopResult r = timed_loop(ctx.seconds, kWarmup, 400000, [&pp] { return pp.one(); });
    hogs.stop();
    fill(m, r.lat, r.lat.size(), r.errors, r.wall_ns, r.cpu_ns);
    r.lat.write_cdf(cdf_path(ctx, hog ? "pingpong_hog" : "pingpong"));
    return r.errors > r.lat.size() / 100 ? 1 : 0;
}

}  // namespace

int case_engine_seq(const CaseContext &ctx, Metrics &m) {
    return run_engine_seq(ctx, m, false);
}

int case_engine_seq_hog(const CaseContext &ctx, Metrics &m) {
    return run_engine_seq(ctx, m, true);
}

int case_engine_seq_2calls(const CaseContext &ctx, Metrics &m) {
    return run_engine_seq(ctx, m, false, true);
}

int case_engine_seq_2calls_hog(const CaseContext &ctx, Metrics &m) {
    return run_engine_seq(ctx, m, true, true);
}

int case_pingpong(const CaseContext &ctx, Metrics &m) {
    return run_pingpong(ctx, m, false);
}

int case_pingpong_hog(const CaseContext &ctx, Metrics &m) {
    return run_pingpong(ctx, m, true);
}

}  // namespace bench
