// The simulator's event loop: the boards on their transports, the report sources and the
// replies waiting for their delay, all served from one thread.
#pragma once

#include <netinet/in.h>
#include <signal.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "board_sim/board.h"
#include "board_sim/faults.h"
#include "board_sim/transport.h"

namespace board_sim {

struct ReportSource {
    sockaddr_in from{};  // the board address the reports come from
    sockaddr_in to{};    // the host's report channel
    std::string pty;     // instead: the link of a serial board whose stream carries them
    uint32_t interval_ms = 1000;
};

class Simulator {
  public:
    Simulator(const FaultConfig &faults, BoardOptions options)
        : faults_(faults), options_(options) {}

    // Each board answers on its own address; false with `error` set when it cannot bind.
    bool add_udp_board(const sockaddr_in &addr, std::string *error);
    // A serial board on a new pty reachable through the symbolic link `link`.
    bool add_pty_board(const std::string &link, const SerialOptions &options, std::string *error);
    // UDP reports go from a board's socket when one is bound to `from`, else from a socket
    // of their own; serial reports go into the stream of the --pty board named in `pty`.
    bool add_report(const ReportSource &source, std::string *error);

    // Serves until *stop becomes non-zero or `duration_s` (when above 0) has passed.
    // ppoll waits with `wait_mask`, so signals blocked elsewhere can interrupt it. Each
    // time *report_now is set (then cleared here), every report source sends one at once.
    void run(const volatile sig_atomic_t *stop, double duration_s, const sigset_t *wait_mask,
             volatile sig_atomic_t *report_now = nullptr);

    Stats stats() const;

    // Every well-formed request is described on `out` ("<endpoint>: label ..: ..."), one
    // flushed line each; nullptr (the default) for none.
    void set_trace(FILE *out) { trace_ = out; }

  private:
    using Clock = std::chrono::steady_clock;

    struct Endpoint {
        std::unique_ptr<Transport> transport;
        std::string key;  // "udp IP:PORT" or "pty LINK"
        int board = -1;   // index into boards_, -1 for a report-only socket
    };
    struct BoardSlot {
        Board board;
        size_t endpoint;
    };
    struct Pending {
        size_t endpoint;
        std::vector<uint8_t> frame;
        sockaddr_in to;
    };
    struct Report {
        ReportSource source;
        size_t endpoint;
        Clock::time_point next;
        uint32_t seq = 0;
    };

    int find_endpoint(const std::string &key) const;
    bool add_board(const std::string &key, const std::function<std::unique_ptr<Transport>()> &open,
                   std::string *error);
    void send_report(Report *r);
    void on_frame(size_t endpoint, const uint8_t *p, size_t n, const sockaddr_in &from);
    void send(size_t endpoint, const std::vector<uint8_t> &frame, const sockaddr_in &to);
    void send_due(Clock::time_point now);

    FaultInjector faults_;
    BoardOptions options_;
    Stats stats_;
    std::vector<Endpoint> endpoints_;
    std::vector<BoardSlot> boards_;
    std::vector<Report> reports_;
    std::multimap<Clock::time_point, Pending> pending_;
    FILE *trace_ = nullptr;
};

std::string format_stats(const Stats &s);

}  // namespace board_sim
