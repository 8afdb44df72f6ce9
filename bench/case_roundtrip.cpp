// Sequential round trips on one UDP channel: through the engine, and as a plain
// synchronous ping-pong of the same frames against the same simulated board.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

#include "cases.h"
#include "chassis.h"
#include "requests.h"

namespace bench {

namespace {

constexpr int kWarmup = 200;
constexpr int kSlot = 1;

void fill(Metrics &m, Latencies &lat, uint64_t n, uint64_t errors, uint64_t wall_ns,
          uint64_t cpu_ns) {
    const double secs = static_cast<double>(wall_ns) / 1e9;
    m["requests"] = static_cast<double>(n);
    m["errors"] = static_cast<double>(errors);
    m["rate"] = static_cast<double>(n) / secs;
    m["p50_us"] = lat.percentile_us(50);
    m["p99_us"] = lat.percentile_us(99);
    m["slow_1ms_pct"] = lat.percent_at_least_us(1000);
    m["cpu_us_per_req"] = n ? static_cast<double>(cpu_ns) / 1e3 / static_cast<double>(n) : 0;
}

std::string cdf_path(const CaseContext &ctx, const char *name) {
    return ctx.out_dir + "/data/lat_" + name + "_" + std::to_string(ctx.round) + ".dat";
}

}  // namespace

int case_engine_seq(const CaseContext &ctx, Metrics &m) {
    if (!start_engine(ctx, ctx.udp_config, kUdpSlots)) return 1;
    char rbuf[SDK_DATA_BUF_LEN];
    auto one = [&rbuf]() {
        transfer_op_t op = fpga_read(kSlot);
        if (sdk_request(nullptr, 0, &op) != 0) return false;
        return sdk_request_wait(rbuf, &op) > 0;
    };
    LoopResult r = timed_loop(ctx.seconds, kWarmup, 200000, one);
    fill(m, r.lat, r.lat.size(), r.errors, r.wall_ns, r.cpu_ns);
    r.lat.write_cdf(cdf_path(ctx, "engine"));
    return r.errors > r.lat.size() / 100 ? 1 : 0;
}

int case_pingpong(const CaseContext &ctx, Metrics &m) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(board_port(kSlot)));
    inet_pton(AF_INET, board_ip(kSlot).c_str(), &to.sin_addr);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof(to)) != 0) {
        perror("bench: ping-pong socket");
        return 1;
    }
    uint16_t label = 1;
    uint8_t rbuf[65536];
    auto one = [&]() {
        const std::vector<uint8_t> f = read_frame(label++);
        if (send(fd, f.data(), f.size(), 0) != static_cast<ssize_t>(f.size())) return false;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 2000) != 1) return false;  // the engine's time-out of the same reads
        const ssize_t n = recv(fd, rbuf, sizeof(rbuf), 0);
        return n >= 34 && rbuf[6] == f[6] && rbuf[7] == f[7];
    };
    LoopResult r = timed_loop(ctx.seconds, kWarmup, 400000, one);
    fill(m, r.lat, r.lat.size(), r.errors, r.wall_ns, r.cpu_ns);
    r.lat.write_cdf(cdf_path(ctx, "pingpong"));
    close(fd);
    return r.errors > r.lat.size() / 100 ? 1 : 0;
}

}  // namespace bench
