// The programming run: synchronisation, erase, image write.
#include <unistd.h>

#include <cstdio>

#include "isp/isp_internal.h"

namespace {

using namespace sdk::isp;

constexpr int kSyncAttempts = 5;
constexpr int kExtendedEraseWaits = 80;

bool synchronise() {
    for (int left = kSyncAttempts; left > 0; --left) {
        printf("try_times=%d\n", left);
        unsigned char byte = kSync;
        (void)mcu_serial_write(&byte, 1);
        // mcu_serial_read prints the "NULL" line itself when no read function is there.
        if (mcu_serial_read(&byte, 1) >= 0) {
            printf("####################data is 0x%x\n", byte);
            if (byte == kAck) return true;
        }
    }
    return false;
}

int extended_erase_and_write(const unsigned char *data, unsigned int len) {
    // A refused erase command ends the run with its own result: reporting success here
    // would hide that nothing was erased or written.
    if (ack_sendcmd(kCmdExtendedErase) != 0) {
        puts("erase command not acknowledged.");
        return MCU_ISP_ERR_ERASE_REFUSED;
    }
    puts("erase mcu memory all .");
    puts("ST_CMD_EXTENDED_ERASE: send erase pages.");
    unsigned char mass_erase[3] = {0xFF, 0xFF, 0x00};
    (void)mcu_serial_write(mass_erase, sizeof(mass_erase));

    // A mass erase takes seconds; the bootloader answers when it is done.
    unsigned char ack = 0;
    for (int wait = 1; wait <= kExtendedEraseWaits; ++wait) {
        sleep(1);
        (void)mcu_serial_read(&ack, 1);
        if (ack == kAck) break;
        printf("timeout %d\n", wait);
    }
    printf("mcu_serial_read ACK data:0x%02x\n", ack);
    return writememory_2mcu(MCU_ISP_FLASH_BASE, data, len);
}

int global_erase_and_write(const unsigned char *data, unsigned int len) {
    if (ack_sendcmd(kCmdErase) != 0) {
        puts("erase command not acknowledged.");
        return MCU_ISP_ERR_ERASE_REFUSED;
    }
    puts("erase mcu memory all .");
    unsigned char byte = 0xFF;
    (void)mcu_serial_write(&byte, 1);
    byte = 0x00;
    (void)mcu_serial_write(&byte, 1);
    sleep(1);
    unsigned char ack = 0;
    if (mcu_serial_read(&ack, 1) < 0) {
        puts("read ack error.");
        return MCU_ISP_ERR_NO_ANSWER;
    }
    return writememory_2mcu(MCU_ISP_FLASH_BASE, data, len);
}

}  // namespace

extern "C" SDK_API int mcu_isp(unsigned char *data, unsigned int len) {
    if (bad_image(data, len)) {
        puts("mcu_isp: invalid image.");
        return MCU_ISP_ERR_BAD_IMAGE;
    }
    g_cnt.store(10, std::memory_order_relaxed);

    if (!synchronise()) return MCU_ISP_ERR_NO_ANSWER;

    puts("\n [*]. erase mcu memory by page .");
    if (mcu_erasetype_get() == 0) return extended_erase_and_write(data, len);
    return global_erase_and_write(data, len);
}
