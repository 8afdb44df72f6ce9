// Processes of a benchmark run: the board simulator, and one process per case run (this
// program again, with --case).
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "harness.h"

namespace bench {

// Starts the simulator with `args` and waits (at most 10 s) for its "ready" line; -1 on
// failure.
pid_t start_simulator(const std::string &program, const std::vector<std::string> &args);
// SIGTERM to that one process, then waits for it.
void stop_simulator(pid_t pid);
// True when `program --help` mentions `option`.
bool help_mentions(const std::string &program, const std::string &option);

// Runs case `name` in a new process of `self`; the case writes its metrics to
// `metrics_path`. False when it failed, hung (killed after `limit_s`) or wrote nothing.
bool run_case(const std::string &self, const std::string &name, const CaseContext &ctx,
              const std::string &metrics_path, int limit_s);

// The context a case process rebuilds from its command line.
std::vector<std::string> context_args(const CaseContext &ctx);

}  // namespace bench
