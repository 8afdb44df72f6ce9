/* The globals that every host program of the library defines: the flag a host sets while
 * it uses a serial port itself, and the serial descriptor that start-up publishes for MCU
 * programming. */
#include <stdbool.h>
#include <stdint.h>

volatile bool b_uart_used_flg = false;
uint32_t n_mcu_isp_uart_fd = (uint32_t)-1;
