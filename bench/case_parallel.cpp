// Parallel channels: each channel has its own simulated board and one acknowledged read
// in flight at a time. Host threads share the channels round-robin: a thread issues one
// read on each of its channels, then waits for them in order. The plain reference: as
// many threads as channels, each doing the UDP ping-pong of the same frames on a socket
// of its own against the same boards.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "cases.h"
#include "chassis.h"
#include "pingpong.h"
#include "requests.h"

namespace bench {

namespace {

constexpr int kMaxThreads = 4;

int run_parallel(const CaseContext &ctx, Metrics &m, int channels) {
    if (!start_engine(ctx, ctx.udp_config, kUdpSlots)) return 1;
    const int threads = std::min(channels, kMaxThreads);
    std::atomic<bool> go{false};
    std::atomic<bool> stop{false};
    std::vector<uint64_t> done(static_cast<size_t>(threads), 0);
    std::vector<uint64_t> failed(static_cast<size_t>(threads), 0);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            std::vector<transfer_op_t> ops;
            for (int c = t; c < channels; c += threads)
                ops.push_back(fpga_read(static_cast<uint32_t>(c + 1)));
            std::vector<char> rbuf(SDK_DATA_BUF_LEN);
            uint64_t n = 0;
            uint64_t bad = 0;
            bool counting = false;
            while (!stop) {
                if (!counting && go) {
                    counting = true;
                    n = bad = 0;
                }
                for (auto &op : ops) {
                    op.p_packet_node = nullptr;
                    if (sdk_request(nullptr, 0, &op) != 0) ++bad;
                }
                for (auto &op : ops) {
                    if (op.p_packet_node == nullptr) continue;
                    if (sdk_request_wait(rbuf.data(), &op) > 0) {
                        ++n;
                    } else {
                        ++bad;
                    }
                }
            }
            done[static_cast<size_t>(t)] = n;
            failed[static_cast<size_t>(t)] = bad;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // warm-up
    go = true;
    const uint64_t cpu0 = process_cpu_ns();
    const uint64_t t0 = now_ns();
    std::this_thread::sleep_for(std::chrono::duration<double>(ctx.seconds));
    stop = true;
    const uint64_t wall = now_ns() - t0;
    const uint64_t cpu = process_cpu_ns() - cpu0;
    for (auto &th : pool)
        th.join();
    uint64_t n = 0;
    uint64_t bad = 0;
    for (int t = 0; t < threads; ++t) {
        n += done[static_cast<size_t>(t)];
        bad += failed[static_cast<size_t>(t)];
    }
    m["channels"] = channels;
    m["threads"] = threads;
    m["requests"] = static_cast<double>(n);
    m["errors"] = static_cast<double>(bad);
    m["rate"] = static_cast<double>(n) / (static_cast<double>(wall) / 1e9);
    m["cpu_us_per_req"] = n ? static_cast<double>(cpu) / 1e3 / static_cast<double>(n) : 0;
    return bad > n / 100 ? 1 : 0;
}

int run_pingpong_parallel(const CaseContext &ctx, Metrics &m, int channels) {
    std::vector<std::unique_ptr<UdpPingPong>> sockets;
    for (int c = 0; c < channels; ++c) {
        sockets.push_back(std::make_unique<UdpPingPong>());
        if (!sockets.back()->open(c + 1)) return 1;
    }
    std::atomic<bool> go{false};
    std::atomic<bool> stop{false};
    std::vector<uint64_t> done(static_cast<size_t>(channels), 0);
    std::vector<uint64_t> failed(static_cast<size_t>(channels), 0);
    std::vector<std::thread> pool;
    for (int t = 0; t < channels; ++t) {
        pool.emplace_back([&, t] {
            UdpPingPong &pp = *sockets[static_cast<size_t>(t)];
            uint64_t n = 0;
            uint64_t bad = 0;
            bool counting = false;
            while (!stop) {
                if (!counting && go) {
                    counting = true;
                    n = bad = 0;
                }
                if (pp.one()) {
                    ++n;
                } else {
                    ++bad;
                }
            }
            done[static_cast<size_t>(t)] = n;
            failed[static_cast<size_t>(t)] = bad;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // warm-up
    go = true;
    const uint64_t cpu0 = process_cpu_ns();
    const uint64_t t0 = now_ns();
    std::this_thread::sleep_for(std::chrono::duration<double>(ctx.seconds));
    stop = true;
    const uint64_t wall = now_ns() - t0;
    const uint64_t cpu = process_cpu_ns() - cpu0;
    for (auto &th : pool)
        th.join();
    uint64_t n = 0;
    uint64_t bad = 0;
    for (int t = 0; t < channels; ++t) {
        n += done[static_cast<size_t>(t)];
        bad += failed[static_cast<size_t>(t)];
    }
    m["channels"] = channels;
    m["threads"] = channels;
    m["requests"] = static_cast<double>(n);
    m["errors"] = static_cast<double>(bad);
    m["rate"] = static_cast<double>(n) / (static_cast<double>(wall) / 1e9);
    m["cpu_us_per_req"] = n ? static_cast<double>(cpu) / 1e3 / static_cast<double>(n) : 0;
    return bad > n / 100 ? 1 : 0;
}

}  // namespace

int case_pingpong_parallel_8(const CaseContext &ctx, Metrics &m) {
    return run_pingpong_parallel(ctx, m, 8);
}

int case_parallel_1(const CaseContext &ctx, Metrics &m) {
    return run_parallel(ctx, m, 1);
}
int case_parallel_8(const CaseContext &ctx, Metrics &m) {
    return run_parallel(ctx, m, 8);
}
int case_parallel_32(const CaseContext &ctx, Metrics &m) {
    return run_parallel(ctx, m, 32);
}

}  // namespace bench
