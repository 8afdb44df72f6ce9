// board_sim: simulated chassis boards on UDP and on pseudo-terminals, for tests, the demo
// and the benchmarks.
//
// Prints "ready" once every socket and pty is set up, serves until SIGTERM, SIGINT or the
// end of --duration, then prints one stats line. SIGUSR1 makes every report source send
// one report at once.
#include <getopt.h>
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "board_sim/simulator.h"

namespace {

volatile sig_atomic_t g_stop = 0;
volatile sig_atomic_t g_report_now = 0;

void on_stop(int) {
    g_stop = 1;
}

void on_report(int) {
    g_report_now = 1;
}

void usage(FILE *out) {
    fputs(
        "Usage: board_sim [OPTION...]\n"
        "Simulated boards answering request frames on UDP and on pseudo-terminals.\n"
        "  --udp IP:PORT          a board answering requests sent to IP:PORT (repeatable);\n"
        "                         replies go to the sender of each request\n"
        "  --pty LINK             a serial board on a new pseudo-terminal whose slave is\n"
        "                         reachable through the symbolic link LINK (made at start,\n"
        "                         removed at exit; repeatable). Replies begin BB 55\n"
        "  --serial-report LINK:INTERVAL_MS\n"
        "                         a report frame every INTERVAL_MS inside the serial stream\n"
        "                         of the --pty board LINK (repeatable)\n"
        "  --serial-split         write serial replies in random pieces with short pauses\n"
        "  --serial-noise PCT     precede PCT % of the serial replies with 1..8 noise bytes\n"
        "  --report IP:PORT:PEER_PORT:INTERVAL_MS[:PEER_IP]\n"
        "                         send a report frame every INTERVAL_MS from IP:PORT to\n"
        "                         PEER_IP:PEER_PORT (PEER_IP defaults to 127.0.0.1;\n"
        "                         repeatable). Shares the socket of a --udp board on IP:PORT\n"
        "  --drop PCT             withhold PCT % of the replies\n"
        "  --dup PCT              send PCT % of the replies twice\n"
        "  --delay-ms N           send every reply N milliseconds late\n"
        "  --corrupt PCT          spoil the frame length, body type or label of PCT %\n"
        "  --unsolicited PCT      after PCT % of the replies also send one with an unknown label\n"
        "  --no-reply-write       store acknowledged writes but never answer them\n"
        "  --seed N               seed of the fault decisions (default 1)\n"
        "  --duration S           exit after S seconds (default: until SIGTERM or SIGINT)\n"
        "  --trace                one line per request received, after \"ready\": the\n"
        "                         board, the label and what was asked (polls included)\n"
        "  -h, --help             this text\n"
        "SIGUSR1 makes every report source send one report at once.\n"
        "Reads answer with the bytes asked for (zeros where never written); writes are\n"
        "stored per board, per device and per receiving card. Only requests asking for an\n"
        "acknowledgement are answered, except polls of register 0x02000200, answered 01 00.\n"
        "On exit one line: stats requests=.. replies=.. bad=.. dropped=.. ... polls=..\n",
        out);
}

bool parse_number(const char *text, double max, double *out) {
    char *end = nullptr;
    errno = 0;
    double v = strtod(text, &end);
    if (end == text || *end != 0 || errno != 0 || v < 0 || v > max) return false;
    *out = v;
    return true;
}

bool parse_report(const std::string &text, board_sim::ReportSource *out) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t colon = text.find(':', start);
        parts.push_back(text.substr(start, colon - start));
        if (colon == std::string::npos) break;
        start = colon + 1;
    }
    if (parts.size() != 4 && parts.size() != 5) return false;
    board_sim::ReportSource r;
    std::string peer_ip = parts.size() == 5 ? parts[4] : "127.0.0.1";
    double interval = 0;
    if (!board_sim::parse_address(parts[0] + ":" + parts[1], &r.from) ||
        !board_sim::parse_address(peer_ip + ":" + parts[2], &r.to) ||
        !parse_number(parts[3].c_str(), 3600000, &interval) || interval < 1)
        return false;
    r.interval_ms = static_cast<uint32_t>(interval);
    *out = r;
    return true;
}

int fail(const std::string &message) {
    fprintf(stderr, "board_sim: %s\n", message.c_str());
    return 2;
}

