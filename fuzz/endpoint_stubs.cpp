// Stand-ins for the endpoint openers of the channel set-up, linked in with
// -Wl,--wrap=sdk_udp_init,--wrap=sdk_uart_init: the configuration fuzzer must never bind
// a socket or open a device path taken from its input.
#include <fcntl.h>

#include <cstring>

#include "transfer_server.h"
#include "uart.h"

extern "C" {

// As the real opener with no "eth0": nothing opened, start-up goes on. The description
// checks of the real one are kept (unterminated text, port beyond 65535).
int32_t __wrap_sdk_udp_init(sock_addr_t st_addr, transfer_data_t *p_st_info) {
    if (p_st_info == nullptr) return -4000;
    p_st_info->n_fd = -1;
    if (memchr(st_addr.p_ip, '\0', sizeof(st_addr.p_ip)) == nullptr || st_addr.n_port > 65535) {
        return -4000;
    }
    return 0;
}

// A port named "fuzz-uart" opens (on /dev/null); any other path fails as a missing device.
int32_t __wrap_sdk_uart_init(int8_t *p_dev_name, uint32_t /*n_baudrate*/) {
    const char *name = reinterpret_cast<const char *>(p_dev_name);
    if (name != nullptr && strcmp(name, "fuzz-uart") == 0) return open("/dev/null", O_RDWR);
    return -4000;
}

}  // extern "C"
