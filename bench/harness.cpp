#include "harness.h"

#include <dirent.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <thread>

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

namespace {

std::string read_line(const std::string &path) {
    std::ifstream f(path);
    std::string line;
    std::getline(f, line);
    return line;
}

// utime + stime of a task's stat line: fields 14 and 15, counted after the parenthesised
// name (which may hold spaces); state is field 3.
uint64_t stat_ticks(const std::string &line) {
    const size_t close = line.rfind(')');
    if (close == std::string::npos || close + 2 > line.size()) return 0;
    std::istringstream rest(line.substr(close + 2));
    std::string field;
    uint64_t utime = 0;
    uint64_t stime = 0;
    for (int i = 3; i <= 15 && (rest >> field); ++i) {
        if (i == 14) utime = std::stoull(field);
        if (i == 15) stime = std::stoull(field);
    }
    return utime + stime;
}

uint64_t status_switches(const std::string &path) {
    std::ifstream f(path);
    std::string line;
    uint64_t n = 0;
    while (std::getline(f, line)) {
        if (line.rfind("voluntary_ctxt_switches:", 0) == 0 ||
            line.rfind("nonvoluntary_ctxt_switches:", 0) == 0) {
            n += std::stoull(line.substr(line.find(':') + 1));
        }
    }
    return n;
}

}  // namespace

bool thread_sample(int tid, ThreadSample *s) {
    const std::string base = "/proc/self/task/" + std::to_string(tid);
    const std::string stat = read_line(base + "/stat");
    if (stat.empty()) return false;
    s->tid = tid;
    s->name = read_line(base + "/comm");
    s->ticks = stat_ticks(stat);
    std::istringstream sched(read_line(base + "/schedstat"));
    s->run_ns = 0;
    sched >> s->run_ns;
    s->switches = status_switches(base + "/status");
    return true;
}

std::vector<ThreadSample> thread_samples() {
    std::vector<ThreadSample> out;
    DIR *d = opendir("/proc/self/task");
    if (d == nullptr) return out;
    while (dirent *e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        ThreadSample s;
        if (thread_sample(atoi(e->d_name), &s)) out.push_back(s);
    }
    closedir(d);
    return out;
}

double thread_cpu_ns(const ThreadSample &s) {
    if (s.run_ns != 0) return static_cast<double>(s.run_ns);
    return static_cast<double>(s.ticks) * 1e9 / static_cast<double>(ticks_per_second());
}

std::map<int, ThreadSample> named_threads() {
    std::map<int, ThreadSample> out;
    ThreadSample self;
    thread_sample(static_cast<int>(getpid()), &self);
    for (ThreadSample &s : thread_samples()) {
        if (s.tid == self.tid) {
            s.name = "main";
        } else if (s.name == self.name) {
            s.name = "unnamed";
        }
        out[s.tid] = s;
    }
    return out;
}

std::map<std::string, ThreadDelta> thread_deltas(const std::map<int, ThreadSample> &before,
                                                 const std::map<int, ThreadSample> &after) {
    std::map<std::string, ThreadDelta> out;
    for (const auto &[tid, s1] : after) {
        const auto it = before.find(tid);
        const ThreadSample s0 = it == before.end() ? ThreadSample{} : it->second;
        ThreadDelta &d = out[s1.name];
        d.switches += s1.switches - s0.switches;
        d.cpu_ns += thread_cpu_ns(s1) - thread_cpu_ns(s0);
    }
    return out;
}

int thread_id_named(const std::string &name) {
    for (const ThreadSample &s : thread_samples()) {
        if (s.name == name) return s.tid;
    }
    return 0;
}

namespace {
// Filled before any fork: the children only read them.
bool g_placement = true;
cpu_set_t g_allowed;
int g_allowed_n = 0;
int g_allowed_cpu[CPU_SETSIZE];

void place_on(pid_t pid, int k) {
    if (!g_placement || g_allowed_n < 2) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(g_allowed_cpu[k % g_allowed_n], &one);
    sched_setaffinity(pid, sizeof(one), &one);
}
}  // namespace

void set_placement(bool on) {
    g_placement = on;
    CPU_ZERO(&g_allowed);
    g_allowed_n = 0;
    if (sched_getaffinity(0, sizeof(g_allowed), &g_allowed) != 0) return;
    for (int c = 0; c < CPU_SETSIZE; ++c) {
        if (CPU_ISSET(c, &g_allowed)) g_allowed_cpu[g_allowed_n++] = c;
    }
}

void place(pid_t pid, Place where) {
    place_on(pid, where == Place::kClient ? 0 : 1);
}

void place_hog(pid_t pid, int i) {
    place_on(pid, i);
}

int usable_cpus() {
    if (g_allowed_n > 0) return g_allowed_n;  // as start-up found them, before placement
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return 1;
    return std::max(1, CPU_COUNT(&set));
}

bool CpuHogs::start(int n) {
    if (n <= 0) n = usable_cpus();
    const pid_t parent = getpid();
    for (int i = 0; i < n; ++i) {
        const pid_t pid = fork();
        if (pid < 0) {
            stop();
            return false;
        }
        if (pid == 0) {
            // Only async-signal-safe calls here: the parent may have threads.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) _exit(0);
            place_hog(0, i);
            volatile uint64_t spin = 0;
            for (;;)
                spin = spin + 1;
        }
        pids_.push_back(pid);
    }
    return true;
}

void CpuHogs::stop() {
    for (int pid : pids_)
        kill(pid, SIGKILL);
    for (int pid : pids_)
        waitpid(pid, nullptr, 0);
    pids_.clear();
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

bool start_hogs(CpuHogs *hogs, Metrics &m) {
    if (!hogs->start()) {
        perror("bench: hog processes");
        return false;
    }
    m["hogs"] = hogs->count();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // all of them running
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
