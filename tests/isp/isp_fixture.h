// The programmer wired to an in-process simulated bootloader, and test images.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "isp.h"
#include "isp_sim/bootloader.h"
#include "isp_sim/in_process_port.h"

namespace isp_test {

// Bytes of every value, in an order that differs from block to block.
inline std::vector<uint8_t> make_image(size_t len, unsigned seed = 7) {
    std::mt19937 gen(seed);
    std::vector<uint8_t> image(len);
    for (auto &b : image)
        b = static_cast<uint8_t>(gen());
    return image;
}

// A bootloader registered behind mcu_isp_write_func_reg / mcu_isp_read_func_reg.
struct SimulatedMcu {
    explicit SimulatedMcu(isp_sim::Config cfg = isp_sim::Config())
        : boot(std::move(cfg)), port(&boot, std::chrono::milliseconds(50)) {
        mcu_isp_write_func_reg(isp_sim::InProcessPort::write_fn());
        mcu_isp_read_func_reg(isp_sim::InProcessPort::read_fn());
    }
    ~SimulatedMcu() {
        mcu_isp_write_func_reg(nullptr);
        mcu_isp_read_func_reg(nullptr);
    }
    isp_sim::Bootloader boot;
    isp_sim::InProcessPort port;
};

}  // namespace isp_test
