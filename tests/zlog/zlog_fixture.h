// Shared helpers of the zlog tests: a temporary folder for configurations and log files,
// and capture of standard output or error through dup2.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "zlog.h"

namespace zlog_test {

// Each test gets a fresh folder; "@DIR@" in a configuration text names it. The library
// is process-global: every test finalises it at the end.
class ZlogTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char templ[] = "/tmp/zlog_test_XXXXXX";
        ASSERT_NE(mkdtemp(templ), nullptr);
        dir_ = templ;
    }
    void TearDown() override {
        zlog_fini();
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }

    std::string path(const std::string &name) const { return dir_ + "/" + name; }

    // Writes a configuration file (default name zlog.conf) and returns its path.
    std::string config(std::string text, const std::string &name = "zlog.conf") const {
        for (size_t at; (at = text.find("@DIR@")) != std::string::npos;) {
            text.replace(at, 5, dir_);
        }
        std::ofstream(path(name)) << text;
        return path(name);
    }

    std::string read(const std::string &name) const {
        std::ifstream in(path(name));
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

    std::vector<std::string> lines(const std::string &name) const {
        std::vector<std::string> out;
        std::ifstream in(path(name));
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        return out;
    }

    // Initialises zlog from a configuration text; fails the test when init fails.
    void init(const std::string &text) { ASSERT_EQ(zlog_init(config(text).c_str()), 0); }

    std::string dir_;
};

// Redirects a standard stream (STDOUT_FILENO or STDERR_FILENO) into a temporary file.
class Capture {
  public:
    explicit Capture(int fd) : fd_(fd) {
        std::fflush(nullptr);
        char templ[] = "/tmp/zlog_capture_XXXXXX";
        tmp_ = mkstemp(templ);
        unlink(templ);
        saved_ = dup(fd_);
        dup2(tmp_, fd_);
    }
    ~Capture() {
        restore();
        if (tmp_ >= 0) close(tmp_);
    }

    // Restores the stream and returns what was written meanwhile.
    std::string finish() {
        restore();
        std::string out;
        char buf[4096];
        lseek(tmp_, 0, SEEK_SET);
        for (ssize_t n; (n = ::read(tmp_, buf, sizeof(buf))) > 0;)
            out.append(buf, static_cast<size_t>(n));
        return out;
    }

  private:
    void restore() {
        if (saved_ < 0) return;
        std::fflush(nullptr);
        dup2(saved_, fd_);
        close(saved_);
        saved_ = -1;
    }
    int fd_;
    int tmp_ = -1;
    int saved_ = -1;
};

}  // namespace zlog_test
