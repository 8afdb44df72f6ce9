// transfer_bench: runs the benchmark cases, each in a process of its own, inside the
// private network namespace it was started in, and reports ratios measured side by side
// in this one run.
//
//   transfer_bench --board-sim PATH [--out DIR] [--log-level error|info] [--seconds S]
//                  [--idle-seconds S] [--rounds N] [--serial-device auto|sim|thread]
//                  [--only CASE,...] [--placement on|off]
//   transfer_bench --case NAME --metrics FILE <context options>   (one case; internal)
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "cases.h"
#include "chassis.h"
#include "checks.h"
#include "report.h"
#include "runner.h"

namespace {

using namespace bench;

const std::map<std::string, CaseFn> kCases = {
    {"engine_seq", case_engine_seq},
    {"pingpong", case_pingpong},
    {"modbus", case_modbus},
    {"engine_seq_hog", case_engine_seq_hog},
    {"modbus_hog", case_modbus_hog},
    {"pingpong_hog", case_pingpong_hog},
    {"engine_seq_2calls", case_engine_seq_2calls},
    {"engine_seq_2calls_hog", case_engine_seq_2calls_hog},
    {"parallel_1", case_parallel_1},
    {"parallel_8", case_parallel_8},
    {"parallel_32", case_parallel_32},
    {"pingpong_parallel_8", case_pingpong_parallel_8},
    {"scaling", case_scaling},
    {"idle", case_idle},
    {"memory", case_memory},
    {"serial", case_serial},
};

// Compared cases run interleaved, `rounds` times; the best run of each counts.
const std::vector<std::vector<std::string>> kGroups = {
    {"pingpong", "engine_seq", "modbus", "engine_seq_2calls"},
    {"pingpong_hog", "engine_seq_hog", "modbus_hog", "engine_seq_2calls_hog"},
    {"parallel_1", "pingpong_parallel_8", "parallel_8", "parallel_32"},
};

// The cases that leave a latency distribution per round (data/lat_<name>_<round>.dat);
// the one of their best round becomes data/lat_<name>.dat.
const std::map<std::string, std::string> kLatencyFiles = {
    {"engine_seq", "engine"},     {"pingpong", "pingpong"},
    {"modbus", "modbus"},         {"engine_seq_hog", "engine_hog"},
    {"modbus_hog", "modbus_hog"}, {"pingpong_hog", "pingpong_hog"},
};
const std::vector<std::string> kSingles = {"scaling", "idle", "memory", "serial"};

struct Options {
    CaseContext ctx;
    std::string board_sim;
    std::string log_level = "error";
    std::string only;
    std::string case_name;
    std::string metrics;
    double idle_seconds = 10;
    int rounds = 5;
};

bool parse(int argc, char **argv, Options *o) {
    o->ctx.serial_device = "auto";
    o->ctx.out_dir = "build/bench";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (i + 1 >= argc) return false;
        const std::string v = argv[++i];
        if (a == "--board-sim")
            o->board_sim = v;
        else if (a == "--out")
            o->ctx.out_dir = v;
        else if (a == "--log-level")
            o->log_level = v;
        else if (a == "--seconds")
            o->ctx.seconds = atof(v.c_str());
        else if (a == "--idle-seconds")
            o->idle_seconds = atof(v.c_str());
        else if (a == "--rounds")
            o->rounds = atoi(v.c_str());
        else if (a == "--serial-device")
            o->ctx.serial_device = v;
        else if (a == "--only")
            o->only = "," + v + ",";
        else if (a == "--case")
            o->case_name = v;
        else if (a == "--metrics")
            o->metrics = v;
        else if (a == "--round")
            o->ctx.round = atoi(v.c_str());
        else if (a == "--zlog")
            o->ctx.zlog_conf = v;
        else if (a == "--udp-config")
            o->ctx.udp_config = v;
        else if (a == "--serial-config")
            o->ctx.serial_config = v;
        else if (a == "--serial-link")
            o->ctx.serial_link = v;
        else if (a == "--placement")
            o->ctx.placement = v != "off";
        else
            return false;
    }
    return true;
}

