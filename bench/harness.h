// Measuring tools shared by the benchmark cases: clocks, CPU time, resident memory,
// latency statistics, the case context and its metric record.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

// Monotonic wall clock in nanoseconds.
uint64_t now_ns();
// CPU time (user + system) of the whole process, in nanoseconds (getrusage).
uint64_t process_cpu_ns();
// Resident and virtual size of the process in bytes (/proc/self/statm).
uint64_t resident_bytes();
uint64_t virtual_bytes();

// One thread of this process as /proc/self/task/<tid> shows it.
struct ThreadSample {
    int tid = 0;
    std::string name;       // comm; a thread never named shows the program's name
    uint64_t ticks = 0;     // user + system CPU time in clock ticks (stat)
    uint64_t run_ns = 0;    // time on a CPU in nanoseconds (schedstat; 0 where not kept)
    uint64_t switches = 0;  // voluntary + nonvoluntary context switches (status)
};
// All threads of this process, in /proc order.
std::vector<ThreadSample> thread_samples();
// The thread `tid` of this process; false when it is gone.
bool thread_sample(int tid, ThreadSample *s);
// CPU time of a sample in nanoseconds: schedstat's where the kernel keeps it, else
// utime + stime (whole clock ticks).
double thread_cpu_ns(const ThreadSample &s);
// All threads of this process by tid, the main thread named "main" and any other thread
// that was never named (it shows the program's name) "unnamed".
std::map<int, ThreadSample> named_threads();
// What each thread name did between two named_threads() samples: context switches and
// CPU nanoseconds, threads of one name added (a thread not in `before` counts from zero).
struct ThreadDelta {
    uint64_t switches = 0;
    double cpu_ns = 0;
};
std::map<std::string, ThreadDelta> thread_deltas(const std::map<int, ThreadSample> &before,
                                                 const std::map<int, ThreadSample> &after);
// The first thread named `name`, or 0.
int thread_id_named(const std::string &name);

long ticks_per_second();

// Busy-loop processes at normal priority that keep the cores busy while they live: one
// per CPU this process may run on (as nproc counts them) unless told otherwise. Each is
// killed by stop() or the destructor, and dies with the thread that started it.
class CpuHogs {
  public:
    CpuHogs() = default;
    ~CpuHogs() { stop(); }
    CpuHogs(const CpuHogs &) = delete;
    CpuHogs &operator=(const CpuHogs &) = delete;
    // False when a process could not be started (those started are stopped again).
    bool start(int n = 0);
    void stop();
    int count() const { return static_cast<int>(pids_.size()); }

  private:
    std::vector<int> pids_;
};
// CPUs this process may run on.
int usable_cpus();

// Where the processes of a run go, when at least two CPUs are usable and placement is on
// (transfer_bench --placement on, the default): the measured case (engine, ping-pong or
// libmodbus client, with all its threads) on the first, the boards' and the libmodbus
// server's process on the second, hog i on CPU i. Left to the scheduler, whether a
// round trip's peer lands on a CPU of its own or shares one with the client decided the
// hog figures more than the code measured (the same case swung from 12k to 50k round
// trips/s between rounds). Each process is placed the same way in every case.
enum class Place { kClient, kPeer };
void set_placement(bool on);
// Places process pid (0: the calling one); nothing when placement is off or only one CPU
// is usable. Async-signal-safe, for a child between fork and exec.
void place(pid_t pid, Place where);
// Places hog i (pid, 0: the calling process) on the i-th usable CPU.
void place_hog(pid_t pid, int i);

// Latency samples in nanoseconds; percentiles by nearest rank.
class Latencies {
  public:
    void reserve(size_t n) { samples_.reserve(n); }
    void add(uint64_t ns) { samples_.push_back(ns); }
    size_t size() const { return samples_.size(); }
    // p in [0, 100]; sorts on first use after an add.
    double percentile_us(double p);
    // Percentage of the samples at or above `us` microseconds.
    double percent_at_least_us(double us) const;
    // Writes "latency_us cumulative_fraction" lines, at most `points` of them.
    bool write_cdf(const std::string &path, size_t points = 400);

  private:
    std::vector<uint64_t> samples_;
    bool sorted_ = false;
};

// A closed loop of one operation after another: `warmup` untimed runs, then runs until
// `seconds` have passed, each successful one adding its latency.
struct LoopResult {
    Latencies lat;
    uint64_t errors = 0;
    uint64_t wall_ns = 0;
    uint64_t cpu_ns = 0;  // CPU time of the whole process over the timed runs
};
LoopResult timed_loop(double seconds, int warmup, size_t reserve, const std::function<bool()> &one);

// What a case gets: where to write, which configuration to load, how long to run.
struct CaseContext {
    bool placement = true;   // processes placed on CPUs (set_placement)
    std::string out_dir;     // results of this run
    std::string zlog_conf;   // logging configuration for sdk_log_init
    std::string udp_config;  // chassis with the UDP boards
    std::string serial_config;
    std::string serial_link;    // pty slave path (or link) of the serial board
    std::string serial_device;  // "sim": board_sim serves it; "thread": the case does
    double seconds = 2.0;       // measuring window of the throughput cases
    int round = 0;
};

// Metrics of one case run, written as a flat JSON object for the driver.
using Metrics = std::map<std::string, double>;

// Starts the hogs for a timed window and records their number in "hogs"; false (with a
// message on stderr) when they could not be started.
bool start_hogs(CpuHogs *hogs, Metrics &m);

// Starts logging and the engine in this process; false (with a message on stderr) on
// failure. `slots` are the sub-card slots the process serves.
bool start_engine(const CaseContext &ctx, const std::string &config, int n_sub_slots);

}  // namespace bench
