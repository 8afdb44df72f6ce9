// Internals of the MCU programmer: the serial forwarding, the command exchange and the
// steps of a programming run, shared by the files of src/isp/.
#pragma once

#include <atomic>
#include <cstdint>

#include "isp.h"

namespace sdk::isp {

// Bootloader bytes.
constexpr uint8_t kSync = 0x7F;
constexpr uint8_t kAck = 0x79;
constexpr uint8_t kNack = 0x1F;
constexpr uint8_t kCmdGet = 0x00;
constexpr uint8_t kCmdGetId = 0x02;
constexpr uint8_t kCmdGdPid = 0x06;
constexpr uint8_t kCmdReadMemory = 0x11;
constexpr uint8_t kCmdGo = 0x21;
constexpr uint8_t kCmdWriteMemory = 0x31;
constexpr uint8_t kCmdErase = 0x43;
constexpr uint8_t kCmdExtendedErase = 0x44;

// The progress counter; atomic because a host thread polls it during a run.
extern std::atomic<int> g_cnt;

// Forward to the registered functions; -1 (after the "NULL" line) when none is registered.
int mcu_serial_write(unsigned char *data, uint16_t len);
int mcu_serial_read(unsigned char *buff, uint16_t len);

// Reads len bytes, calling the registered read again while it delivers part of them: the
// count read (less than len when a read returned 0), or the first read's negative result.
int mcu_serial_read_full(unsigned char *buff, uint16_t len);

// Reads and drops len bytes, so that the next command starts on its own answer.
void mcu_serial_drain(unsigned int len);

// Sends cmd and its complement, reads the answer: 0 ACK, -1 NACK, -2 anything else, or the
// negative result of the read.
int ack_sendcmd(uint8_t cmd);

// NULL image with a length, or one that runs past the 32-bit address space from the base.
inline bool bad_image(const unsigned char *data, unsigned int len) {
    return (data == nullptr && len > 0) || len > 0xFFFFFFFFu - MCU_ISP_FLASH_BASE + 1u;
}

// Sends an address frame: the address, most significant byte first, and the XOR of its bytes.
void send_address(uint32_t addr);

// Writes len bytes of buf from addr upward: 0, or MCU_ISP_ERR_WRITE_REFUSED.
int writememory_2mcu(uint32_t addr, const unsigned char *buf, unsigned int len);

}  // namespace sdk::isp