int run_one(const Options &o) {
    const auto it = kCases.find(o.case_name);
    if (it == kCases.end()) return 2;
    alarm(120);  // a hung case must not hold the run
    set_placement(o.ctx.placement);
    place(0, Place::kClient);
    Metrics m;
    const int rc = it->second(o.ctx, m);
    if (!write_metrics(o.metrics, m)) return 1;
    fflush(nullptr);
    _exit(rc);  // the engine's threads never end; leave without running destructors
}

// The logging configuration of the run: the library's log at `level` into a file.
std::string zlog_conf(const std::string &dir, const std::string &level) {
    std::string up;
    for (char c : level)
        up += static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return "[global]\ndefault format = \"%d(%F %T).%ms %-5V [%M(tag)] %f:%L %U: %m%n\"\n"
           "[rules]\nsdk." +
           up + " \"" + dir + "/engine.log\"\n" + "debug." + up + " \"" + dir +
           "/engine_debug.log\"\n";
}

// The 1, 5 and 15 minute load averages of the machine.
std::string load_average() {
    std::ifstream f("/proc/loadavg");
    std::string a, b, c;
    f >> a >> b >> c;
    return a + " " + b + " " + c;
}

bool wanted(const Options &o, const std::string &name) {
    return o.only.empty() || o.only.find("," + name + ",") != std::string::npos;
}

void write_series(const Report &r, const std::string &dir) {
    if (FILE *f = fopen((dir + "/scaling.dat").c_str(), "w")) {
        const auto it = r.cases.find("scaling");
        for (const char *n : {"10", "1000", "10000"}) {
            const std::string k = std::string("n") + n;
            if (it == r.cases.end() || !it->second.count(k + "_cpu_us_per_req")) continue;
            const auto mon = it->second.find(k + "_monitor_us_per_wakeup");
            fprintf(f, "%s %.3f %.1f %.3f\n", n, it->second.at(k + "_cpu_us_per_req"),
                    it->second.at(k + "_rate"), mon == it->second.end() ? 0.0 : mon->second);
        }
        fclose(f);
    }
    if (FILE *f = fopen((dir + "/parallel.dat").c_str(), "w")) {
        for (const char *c : {"parallel_1", "parallel_8", "parallel_32"}) {
            const auto it = r.cases.find(c);
            if (it != r.cases.end() && it->second.count("rate")) {
                fprintf(f, "%d %.1f\n", static_cast<int>(it->second.at("channels")),
                        it->second.at("rate"));
            }
        }
        fclose(f);
    }
    if (FILE *f = fopen((dir + "/pingpong_parallel.dat").c_str(), "w")) {
        for (const char *c : {"pingpong", "pingpong_parallel_8"}) {
            const auto it = r.cases.find(c);
            if (it != r.cases.end() && it->second.count("rate")) {
                const double channels =
                    it->second.count("channels") ? it->second.at("channels") : 1;
                fprintf(f, "%d %.1f\n", static_cast<int>(channels), it->second.at("rate"));
            }
        }
        fclose(f);
    }
}

