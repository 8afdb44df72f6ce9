// Texts of the result codes listed in transfer_errors.h.
#include "transfer_errors.h"

extern "C" SDK_API const char *sdk_strerror(int32_t code) {
    switch (code) {
        case SDK_OK:
            return "ok";
        case SDK_ERR_SYSTEM:  // also SDK_ERR_PORT_RECORD
            return "system call failed, or receiving-card port not set up";
        case SDK_ERR_SECTION:
            return "no such section (FPGA or MCU)";
        case SDK_ERR_NO_MEMORY:
            return "out of memory";
        case SDK_ERR_CONFIG:
            return "configuration missing, unreadable or malformed";
        case SDK_ERR_LOG:
            return "logging could not be set up";
        case SDK_ERR_RECV:
            return "receive failed";
        case SDK_ERR_REFUSED:
            return "refused: no route, channel not open or bad argument";
        case SDK_ERR_TIMEOUT:
            return "timed out";
        case SDK_ERR_NULL_BUFFER:
            return "null buffer";
        case SDK_ERR_FRAME_TOO_LONG:
            return "frame too long";
        case SDK_ERR_NO_LABEL:
            return "no request waits for this label";
        case SDK_ERR_NO_DEVICE:
            return "configuration without \"device\"";
        default:
            return "unknown error";
    }
}
