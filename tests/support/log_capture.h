// Captures the library's log lines in a file for tests that check what was logged.
//
// The first call of log_capture() writes a zlog configuration into a temporary folder and
// initialises the facade with it: the "sdk" category at every level and "debug" go to one
// file, each line as "LEVEL [tag] message". zlog is process-wide, so one capture serves a
// whole test program.
#pragma once

#include <string>
#include <vector>

namespace sdk::test {

class LogCapture {
  public:
    // Lines written since the last clear().
    std::vector<std::string> lines() const;
    // True when some line since the last clear() contains the text.
    bool contains(const std::string &text) const;
    int count(const std::string &text) const;
    void clear();
    const std::string &path() const { return path_; }
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

  private:
    friend LogCapture &log_capture();
    LogCapture();
    std::string dir_;
    std::string path_;
};

LogCapture &log_capture();

// A fresh temporary folder, removed with its files when the object goes.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    // Writes a file below the folder and returns its path.
    std::string write(const std::string &name, const std::string &text) const;

  private:
    std::string path_;
};

}  // namespace sdk::test
