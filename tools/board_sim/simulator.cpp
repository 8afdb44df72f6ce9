#include "board_sim/simulator.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

namespace board_sim {

namespace {

std::string udp_key(const sockaddr_in &a) {
    return "udp " + format_address(a);
}

// Upper bound of one wait, so a duration end is never overslept by much.
constexpr std::chrono::milliseconds kMaxWait(200);

// Waits for readable endpoints with a nanosecond time-out; kernels older than epoll_pwait2
// get the time-out rounded up to whole milliseconds.
int wait_ready(int ep, epoll_event *events, int n_max, const timespec &ts, const sigset_t *mask) {
    static bool s_no_pwait2 = false;
    if (!s_no_pwait2) {
        const int n = epoll_pwait2(ep, events, n_max, &ts, mask);
        if (n >= 0 || errno != ENOSYS) return n;
        s_no_pwait2 = true;
    }
    const long ms = ts.tv_sec * 1000 + (ts.tv_nsec + 999999) / 1000000;
    return epoll_pwait(ep, events, n_max, static_cast<int>(ms), mask);
}

}  // namespace

int Simulator::find_endpoint(const std::string &key) const {
    for (size_t i = 0; i < endpoints_.size(); ++i)
        if (endpoints_[i].key == key) return static_cast<int>(i);
    return -1;
}

bool Simulator::add_board(const std::string &key,
                          const std::function<std::unique_ptr<Transport>()> &open,
                          std::string *error) {
    int existing = find_endpoint(key);
    if (existing >= 0 && endpoints_[static_cast<size_t>(existing)].board >= 0) {
        *error = "board " + key + " given twice";
        return false;
    }
    size_t ep = static_cast<size_t>(existing);
    if (existing < 0) {
        auto t = open();
        if (!t) return false;
        ep = endpoints_.size();
        endpoints_.push_back({std::move(t), key, -1});
    }
    endpoints_[ep].board = static_cast<int>(boards_.size());
    boards_.push_back({Board(options_), ep});
    return true;
}

bool Simulator::add_udp_board(const sockaddr_in &addr, std::string *error) {
    return add_board(
        udp_key(addr), [&] { return open_udp(addr, error); }, error);
}

bool Simulator::add_pty_board(const std::string &link, const SerialOptions &options,
                              std::string *error) {
    return add_board(
        "pty " + link, [&] { return open_pty(link, options, error); }, error);
}

bool Simulator::add_report(const ReportSource &source, std::string *error) {
    if (source.interval_ms == 0) {
        *error = "report interval must be above 0";
        return false;
    }
    const bool serial = !source.pty.empty();
    int ep = find_endpoint(serial ? "pty " + source.pty : udp_key(source.from));
    if (ep < 0 && serial) {
        *error = "no --pty board " + source.pty + " for its reports";
        return false;
    }
    if (ep < 0) {
        auto t = open_udp(source.from, error);
        if (!t) return false;
        ep = static_cast<int>(endpoints_.size());
        endpoints_.push_back({std::move(t), udp_key(source.from), -1});
    }
    reports_.push_back({source, static_cast<size_t>(ep), Clock::now(), 0});
    return true;
}

Stats Simulator::stats() const {
    Stats s = stats_;
    for (const auto &e : endpoints_)
        s.noise += e.transport->noise_bursts();
    return s;
}

void Simulator::send(size_t endpoint, const std::vector<uint8_t> &frame, const sockaddr_in &to) {
    if (endpoints_[endpoint].transport->send(frame.data(), frame.size(), to))
        ++stats_.replies;
    else
        ++stats_.send_errors;
}

void Simulator::on_frame(size_t endpoint, const uint8_t *p, size_t n, const sockaddr_in &from) {
    int b = endpoints_[endpoint].board;
    if (b < 0) return;  // a report-only socket answers nothing
    Request r;
    if (trace_ != nullptr && parse_request(p, n, &r) == ParseError::kNone) {
        fprintf(trace_, "%s: %s\n", endpoints_[endpoint].key.c_str(), describe(r).c_str());
        fflush(trace_);
    }
    std::vector<uint8_t> reply = boards_[static_cast<size_t>(b)].board.handle(p, n, &stats_);
    if (reply.empty()) return;
    auto frames = faults_.apply(reply, &stats_);
    if (faults_.delay_ms() == 0) {
        for (const auto &f : frames)
            send(endpoint, f, from);
        return;
    }
    auto due = Clock::now() + std::chrono::milliseconds(faults_.delay_ms());
    for (auto &f : frames)
        pending_.emplace(due, Pending{endpoint, std::move(f), from});
}

void Simulator::send_due(Clock::time_point now) {
    while (!pending_.empty() && pending_.begin()->first <= now) {
        const Pending &p = pending_.begin()->second;
        send(p.endpoint, p.frame, p.to);
        pending_.erase(pending_.begin());
    }
    for (auto &r : reports_) {
        if (r.next > now) continue;
        send_report(&r);
        r.next += std::chrono::milliseconds(r.source.interval_ms);
        if (r.next <= now) r.next = now + std::chrono::milliseconds(r.source.interval_ms);
    }
}

void Simulator::send_report(Report *r) {
    ++r->seq;
    // Labels of reports run 1..65535 like the library's own.
    auto label = static_cast<uint16_t>((r->seq - 1) % 65535 + 1);
    auto frame = build_report(label, r->seq);
    if (endpoints_[r->endpoint].transport->send(frame.data(), frame.size(), r->source.to))
        ++stats_.reports;
    else
        ++stats_.send_errors;
}

void Simulator::run(const volatile sig_atomic_t *stop, double duration_s, const sigset_t *wait_mask,
                    volatile sig_atomic_t *report_now) {
    const auto start = Clock::now();
    const bool limited = duration_s > 0;
    const auto end = start + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(limited ? duration_s : 0));
    // One epoll set: a wake-up costs the same with one board or with dozens (the bench
    // serves 32 UDP boards and a serial line from this loop).
    const int ep = epoll_create1(EPOLL_CLOEXEC);
    if (ep < 0) {
        perror("board_sim: epoll_create1");
        return;
    }
    for (size_t i = 0; i < endpoints_.size(); ++i) {
        epoll_event e{};
        e.events = EPOLLIN;
        e.data.u64 = i;
        if (epoll_ctl(ep, EPOLL_CTL_ADD, endpoints_[i].transport->fd(), &e) != 0)
            perror("board_sim: epoll_ctl");
    }
    std::vector<epoll_event> events(std::max<size_t>(endpoints_.size(), 1));

