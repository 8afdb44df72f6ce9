#include "checks.h"

namespace bench {

namespace {

double get(const Report &r, const std::string &c, const std::string &k) {
    const auto it = r.cases.find(c);
    if (it == r.cases.end()) return 0;
    const auto jt = it->second.find(k);
    return jt == it->second.end() ? 0 : jt->second;
}

double ratio(double a, double b) {
    return b > 0 ? a / b : 0;
}

}  // namespace

void build_rows(Report *r) {
    auto info = [r](const char *s, const std::string &what, double v, const char *unit) {
        r->rows.push_back({s, what, v, unit, "", true});
    };
    auto target = [r](const char *s, const std::string &what, double v, const char *t, bool ok) {
        r->rows.push_back({s, what, v, "x", t, ok});
    };

    const double eng = get(*r, "engine_seq", "rate");
    const double pp = get(*r, "pingpong", "rate");
    const double mb = get(*r, "modbus", "rate");
    for (const char *c : {"engine_seq", "pingpong", "modbus"}) {
        const std::string n = c;
        info("1 seq", n + " round trips/s", get(*r, c, "rate"), "req/s");
        info("1 seq", n + " latency p50", get(*r, c, "p50_us"), "us");
        info("1 seq", n + " latency p99", get(*r, c, "p99_us"), "us");
        info("1 seq", n + " round trips of 1 ms or more", get(*r, c, "slow_1ms_pct"), "%");
        info("1 seq", n + " CPU per round trip (this process)", get(*r, c, "cpu_us_per_req"), "us");
    }
    target("1 seq", "engine / UDP ping-pong rate", ratio(eng, pp), ">= 0.5", ratio(eng, pp) >= 0.5);
    target("1 seq", "engine / libmodbus rate", ratio(eng, mb), "> 1.0", ratio(eng, mb) > 1.0);

    const double p1 = get(*r, "parallel_1", "rate");
    for (const char *c : {"parallel_1", "parallel_8", "parallel_32"}) {
        info("2 par",
             std::string(c) + " aggregate (" +
                 std::to_string(static_cast<int>(get(*r, c, "threads"))) + " threads)",
             get(*r, c, "rate"), "req/s");
    }
    const double p8 = ratio(get(*r, "parallel_8", "rate"), p1);
    target("2 par", "8 channels / 1 channel rate", p8, ">= 3.0", p8 >= 3.0);
    info("2 par", "32 channels / 1 channel rate", ratio(get(*r, "parallel_32", "rate"), p1), "x");

    for (const char *n : {"10", "1000", "10000"}) {
        info("3 scale", std::string("CPU per request, ") + n + " accepted at once",
             get(*r, "scaling", std::string("n") + n + "_cpu_us_per_req"), "us");
    }
    const double sc = ratio(get(*r, "scaling", "n10000_cpu_us_per_req"),
                            get(*r, "scaling", "n10_cpu_us_per_req"));
    target("3 scale", "CPU per request 10000 / 10", sc, "<= 2.0", sc > 0 && sc <= 2.0);

    const double idle = get(*r, "idle", "cpu_pct");
    r->rows.push_back({"4 idle", "engine CPU with no traffic", idle, "% core", "< 2", idle < 2.0});
    if (const auto it = r->cases.find("idle"); it != r->cases.end()) {
        for (const auto &[k, v] : it->second) {
            if (k.rfind("thread_", 0) == 0 && v >= 0.01) info("4 idle", "  " + k, v, "% core");
        }
    }

    info("5 mem", "resident bytes per request in flight", get(*r, "memory", "request_rss_bytes"),
         "B");
    info("5 mem", "  record size (two 9000-byte buffers)",
         get(*r, "memory", "request_record_bytes"), "B");
    info("5 mem", "resident bytes per queued report (64-byte frame)",
         get(*r, "memory", "report_rss_bytes"), "B");
    info("5 mem", "  virtual bytes per queued report", get(*r, "memory", "report_vm_bytes"), "B");

    info("6 serial", "cutter, 36-byte frames", get(*r, "serial", "cut_small_frames_per_s"),
         "frames/s");
    info("6 serial", "cutter, 36-byte frames", get(*r, "serial", "cut_small_mb_per_s"), "MB/s");
    info("6 serial", "cutter, 1056-byte frames", get(*r, "serial", "cut_1k_frames_per_s"),
         "frames/s");
    info("6 serial", "cutter, 1056-byte frames", get(*r, "serial", "cut_1k_mb_per_s"), "MB/s");
    info("6 serial", "pty round trips/s", get(*r, "serial", "pty_rate"), "req/s");
    info("6 serial", "pty latency p50", get(*r, "serial", "pty_p50_us"), "us");
    info("6 serial", "pty latency p99", get(*r, "serial", "pty_p99_us"), "us");
}

}  // namespace bench
