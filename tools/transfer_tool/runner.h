// Runs the requests of transfer_tool on the started engine and prints their results.
#pragma once

#include <cstdint>
#include <string>

#include "transfer_tool/channels.h"
#include "transfer_tool/output.h"
#include "transfer_tool/request.h"

namespace transfer_tool {

// Says once, on standard error, which configured serial devices start-up could not open.
void report_missing_serial(const Configuration &config);

// Runs the -C repetitions of `req` (batch line `line`, 0 for the command line), prints
// each result in `format` and writes the last reply data to the -P file of a read. The
// first non-zero status of the repetitions; a refused request is not repeated. In
// kClassic, failures and their explanations go to standard error.
int run(const Request &req, uint32_t line, Format format);

}  // namespace transfer_tool
