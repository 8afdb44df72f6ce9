#include "checks.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>

namespace bench {

namespace {

double get(const Report &r, const std::string &c, const std::string &k) {
    const auto it = r.cases.find(c);
    if (it == r.cases.end()) return 0;
    const auto jt = it->second.find(k);
    return jt == it->second.end() ? 0 : jt->second;
}

bool has(const Report &r, const std::string &c, const std::string &k) {
    const auto it = r.cases.find(c);
    return it != r.cases.end() && it->second.count(k) != 0;
}

double ratio(double a, double b) {
    return b > 0 ? a / b : 0;
}

// The rate ratio a / b taken in each round where both ran (side by side, moments apart):
// its median, lowest and highest. The reference rates on a shared machine swing by two
// or three times from one run to the next; a ratio of two runs made moments apart swings
// much less, and its median is not moved by one disturbed round.
struct RoundRatio {
    double median = 0, low = 0, high = 0;
    size_t rounds = 0;
};

RoundRatio round_ratio(const Report &r, const std::string &a, const std::string &b) {
    RoundRatio out;
    const auto ia = r.round_rates.find(a);
    const auto ib = r.round_rates.find(b);
    if (ia == r.round_rates.end() || ib == r.round_rates.end()) return out;
    std::vector<double> v;
    for (const auto &[round, rate] : ia->second) {
        const auto jt = ib->second.find(round);
        if (jt != ib->second.end() && rate > 0 && jt->second > 0) v.push_back(rate / jt->second);
    }
    if (v.empty()) return out;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    out.median = n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
    out.low = v.front();
    out.high = v.back();
    out.rounds = n;
    return out;
}

// "what (median of N rounds, low-high)".
std::string spread(const std::string &what, const RoundRatio &q) {
    char text[96];
    snprintf(text, sizeof(text), " (median of %zu rounds, %.2f-%.2f)", q.rounds, q.low, q.high);
    return what + text;
}

// The thread names of a case's per-thread figures "<prefix><name><suffix>".
std::vector<std::string> threads_of(const Report &r, const std::string &c,
                                    const std::string &prefix, const std::string &suffix = "") {
    std::vector<std::string> out;
    const auto it = r.cases.find(c);
    if (it == r.cases.end()) return out;
    for (const auto &[k, v] : it->second) {
        if (k.size() <= prefix.size() + suffix.size() || k.compare(0, prefix.size(), prefix) != 0 ||
            k.compare(k.size() - suffix.size(), suffix.size(), suffix) != 0) {
            continue;
        }
        out.push_back(k.substr(prefix.size(), k.size() - prefix.size() - suffix.size()));
    }
    return out;
}

}  // namespace

void build_rows(Report *r) {
    auto info = [r](const char *s, const std::string &what, double v, const char *unit) {
        r->rows.push_back({s, what, v, unit, "", true, -1});
    };
    // A ratio with its target; `stretch`: -1 no stretch goal, else whether it is reached.
    auto target = [r](const char *s, const std::string &what, double v, const char *t, bool ok,
                      int stretch = -1) {
        r->rows.push_back({s, what, v, "x", t, ok, stretch});
    };

    // A section shows when one of its cases ran (--only may leave cases out).
    auto ran = [r](std::initializer_list<const char *> cases) {
        for (const char *c : cases) {
            if (r->cases.count(c) != 0) return true;
        }
        return false;
    };
    const double eng = get(*r, "engine_seq", "rate");
    const double pp = get(*r, "pingpong", "rate");
    const double mb = get(*r, "modbus", "rate");
    if (ran({"engine_seq", "pingpong", "modbus"})) {
        const char *seq = "1 seq";
        for (const char *c : {"engine_seq", "engine_seq_2calls", "pingpong", "modbus"}) {
            const std::string n = c;
            info(seq, n + " round trips/s", get(*r, c, "rate"), "req/s");
            info(seq, n + " latency p50", get(*r, c, "p50_us"), "us");
            info(seq, n + " latency p99", get(*r, c, "p99_us"), "us");
            info(seq, n + " round trips of 1 ms or more", get(*r, c, "slow_1ms_pct"), "%");
            info(seq, n + " CPU per round trip (this process)", get(*r, c, "cpu_us_per_req"), "us");
        }
        // The threads that took part (a thread with neither wake-ups nor CPU time is left out).
        for (const std::string &t : threads_of(*r, "engine_seq", "wakeups_per_req_")) {
            if (get(*r, "engine_seq", "wakeups_per_req_" + t) < 0.001 &&
                get(*r, "engine_seq", "cpu_us_per_req_" + t) < 0.01) {
                continue;
            }
            info(seq, "  engine_seq wake-ups per round trip, " + t,
                 get(*r, "engine_seq", "wakeups_per_req_" + t), "");
            info(seq, "  engine_seq CPU per round trip, " + t,
                 get(*r, "engine_seq", "cpu_us_per_req_" + t), "us");
        }
        const RoundRatio e2 = round_ratio(*r, "engine_seq_2calls", "modbus");
        info(seq, spread("engine_seq_2calls (sdk_request + sdk_request_wait) / libmodbus", e2),
             e2.median, "x");
        const RoundRatio em = round_ratio(*r, "engine_seq", "modbus");
        target(seq, spread("engine / libmodbus rate", em), em.median, ">= 1.0 (stretch 1.3)",
               em.median >= 1.0, em.median >= 1.3);
        const RoundRatio ep = round_ratio(*r, "engine_seq", "pingpong");
        target(seq, spread("engine / UDP ping-pong rate", ep), ep.median, ">= 0.5 (stretch 0.7)",
               ep.median >= 0.5, ep.median >= 0.7);
    }

    if (ran({"engine_seq_hog", "pingpong_hog", "modbus_hog"})) {
        const char *hog = "2 hog";
        info(hog, "hog processes (busy loops, one per core)", get(*r, "engine_seq_hog", "hogs"),
             "");
        for (const char *c :
             {"engine_seq_hog", "engine_seq_2calls_hog", "pingpong_hog", "modbus_hog"}) {
            const std::string n = c;
            info(hog, n + " round trips/s", get(*r, c, "rate"), "req/s");
            info(hog, n + " latency p50", get(*r, c, "p50_us"), "us");
            info(hog, n + " latency p99", get(*r, c, "p99_us"), "us");
            info(hog, n + " round trips of 1 ms or more", get(*r, c, "slow_1ms_pct"), "%");
        }
        info(hog, "engine rate under the hog / without",
             ratio(get(*r, "engine_seq_hog", "rate"), eng), "x");
        info(hog, "ping-pong rate under the hog / without",
             ratio(get(*r, "pingpong_hog", "rate"), pp), "x");
        info(hog, "libmodbus rate under the hog / without",
             ratio(get(*r, "modbus_hog", "rate"), mb), "x");
        for (const char *c : {"engine_seq_hog", "engine_seq_2calls_hog"}) {
            for (const std::string &t : threads_of(*r, c, "wakeups_per_req_")) {
                if (get(*r, c, "wakeups_per_req_" + t) < 0.001) continue;
                info(hog, std::string("  ") + c + " wake-ups per round trip, " + t,
                     get(*r, c, "wakeups_per_req_" + t), "");
            }
        }
        const RoundRatio e2h = round_ratio(*r, "engine_seq_2calls_hog", "modbus_hog");
        info(hog, spread("engine_seq_2calls_hog / modbus_hog", e2h), e2h.median, "x");
        const RoundRatio eh = round_ratio(*r, "engine_seq_hog", "modbus_hog");
        target(hog, spread("engine / libmodbus rate, both under the hog", eh), eh.median, ">= 0.8",
               eh.median >= 0.8);
    }

    if (ran({"parallel_1", "parallel_8", "parallel_32", "pingpong_parallel_8"})) {
        const char *par = "3 par";
        const double p1 = get(*r, "parallel_1", "rate");
        for (const char *c : {"parallel_1", "parallel_8", "parallel_32", "pingpong_parallel_8"}) {
            info(par,
                 std::string(c) + " aggregate (" +
                     std::to_string(static_cast<int>(get(*r, c, "threads"))) + " threads)",
                 get(*r, c, "rate"), "req/s");
        }
        const RoundRatio p8pp = round_ratio(*r, "parallel_8", "pingpong_parallel_8");
        target(par, spread("8 channels / 8 parallel ping-pong sockets rate", p8pp), p8pp.median,
               ">= 0.5", p8pp.median >= 0.5);
        info(par, "8 channels / 1 channel rate", ratio(get(*r, "parallel_8", "rate"), p1), "x");
        info(par, "32 channels / 1 channel rate", ratio(get(*r, "parallel_32", "rate"), p1), "x");
        info(par, "8 ping-pong sockets / 1 ping-pong socket rate",
             ratio(get(*r, "pingpong_parallel_8", "rate"), pp), "x");
    }

    if (ran({"scaling"})) {
        const char *scale = "4 scale";
        for (const char *n : {"10", "1000", "10000"}) {
            info(scale, std::string("CPU per request, ") + n + " accepted at once",
                 get(*r, "scaling", std::string("n") + n + "_cpu_us_per_req"), "us");
        }
        const double sc = ratio(get(*r, "scaling", "n10000_cpu_us_per_req"),
                                get(*r, "scaling", "n10_cpu_us_per_req"));
        target(scale, "CPU per request 10000 / 10", sc, "<= 1.2", sc > 0 && sc <= 1.2);
        for (const char *n : {"10", "1000", "10000"}) {
            const std::string k = std::string("n") + n + "_monitor_";
            info(scale, std::string("monitor wake-ups per 1000 requests, ") + n + " at once",
                 get(*r, "scaling", k + "wakeups_per_1000_req"), "");
            info(scale, std::string("monitor CPU per wake-up, ") + n + " at once",
                 get(*r, "scaling", k + "us_per_wakeup"), "us");
        }
        // Flat: the monitor's work does not grow with the requests in flight. Per wake-up it
        // grows when more requests fall due together (one wake-up then handles many, and the
        // wake-ups per request fall as much), so the target is its CPU per request; a scan
        // of everything in flight would make that grow with the requests at once.
        const double w10 = get(*r, "scaling", "n10_monitor_wakeups");
        const double w10k = get(*r, "scaling", "n10000_monitor_wakeups");
        if (w10 > 0 && w10k > 0) {
            const double mf = ratio(get(*r, "scaling", "n10000_monitor_us_per_wakeup"),
                                    get(*r, "scaling", "n10_monitor_us_per_wakeup"));
            info(scale, "monitor CPU per wake-up 10000 / 10", mf, "x");
            auto per_request = [r](const char *n) {
                const std::string k = std::string("n") + n + "_monitor_";
                return ratio(get(*r, "scaling", k + "cpu_ns"), get(*r, "scaling", k + "requests"));
            };
            const double mr = ratio(per_request("10000"), per_request("10"));
            target(scale, "monitor CPU per request 10000 / 10", mr, "<= 2.0", mr > 0 && mr <= 2.0);
        } else if (has(*r, "scaling", "n10_monitor_wakeups")) {
            info(scale, "monitor CPU per wake-up 10000 / 10: no wake-ups at one size", 0, "x");
        }
    }

    if (ran({"idle"})) {
        const char *idle_s = "5 idle";
        const double idle = get(*r, "idle", "cpu_pct");
        r->rows.push_back(
            {idle_s, "engine CPU with no traffic", idle, "% core", "< 2", idle < 2.0, -1});
        for (const std::string &t : threads_of(*r, "idle", "thread_", "_pct")) {
            const double v = get(*r, "idle", "thread_" + t + "_pct");
            if (v >= 0.01) info(idle_s, "  CPU of " + t, v, "% core");
        }
        const double wakes = get(*r, "idle", "wakeups_per_s");
        r->rows.push_back({idle_s, "engine wake-ups with nothing in flight (all threads)", wakes,
                           "1/s", "0",
                           has(*r, "idle", "wakeups") && get(*r, "idle", "wakeups") == 0, -1});
        for (const std::string &t : threads_of(*r, "idle", "wakeups_", "_per_s")) {
            std::string what = "  wake-ups of " + t;
            if (t == "unnamed") what += " (the trigger)";
            const double v = get(*r, "idle", "wakeups_" + t + "_per_s");
            if (t == "uart_recv" && v > 0)
                what = "  uart_recv (select time-out 1 s, no serial ch.)";
            info(idle_s, what, v, "1/s");
        }
    }

    if (ran({"memory"})) {
        const char *mem = "6 mem";
        info(mem, "resident bytes per request in flight", get(*r, "memory", "request_rss_bytes"),
             "B");
        info(mem, "  record size (two 9000-byte buffers)",
             get(*r, "memory", "request_record_bytes"), "B");
        info(mem, "resident bytes per queued report (64-byte frame)",
             get(*r, "memory", "report_rss_bytes"), "B");
        info(mem, "  virtual bytes per queued report", get(*r, "memory", "report_vm_bytes"), "B");
    }

    if (ran({"serial"})) {
        const char *ser = "7 serial";
        info(ser, "cutter, 36-byte frames", get(*r, "serial", "cut_small_frames_per_s"),
             "frames/s");
        info(ser, "cutter, 36-byte frames", get(*r, "serial", "cut_small_mb_per_s"), "MB/s");
        info(ser, "cutter, 1056-byte frames", get(*r, "serial", "cut_1k_frames_per_s"), "frames/s");
        info(ser, "cutter, 1056-byte frames", get(*r, "serial", "cut_1k_mb_per_s"), "MB/s");
        info(ser, "pty round trips/s", get(*r, "serial", "pty_rate"), "req/s");
        info(ser, "pty latency p50", get(*r, "serial", "pty_p50_us"), "us");
        info(ser, "pty latency p99", get(*r, "serial", "pty_p99_us"), "us");
    }
}

}  // namespace bench
