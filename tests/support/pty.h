// A pseudo-terminal pair standing in for a serial device: the library opens the slave
// path as its "serial port", the test plays the device on the master side.
//
// The helper keeps its own slave descriptor open for its whole life, so the line keeps
// the settings the library gave it (they can be read back with slave_attrs()) and the
// master never sees a hang-up while the library reopens the port.
#pragma once

#include <termios.h>

#include <cstdint>
#include <string>
#include <vector>

namespace sdk::test {

class PtyPair {
  public:
    PtyPair();  // throws std::runtime_error when no pty can be had
    ~PtyPair();
    PtyPair(const PtyPair &) = delete;
    PtyPair &operator=(const PtyPair &) = delete;

    int master() const { return master_; }
    int slave() const { return slave_; }
    const std::string &slave_path() const { return path_; }
    // The slave path as the uart driver's argument types want it.
    int8_t *dev_name() { return reinterpret_cast<int8_t *>(path_.data()); }
    uint8_t *uart_name() { return reinterpret_cast<uint8_t *>(path_.data()); }

    // The line settings now in effect (tcgetattr on the slave).
    termios slave_attrs() const;

    // The device sends: writes every byte on the master side.
    void send(const std::vector<uint8_t> &bytes) const;
    // What the device received: reads on the master side until n bytes have come or
    // timeout_ms has passed without a new byte.
    std::vector<uint8_t> receive(size_t n, int timeout_ms = 1000) const;
    // Discards whatever waits on the master side.
    void drain() const;

  private:
    int master_ = -1;
    int slave_ = -1;
    std::string path_;
};

// True when fd becomes readable within timeout_ms.
bool wait_readable(int fd, int timeout_ms);

// Number of open descriptors of this process (to check that nothing is left open).
int open_fd_count();

}  // namespace sdk::test
