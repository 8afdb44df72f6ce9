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

// CPU ticks (user + system, /proc/self/task/*/stat) per thread name; threads of the same
// name are added.
std::map<std::string, uint64_t> thread_ticks();
long ticks_per_second();

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

// Starts logging and the engine in this process; false (with a message on stderr) on
// failure. `slots` are the sub-card slots the process serves.
bool start_engine(const CaseContext &ctx, const std::string &config, int n_sub_slots);

}  // namespace bench
