// The library's worked-example request frames, byte for byte.
#pragma once

#include <cstdint>
#include <vector>

namespace board_sim_test {

// Label 1, acknowledged read of 4 bytes at 0x1000 of the FPGA (address body).
inline const std::vector<uint8_t> kAddrRead = {0x55, 0xBB, 0, 0, 0, 1, 1, 0, 0x16, 0,   0x40,
                                               0,    0,    0, 0, 0, 0, 0, 0, 0,    0,   0,
                                               0,    0x10, 0, 0, 4, 0, 0, 0, 0x7C, 0x01};
// Label 2, acknowledged read of 8 bytes at 0x100 of receiving card 5 behind port 1.
inline const std::vector<uint8_t> kRvcardRead = {
    0x55, 0xBB, 0, 0, 0, 1, 2, 0, 0x1C, 0, 0x42, 2, 1, 0, 0, 0,    0,    0,    0,
    0,    0,    0, 1, 1, 5, 0, 0, 0,    0, 1,    0, 0, 8, 0, 0x65, 0x55, 0x3E, 0x02};

}  // namespace board_sim_test
