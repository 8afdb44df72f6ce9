#include "workload.h"

#include <cstring>
#include <thread>

#include "transfer_server.h"

namespace sdk::reliability {

namespace {

constexpr int32_t kTimeout = -4001;

// Per thread and target a small set of registers; values carry the thread and a counter.
uint32_t reg_of(int thread, uint64_t step) {
    return 0x1000u + static_cast<uint32_t>(thread) * 0x100u + static_cast<uint32_t>(step % 16) * 4u;
}

transfer_op_t base_op(const Target &t, const WorkloadOptions &o, bool write, uint32_t reg) {
    transfer_op_t op{};
    op.e_mode = t.mcu ? MCU : FPGA;
    op.n_slot = t.slot;
    op.n_timeout = o.timeout_ms;
    op.n_reply_times = o.reply_times;
    op.e_code = write ? FRAME_WRITE : FRAME_READ;
    op.n_read_len = 4;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = reg;
    op.st_addr_param.n_device_type = t.mcu ? DEVICE_MCU : DEVICE_FPGA;
    if (t.kind == TargetKind::kCard) {
        op.e_type = BODY_RECVCARD;
        op.st_addr_param.n_device_type = DEVICE_ETH;
        op.st_addr_param.n_device_index = static_cast<uint8_t>(t.port);
        op.st_control.n_recvcard_id = t.card;
        if (write) {
            // A card write is confirmed by polling the card until it says it is done.
            op.n_no_ack = EN_REQUEST_NO_ACK;
            op.n_polling_state = 1;
            op.n_polling_time = o.polling_ms;
        }
    }
    return op;
}

// What a successful reply hands over: UDP address replies carry error code and length
// before the data, serial address replies the data alone, receiving-card replies the data.
size_t data_offset(TargetKind k) {
    return k == TargetKind::kUdp ? 4 : 0;
}

}  // namespace

int64_t now_ms() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void Outcomes::add(const Outcomes &o) {
    reads_ok += o.reads_ok;
    writes_ok += o.writes_ok;
    timeouts += o.timeouts;
    wrong_data += o.wrong_data;
    other += o.other;
    refused += o.refused;
}

Workload::Workload(const std::vector<Target> &targets, const WorkloadOptions &options)
    : targets_(targets),
      options_(options),
      per_target_(targets.size()),
      in_flight_(static_cast<size_t>(options.threads)) {}

void Workload::record(int target, const Outcomes &o, const std::string &failure) {
    std::lock_guard<std::mutex> guard(lock_);
    per_target_[static_cast<size_t>(target)].add(o);
    if (!failure.empty() && failures_.size() < 20) failures_.push_back(failure);
}

Outcomes Workload::totals() const {
    Outcomes t;
    for (const auto &o : per_target_)
        t.add(o);
    return t;
}

std::string Workload::stuck_report(int64_t ms) const {
    std::string out;
    const int64_t now = now_ms();
    for (size_t i = 0; i < in_flight_.size(); ++i) {
        const int64_t since = in_flight_[i].since_ms.load();
        const int target = in_flight_[i].target.load();
        if (since < 0 || now - since < ms || target < 0) continue;
        out += "thread " + std::to_string(i) + ": request to " +
               targets_[static_cast<size_t>(target)].name + " in flight for " +
               std::to_string(now - since) + " ms\n";
    }
    return out;
}

void Workload::host(int thread) {
    const size_t n_targets = targets_.size();
    // Last value written by this thread per target and register (0: never written).
    std::vector<std::vector<uint32_t>> written(n_targets, std::vector<uint32_t>(16, 0));
    uint64_t step = 0;
    for (;;) {
        const uint64_t n = next_.fetch_add(1);
        if (n >= options_.requests) break;
        // A write and the read after it go to the same target and register.
        const int ti = static_cast<int>((step / 2 + static_cast<uint64_t>(thread) * 7) % n_targets);
        const Target &t = targets_[static_cast<size_t>(ti)];
        const bool write = (step % 2) == 0;
        const uint32_t reg = reg_of(thread, step / 2);
        uint32_t &last = written[static_cast<size_t>(ti)][(step / 2) % 16];
        const uint32_t value = (static_cast<uint32_t>(thread) << 24) | static_cast<uint32_t>(step);
        ++step;

        transfer_op_t op = base_op(t, options_, write, reg);
        char wbuf[4];
        std::memcpy(wbuf, &value, 4);
        in_flight_[static_cast<size_t>(thread)].target = ti;
        in_flight_[static_cast<size_t>(thread)].since_ms = now_ms();
        Outcomes o;
        std::string failure;
        int32_t r = sdk_request(write ? wbuf : nullptr, write ? 4 : 0, &op);
        if (r != 0) {
            ++o.refused;
            failure = t.name + ": request refused " + std::to_string(r);
        } else {
            char rbuf[SDK_DATA_BUF_LEN];
            r = sdk_request_wait(rbuf, &op);
            const size_t off = data_offset(t.kind);
            if (op.p_packet_node != nullptr) {
                ++o.other;
                failure = t.name + ": record still attached after the wait";
            } else if (r == kTimeout) {
                ++o.timeouts;
            } else if (write) {
                const int32_t want = t.kind == TargetKind::kUdp ? 4 : 0;
                if (r == want) {
                    ++o.writes_ok;
                } else {
                    ++o.other;
                    failure = t.name + ": write ended with " + std::to_string(r);
                }
            } else if (r == static_cast<int32_t>(off + 4)) {
                uint32_t got = 0;
                std::memcpy(&got, rbuf + off, 4);
                if (got == last) {
                    ++o.reads_ok;
                } else {
                    ++o.wrong_data;
                    failure = t.name + ": read " + std::to_string(got) + ", board holds " +
                              std::to_string(last);
                }
            } else {
                ++o.other;
                failure = t.name + ": read ended with " + std::to_string(r);
            }
            // The board stores every write it receives, answered or not.
            if (write) last = value;
        }
        in_flight_[static_cast<size_t>(thread)].since_ms = -1;
        ended_.fetch_add(1, std::memory_order_relaxed);
        record(ti, o, failure);
    }
}

void Workload::run() {
    std::vector<std::thread> hosts;
    for (int t = 0; t < options_.threads; ++t)
        hosts.emplace_back([this, t] { host(t); });
    for (auto &h : hosts)
        h.join();
}

}  // namespace sdk::reliability
