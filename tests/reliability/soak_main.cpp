// soak: many requests across UDP, serial and receiving-card targets of a simulated chassis
// with injected faults. Fails on any request lost, ended twice or with the wrong data, on
// growth of resident memory or of the heap, and on a watchdog time-out (a deadlock).
//
// Runs inside a private network namespace (tests/support/netns_run.sh soak ...).
#include <getopt.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "chassis.h"
#include "support/netns_helpers.h"
#include "transfer_server.h"
#include "workload.h"

namespace {

using sdk::reliability::Outcomes;

struct Options {
    uint64_t requests = 100000;
    int threads = 16;
    double faults_pct = 10;
    int sub_cards = 3;
    uint32_t timeout_ms = 30;
    int watchdog_s = 30;
    long max_rss_growth_kib = 4096;
    long max_heap_growth_kib = 256;
    bool memory_check = true;
};

void usage(FILE *out) {
    fputs(
        "Usage: soak [OPTION...]\n"
        "Requests across UDP, serial and receiving-card targets of a simulated chassis\n"
        "(board_sim processes on loopback) with injected faults; run it inside a private\n"
        "network namespace (tests/support/netns_run.sh soak ...).\n"
        "  --requests N          requests in all (default 100000)\n"
        "  --threads N           host threads (default 16)\n"
        "  --faults PCT          replies spoiled, in %% (default 10)\n"
        "  --sub-cards N         sub cards, each a sender card and an MCU (default 3)\n"
        "  --timeout-ms N        time-out of each attempt in ms (default 30)\n"
        "  --watchdog S          fail when no request ends for S seconds (default 30)\n"
        "  --max-rss-growth KIB  allowed growth of resident memory (default 4096)\n"
        "  --no-memory-check     skip the memory checks (sanitizer builds)\n"
        "Exit status: 0 pass, 1 fail, 77 no private network namespace.\n",
        out);
}

long rss_kib() {
    std::ifstream status("/proc/self/status");
    std::string key;
    while (status >> key) {
        if (key == "VmRSS:") {
            long v = 0;
            status >> v;
            return v;
        }
        status.ignore(4096, '\n');
    }
    return -1;
}

long heap_kib() {
    return static_cast<long>(mallinfo2().uordblks / 1024);
}

bool parse(int argc, char **argv, Options *o) {
    enum { kRequests = 1, kThreads, kFaults, kSubCards, kTimeout, kWatchdog, kRss, kNoMem, kHelp };
    static const option opts[] = {{"requests", required_argument, nullptr, kRequests},
                                  {"threads", required_argument, nullptr, kThreads},
                                  {"faults", required_argument, nullptr, kFaults},
                                  {"sub-cards", required_argument, nullptr, kSubCards},
                                  {"timeout-ms", required_argument, nullptr, kTimeout},
                                  {"watchdog", required_argument, nullptr, kWatchdog},
                                  {"max-rss-growth", required_argument, nullptr, kRss},
                                  {"no-memory-check", no_argument, nullptr, kNoMem},
                                  {"help", no_argument, nullptr, kHelp},
                                  {nullptr, 0, nullptr, 0}};
    int c;
    while ((c = getopt_long(argc, argv, "", opts, nullptr)) != -1) {
        const double v = optarg != nullptr ? strtod(optarg, nullptr) : 0;
        switch (c) {
            case kRequests:
                o->requests = static_cast<uint64_t>(v);
                break;
            case kThreads:
                o->threads = static_cast<int>(v);
                break;
            case kFaults:
                o->faults_pct = v;
                break;
            case kSubCards:
                o->sub_cards = static_cast<int>(v);
                break;
            case kTimeout:
                o->timeout_ms = static_cast<uint32_t>(v);
                break;
            case kWatchdog:
                o->watchdog_s = static_cast<int>(v);
                break;
            case kRss:
                o->max_rss_growth_kib = static_cast<long>(v);
                break;
            case kNoMem:
                o->memory_check = false;
                break;
            case kHelp:
                usage(stdout);
                exit(0);
            default:
                return false;
        }
    }
    return optind == argc && o->requests > 0 && o->threads > 0 && o->threads <= 64 &&
           o->sub_cards >= 1 && o->sub_cards <= 16 && o->faults_pct >= 0 && o->faults_pct <= 100 &&
           o->timeout_ms > 0 && o->watchdog_s > 0;
}

// Drains the report queue, checking every report is whole and carries its channel's slot.
struct ReportDrain {
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> whole{0};
    std::atomic<uint64_t> bad{0};
    void run() {
        auto rec = std::make_unique<report_queue_data_t>();
        while (!stop.load()) {
            if (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) != 0) {
                usleep(2000);
                continue;
            }
            sdk_report_queue_pull(sdk_get_report_queue());
            const bool ok = rec->n_len == 36 && rec->n_slot == 100 && (rec->arr_buf[10] & 0x10);
            (ok ? whole : bad).fetch_add(1);
        }
    }
};

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (!parse(argc, argv, &o)) {
        usage(stderr);
        return 1;
    }
    if (!sdk::test::in_private_netns()) {
        fprintf(stderr, "soak: needs a private network namespace with eth0 up; skipped\n");
        return 77;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    sdk::reliability::ChassisPlan plan;
    plan.sub_cards = o.sub_cards;
    std::vector<sdk::reliability::FaultProfile> profiles;
    for (int i = 0; i <= o.sub_cards; ++i)
        profiles.push_back(
            sdk::reliability::mixed_faults(o.faults_pct, 11u + static_cast<uint32_t>(i)));
    sdk::reliability::SimChassis chassis(plan, profiles);
    if (!chassis.error().empty()) {
        fprintf(stderr, "soak: %s\n", chassis.error().c_str());
        return 1;
    }
    std::vector<char> slots;
    for (int s = 1; s <= o.sub_cards; ++s)
        slots.push_back(static_cast<char>(s));
    const int32_t init = sdk_transfer_init(slots.data(), static_cast<uint32_t>(slots.size()),
                                           const_cast<char *>(chassis.config_path().c_str()));
    if (init != 0) {
        fprintf(stderr, "soak: start-up failed with %d\n", init);
        return 1;
    }
    ReportDrain reports;
    std::thread drain([&] { reports.run(); });

    sdk::reliability::WorkloadOptions wo;
    wo.threads = o.threads;
    wo.timeout_ms = o.timeout_ms;
    wo.requests = std::min<uint64_t>(2000, o.requests);
    sdk::reliability::Workload warm(chassis.targets(), wo);
    warm.run();
    const long rss_start = rss_kib();
    const long heap_start = heap_kib();

    wo.requests = o.requests;
    sdk::reliability::Workload work(chassis.targets(), wo);
    std::atomic<bool> done{false};
    std::thread watchdog([&] {
        uint64_t last = 0;
        int64_t last_change = sdk::reliability::now_ms();
        while (!done.load()) {
            usleep(200000);
            const uint64_t ended = work.ended();
            const int64_t now = sdk::reliability::now_ms();
            if (ended != last) {
                last = ended;
                last_change = now;
            } else if (now - last_change > o.watchdog_s * 1000) {
                fprintf(stderr, "soak: watchdog: no request ended for %d s\n%s", o.watchdog_s,
                        work.stuck_report(1000).c_str());
                fflush(stderr);
                _exit(1);  // the engine has no shutdown; a deadlocked run cannot be unwound
            }
        }
    });
    const int64_t t0 = sdk::reliability::now_ms();
    work.run();
    const double seconds = static_cast<double>(sdk::reliability::now_ms() - t0) / 1000.0;
    done = true;
    watchdog.join();
    usleep(300000);  // late and duplicated replies find nothing and go
    const long rss_end = rss_kib();
    const long heap_end = heap_kib();
    reports.stop = true;
    drain.join();
    chassis.stop();

    Outcomes t = work.totals();
    Outcomes w = warm.totals();
    printf("soak: %" PRIu64
           " requests on %zu targets, %d host threads, %g%% faults, %.1f s (%.0f/s)\n",
           o.requests, chassis.targets().size(), o.threads, o.faults_pct, seconds,
           static_cast<double>(o.requests) / seconds);
    printf("  reads ok %" PRIu64 "  writes ok %" PRIu64 "  timed out %" PRIu64
           "  wrong data %" PRIu64 "  other %" PRIu64 "  refused %" PRIu64 "\n",
           t.reads_ok, t.writes_ok, t.timeouts, t.wrong_data, t.other, t.refused);
    const uint64_t issued = t.total() + w.total();
    const uint64_t frames = chassis.stat("requests");
    printf("  frames at the boards %" PRIu64 " for %" PRIu64
           " requests (retransmissions and polls: %" PRIu64 ")\n",
           frames, issued, frames > issued ? frames - issued : 0);
    printf("  faults: dropped %" PRIu64 " duplicated %" PRIu64 " corrupted %" PRIu64
           " unsolicited %" PRIu64 " serial noise %" PRIu64 "\n",
           chassis.stat("dropped"), chassis.stat("duplicated"), chassis.stat("corrupted"),
           chassis.stat("unsolicited"), chassis.stat("noise"));
    printf("  reports: %" PRIu64 " whole, %" PRIu64 " bad, %" PRIu64 " sent\n",
           reports.whole.load(), reports.bad.load(), chassis.stat("reports"));
    printf(
        "  resident memory: %ld KiB after warm-up, %ld KiB at the end; heap in use %ld -> %ld "
        "KiB\n",
        rss_start, rss_end, heap_start, heap_end);

    bool pass = t.clean() && w.clean() && t.total() == o.requests && reports.bad == 0;
    for (const auto &f : work.failures())
        fprintf(stderr, "  failure: %s\n", f.c_str());
    if (o.memory_check) {
        if (rss_end - rss_start > o.max_rss_growth_kib) {
            fprintf(stderr, "soak: resident memory grew by %ld KiB\n", rss_end - rss_start);
            pass = false;
        }
        if (heap_start > 0 && heap_end - heap_start > o.max_heap_growth_kib) {
            fprintf(stderr, "soak: heap in use grew by %ld KiB\n", heap_end - heap_start);
            pass = false;
        }
    }
#if defined(__SANITIZE_ADDRESS__)
    // _exit below skips the exit-time leak check: run it here.
    if (__lsan_do_recoverable_leak_check() != 0) {
        fprintf(stderr, "soak: memory leaked\n");
        pass = false;
    }
#endif
    printf("soak: %s\n", pass ? "PASS" : "FAIL");
    fflush(stdout);
    _exit(pass ? 0 : 1);  // the engine's threads run until the process ends
}
