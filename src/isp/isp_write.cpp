// The image write: one Write Memory exchange per block of 256 bytes.
#include <cstdio>

#include "isp/isp_internal.h"

namespace sdk::isp {

void send_address(uint32_t addr) {
    unsigned char frame[5] = {
        static_cast<unsigned char>(addr >> 24), static_cast<unsigned char>(addr >> 16),
        static_cast<unsigned char>(addr >> 8), static_cast<unsigned char>(addr)};
    frame[4] = frame[0] ^ frame[1] ^ frame[2] ^ frame[3];
    (void)mcu_serial_write(frame, sizeof(frame));
}

namespace {

// Length byte (block length - 1) and the data in one write, then the XOR of both.
void send_block(const unsigned char *block, unsigned int block_len) {
    unsigned char frame[1 + MCU_ISP_BLOCK_SIZE];
    frame[0] = static_cast<unsigned char>(block_len - 1);
    unsigned char checksum = frame[0];
    for (unsigned int i = 0; i < block_len; ++i) {
        frame[1 + i] = block[i];
        checksum ^= block[i];
    }
    (void)mcu_serial_write(frame, static_cast<uint16_t>(1 + block_len));
    (void)mcu_serial_write(&checksum, 1);
}

}  // namespace

int writememory_2mcu(uint32_t addr, const unsigned char *buf, unsigned int len) {
    const unsigned int blocks = len / MCU_ISP_BLOCK_SIZE + (len % MCU_ISP_BLOCK_SIZE ? 1 : 0);
    const unsigned int last = len % MCU_ISP_BLOCK_SIZE;
    printf("w_addr=0x%08x, w_size=%d, all_len=%d, w_times=%d, w_last=%d\n", addr,
           MCU_ISP_BLOCK_SIZE, len, blocks, last);

    uint32_t cur = addr;
    for (unsigned int k = 0; k < blocks; ++k) {
        // A refused Write Memory command aborts the run. Going on would send the next
        // block's data to this block's address (the address only advances on success)
        // and leave the end of the image unwritten behind a reported success.
        if (ack_sendcmd(kCmdWriteMemory) != 0) {
            printf("\nwrite memory command not acknowledged at 0x%08x\n", cur);
            return MCU_ISP_ERR_WRITE_REFUSED;
        }
        unsigned char ack = 0;
        send_address(cur);
        (void)mcu_serial_read(&ack, 1);

        unsigned int block_len = MCU_ISP_BLOCK_SIZE;
        if (k == blocks - 1 && last != 0) block_len = last;
        send_block(buf + (cur - addr), block_len);
        (void)mcu_serial_read(&ack, 1);
        cur += block_len;

        printf("\r write mcu internal flash: [%d%%]",
               static_cast<int>(static_cast<uint64_t>(cur - addr) * 100 / len));
        fflush(stdout);
        g_cnt.store(static_cast<int>(10 + (80ull * k) / blocks), std::memory_order_relaxed);
    }
    printf("\n");
    return 0;
}

}  // namespace sdk::isp
