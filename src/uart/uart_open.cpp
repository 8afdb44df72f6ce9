// Opening and closing a serial device, and the open-and-configure used for the serial
// channels of the channel table.
#include <fcntl.h>
#include <unistd.h>

#include "common/log.h"
#include "common/result.h"
#include "uart.h"

extern "C" SDK_API int32_t sdk_uart_open(uint8_t *p_uart_name) {
    const char *path = reinterpret_cast<const char *>(p_uart_name);
    int fd = path == nullptr ? -1 : open(path, O_RDWR | O_NOCTTY | O_NDELAY);
    if (fd < 0) {
        LOGE(LOG_HAL, "Can't Open Serial Port");
        return sdk::kErrRefused;
    }
    // O_NDELAY only keeps the open from waiting for carrier; the port itself is used in
    // blocking mode, so all status flags are cleared again.
    int ret = fcntl(fd, F_SETFL, 0);
    if (ret < 0) {
        LOGE(LOG_HAL, "fcntl failed!");
        // Open point settled here: the device is closed again, so a failed open never
        // leaves a descriptor behind that nobody owns.
        close(fd);
        return sdk::kErrRefused;
    }
    LOGI(LOG_HAL, "fcntl=%d", ret);
    LOGI(LOG_HAL, "fd->open=%d", fd);
    return fd;
}

extern "C" SDK_API int32_t sdk_uart_close(uint32_t n_fd) {
    TLOGI("start");
    close(static_cast<int>(n_fd));
    TLOGI("end");
    return sdk::kOk;
}

extern "C" SDK_API int32_t sdk_uart_init(int8_t *p_dev_name, uint32_t n_baudrate) {
    const char *name = p_dev_name == nullptr ? "(null)" : reinterpret_cast<char *>(p_dev_name);
    // These failures are logged, not printed: standard output belongs to the host
    // program, which would otherwise get a line for every missing serial device on every
    // start-up.
    int32_t fd = sdk_uart_open(reinterpret_cast<uint8_t *>(p_dev_name));
    if (fd < 0) {
        LOGE(LOG_HAL, "uart open failed %s \n", name);
        return sdk::kErrRefused;
    }
    if (sdk_uart_cfg(fd, static_cast<int32_t>(n_baudrate), 0, 8, 1, 'N') != sdk::kOk) {
        LOGE(LOG_HAL, "uart set fail %s \n", name);
        sdk_uart_close(static_cast<uint32_t>(fd));
        return sdk::kErrRefused;
    }
    return fd;
}
