// Captures the library's log lines in a file for tests that check what was logged, and
// temporary folders that go with their files.
//
// The first call of log_capture() writes a zlog configuration into a temporary folder and
// initialises the facade with it: the "sdk" category at every level and "debug" go to one
// file, each line as "LEVEL [tag] message". zlog is process-wide, so one capture serves a
// whole test program; its folder goes when the program ends normally.
#pragma once

#include <string>
#include <vector>

namespace sdk::test {

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

class LogCapture {
  public:
    // Lines written since the last clear().
    std::vector<std::string> lines() const;
    // Whether / how many lines since the last clear() contain the text.
    bool contains(const std::string &text) const { return count(text) > 0; }
    int count(const std::string &text) const;
    void clear();

  private:
    friend LogCapture &log_capture();
    LogCapture();
    TempDir dir_;
    std::string path_;
};

LogCapture &log_capture();

}  // namespace sdk::test
