// Serves a Bootloader behind the two plain functions that the MCU programmer registers
// (mcu_isp_write_func_reg / mcu_isp_read_func_reg), in the calling process.
//
// The functions carry no context, so one port at a time is attached process-wide; they
// fail with -1 while none is. read waits up to the port's time-out for all the bytes
// asked and returns how many arrived.
#pragma once

#include <chrono>
#include <cstdint>

#include "isp_sim/bootloader.h"

namespace isp_sim {

class InProcessPort {
  public:
    explicit InProcessPort(Bootloader *bootloader,
                           std::chrono::milliseconds read_timeout = std::chrono::milliseconds(100));
    ~InProcessPort();
    InProcessPort(const InProcessPort &) = delete;
    InProcessPort &operator=(const InProcessPort &) = delete;

    static int write(unsigned char *buf, uint16_t len);
    static int read(unsigned char *buf, uint16_t len);

    // The registration arguments of the programmer.
    static void *write_fn() { return reinterpret_cast<void *>(&InProcessPort::write); }
    static void *read_fn() { return reinterpret_cast<void *>(&InProcessPort::read); }
};

}  // namespace isp_sim
