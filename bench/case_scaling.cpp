// Scaling with load: CPU time of the whole process per completed request when 10, 1000
// or 10000 acknowledged reads are accepted at once across the 32 channels, all waited
// for afterwards. Small batches are repeated so that every size runs long enough. At each
// size the monitor thread's CPU time and wake-ups (its context switches, voluntary and
// not) are added up over the passes, for its CPU time per wake-up: the deadline work must
// not grow with the number of requests in flight. So that the monitor has work at every
// size, one request to the silent board is always in flight beside the batches, with a
// short time-out and retransmissions (the probe).
#include <algorithm>
#include <cstdio>
#include <vector>

#include "cases.h"
#include "chassis.h"
#include "requests.h"

namespace bench {

namespace {

constexpr uint32_t kTimeoutMs = 120000;  // nothing may time out while it waits its turn
constexpr uint64_t kMinRequests = 10000;
constexpr int kPasses = 2;
constexpr size_t kSizes[] = {10, 1000, 10000};
constexpr uint32_t kProbeTimeoutMs = 2;
constexpr uint32_t kProbeRetries = 2;

// The request to the silent board that keeps the monitor busy: a new one as soon as the
// last has timed out.
struct Probe {
    transfer_op_t op{};
    bool b_live = false;
    void keep_going(std::vector<char> &rbuf) {
        if (b_live && sdk_request_get_state(&op) != PACKET_WAIT_TIMEOUT) return;
        if (b_live) sdk_request_wait(rbuf.data(), &op);
        op = fpga_read(kSilentSlot, kProbeTimeoutMs);
        op.n_reply_times = kProbeRetries;
        b_live = sdk_request(nullptr, 0, &op) == 0;
    }
    void finish(std::vector<char> &rbuf) {
        if (b_live) sdk_request_wait(rbuf.data(), &op);
        b_live = false;
    }
};

struct Batch {
    uint64_t completed = 0;
    uint64_t failed = 0;
};

Batch run_batch(size_t n, std::vector<transfer_op_t> &ops, std::vector<char> &rbuf) {
    Batch b;
    for (size_t i = 0; i < n; ++i) {
        ops[i] = fpga_read(static_cast<uint32_t>(i % kUdpBoards + 1), kTimeoutMs);
        if (sdk_request(nullptr, 0, &ops[i]) != 0) ++b.failed;
    }
    for (size_t i = 0; i < n; ++i) {
        if (ops[i].p_packet_node == nullptr) continue;
        if (sdk_request_wait(rbuf.data(), &ops[i]) > 0) {
            ++b.completed;
        } else {
            ++b.failed;
        }
    }
    return b;
}

// Batches of n until kMinRequests are done; keeps the lower CPU cost per request of this
// and an earlier pass, and adds the monitor thread's (`monitor`) CPU time and wake-ups.
int run_size(size_t n, std::vector<transfer_op_t> &ops, std::vector<char> &rbuf, int monitor,
             Metrics &m) {
    Batch total;
    Probe probe;
    ThreadSample mon0;
    const bool watched = monitor != 0 && thread_sample(monitor, &mon0);
    const uint64_t cpu0 = process_cpu_ns();
    const uint64_t t0 = now_ns();
    while (total.completed + total.failed < kMinRequests) {
        probe.keep_going(rbuf);
        const Batch b = run_batch(n, ops, rbuf);
        total.completed += b.completed;
        total.failed += b.failed;
    }
    probe.finish(rbuf);
    const double cpu = static_cast<double>(process_cpu_ns() - cpu0);
    const double wall = static_cast<double>(now_ns() - t0);
    const std::string k = "n" + std::to_string(n) + "_";
    ThreadSample mon1;
    if (watched && thread_sample(monitor, &mon1)) {
        m[k + "monitor_cpu_ns"] += thread_cpu_ns(mon1) - thread_cpu_ns(mon0);
        m[k + "monitor_ticks"] += static_cast<double>(mon1.ticks - mon0.ticks);
        m[k + "monitor_wakeups"] += static_cast<double>(mon1.switches - mon0.switches);
        m[k + "monitor_requests"] += static_cast<double>(total.completed + total.failed);
    }
    const double per = cpu / 1e3 / static_cast<double>(std::max<uint64_t>(total.completed, 1));
    if (m.count(k + "cpu_us_per_req") == 0 || per < m[k + "cpu_us_per_req"]) {
        m[k + "cpu_us_per_req"] = per;
        m[k + "rate"] = static_cast<double>(total.completed) / (wall / 1e9);
    }
    m[k + "errors"] += static_cast<double>(total.failed);
    return total.failed == 0 ? 0 : 1;
}

}  // namespace

int case_scaling(const CaseContext &ctx, Metrics &m) {
    if (!start_engine(ctx, ctx.udp_config, kUdpSlots)) return 1;
    std::vector<char> rbuf(SDK_DATA_BUF_LEN);
    std::vector<transfer_op_t> ops(10000);
    run_batch(100, ops, rbuf);  // warm-up
    const int monitor = thread_id_named("monitor_thread");
    if (monitor == 0) fprintf(stderr, "bench: no thread named monitor_thread\n");
    ThreadSample probe;
    m["monitor_schedstat"] = monitor != 0 && thread_sample(monitor, &probe) && probe.run_ns != 0;
    int rc = 0;
    // Interleaved passes: the machine is shared, and a disturbed pass is only ever slower.
    for (int pass = 0; pass < kPasses; ++pass) {
        for (size_t n : kSizes) {
            if (run_size(n, ops, rbuf, monitor, m) != 0) rc = 1;
        }
    }
    for (size_t n : kSizes) {
        const std::string k = "n" + std::to_string(n) + "_";
        const double wakeups = m[k + "monitor_wakeups"];
        m[k + "monitor_us_per_wakeup"] = wakeups > 0 ? m[k + "monitor_cpu_ns"] / 1e3 / wakeups : 0;
        m[k + "monitor_wakeups_per_1000_req"] =
            m[k + "monitor_requests"] > 0 ? 1000.0 * wakeups / m[k + "monitor_requests"] : 0;
    }
    return rc;
}

}  // namespace bench