    while (*stop == 0) {
        auto now = Clock::now();
        if (limited && now >= end) break;
        if (report_now != nullptr && *report_now != 0) {
            *report_now = 0;
            for (auto &r : reports_)
                send_report(&r);
        }
        send_due(now);

        auto wake = now + kMaxWait;
        if (limited) wake = std::min(wake, end);
        if (!pending_.empty()) wake = std::min(wake, pending_.begin()->first);
        for (const auto &r : reports_)
            wake = std::min(wake, r.next);
        auto wait_ns =
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::max(wake - now, {}));
        timespec ts{static_cast<time_t>(wait_ns.count() / 1000000000),
                    static_cast<long>(wait_ns.count() % 1000000000)};

        const int ready =
            wait_ready(ep, events.data(), static_cast<int>(events.size()), ts, wait_mask);
        // A time-out, or a signal (EINTR): look at *stop again.
        for (int k = 0; k < ready; ++k) {
            const size_t i = events[static_cast<size_t>(k)].data.u64;
            endpoints_[i].transport->receive(
                [this, i](const uint8_t *p, size_t n, const sockaddr_in &from) {
                    on_frame(i, p, n, from);
                });
        }
    }
    close(ep);
}

std::string format_stats(const Stats &s) {
    char line[400];
    snprintf(line, sizeof line,
             "stats requests=%" PRIu64 " replies=%" PRIu64 " bad=%" PRIu64 " dropped=%" PRIu64
             " duplicated=%" PRIu64 " corrupted=%" PRIu64 " unsolicited=%" PRIu64
             " reports=%" PRIu64 " noise=%" PRIu64 " send_errors=%" PRIu64 " polls=%" PRIu64,
             s.requests, s.replies, s.bad, s.dropped, s.duplicated, s.corrupted, s.unsolicited,
             s.reports, s.noise, s.send_errors, s.polls);
    return line;
}

}  // namespace board_sim
