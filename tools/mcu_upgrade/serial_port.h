// The serial line to the bootloader: opened and set up through the library's driver, with
// the read and write functions that the programmer calls.
#pragma once

#include <cstdint>
#include <string>

namespace mcu_upgrade {

// Holds the port for the programmer: opens and configures it (8E1, raw), registers the
// read and write functions and sets b_uart_used_flg; the destructor undoes all three.
// One at a time per process.
class SerialPort {
  public:
    SerialPort() = default;
    ~SerialPort();
    SerialPort(const SerialPort &) = delete;
    SerialPort &operator=(const SerialPort &) = delete;

    // False with a message when the device cannot be opened or configured.
    bool open(const std::string &device, uint32_t baud, uint32_t timeout_ms, std::string *error);
    void close();

  private:
    bool open_ = false;
};

// Clears b_uart_used_flg; for exit paths that skip destructors (signals).
void release_uart_flag();

}  // namespace mcu_upgrade
