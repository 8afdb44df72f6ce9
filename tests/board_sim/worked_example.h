// The library's worked-example request: label 1, acknowledged read of 4 bytes at 0x1000
// of the FPGA (address body), byte for byte.
#pragma once

#include <cstdint>
#include <vector>

namespace board_sim_test {

inline const std::vector<uint8_t> kAddrRead = {0x55, 0xBB, 0, 0, 0, 1, 1, 0, 0x16, 0,   0x40,
                                               0,    0,    0, 0, 0, 0, 0, 0, 0,    0,   0,
                                               0,    0x10, 0, 0, 4, 0, 0, 0, 0x7C, 0x01};

}  // namespace board_sim_test
