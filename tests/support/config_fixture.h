// A small chassis loaded into g_st_transfer for tests of routing and frames:
//   main card, slot 100: channels 0 (FPGA, UDP), 1 (MCU, UART), 2 (report, REPORT_UDP)
//   sub cards, slots 1..16: two channels each from 3 (FPGA, UDP, then MCU, UDP)
//   backplane, slot 101: channel 35 (MCU, UART)
// The channel types and the maps' section rows are filled as channel set-up would;
// no endpoint is opened.
#pragma once

namespace sdk::test {

constexpr const char *kExampleDevice = R"({
  "device": {
    "main_card": {"slot_num": 1,  "type_num": 3, "min_slot": 100, "max_slot": 100, "id_offset": 0},
    "sub_card":  {"slot_num": 16, "type_num": 2, "min_slot": 1,   "max_slot": 16,  "id_offset": 3},
    "backplane": {"slot_num": 1,  "type_num": 1, "min_slot": 101, "max_slot": 101, "id_offset": 35}
  }
})";

void load_example_config();

}  // namespace sdk::test
