#include "chassis.h"

#include <cstring>
#include <sstream>
#include <thread>

#include "transfer_server.h"

namespace sdk::reliability {

std::vector<std::string> mixed_faults(double pct, uint32_t seed) {
    std::vector<std::string> a = {"--seed", std::to_string(seed), "--serial-split"};
    for (auto [opt, share] : {std::pair{"--drop", 0.4},
                              {"--dup", 0.2},
                              {"--corrupt", 0.2},
                              {"--unsolicited", 0.2},
                              {"--serial-noise", 1.0}}) {
        std::ostringstream v;
        v << pct * share;
        if (pct > 0) a.insert(a.end(), {opt, v.str()});
    }
    return a;
}

SimChassis::SimChassis(int sub_cards, const std::vector<std::vector<std::string>> &faults) {
    const std::string tty = dir_.path() + "/main_mcu", n = std::to_string(sub_cards);
    std::string cfg = R"({"device": {
  "main_card": {"slot_num": 1, "type_num": 3, "min_slot": 100, "max_slot": 100, "id_offset": 0},
  "sub_card": {"slot_num": )" +
                      n + R"(, "type_num": 2, "min_slot": 1, "max_slot": )" + n +
                      R"(, "id_offset": 3}},
 "transfer_param": {"send_list_num": 2, "send_thread_num": 1, "monitor_list_num": 2, "monitor_thread_num": 1},
 "rvcard_param": {"eth_max": 2, "rvcard_max": 2},
 "maincards": [{"slot": 100, "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.0.2", "port": 6000},
                                      {"id_offset": 2, "type": 100, "ip": "127.0.0.2", "port": 6100}],
   "mcu": [{"id_offset": 1, "type": 10, "ip": ")" +
                      tty + R"(", "port": 115200}]}],
 "subcards": [)";
    std::vector<std::vector<std::string>> args = {
        {"--udp", "127.0.0.2:6000", "--pty", tty, "--report", "127.0.0.2:6100:6100:100"}};
    targets = {{Target::kUdp, 100, false, 0, 0, "main fpga"},
               {Target::kSerial, 100, true, 0, 0, "main mcu (serial)"}};
    for (uint32_t s = 1; s <= static_cast<uint32_t>(sub_cards); ++s) {
        const std::string id = std::to_string(s), fpga = "127.0.1." + id, mcu = "127.0.2." + id;
        cfg +=
            (s > 1 ? ",\n  {\"slot\": " : "\n  {\"slot\": ") + id +
            R"(, "fpga": [{"id_offset": 0, "type": 1, "ip": ")" + fpga +
            R"(", "port": 6000, "packet_code_type": 1}], "mcu": [{"id_offset": 1, "type": 1, "ip": ")" +
            mcu + R"(", "port": 6000}]})";
        args.push_back({"--udp", fpga + ":6000", "--udp", mcu + ":6000"});
        targets.push_back({Target::kUdp, s, true, 0, 0, "sub " + id + " mcu"});
        targets.push_back({Target::kUdp, s, false, 0, 0, "sub " + id + " fpga"});
        for (uint32_t c = 0; c < 4; ++c)
            targets.push_back({Target::kCard, s, false, c / 2, c % 2,
                               "sub " + id + " port " + std::to_string(c / 2) + " card " +
                                   std::to_string(c % 2)});
    }
    config_path = dir_.write("transfer.json", cfg + "]}\n");
    for (size_t i = 0; i < args.size() && error.empty(); ++i) {
        if (i < faults.size()) args[i].insert(args[i].end(), faults[i].begin(), faults[i].end());
        sims_.push_back(std::make_unique<sdk::test::SimProcess>(args[i]));
        if (!sims_.back()->wait_ready())
            error = "board simulator " + std::to_string(i) + " did not start";
    }
}

void SimChassis::stop() {
    for (auto &s : sims_) {
        if (s->pid() <= 0) continue;
        s->wait_exit(true);
        stats_.push_back(s->line());
    }
    sims_.clear();
}

