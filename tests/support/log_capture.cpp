#include "support/log_capture.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
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

LogCapture::LogCapture() : path_(dir_.path() + "/sdk.log") {
    std::string conf =
        dir_.write("zlog.conf", "[formats]\nsimple = \"%V [%M(tag)] %m%n\"\n[rules]\nsdk.* \"" +
                                    path_ + "\"; simple\ndebug.* \"" + path_ + "\"; simple\n");
    if (sdk_log_init(reinterpret_cast<int8_t *>(conf.data())) != 0) {
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

int LogCapture::count(const std::string &text) const {
    int n = 0;
    for (const auto &line : lines())
        n += line.find(text) != std::string::npos;
    return n;
}

// Truncated in place: zlog keeps appending to the same path.
void LogCapture::clear() {
    if (truncate(path_.c_str(), 0) != 0) std::ofstream(path_, std::ios::trunc);
}

LogCapture &log_capture() {
    static LogCapture capture;
    return capture;
}

}  // namespace sdk::test