int drive(Options o, const std::string &self) {
    if (getenv("TRANSFER_IN_NETNS") == nullptr) {
        fprintf(stderr,
                "transfer_bench: run it in a private network namespace "
                "(scripts/bench.sh does)\n");
        return 77;
    }
    CaseContext &ctx = o.ctx;
    ctx.out_dir = std::filesystem::absolute(ctx.out_dir).string();
    const std::string data = ctx.out_dir + "/data";
    const std::string runs = ctx.out_dir + "/runs";
    std::filesystem::create_directories(data);
    std::filesystem::create_directories(runs);
    ctx.zlog_conf = ctx.out_dir + "/zlog.conf";
    ctx.udp_config = ctx.out_dir + "/udp_chassis.json";
    ctx.serial_link = ctx.out_dir + "/ttyBENCH0";
    ctx.serial_config = ctx.out_dir + "/serial_chassis.json";
    if (ctx.serial_device == "auto") {
        ctx.serial_device = help_mentions(o.board_sim, "--pty") ? "sim" : "thread";
    }
    if (!write_file(ctx.zlog_conf, zlog_conf(ctx.out_dir, o.log_level)) ||
        !write_file(ctx.udp_config, udp_chassis_json()) ||
        !write_file(ctx.serial_config, serial_chassis_json(ctx.serial_link))) {
        fprintf(stderr, "transfer_bench: cannot write into %s\n", ctx.out_dir.c_str());
        return 1;
    }
    std::vector<std::string> sim_args;
    for (int s = 1; s <= kUdpBoards; ++s) {
        sim_args.push_back("--udp");
        sim_args.push_back(board_ip(s) + ":" + std::to_string(board_port(s)));
    }
    if (ctx.serial_device == "sim") {
        sim_args.push_back("--pty");
        sim_args.push_back(ctx.serial_link);
    }
    set_placement(ctx.placement);
    const pid_t sim = start_simulator(o.board_sim, sim_args);
    if (sim < 0) return 1;

    Report report;
    const std::string load0 = load_average();
    report.settings["log level"] = o.log_level + " (zlog rules sdk." + o.log_level + " and debug." +
                                   o.log_level + " into " + ctx.out_dir + "/engine.log)";
    report.settings["serial device"] =
        ctx.serial_device == "sim" ? "board_sim --pty" : "pty master served by the bench";
    report.settings["rounds"] =
        std::to_string(o.rounds) +
        " (figures of a case: its best run; ratios: the median of the round-by-round ratios)";
    report.settings["placement"] =
        ctx.placement && usable_cpus() >= 2
            ? "measured case on the first usable CPU, boards and libmodbus server on the second, "
              "hog i on CPU i (--placement off: the scheduler's choice)"
            : "the scheduler's choice";
    report.settings["window"] = std::to_string(ctx.seconds) + " s per throughput case";
    int failures = 0;
    std::map<std::string, int> best_round;
    auto run = [&](const std::string &name, int round, double seconds) {
        if (!wanted(o, name)) return;
        CaseContext c = ctx;
        c.round = round;
        c.seconds = seconds;
        const std::string path = runs + "/" + name + "_" + std::to_string(round) + ".json";
        printf("running %-20s round %d\n", name.c_str(), round);
        fflush(stdout);
        Metrics m;
        if (!run_case(self, name, c, path, 90) || !read_metrics(path, &m)) {
            ++failures;
            return;
        }
        report.round_rates[name][round] = m["rate"];
        auto &best = report.cases[name];
        if (best.empty() || m["rate"] > best["rate"]) {
            best = m;
            best_round[name] = round;
        }
    };
    for (int round = 0; round < o.rounds; ++round) {
        for (const auto &group : kGroups) {
            for (const auto &name : group)
                run(name, round, ctx.seconds);
        }
    }
    for (const auto &name : kSingles)
        run(name, 0, name == "idle" ? o.idle_seconds : ctx.seconds);
    stop_simulator(sim);
    report.settings["load average"] =
        "at start " + load0 + ", at end " + load_average() +
        " (/proc/loadavg, 1, 5 and 15 min; the end counts this run's own hogs and cases)";
    report.settings["cpus"] = std::to_string(usable_cpus());

    for (const auto &[name, round] : best_round) {
        const auto it = kLatencyFiles.find(name);
        if (it == kLatencyFiles.end()) continue;
        const std::string from = data + "/lat_" + it->second + "_" + std::to_string(round) + ".dat";
        const std::string to = data + "/lat_" + it->second + ".dat";
        if (access(from.c_str(), R_OK) == 0) rename(from.c_str(), to.c_str());
    }
    write_series(report, data);
    build_rows(&report);
    print_table(report);
    write_json(ctx.out_dir + "/results.json", report);
    printf("results: %s/results.json\n", ctx.out_dir.c_str());
    return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (!parse(argc, argv, &o)) {
        fprintf(stderr, "usage: see the head of bench/main.cpp\n");
        return 2;
    }
    if (!o.case_name.empty()) return run_one(o);
    if (o.board_sim.empty()) {
        fprintf(stderr, "transfer_bench: --board-sim PATH is required\n");
        return 2;
    }
    return drive(o, std::filesystem::canonical("/proc/self/exe").string());
}
