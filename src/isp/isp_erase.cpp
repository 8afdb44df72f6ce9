// The erase-type query (Get) of the bootloader.
#include <cstdio>

#include "isp/isp_internal.h"

namespace {

// The Get answer (version, command codes, closing ACK) must fit this buffer.
constexpr int kGetAnswerMax = 15;

}  // namespace

using namespace sdk::isp;

extern "C" SDK_API int mcu_erasetype_get(void) {
    if (ack_sendcmd(kCmdGet) != 0) return -1;

    unsigned char count = 0;
    if (mcu_serial_read_full(&count, 1) < 0) return -1;
    int n = count;
    printf("%s : read command support len = %d\n", "mcu_erasetype_get", n);

    if (n + 2 > kGetAnswerMax) {
        puts("read length overflow.");
        // Drop the answer, so that the erase command that follows reads its own ACK
        // rather than the version byte of this one.
        mcu_serial_drain(static_cast<unsigned int>(n + 2));
        return -1;
    }

    unsigned char answer[kGetAnswerMax] = {};
    if (mcu_serial_read_full(answer, static_cast<uint16_t>(n + 2)) < 0) return -1;

    int erase_type = 1;
    for (int i = 1; i <= n; ++i) {
        if (answer[i] == kCmdExtendedErase) {
            erase_type = 0;
            break;
        }
    }
    printf("erase_type = %d\n", erase_type);
    return erase_type;
}
