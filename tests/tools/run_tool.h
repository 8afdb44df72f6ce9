// Runs a built host program as a child process with extra environment variables and
// collects its exit status and both output streams.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/log_capture.h"

extern char **environ;

namespace tools_test {

// $TRANSFER_BINARY_DIR/tools/<name>/<name>, or /tools/<name> for a name with its folder
// ("isp_sim/isp_sim_pty"); "" outside ctest.
inline std::string tool_path(const std::string &name) {
    const char *dir = getenv("TRANSFER_BINARY_DIR");
    if (dir == nullptr) return std::string();
    const std::string tools = std::string(dir) + "/tools/";
    return name.find('/') != std::string::npos ? tools + name : tools + name + "/" + name;
}

struct Run {
    int status = -1;  // exit status; -1 when killed or not started
    std::string out;
    std::string err;
};

inline std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs tool `name` with `args`; `env` entries ("NAME=value") are added to the environment.
// Killed after timeout_s seconds.
inline Run run_tool(const std::string &name, std::vector<std::string> args,
                    const std::vector<std::string> &env = {}, int timeout_s = 30) {
    Run run;
    const std::string path = tool_path(name);
    if (path.empty()) return run;
    sdk::test::TempDir dir;
    const std::string out = dir.path() + "/out", err = dir.path() + "/err";
    std::vector<std::string> envs = env;
    for (char **e = environ; *e != nullptr; ++e)
        envs.emplace_back(*e);  // earlier entries win with getenv
    std::vector<char *> argv{const_cast<char *>(path.c_str())}, envp;
    for (auto &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    for (auto &e : envs)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return run;
    int status = 0;
    for (int waited_ms = 0; waitpid(pid, &status, WNOHANG) != pid; waited_ms += 10) {
        if (waited_ms >= timeout_s * 1000) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        usleep(10000);
    }
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = slurp(out);
    run.err = slurp(err);
    return run;
}

}  // namespace tools_test
