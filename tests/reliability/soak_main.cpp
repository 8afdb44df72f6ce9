// soak: many requests across UDP, serial and receiving-card targets of a simulated chassis
// with injected faults. Fails on any request lost, ended twice or with the wrong data, on a
// bad report, on growth of resident memory or of the heap, and on a watchdog time-out (a
// deadlock). Runs inside a private network namespace (tests/support/netns_run.sh soak ...).
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "chassis.h"
#include "support/netns_helpers.h"
#include "transfer_server.h"

namespace {

const char kUsage[] =
    "Usage: soak [OPTION...]\n"
    "Requests across UDP, serial and receiving-card targets of a simulated chassis\n"
    "(board_sim processes on loopback) with injected faults; run it inside a private\n"
    "network namespace (tests/support/netns_run.sh soak ...).\n"
    "  --requests N          requests in all (default 100000)\n"
    "  --threads N           host threads (default 16)\n"
    "  --faults PCT          replies spoiled, in % (default 10)\n"
    "  --sub-cards N         sub cards, each a sender card and an MCU (default 3)\n"
    "  --timeout-ms N        time-out of each attempt in ms (default 30)\n"
    "  --watchdog S          fail when no request ends for S seconds (default 30)\n"
    "  --max-rss-growth KIB  allowed growth of resident memory (default 4096)\n"
    "  --no-memory-check     skip the memory checks (sanitizer builds)\n"
    "Exit status: 0 pass, 1 fail, 77 no private network namespace.\n";

struct Options {
    double requests = 100000, threads = 16, faults = 10, sub_cards = 3, timeout_ms = 30,
           watchdog_s = 30, max_rss_growth = 4096;
    bool memory_check = true;
};

// 0 to run, 1 on bad options, 2 after --help.
int parse(int argc, char **argv, Options *o) {
    const std::pair<const char *, double *> numeric[] = {{"--requests", &o->requests},
                                                         {"--threads", &o->threads},
                                                         {"--faults", &o->faults},
                                                         {"--sub-cards", &o->sub_cards},
                                                         {"--timeout-ms", &o->timeout_ms},
                                                         {"--watchdog", &o->watchdog_s},
                                                         {"--max-rss-growth", &o->max_rss_growth}};
    for (int i = 1; i < argc; ++i) {
        bool known = false;
        for (auto [name, value] : numeric) {
            if (strcmp(argv[i], name) != 0) continue;
            if (++i == argc) return 1;
            char *end = nullptr;
            *value = strtod(argv[i], &end);
            known = *end == '\0';
        }
        if (strcmp(argv[i], "--help") == 0) return 2;
        if (strcmp(argv[i], "--no-memory-check") == 0) known = !(o->memory_check = false);
        if (!known) return 1;
    }
    return o->requests >= 1 && o->threads >= 1 && o->threads <= 64 && o->sub_cards >= 1 &&
                   o->sub_cards <= 16 && o->faults >= 0 && o->faults <= 100 && o->timeout_ms >= 1 &&
                   o->watchdog_s >= 1
               ? 0
               : 1;
}

long rss_kib() {
    std::ifstream status("/proc/self/status");
    for (std::string key; status >> key; status.ignore(4096, '\n')) {
        if (key == "VmRSS:") {
            long v = -1;
            status >> v;
            return v;
        }
    }
    return -1;
}

long heap_kib() {
    return static_cast<long>(mallinfo2().uordblks / 1024);
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (const int p = parse(argc, argv, &o); p != 0) {
        fputs(kUsage, p == 2 ? stdout : stderr);
        return p == 2 ? 0 : 1;
    }
    if (!sdk::test::in_private_netns()) {
        fprintf(stderr, "soak: needs a private network namespace with eth0 up; skipped\n");
        return 77;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const int sub_cards = static_cast<int>(o.sub_cards), threads = static_cast<int>(o.threads);
    const auto requests = static_cast<uint64_t>(o.requests);
    const auto timeout_ms = static_cast<uint32_t>(o.timeout_ms);
    std::vector<std::vector<std::string>> faults;
    std::vector<char> slots;
    for (int i = 0; i <= sub_cards; ++i) {
        faults.push_back(sdk::reliability::mixed_faults(o.faults, 11u + static_cast<uint32_t>(i)));
        if (i > 0) slots.push_back(static_cast<char>(i));
    }
    sdk::reliability::SimChassis chassis(sub_cards, faults);
    if (!chassis.error().empty()) {
        fprintf(stderr, "soak: %s\n", chassis.error().c_str());
        return 1;
    }
    const int32_t init = sdk_transfer_init(slots.data(), static_cast<uint32_t>(slots.size()),
                                           const_cast<char *>(chassis.config_path().c_str()));
    if (init != 0) {
        fprintf(stderr, "soak: start-up failed with %d\n", init);
        return 1;
    }
    // Drains the report queue: every report must be whole and carry its channel's slot.
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> whole{0}, bad_reports{0};
    std::thread drain([&] {
        auto rec = std::make_unique<report_queue_data_t>();
        while (!stop.load()) {
            if (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) != 0) {
                usleep(2000);
                continue;
            }
            sdk_report_queue_pull(sdk_get_report_queue());
            const bool ok = rec->n_len == 36 && rec->n_slot == 100 && (rec->arr_buf[10] & 0x10);
            (ok ? whole : bad_reports).fetch_add(1);
        }
    });

    sdk::reliability::Workload warm(chassis.targets(), std::min<uint64_t>(2000, requests), threads,
                                    timeout_ms);
    warm.run();
    const long rss_start = rss_kib(), heap_start = heap_kib();

    sdk::reliability::Workload work(chassis.targets(), requests, threads, timeout_ms);
    std::atomic<bool> done{false};
    std::thread watchdog([&] {
        uint64_t last = 0;
        auto last_change = std::chrono::steady_clock::now();
        while (!done.load()) {
            usleep(200000);
            const auto now = std::chrono::steady_clock::now();
            if (work.ended() != last) {
                last = work.ended();
                last_change = now;
            } else if (now - last_change > std::chrono::seconds(static_cast<int>(o.watchdog_s))) {
                fprintf(stderr, "soak: watchdog: no request ended for %g s\n", o.watchdog_s);
                _exit(1);  // the engine has no shutdown; a deadlocked run cannot be unwound
            }
        }
    });
    const auto t0 = std::chrono::steady_clock::now();
    work.run();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    done = true;
    watchdog.join();
    usleep(300000);  // late and duplicated replies arrive, find nothing and go
    const long rss_end = rss_kib(), heap_end = heap_kib();
    stop = true;
    drain.join();
    chassis.stop();

    const sdk::reliability::Outcomes t = work.totals(), w = warm.totals();
    printf("soak: %" PRIu64 " requests on %zu targets, %d host threads, %g%% faults, %.1f s\n",
           requests, chassis.targets().size(), threads, o.faults, seconds);
    printf("  reads ok %" PRIu64 "  writes ok %" PRIu64 "  timed out %" PRIu64 "  bad %" PRIu64
           "\n",
           t.reads_ok, t.writes_ok, t.timeouts, t.bad);
    printf("  frames at the boards %" PRIu64 " for %" PRIu64 " requests\n",
           chassis.stat("requests"), t.total() + w.total());
    printf("  faults: dropped %" PRIu64 " duplicated %" PRIu64 " corrupted %" PRIu64
           " unsolicited %" PRIu64 " serial noise %" PRIu64 "\n",
           chassis.stat("dropped"), chassis.stat("duplicated"), chassis.stat("corrupted"),
           chassis.stat("unsolicited"), chassis.stat("noise"));
    printf("  reports: %" PRIu64 " whole, %" PRIu64 " bad, %" PRIu64 " sent\n", whole.load(),
           bad_reports.load(), chassis.stat("reports"));
    printf("  resident memory %ld -> %ld KiB, heap in use %ld -> %ld KiB\n", rss_start, rss_end,
           heap_start, heap_end);

    bool pass = t.bad == 0 && w.bad == 0 && t.total() == requests && bad_reports == 0;
    for (const auto &f : work.failures())
        fprintf(stderr, "  failure: %s\n", f.c_str());
    if (o.memory_check && rss_end - rss_start > static_cast<long>(o.max_rss_growth)) {
        fprintf(stderr, "soak: resident memory grew by %ld KiB\n", rss_end - rss_start);
        pass = false;
    }
    if (o.memory_check && heap_start > 0 && heap_end - heap_start > 256) {
        fprintf(stderr, "soak: heap in use grew by %ld KiB\n", heap_end - heap_start);
        pass = false;
    }
#if defined(__SANITIZE_ADDRESS__)
    if (__lsan_do_recoverable_leak_check() != 0) {  // _exit below skips the exit-time check
        fprintf(stderr, "soak: memory leaked\n");
        pass = false;
    }
#endif
    printf("soak: %s\n", pass ? "PASS" : "FAIL");
    fflush(stdout);
    _exit(pass ? 0 : 1);  // the engine's threads run until the process ends
}
