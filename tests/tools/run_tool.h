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
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/wait.h"

extern char **environ;

namespace tools_test {

// $TRANSFER_BINARY_DIR/tools/<name>/<name>, or /tools/<name> for a name with its folder
// ("isp_sim/isp_sim_pty"); an absolute path as it is; "" outside ctest.
inline std::string tool_path(const std::string &name) {
    const char *dir = getenv("TRANSFER_BINARY_DIR");
    if (name[0] == '/' || dir == nullptr) return name[0] == '/' ? name : std::string();
    const std::string tools = std::string(dir) + "/tools/";
    return name.find('/') != std::string::npos ? tools + name : tools + name + "/" + name;
}

// The words of a command line, each that names an entry of `names` replaced by its value.
inline std::vector<std::string> split(const std::string &line,
                                      const std::map<std::string, std::string> &names) {
    std::vector<std::string> args;
    std::istringstream in(line);
    for (std::string w; in >> w;)
        args.push_back(names.count(w) != 0 ? names.at(w) : w);
    return args;
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

// Runs tool `name` with `args`; `env` entries ("NAME=value") come before the inherited
// environment, so they win. Killed after timeout_s seconds.
inline Run run_tool(const std::string &name, std::vector<std::string> args,
                    std::vector<std::string> env = {}, int timeout_s = 30) {
    Run run;
    std::string path = tool_path(name);
    sdk::test::TempDir dir;
    const std::string out = dir.path() + "/out", err = dir.path() + "/err";
    for (char **e = environ; *e != nullptr; ++e)
        env.emplace_back(*e);
    std::vector<char *> argv{path.data()}, envp;
    for (auto &a : args)
        argv.push_back(a.data());
    for (auto &e : env)
        envp.push_back(e.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    const bool started = !path.empty() && posix_spawn(&pid, path.c_str(), &actions, nullptr,
                                                      argv.data(), envp.data()) == 0;
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (started && !sdk::test::wait_until([&] { return waitpid(pid, &status, WNOHANG) == pid; },
                                          std::chrono::seconds(timeout_s))) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    run.status = started && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = slurp(out);
    run.err = slurp(err);
    return run;
}

}  // namespace tools_test
