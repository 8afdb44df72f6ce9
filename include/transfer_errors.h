/*
 * transfer_errors.h - the result codes of the transfer engine's functions, by name, and
 * a short text for each.
 *
 * Functions return 0 (or a count) on success. The codes below are what they return
 * otherwise; most are negative, but start-up returns the positive 14 for a configuration
 * without a "device" object, and a failed thread creation returns its error number.
 * -1 has two meanings: a system call that failed (a UDP bind or send, a serial open or
 * write) hands its -1 on, and the sender's channel check returns it for a receiving-card
 * queue without its port record. The MCU programmer (isp.h) has codes of its own
 * (mcu_isp_result_e).
 */
#ifndef TRANSFER_ERRORS_H
#define TRANSFER_ERRORS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

typedef enum {
    SDK_OK = 0,
    SDK_ERR_SYSTEM = -1,            /* a system call failed (bind, send, open, write) */
    SDK_ERR_PORT_RECORD = -1,       /* receiving-card queue without its port record */
    SDK_ERR_SECTION = -3,           /* section neither FPGA nor MCU; a list of 0 entries */
    SDK_ERR_NO_MEMORY = -5,         /* memory ran out */
    SDK_ERR_CONFIG = -1000,         /* configuration missing, unreadable or malformed */
    SDK_ERR_LOG = -2000,            /* logging could not be set up */
    SDK_ERR_RECV = -3000,           /* a receive failed */
    SDK_ERR_REFUSED = -4000,        /* refused: no route, channel not open, bad argument */
    SDK_ERR_TIMEOUT = -4001,        /* no reply within the time-out and retransmissions */
    SDK_ERR_NULL_BUFFER = -4004,    /* a NULL buffer or record */
    SDK_ERR_FRAME_TOO_LONG = -4006, /* the frame would not fit the 9000-byte send buffer */
    SDK_ERR_NO_LABEL = -4008,       /* no request waits for the reply's label */
    SDK_ERR_NO_DEVICE = 14          /* configuration without a "device" object (positive) */
} sdk_error_code;

/* A short fixed English text for a code of the list above ("ok" for 0), "unknown error"
 * for any other value. Never NULL; the texts are static, so any thread may call it. */
SDK_API const char *sdk_strerror(int32_t code);

#ifdef __cplusplus
}
#endif

#endif /* TRANSFER_ERRORS_H */
