#include "support/log_capture.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sdk_log.h"

namespace sdk::test {

TempDir::TempDir() {
    char tmpl[] = "/tmp/transfer_test_XXXXXX";
    if (mkdtemp(tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string TempDir::write(const std::string &name, const std::string &text) const {
    std::string p = path_ + "/" + name;
    std::ofstream(p, std::ios::binary) << text;
    return p;
}

LogCapture::LogCapture() {
    char tmpl[] = "/tmp/transfer_log_XXXXXX";
    if (mkdtemp(tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
    dir_ = tmpl;
    path_ = dir_ + "/sdk.log";
    std::string conf = dir_ + "/zlog.conf";
    std::ofstream(conf) << "[formats]\n"
                           "simple = \"%V [%M(tag)] %m%n\"\n"
                           "[rules]\n"
                           "sdk.*     \""
                        << path_
                        << "\"; simple\n"
                           "debug.*   \""
                        << path_ << "\"; simple\n";
    std::string conf_copy = conf;
    if (sdk_log_init(reinterpret_cast<int8_t *>(conf_copy.data())) != 0) {
        throw std::runtime_error("sdk_log_init failed for " + conf);
    }
}

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> out;
    std::ifstream in(path_);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

bool LogCapture::contains(const std::string &text) const {
    return count(text) > 0;
}

int LogCapture::count(const std::string &text) const {
    int n = 0;
    for (const auto &line : lines()) {
        if (line.find(text) != std::string::npos) ++n;
    }
    return n;
}

void LogCapture::clear() {
    // Truncate in place: zlog keeps appending to the same path.
    if (truncate(path_.c_str(), 0) != 0) {
        std::ofstream(path_, std::ios::trunc);
    }
}

LogCapture::~LogCapture() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
}

LogCapture &log_capture() {
    static LogCapture capture;  // its folder goes when the program ends normally
    return capture;
}

}  // namespace sdk::test
