#include "chassis.h"

#include <cstdio>
#include <sstream>

namespace sdk::reliability {

namespace {

std::string fmt(double v) {
    char b[32];
    snprintf(b, sizeof b, "%g", v);
    return b;
}

std::string sub_ip(int net, int s) {
    return "127.0." + std::to_string(net) + "." + std::to_string(s);
}

}  // namespace

std::vector<std::string> FaultProfile::args() const {
    std::vector<std::string> a = {"--seed", std::to_string(seed)};
    auto add = [&](const char *opt, double v) {
        if (v > 0) a.insert(a.end(), {opt, fmt(v)});
    };
    add("--drop", drop_pct);
    add("--dup", dup_pct);
    add("--corrupt", corrupt_pct);
    add("--unsolicited", unsolicited_pct);
    add("--serial-noise", serial_noise_pct);
    add("--delay-ms", delay_ms);
    if (serial_split) a.push_back("--serial-split");
    return a;
}

FaultProfile mixed_faults(double pct, uint32_t seed) {
    FaultProfile f;
    f.drop_pct = pct * 0.4;
    f.dup_pct = pct * 0.2;
    f.corrupt_pct = pct * 0.2;
    f.unsolicited_pct = pct * 0.2;
    f.serial_noise_pct = pct;
    f.serial_split = true;
    f.seed = seed;
    return f;
}

SimChassis::SimChassis(const ChassisPlan &plan, const std::vector<FaultProfile> &profiles) {
    auto profile = [&](size_t i) { return i < profiles.size() ? profiles[i] : FaultProfile{}; };
    const std::string tty = dir_.path() + "/main_mcu";
    std::ostringstream cfg;
    cfg << R"({"device": {
  "main_card": {"slot_num": 1, "type_num": 3, "min_slot": 100, "max_slot": 100, "id_offset": 0},
  "sub_card": {"slot_num": )"
        << plan.sub_cards << R"(, "type_num": 2, "min_slot": 1, "max_slot": )" << plan.sub_cards
        << R"(, "id_offset": 3}},
 "transfer_param": {"send_list_num": 2, "send_thread_num": 1, "monitor_list_num": 2, "monitor_thread_num": 1},
 "rvcard_param": {"eth_max": )"
        << plan.ports << R"(, "rvcard_max": )" << plan.cards_per_port << R"(},
 "maincards": [{"slot": 100,
   "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.0.2", "port": 6000},
            {"id_offset": 2, "type": 100, "ip": "127.0.0.2", "port": 6100}],
   "mcu": [{"id_offset": 1, "type": 10, "ip": ")"
        << tty << R"(", "port": 115200}]}],
 "subcards": [)";
    for (int s = 1; s <= plan.sub_cards; ++s) {
        cfg << (s > 1 ? ",\n  " : "\n  ") << R"({"slot": )" << s
            << R"(, "fpga": [{"id_offset": 0, "type": 1, "ip": ")" << sub_ip(1, s)
            << R"(", "port": 6000, "packet_code_type": 1}], "mcu": [{"id_offset": 1, "type": 1, "ip": ")"
            << sub_ip(2, s) << R"(", "port": 6000}]})";
    }
    cfg << "]}\n";
    config_path_ = dir_.write("transfer.json", cfg.str());

    std::vector<std::vector<std::string>> args;
    args.push_back({"--udp", "127.0.0.2:6000", "--pty", tty, "--report",
                    "127.0.0.2:6100:6100:" + std::to_string(plan.report_interval_ms)});
    targets_.push_back({TargetKind::kUdp, 100, false, 0, 0, "main fpga"});
    targets_.push_back({TargetKind::kSerial, 100, true, 0, 0, "main mcu (serial)"});
    for (int s = 1; s <= plan.sub_cards; ++s) {
        args.push_back({"--udp", sub_ip(1, s) + ":6000", "--udp", sub_ip(2, s) + ":6000"});
        const auto slot = static_cast<uint32_t>(s);
        targets_.push_back(
            {TargetKind::kUdp, slot, true, 0, 0, "sub " + std::to_string(s) + " mcu"});
        targets_.push_back(
            {TargetKind::kUdp, slot, false, 0, 0, "sub " + std::to_string(s) + " fpga"});
        for (int p = 0; p < plan.ports; ++p) {
            for (int c = 0; c < plan.cards_per_port; ++c) {
                targets_.push_back({TargetKind::kCard, slot, false, static_cast<uint32_t>(p),
                                    static_cast<uint32_t>(c),
                                    "sub " + std::to_string(s) + " port " + std::to_string(p) +
                                        " card " + std::to_string(c)});
            }
        }
    }
    for (size_t i = 0; i < args.size(); ++i) {
        auto a = args[i];
        auto f = profile(i).args();
        a.insert(a.end(), f.begin(), f.end());
        sims_.push_back(std::make_unique<sdk::test::SimProcess>(a));
        if (!sims_.back()->wait_ready()) {
            error_ = "board simulator " + std::to_string(i) + " did not start";
            return;
        }
    }
}

SimChassis::~SimChassis() {
    stop();
}

void SimChassis::stop() {
    for (auto &s : sims_) {
        if (s->pid() <= 0) continue;
        s->wait_exit(true);
        stats_.push_back(s->line());
    }
}

uint64_t SimChassis::stat(const std::string &name) const {
    uint64_t sum = 0;
    const std::string key = " " + name + "=";
    for (const auto &line : stats_) {
        size_t at = line.find(key);
        if (at != std::string::npos) sum += std::stoull(line.substr(at + key.size()));
    }
    return sum;
}

}  // namespace sdk::reliability