uint64_t SimChassis::stat(const std::string &name) const {
    uint64_t sum = 0;
    for (const auto &line : stats_) {
        const size_t at = line.find(" " + name + "=");
        if (at != std::string::npos) sum += std::stoull(line.substr(at + name.size() + 2));
    }
    return sum;
}

Outcomes Workload::totals() const {
    Outcomes t;
    for (const auto &o : per_target)
        t.add(o);
    return t;
}

void Workload::host(int thread) {
    // Last value this thread wrote per target and register (0: never written).
    std::vector<std::vector<uint32_t>> written(targets.size(), std::vector<uint32_t>(16, 0));
    for (uint64_t step = 0; next_.fetch_add(1) < requests; ++step) {
        // A write and the read after it go to the same target and register.
        const size_t ti = (step / 2 + static_cast<uint64_t>(thread) * 7) % targets.size();
        const Target &t = targets[ti];
        const bool write = step % 2 == 0;
        uint32_t &last = written[ti][(step / 2) % 16];
        const uint32_t value = (static_cast<uint32_t>(thread) << 24) | static_cast<uint32_t>(step);

        transfer_op_t op{};
        op.e_mode = t.mcu ? MCU : FPGA;
        op.n_slot = t.slot;
        op.n_timeout = timeout_ms;
        op.n_reply_times = 2;
        op.e_code = write ? FRAME_WRITE : FRAME_READ;
        op.n_read_len = 4;
        op.e_type = t.kind == Target::kCard ? BODY_RECVCARD : BODY_ADDRESS;
        op.st_addr_param.n_addr =
            0x1000u + static_cast<uint32_t>(thread) * 0x100u + (step / 2) % 16 * 4u;
        op.st_addr_param.n_device_type = t.kind == Target::kCard ? DEVICE_ETH
                                         : t.mcu                 ? DEVICE_MCU
                                                                 : DEVICE_FPGA;
        op.st_addr_param.n_device_index = static_cast<uint8_t>(t.port);
        op.st_control.n_recvcard_id = t.card;
        if (t.kind == Target::kCard && write) {  // confirmed by polling the card
            op.n_no_ack = EN_REQUEST_NO_ACK;
            op.n_polling_state = 1;
            op.n_polling_time = 10;
        }
        // Replies hand over: UDP address replies error code and length before the
        // data, serial address replies and receiving-card replies the data alone.
        const int32_t off = t.kind == Target::kUdp ? 4 : 0;
        char wbuf[4], rbuf[SDK_DATA_BUF_LEN];
        std::memcpy(wbuf, &value, 4);
        int32_t r = sdk_request(write ? wbuf : nullptr, write ? 4 : 0, &op);
        if (r == 0) r = sdk_request_wait(rbuf, &op);
        uint32_t got = 0;
        if (r == off + 4 && !write) std::memcpy(&got, rbuf + off, 4);
        Outcomes o;
        if (op.p_packet_node == nullptr && r == -4001) {
            ++o.timeouts;
        } else if (op.p_packet_node == nullptr &&
                   (write ? r == off : r == off + 4 && got == last)) {
            ++(write ? o.writes_ok : o.reads_ok);
        } else {
            ++o.bad;
        }
        if (write) last = value;  // the board stores every write it receives
        ended.fetch_add(1);
        std::lock_guard<std::mutex> guard(lock_);
        per_target[ti].add(o);
        if (o.bad != 0 && failures.size() < 20)
            failures.push_back(t.name + (write ? ": write" : ": read") + " ended with " +
                               std::to_string(r) + (op.p_packet_node ? ", record attached" : "") +
                               ", read " + std::to_string(got) + ", board holds " +
                               std::to_string(last));
    }
}

void Workload::run() {
    std::vector<std::thread> hosts;
    for (int t = 0; t < threads; ++t)
        hosts.emplace_back([this, t] { host(t); });
    for (auto &h : hosts)
        h.join();
}

}  // namespace sdk::reliability
