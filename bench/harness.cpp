#include "harness.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>

#include "sdk_log.h"
#include "transfer_server.h"

namespace bench {

uint64_t now_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

uint64_t process_cpu_ns() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    auto ns = [](const timeval &t) {
        return static_cast<uint64_t>(t.tv_sec) * 1000000000u +
               static_cast<uint64_t>(t.tv_usec) * 1000u;
    };
    return ns(ru.ru_utime) + ns(ru.ru_stime);
}

namespace {
uint64_t statm_field(int index) {
    std::ifstream f("/proc/self/statm");
    uint64_t v = 0;
    for (int i = 0; i <= index && (f >> v); ++i) {
    }
    return v * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}
}  // namespace

uint64_t resident_bytes() {
    return statm_field(1);
}
uint64_t virtual_bytes() {
    return statm_field(0);
}

long ticks_per_second() {
    return sysconf(_SC_CLK_TCK);
}

std::map<std::string, uint64_t> thread_ticks() {
    std::map<std::string, uint64_t> out;
    DIR *d = opendir("/proc/self/task");
    if (d == nullptr) return out;
    while (dirent *e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        const std::string base = std::string("/proc/self/task/") + e->d_name;
        std::ifstream stat(base + "/stat");
        std::string line;
        if (!std::getline(stat, line)) continue;
        // Fields after the parenthesised name: state is field 3, utime 14, stime 15.
        const size_t close = line.rfind(')');
        if (close == std::string::npos) continue;
        std::istringstream rest(line.substr(close + 2));
        std::string field;
        uint64_t utime = 0;
        uint64_t stime = 0;
        for (int i = 3; i <= 15 && (rest >> field); ++i) {
            if (i == 14) utime = std::stoull(field);
            if (i == 15) stime = std::stoull(field);
        }
        std::ifstream comm(base + "/comm");
        std::string name;
        std::getline(comm, name);
        out[name] += utime + stime;
    }
    closedir(d);
    return out;
}

double Latencies::percentile_us(double p) {
    if (samples_.empty()) return 0;
    if (!sorted_) {
        std::sort(samples_.begin(), samples_.end());
        sorted_ = true;
    }
    size_t rank = static_cast<size_t>(p / 100.0 * static_cast<double>(samples_.size()));
    rank = std::min(rank, samples_.size() - 1);
    return static_cast<double>(samples_[rank]) / 1000.0;
}

double Latencies::percent_at_least_us(double us) const {
    if (samples_.empty()) return 0;
    const auto limit = static_cast<uint64_t>(us * 1000.0);
    const auto n =
        std::count_if(samples_.begin(), samples_.end(), [limit](uint64_t s) { return s >= limit; });
    return 100.0 * static_cast<double>(n) / static_cast<double>(samples_.size());
}

bool Latencies::write_cdf(const std::string &path, size_t points) {
    FILE *f = fopen(path.c_str(), "w");
    if (f == nullptr) return false;
    if (!samples_.empty()) {
        percentile_us(50);  // sorts
        const size_t n = samples_.size();
        const size_t step = std::max<size_t>(1, n / points);
        for (size_t i = 0; i < n; i += step) {
            fprintf(f, "%.3f %.5f\n", static_cast<double>(samples_[i]) / 1000.0,
                    static_cast<double>(i + 1) / static_cast<double>(n));
        }
        fprintf(f, "%.3f 1.0\n", static_cast<double>(samples_[n - 1]) / 1000.0);
    }
    fclose(f);
    return true;
}

bool start_engine(const CaseContext &ctx, const std::string &config, int n_sub_slots) {
    std::string conf = ctx.zlog_conf;
    if (sdk_log_init(reinterpret_cast<int8_t *>(conf.data())) != 0) {
        fprintf(stderr, "bench: sdk_log_init(%s) failed\n", conf.c_str());
        return false;
    }
    std::vector<char> slots;
    for (int s = 1; s <= n_sub_slots; ++s)
        slots.push_back(static_cast<char>(s));
    std::string path = config;
    const int32_t r =
        sdk_transfer_init(slots.data(), static_cast<uint32_t>(slots.size()), path.data());
    if (r != 0) {
        fprintf(stderr, "bench: sdk_transfer_init(%s) = %d\n", path.c_str(), r);
        return false;
    }
    return true;
}

LoopResult timed_loop(double seconds, int warmup, size_t reserve,
                      const std::function<bool()> &one) {
    for (int i = 0; i < warmup; ++i)
        one();
    LoopResult r;
    r.lat.reserve(reserve);
    const uint64_t cpu0 = process_cpu_ns();
    const uint64_t t0 = now_ns();
    const uint64_t until = t0 + static_cast<uint64_t>(seconds * 1e9);
    uint64_t t = t0;
    while (t < until) {
        const bool ok = one();
        const uint64_t t1 = now_ns();
        if (ok) {
            r.lat.add(t1 - t);
        } else {
            ++r.errors;
        }
        t = t1;
    }
    r.wall_ns = t - t0;
    r.cpu_ns = process_cpu_ns() - cpu0;
    return r;
}

}  // namespace bench
