#include "support/sim_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

namespace sdk::test {

SimProcess::SimProcess(std::vector<std::string> args) {
    const char *dir = getenv("TRANSFER_BINARY_DIR");
    const std::string path = std::string(dir != nullptr ? dir : "") + "/tools/board_sim/board_sim";
    int out[2];
    if (dir == nullptr || pipe(out) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        std::vector<char *> argv{const_cast<char *>(path.c_str())};
        for (auto &a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(path.c_str(), argv.data());
        _exit(127);
    }
    close(out[1]);
    fd_ = out[0];
}

SimProcess::~SimProcess() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    wait_exit(false);
    if (fd_ >= 0) close(fd_);
}

std::string SimProcess::line(int timeout_ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    size_t nl;
    while ((nl = buf_.find('\n')) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd p{fd_, POLLIN, 0};
        char chunk[256];
        ssize_t n = left.count() > 0 && poll(&p, 1, static_cast<int>(left.count())) > 0
                        ? read(fd_, chunk, sizeof chunk)
                        : 0;
        if (n <= 0) return "";
        buf_.append(chunk, static_cast<size_t>(n));
    }
    std::string l = buf_.substr(0, nl);
    buf_.erase(0, nl + 1);
    return l;
}

bool SimProcess::wait_ready(int timeout_ms) {
    for (std::string l = line(timeout_ms); !l.empty(); l = line(timeout_ms)) {
        if (l == "ready") return true;
    }
    return false;
}

int SimProcess::wait_exit(bool terminate) {
    if (pid_ <= 0) return -1;
    if (terminate) kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace sdk::test
