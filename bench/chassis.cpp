#include "chassis.h"

#include <cstdio>

namespace bench {

std::string board_ip(int slot) {
    return "127.0.1." + std::to_string(slot);
}
int board_port(int slot) {
    return 7100 + slot;
}

std::string udp_chassis_json() {
    const std::string n = std::to_string(kUdpSlots);
    std::string j = R"({
  "device": {
    "sub_card": {"slot_num": )" +
                    n + R"(, "type_num": 1, "min_slot": 1, "max_slot": )" + n +
                    R"(, "id_offset": 0}
  },
  "transfer_param": {"send_list_num": 2, "send_thread_num": 1, "monitor_list_num": 2, "monitor_thread_num": 1},
  "rvcard_param": {"eth_max": 4, "rvcard_max": 16},
  "subcards": [)";
    for (int s = 1; s <= kUdpSlots; ++s) {
        j += std::string(s == 1 ? "\n" : ",\n") + R"(    {"slot": )" + std::to_string(s) +
             R"(, "fpga": [{"id_offset": 0, "type": 1, "ip": ")" + board_ip(s) + R"(", "port": )" +
             std::to_string(board_port(s)) + "}]}";
    }
    return j + "\n  ]\n}\n";
}

std::string serial_chassis_json(const std::string &tty) {
    return R"({
  "device": {
    "main_card": {"slot_num": 1, "type_num": 1, "min_slot": 100, "max_slot": 100, "id_offset": 0}
  },
  "transfer_param": {"send_list_num": 1, "send_thread_num": 1, "monitor_list_num": 1, "monitor_thread_num": 1},
  "maincards": [
    {"slot": 100, "mcu": [{"id_offset": 0, "type": 10, "ip": ")" +
           tty + R"(", "port": 115200}]}
  ]
}
)";
}

bool write_file(const std::string &path, const std::string &text) {
    FILE *f = fopen(path.c_str(), "w");
    if (f == nullptr) return false;
    const bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    return fclose(f) == 0 && ok;
}

}  // namespace bench