int simulate(int argc, char **argv) {
    enum {
        kUdp = 1,
        kReport,
        kDrop,
        kDup,
        kDelay,
        kCorrupt,
        kUnsolicited,
        kNoReplyWrite,
        kSeed,
        kDuration,
        kPty,
        kSerialReport,
        kSerialSplit,
        kSerialNoise,
        kTrace,
        kHelp = 'h'
    };
    static const option options[] = {
        {"udp", required_argument, nullptr, kUdp},
        {"report", required_argument, nullptr, kReport},
        {"drop", required_argument, nullptr, kDrop},
        {"dup", required_argument, nullptr, kDup},
        {"delay-ms", required_argument, nullptr, kDelay},
        {"corrupt", required_argument, nullptr, kCorrupt},
        {"unsolicited", required_argument, nullptr, kUnsolicited},
        {"no-reply-write", no_argument, nullptr, kNoReplyWrite},
        {"seed", required_argument, nullptr, kSeed},
        {"duration", required_argument, nullptr, kDuration},
        {"pty", required_argument, nullptr, kPty},
        {"serial-report", required_argument, nullptr, kSerialReport},
        {"serial-split", no_argument, nullptr, kSerialSplit},
        {"serial-noise", required_argument, nullptr, kSerialNoise},
        {"trace", no_argument, nullptr, kTrace},
        {"help", no_argument, nullptr, kHelp},
        {nullptr, 0, nullptr, 0},
    };

    std::vector<sockaddr_in> boards;
    std::vector<std::string> ptys;
    board_sim::SerialOptions serial;
    std::vector<board_sim::ReportSource> reports;
    board_sim::FaultConfig faults;
    board_sim::BoardOptions board_options;
    double duration = 0;
    double value = 0;
    int c;
    bool trace = false;
    while ((c = getopt_long(argc, argv, "h", options, nullptr)) != -1) {
        std::string arg = optarg != nullptr ? optarg : "";
        switch (c) {
            case kUdp: {
                sockaddr_in a{};
                if (!board_sim::parse_address(arg, &a)) return fail("bad --udp " + arg);
                boards.push_back(a);
                break;
            }
            case kReport: {
                board_sim::ReportSource r;
                if (!parse_report(arg, &r)) return fail("bad --report " + arg);
                reports.push_back(r);
                break;
            }
            case kDrop:
            case kDup:
            case kCorrupt:
            case kUnsolicited: {
                if (!parse_number(arg.c_str(), 100, &value)) return fail("bad percentage " + arg);
                double *pct = c == kDrop      ? &faults.drop_pct
                              : c == kDup     ? &faults.dup_pct
                              : c == kCorrupt ? &faults.corrupt_pct
                                              : &faults.unsolicited_pct;
                *pct = value;
                break;
            }
            case kDelay:
                if (!parse_number(arg.c_str(), 3600000, &value))
                    return fail("bad --delay-ms " + arg);
                faults.delay_ms = static_cast<uint32_t>(value);
                break;
            case kSeed:
                if (!parse_number(arg.c_str(), 4294967295.0, &value))
                    return fail("bad --seed " + arg);
                faults.seed = static_cast<uint32_t>(value);
                break;
            case kPty:
                if (arg.empty()) return fail("bad --pty: empty path");
                ptys.push_back(arg);
                break;
            case kSerialReport: {
                board_sim::ReportSource r;
                size_t colon = arg.rfind(':');
                if (colon == std::string::npos || colon == 0 ||
                    !parse_number(arg.c_str() + colon + 1, 3600000, &value) || value < 1)
                    return fail("bad --serial-report " + arg);
                r.pty = arg.substr(0, colon);
                r.interval_ms = static_cast<uint32_t>(value);
                reports.push_back(r);
                break;
            }
            case kSerialSplit:
                serial.split = true;
                break;
            case kSerialNoise:
                if (!parse_number(arg.c_str(), 100, &serial.noise_pct))
                    return fail("bad percentage " + arg);
                break;
            case kNoReplyWrite:
                board_options.reply_writes = false;
                break;
            case kDuration:
                if (!parse_number(arg.c_str(), 1e9, &duration))
                    return fail("bad --duration " + arg);
                break;
            case kTrace:
                trace = true;
                break;
            case kHelp:
                usage(stdout);
                return 0;
            default:
                usage(stderr);
                return 2;
        }
    }
    if (optind < argc) return fail(std::string("unexpected argument ") + argv[optind]);
    if (boards.empty() && ptys.empty() && reports.empty())
        return fail("nothing to simulate: give --udp, --pty or --report");
    serial.seed = faults.seed;

    // Blocked except inside the wait, so a stop request cannot slip in between the check of
    // the flag and the wait.
    sigset_t blocked;
    sigset_t wait_mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, &wait_mask);
    sigdelset(&wait_mask, SIGTERM);
    sigdelset(&wait_mask, SIGINT);
    sigdelset(&wait_mask, SIGUSR1);
    struct sigaction sa {};
    sa.sa_handler = on_stop;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    sa.sa_handler = on_report;
    sigaction(SIGUSR1, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    board_sim::Simulator sim(faults, board_options);
    std::string error;
    for (const auto &b : boards)
        if (!sim.add_udp_board(b, &error)) return fail(error);
    for (const auto &p : ptys)
        if (!sim.add_pty_board(p, serial, &error)) return fail(error);
    for (const auto &r : reports)
        if (!sim.add_report(r, &error)) return fail(error);

    printf("ready\n");
    fflush(stdout);
    if (trace) sim.set_trace(stdout);
    sim.run(&g_stop, duration, &wait_mask, &g_report_now);
    printf("%s\n", board_sim::format_stats(sim.stats()).c_str());
    fflush(stdout);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return simulate(argc, argv);
    } catch (const std::exception &e) {
        fprintf(stderr, "board_sim: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "board_sim: unexpected failure\n");
    }
    return 1;
}
