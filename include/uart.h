/*
 * uart.h - serial-port driver: open, configure and close a Linux serial device, and
 * read and write raw bytes on it.
 *
 * Descriptors are plain file descriptors; the unit keeps no state and takes no lock.
 * Results: a descriptor or a byte count (0 or more) on success, -4000 for a device or
 * line-setting failure, -5 for a NULL buffer.
 */
#ifndef UART_H
#define UART_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

/* Opens the device read-write, without controlling terminal, and leaves the descriptor
 * in blocking mode. The descriptor, or -4000 (the device is closed again when its status
 * flags cannot be reset). */
SDK_API int32_t sdk_uart_open(uint8_t *p_uart_name);

/* Sets the line of an open port and puts it in raw mode (VMIN 0, VTIME 0: a read
 * returns at once with what is waiting); discards pending input.
 *   n_speed     bit/s: 4000000, 115200, 57600, 19200, 9600, 4800, 2400, 1200 or 300;
 *               any other rate keeps the port's speed (not an error)
 *   n_flow_ctrl 0 none, 1 hardware (RTS/CTS), 2 software (XON/XOFF); other values keep
 *               the hardware setting
 *   n_databits  5 to 8; n_stopbits 1 or 2
 *   n_parity    'N', 'O', 'E' or 'S' (space: as 'N'), either case
 * 0, or -4000 with the port's settings unchanged. */
SDK_API int32_t sdk_uart_cfg(int32_t n_fd, int32_t n_speed, int32_t n_flow_ctrl, int32_t n_databits,
                             int32_t n_stopbits, int32_t n_parity);

/* Closes the descriptor. Always 0. */
SDK_API int32_t sdk_uart_close(uint32_t n_fd);

/* Opens the device and sets it to n_baudrate, 8N1, no flow control, raw. The
 * descriptor, or -4000 (nothing left open). */
SDK_API int32_t sdk_uart_init(int8_t *p_dev_name, uint32_t n_baudrate);

/* One write of n_len bytes. The count written (may be less than n_len), -4000 when the
 * write fails, -5 for a NULL buffer. Safe to call from several threads, one frame per
 * call. */
SDK_API int32_t sdk_uart_write(uint32_t n_fd, uint8_t *pdata, uint32_t n_len);

/* One read of at most n_buflen bytes; does not wait (n_wait_ms is unused: wait for
 * input with select or poll first). The count read, 0 when nothing is waiting, a
 * negative read result on error, -5 for a NULL buffer. */
SDK_API int32_t sdk_uart_read(uint32_t n_fd, uint8_t *p_buf, uint32_t n_buflen, uint32_t n_wait_ms);

/* ---- globals that every host program defines (not the library) ---- */

/* Set by the host while it uses a serial port itself (for instance to program an MCU);
 * the serial receive thread leaves the ports alone while it is set. */
SDK_API extern volatile bool b_uart_used_flg;
/* The serial descriptor published by channel set-up for MCU programming; read back with
 * sdk_get_uart_fd. */
SDK_API extern uint32_t n_mcu_isp_uart_fd;

#ifdef __cplusplus
}
#endif

#endif /* UART_H */
