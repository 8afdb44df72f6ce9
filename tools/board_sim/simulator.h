// The simulator's event loop: the boards on their transports, the report sources and the
// replies waiting for their delay, all served from one thread.
#pragma once

#include <netinet/in.h>
#include <signal.h>

#include <chrono>
#include <cstdint>
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
    uint32_t interval_ms = 1000;
};

class Simulator {
  public:
    Simulator(const FaultConfig &faults, BoardOptions options)
        : faults_(faults), options_(options) {}

    // Each board answers on its own address; false with `error` set when it cannot bind.
    bool add_udp_board(const sockaddr_in &addr, std::string *error);
    // Sends from a board's socket when one is bound to `from`, else from a socket of its own.
    bool add_report(const ReportSource &source, std::string *error);

    // Serves until *stop becomes non-zero or `duration_s` (when above 0) has passed.
    // ppoll waits with `wait_mask`, so signals blocked elsewhere can interrupt it.
    void run(const volatile sig_atomic_t *stop, double duration_s, const sigset_t *wait_mask);

    const Stats &stats() const { return stats_; }

  private:
    using Clock = std::chrono::steady_clock;

    struct Endpoint {
        std::unique_ptr<Transport> transport;
        sockaddr_in addr{};
        int board = -1;  // index into boards_, -1 for a report-only socket
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

    int find_endpoint(const sockaddr_in &addr) const;
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
};

std::string format_stats(const Stats &s);

}  // namespace board_sim
