// Runs a built host program as a child process with extra environment variables and
// collects its exit status and both output streams.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/log_capture.h"

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

inline std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::string quoted(const std::string &word) {
    std::string q = "'";
    for (char c : word)
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

struct Run {
    int status = -1;  // exit status; -1 when not started, 137 when killed
    std::string out;
    std::string err;
};

// Runs tool `name` with `args`, no input, and `env` entries ("NAME=value") added to the
// environment (a later entry wins). Killed after timeout_s seconds.
inline Run run_tool(const std::string &name, const std::vector<std::string> &args,
                    const std::vector<std::string> &env = {}, int timeout_s = 30) {
    Run run;
    if (tool_path(name).empty()) return run;
    sdk::test::TempDir dir;
    std::string cmd = "exec env";
    for (const auto &e : env)
        cmd += " " + quoted(e);
    cmd += " timeout -s KILL " + std::to_string(timeout_s) + " " + quoted(tool_path(name));
    for (const auto &a : args)
        cmd += " " + quoted(a);
    const int status =
        std::system((cmd + " </dev/null >" + dir.path() + "/out 2>" + dir.path() + "/err").c_str());
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = slurp(dir.path() + "/out");
    run.err = slurp(dir.path() + "/err");
    return run;
}

}  // namespace tools_test
