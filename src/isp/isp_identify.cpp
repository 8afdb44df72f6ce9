// Identification of the part behind the bootloader.
#include <cstdio>

#include "isp/isp_internal.h"

namespace {

using namespace sdk::isp;

constexpr uint32_t kPidGd32F303 = 0x46455633;
constexpr uint32_t kPidGd32F470 = 0x4E455A30;
constexpr int kPidStm32H750 = 0x450;
constexpr int kGdPidMax = 16;

std::atomic<en_mcu_type_t> _mcu_type{MCU_UNKNOWN};

}  // namespace

extern "C" {

const char str_mcu_type[MCU_TYPE_NUM][MCU_TYPE_NAME_LEN] = {
    "MCU_UNKNOWN", "MCU_GD32F303", "MCU_GD32E503", "MCU_GD32F470", "MCU_STM32H750"};

SDK_API uint32_t read_gd_mcu_pid(void) {
    if (ack_sendcmd(kCmdGdPid) != 0) return 0;

    unsigned char count = 0;
    if (mcu_serial_read_full(&count, 1) < 0) return 0;
    int n = count;
    printf("%s : read gd pid data len = %d\n", "read_gd_mcu_pid", n);
    int surplus = 0;
    if (n > kGdPidMax) {
        printf("%s : read gd pid length(%d) is larger than max size(%d), use max size\n",
               "read_gd_mcu_pid", kGdPidMax, kGdPidMax);
        surplus = n - kGdPidMax;
        n = kGdPidMax;
    }

    unsigned char answer[kGdPidMax + 1] = {};
    if (mcu_serial_read_full(answer, static_cast<uint16_t>(n + 1)) < 0) return 0;
    unsigned char end = answer[n];
    if (surplus > 0) {
        // The identifier bytes beyond the 16 kept are read and dropped, so that the end
        // byte checked is the bootloader's real one and the next command's answer is not
        // taken from the rest of this one.
        unsigned char tail[256] = {};
        if (mcu_serial_read_full(tail, static_cast<uint16_t>(surplus)) > 0) end = tail[surplus - 1];
    }
    if (end != kAck) {
        printf("%s : End Byte(0x%x) is not equal to 0x79\n", "read_gd_mcu_pid", end);
        return 0;
    }
    return static_cast<uint32_t>(answer[0]) | static_cast<uint32_t>(answer[1]) << 8 |
           static_cast<uint32_t>(answer[2]) << 16 | static_cast<uint32_t>(answer[3]) << 24;
}

SDK_API int read_st_mcu_pid(void) {
    if (ack_sendcmd(kCmdGetId) != 0) return 0;
    unsigned char answer[10] = {};
    // Asks for more than the 4 bytes of a Get ID answer: the read ends on its time-out.
    if (mcu_serial_read_full(answer, sizeof(answer)) < 0) return 0;
    if (answer[0] == 1 && answer[1] == 0x04 && answer[2] == 0x50) return kPidStm32H750;
    return 0;
}

SDK_API void mcu_type_detect(void) {
    en_mcu_type_t type = MCU_GD32E503;
    uint32_t gd_pid = read_gd_mcu_pid();
    if (gd_pid == kPidGd32F303) {
        type = MCU_GD32F303;
    } else if (gd_pid == kPidGd32F470) {
        type = MCU_GD32F470;
    } else if (read_st_mcu_pid() == kPidStm32H750) {
        type = MCU_STM32H750;
    }
    _mcu_type.store(type, std::memory_order_relaxed);
    printf("type: %s\n", str_mcu_type[type]);
}

SDK_API en_mcu_type_t mcu_type_get(void) {
    return _mcu_type.load(std::memory_order_relaxed);
}

}  // extern "C"
