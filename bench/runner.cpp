#include "runner.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace bench {

namespace {

std::vector<char *> argv_of(std::vector<std::string> &args) {
    std::vector<char *> v;
    for (auto &a : args)
        v.push_back(a.data());
    v.push_back(nullptr);
    return v;
}

// Waits for `pid` at most `limit_s` seconds, then kills it. Exit status, or -1.
int wait_limited(pid_t pid, int limit_s) {
    const uint64_t until = now_ns() + static_cast<uint64_t>(limit_s) * 1000000000u;
    int status = 0;
    for (;;) {
        const pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (r < 0) return -1;
        if (now_ns() > until) {
            fprintf(stderr, "bench: process %d hung, killed\n", static_cast<int>(pid));
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        usleep(10000);
    }
}

}  // namespace

pid_t start_simulator(const std::string &program, const std::vector<std::string> &args) {
    int out[2];
    if (pipe(out) != 0) return -1;
    std::vector<std::string> all{program};
    all.insert(all.end(), args.begin(), args.end());
    const pid_t pid = fork();
    if (pid == 0) {
        place(0, Place::kPeer);
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        auto argv = argv_of(all);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]);
    std::string seen;
    const uint64_t until = now_ns() + 10000000000u;
    while (seen.find("ready") == std::string::npos && now_ns() < until) {
        pollfd p{out[0], POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        char buf[256];
        const ssize_t n = read(out[0], buf, sizeof(buf));
        if (n <= 0) break;
        seen.append(buf, static_cast<size_t>(n));
    }
    // The simulator prints one more line at exit; the pipe holds it, nobody reads it.
    if (seen.find("ready") == std::string::npos) {
        fprintf(stderr, "bench: %s did not get ready\n", program.c_str());
        if (pid > 0) stop_simulator(pid);
        close(out[0]);
        return -1;
    }
    return pid;
}

void stop_simulator(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    wait_limited(pid, 5);
}

bool help_mentions(const std::string &program, const std::string &option) {
    const std::string cmd = "'" + program + "' --help 2>&1";
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr) return false;
    std::string text;
    char buf[512];
    while (fgets(buf, sizeof(buf), p) != nullptr)
        text += buf;
    pclose(p);
    return text.find(option) != std::string::npos;
}

std::vector<std::string> context_args(const CaseContext &ctx) {
    return {"--out",           ctx.out_dir,
            "--seconds",       std::to_string(ctx.seconds),
            "--round",         std::to_string(ctx.round),
            "--serial-device", ctx.serial_device,
            "--zlog",          ctx.zlog_conf,
            "--udp-config",    ctx.udp_config,
            "--serial-config", ctx.serial_config,
            "--serial-link",   ctx.serial_link,
            "--placement",     ctx.placement ? "on" : "off"};
}

bool run_case(const std::string &self, const std::string &name, const CaseContext &ctx,
              const std::string &metrics_path, int limit_s) {
    unlink(metrics_path.c_str());
    std::vector<std::string> all{self, "--case", name, "--metrics", metrics_path};
    const auto rest = context_args(ctx);
    all.insert(all.end(), rest.begin(), rest.end());
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        auto argv = argv_of(all);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (pid < 0) return false;
    const int rc = wait_limited(pid, limit_s);
    if (rc != 0) fprintf(stderr, "bench: case %s ended with %d\n", name.c_str(), rc);
    return rc == 0 && access(metrics_path.c_str(), R_OK) == 0;
}

}  // namespace bench
