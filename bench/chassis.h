// Transfer configurations generated for the benchmarks: N UDP boards as sub cards in
// slots 1..N, and a main card whose MCU sits on a serial line.
#pragma once

#include <string>

namespace bench {

// Sub-card slots of the UDP chassis: kUdpBoards answering boards, then one slot whose
// board is never started (requests to it stay queued).
constexpr int kUdpBoards = 32;
constexpr int kSilentSlot = kUdpBoards + 1;
constexpr int kUdpSlots = kSilentSlot;

// Address of the board in sub-card slot `slot` (1-based).
std::string board_ip(int slot);
int board_port(int slot);

// The transfer JSON of the UDP chassis.
std::string udp_chassis_json();
// The transfer JSON of a chassis whose only channel is the main card's MCU on `tty`.
std::string serial_chassis_json(const std::string &tty);

bool write_file(const std::string &path, const std::string &text);

}  // namespace bench
