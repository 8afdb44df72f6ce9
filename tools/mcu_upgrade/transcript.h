// Keeps the programmer's messages (it prints to standard output) out of the way of the
// progress bar: standard output goes to a temporary file while the transcript is open.
#pragma once

#include <cstdio>
#include <string>

namespace mcu_upgrade {

class Transcript {
  public:
    // Does nothing when `capture` is false (the messages then go out as they come).
    explicit Transcript(bool capture);
    ~Transcript();
    Transcript(const Transcript &) = delete;
    Transcript &operator=(const Transcript &) = delete;

    // Restores standard output and returns what was written meanwhile.
    std::string close();

  private:
    FILE *file_ = nullptr;
    int saved_stdout_ = -1;
};

// The last `lines` lines of a text, each carriage-return overwrite reduced to its last part.
std::string tail(const std::string &text, int lines);

}  // namespace mcu_upgrade
