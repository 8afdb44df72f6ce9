// soak: many requests across UDP, serial and receiving-card targets of a simulated chassis
// with injected faults. Fails on any request lost, ended twice or with the wrong data, on a
// bad report, on growth of resident memory or of the heap, and on a watchdog time-out (a
// deadlock). Runs inside a private network namespace (tests/support/netns_run.sh soak ...).
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "chassis.h"
#include "support/netns_helpers.h"
#include "transfer_server.h"

namespace {

// The options with their defaults and ranges; --no-memory-check and --help besides.
struct Option {
    const char *name, *help;
    double value, min, max;
} g_options[] = {{"--requests N", "requests in all", 100000, 1, 1e12},
                 {"--threads N", "host threads", 16, 1, 64},
                 {"--faults PCT", "replies spoiled, in %", 10, 0, 100},
                 {"--sub-cards N", "sub cards, each a sender card and an MCU", 3, 1, 16},
                 {"--timeout-ms N", "time-out of each attempt in ms", 30, 1, 1e6},
                 {"--watchdog S", "fail when no request ends for S seconds", 30, 1, 1e6},
                 {"--max-rss-growth KIB", "allowed growth of resident memory", 4096, 0, 1e9}};
bool g_memory_check = true;

bool parse(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        bool known = strcmp(argv[i], "--no-memory-check") == 0 && !(g_memory_check = false);
        for (Option &o : g_options) {
            if (std::string(o.name, strcspn(o.name, " ")) != argv[i] || i + 1 == argc) continue;
            char *end = nullptr;
            o.value = strtod(argv[++i], &end);
            known = *end == '\0' && o.value >= o.min && o.value <= o.max;
        }
        if (!known) return false;
    }
    return true;
}

int usage(FILE *out, int status) {
    fputs(
        "Usage: soak [OPTION...]\n"
        "Requests across UDP, serial and receiving-card targets of a simulated chassis\n"
        "(board_sim processes on loopback) with injected faults; run it inside a private\n"
        "network namespace (tests/support/netns_run.sh soak ...).\n",
        out);
    for (const Option &o : g_options)
        fprintf(out, "  %-21s %s (default %g)\n", o.name, o.help, o.value);
    fputs(
        "  --no-memory-check     skip the memory checks (sanitizer builds)\n"
        "Exit status: 0 pass, 1 fail, 77 no private network namespace.\n",
        out);
    return status;
}

long rss_kib() {  // the peak: it only grows when the memory in use does
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

long heap_kib() {
    return static_cast<long>(mallinfo2().uordblks / 1024);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) return usage(stdout, 0);
    if (!parse(argc, argv)) return usage(stderr, 1);
    if (!sdk::test::in_private_netns()) {
        fprintf(stderr, "soak: needs a private network namespace with eth0 up; skipped\n");
        return 77;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto requests = static_cast<uint64_t>(g_options[0].value);
    const int threads = static_cast<int>(g_options[1].value);
    const int sub_cards = static_cast<int>(g_options[3].value);
    const auto timeout_ms = static_cast<uint32_t>(g_options[4].value);
    std::vector<std::vector<std::string>> faults;
    std::vector<char> slots;
    for (int i = 0; i <= sub_cards; ++i) {
        faults.push_back(sdk::reliability::mixed_faults(g_options[2].value, 11u + unsigned(i)));
        if (i > 0) slots.push_back(static_cast<char>(i));
    }
    sdk::reliability::SimChassis chassis(sub_cards, faults);
    const int32_t init = chassis.error.empty()
                             ? sdk_transfer_init(slots.data(), static_cast<uint32_t>(slots.size()),
                                                 const_cast<char *>(chassis.config_path.c_str()))
                             : 0;
    if (!chassis.error.empty() || init != 0) {
        fprintf(stderr, "soak: %s start-up result %d\n", chassis.error.c_str(), init);
        return 1;
    }
    // The engine has no shutdown: its threads run until the process ends, and a deadlocked
    // run cannot be unwound. So the end stops the simulators, removes the chassis folder and
    // leaves at once.
    auto finish = [&chassis](int status) {
        chassis.stop();
        std::error_code ec;
        std::filesystem::remove_all(std::filesystem::path(chassis.config_path).parent_path(), ec);
        fflush(stdout);
        _exit(status);
    };
    // Drains the report queue: every report must be whole and carry its channel's slot.
    std::atomic<bool> done{false};
    std::atomic<uint64_t> reports{0}, bad_reports{0};
    std::thread drain([&] {
        auto rec = std::make_unique<report_queue_data_t>();
        while (!done.load()) {
            if (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) != 0) {
                usleep(2000);
                continue;
            }
            sdk_report_queue_pull(sdk_get_report_queue());
            const bool ok = rec->n_len == 36 && rec->n_slot == 100 && (rec->arr_buf[10] & 0x10);
            (ok ? reports : bad_reports).fetch_add(1);
        }
    });
    sdk::reliability::Workload warm(chassis.targets, std::min<uint64_t>(2000, requests), threads,
                                    timeout_ms);
    warm.run();
    const long rss_start = rss_kib(), heap_start = heap_kib();

    sdk::reliability::Workload work(chassis.targets, requests, threads, timeout_ms);
    std::thread watchdog([&] {
        for (uint64_t last = 0, still = 0; !done.load(); usleep(200000)) {
            still = work.ended == last ? still + 1 : 0;
            last = work.ended;
            if (still * 0.2 > g_options[5].value) {
                fprintf(stderr, "soak: watchdog: no request ended for %g s\n", g_options[5].value);
                finish(1);
            }
        }
    });
    const auto t0 = std::chrono::steady_clock::now();
    work.run();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - t0;
    usleep(300000);  // late and duplicated replies arrive, find nothing and go
    const long rss_end = rss_kib(), heap_end = heap_kib();
    done = true;
    watchdog.join();
    drain.join();
    chassis.stop();

    const sdk::reliability::Outcomes t = work.totals();
    printf("soak: %" PRIu64
           " requests on %zu targets, %d host threads, %g%% faults, %.1f s\n"
           "  reads ok %" PRIu64 ", writes ok %" PRIu64 ", timed out %" PRIu64 ", bad %" PRIu64
           "; frames at the boards %" PRIu64 ", replies dropped %" PRIu64
           "\n"
           "  reports %" PRIu64 " whole, %" PRIu64
           " bad; resident memory %ld -> %ld KiB, heap in "
           "use %ld -> %ld KiB\n",
           requests, chassis.targets.size(), threads, g_options[2].value, took.count(), t.reads_ok,
           t.writes_ok, t.timeouts, t.bad, chassis.stat("requests"), chassis.stat("dropped"),
           reports.load(), bad_reports.load(), rss_start, rss_end, heap_start, heap_end);
    bool pass = t.bad == 0 && warm.totals().bad == 0 && t.total() == requests && bad_reports == 0;
    for (const auto &f : work.failures)
        fprintf(stderr, "  failure: %s\n", f.c_str());
    if (g_memory_check && (rss_end - rss_start > static_cast<long>(g_options[6].value) ||
                           (heap_start > 0 && heap_end - heap_start > 256))) {
        fprintf(stderr, "soak: memory grew\n");
        pass = false;
    }
#if defined(__SANITIZE_ADDRESS__)
    if (__lsan_do_recoverable_leak_check() != 0) {  // _exit below skips the exit-time check
        fprintf(stderr, "soak: memory leaked\n");
        pass = false;
    }
#endif
    printf("soak: %s\n", pass ? "PASS" : "FAIL");
    finish(pass ? 0 : 1);
}
