// The board simulator program (tools/board_sim) as a child process of a test: started with
// its arguments, its standard output read line by line, stopped when the object goes.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace sdk::test {

class SimProcess {
  public:
    // The built $TRANSFER_BINARY_DIR/tools/board_sim/board_sim (set by ctest).
    explicit SimProcess(std::vector<std::string> args);
    ~SimProcess();  // SIGKILL, if still running
    SimProcess(const SimProcess &) = delete;
    SimProcess &operator=(const SimProcess &) = delete;

    pid_t pid() const { return pid_; }

    // The next line of output; "" after `timeout_ms` or at the end of the output.
    std::string line(int timeout_ms = 5000);
    // Reads lines until one equals "ready"; false if the output ends or times out first.
    bool wait_ready(int timeout_ms = 5000);

    // Waits for the exit (after SIGTERM when `terminate`); the exit status, -1 if killed.
    int wait_exit(bool terminate);

  private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string buf_;
};

}  // namespace sdk::test
