// Test support for the engine: starts it once per process from a small chassis (channel
// set-up, then the containers in start-up order, then the worker threads), and simulates
// the boards on 127.0.x.y with in-process UDP responders built on the board simulator.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "board_sim/board.h"
#include "support/netns_helpers.h"
#include "transfer_server.h"

namespace sdk::test {

// Channels: 0 main FPGA (video), 1 main MCU, 2 sub card 1 FPGA (sender card with
// receiving cards), 3 sub card 1 MCU, 4 and 5 sub card 2.
constexpr const char *kEngineConfig = R"({
  "device": {
    "main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 0},
    "sub_card":  {"slot_num": 2, "type_num": 2, "min_slot": 1,   "max_slot": 2,   "id_offset": 2}
  },
  "transfer_param": {"send_list_num": 2, "send_thread_num": 1, "monitor_list_num": 3, "monitor_thread_num": 1},
  "rvcard_param": {"eth_max": 4, "rvcard_max": 8},
  "maincards": [
    {"slot": 100,
     "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.0.2", "port": 7000}],
     "mcu":  [{"id_offset": 1, "type": 1, "ip": "127.0.0.3", "port": 7001}]}
  ],
  "subcards": [
    {"slot": 1, "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.1.1", "port": 7002, "packet_code_type": 1}],
                "mcu":  [{"id_offset": 1, "type": 1, "ip": "127.0.1.1", "port": 7003}]},
    {"slot": 2, "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.1.2", "port": 7004}],
                "mcu":  [{"id_offset": 1, "type": 1, "ip": "127.0.1.2", "port": 7005}]}
  ]
})";

// Start-up order: set-up, report queue, channel send queues, monitor lists, send lists,
// receiving-card queues, label lists; then sender, receive, trigger and monitor threads.
inline int32_t engine_start_once() {
    static int32_t n_ret = [] {
        mio_json *root = mio_json_fromstring(kEngineConfig);
        if (root == nullptr) return -1;
        int32_t r = sdk_device_transfer_mem_init(root);
        if (r == 0) r = sdk_maincards_transfer_init(root);
        const char served[] = {1, 2};
        if (r == 0) r = sdk_subcards_transfer_init(const_cast<char *>(served), 2, root);
        if (r == 0) r = sdk_transfer_containers_init();
        mio_json_delete(root);
        if (r != 0) return r;
        for (auto body : {sdk_transfer_sender_thread, sdk_transfer_recv_thread,
                          sdk_transfer_trigger_thread, sdk_transfer_timeout_monitor_thread}) {
            pthread_t t;
            if (pthread_create(&t, nullptr, body, nullptr) != 0) return -2;
            pthread_detach(t);
        }
        return 0;
    }();
    return n_ret;
}

using Clock = std::chrono::steady_clock;

// One simulated board on ip:port. Every frame is recorded with its arrival time; the
// policy decides whether (and how late) the simulator's answer goes back.
class FakeBoard {
  public:
    struct Frame {
        std::vector<uint8_t> bytes;
        Clock::time_point at;
    };
    // Returns the reply delay in milliseconds, or -1 to withhold the reply.
    using Policy = std::function<int(const std::vector<uint8_t> &frame, size_t index)>;

    FakeBoard(const std::string &ip, uint16_t port, Policy policy = nullptr)
        : policy_(std::move(policy)) {
        fd_ = udp_socket(ip, port);
        thread_ = std::thread([this] { run(); });
    }
    ~FakeBoard() {
        stop_ = true;
        thread_.join();
        if (fd_ >= 0) close(fd_);
    }
    FakeBoard(const FakeBoard &) = delete;
    FakeBoard &operator=(const FakeBoard &) = delete;

    std::vector<Frame> frames() {
        std::lock_guard<std::mutex> l(m_);
        return frames_;
    }
    bool ok() const { return fd_ >= 0; }

  private:
    struct Due {
        Clock::time_point at;
        std::vector<uint8_t> reply;
        sockaddr_in to;
    };
    void run() {
        std::vector<Due> due;
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 2) > 0) {
                uint8_t buf[65536];
                sockaddr_in from{};
                socklen_t len = sizeof(from);
                ssize_t n =
                    recvfrom(fd_, buf, sizeof(buf), 0, reinterpret_cast<sockaddr *>(&from), &len);
                if (n > 0) {
                    std::vector<uint8_t> f(buf, buf + n);
                    size_t index;
                    {
                        std::lock_guard<std::mutex> l(m_);
                        index = frames_.size();
                        frames_.push_back({f, Clock::now()});
                    }
                    int delay = policy_ ? policy_(f, index) : 0;
                    std::vector<uint8_t> reply =
                        board_.handle(buf, static_cast<size_t>(n), &stats_);
                    if (delay >= 0 && !reply.empty()) {
                        due.push_back(
                            {Clock::now() + std::chrono::milliseconds(delay), reply, from});
                    }
                }
            }
            auto now = Clock::now();
            for (auto it = due.begin(); it != due.end();) {
                if (it->at <= now) {
                    sendto(fd_, it->reply.data(), it->reply.size(), 0,
                           reinterpret_cast<sockaddr *>(&it->to), sizeof(it->to));
                    it = due.erase(it);
                } else {
                    ++it;
                }
            }
        }
    }

    int fd_ = -1;
    Policy policy_;
    board_sim::Board board_;
    board_sim::Stats stats_;
    std::mutex m_;
    std::vector<Frame> frames_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

inline transfer_op_t op_for(uint32_t slot, transfer_section section, frame_code code, uint32_t addr,
                            uint32_t len) {
    transfer_op_t op{};
    op.e_mode = section;
    op.n_slot = slot;
    op.n_timeout = 500;
    op.e_code = code;
    op.n_read_len = len;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = addr;
    op.st_addr_param.n_device_type = section == FPGA ? DEVICE_FPGA : DEVICE_MCU;
    return op;
}

inline transfer_op_t card_op(uint32_t eth, uint32_t card, frame_code code, uint32_t addr,
                             uint32_t len) {
    transfer_op_t op = op_for(1, FPGA, code, addr, len);
    op.e_type = BODY_RECVCARD;
    op.st_addr_param.n_device_type = DEVICE_ETH;
    op.st_addr_param.n_device_index = static_cast<uint8_t>(eth);
    op.st_control.n_recvcard_id = card;
    return op;
}

inline uint16_t frame_lable(const std::vector<uint8_t> &f) {
    return static_cast<uint16_t>(f[6] | (f[7] << 8));
}
inline uint32_t frame_reg(const std::vector<uint8_t> &f) {
    return f.size() < 32 ? 0
                         : static_cast<uint32_t>(f[28] | (f[29] << 8) | (f[30] << 16) |
                                                 (static_cast<uint32_t>(f[31]) << 24));
}

}  // namespace sdk::test
