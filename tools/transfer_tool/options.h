// Command-line and environment handling of transfer_tool.
//
// The option set is the library's (cmd_parse_recvcard); this file adds what the parser
// leaves to the tool: a check of the vector and of every value before it is parsed, the
// data values after -d, --help, and the settings that come from the environment (file
// locations, time-out, retries).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace transfer_tool {

// Where the tool finds its files: the environment variable when set, else the default.
struct Locations {
    std::string transfer_config;  // TRANSFER_CONFIG
    std::string zlog_config;      // TRANSFER_ZLOG_CONFIG
    bool zlog_from_env = false;   // set explicitly: a missing file is then worth a warning
};

Locations locations();

// Time allowed for one attempt and retransmissions after a time-out.
struct Timing {
    uint32_t timeout_ms = 1000;   // TRANSFER_TIMEOUT_MS
    uint32_t retries = 2;         // TRANSFER_RETRIES
    uint32_t report_wait_ms = 0;  // TRANSFER_REPORT_WAIT_MS: then list the reports received
};

// The timing from the environment; false with a message for a malformed value.
bool timing_from_env(Timing *out, std::string *error);

// The tool's own options, taken out of the vector before the library's parser sees it.
struct ToolOptions {
    std::string batch;   // -f FILE: one request per line ("-" standard input); "" none
    bool json = false;   // --json: results (and counters) as JSON objects, one a line
    bool stats = false;  // --stats: the channel counters after the requests
};

// Removes -f FILE, --json and --stats from `args` (the program name first), skipping the
// values of the library's options. False with a message for -f without a file.
bool take_tool_options(std::vector<std::string> *args, ToolOptions *out, std::string *error);

// What the scan of the argument vector found.
struct Scan {
    bool help = false;          // -h or --help seen
    bool data_given = false;    // -d seen
    std::vector<uint8_t> data;  // -d's value and the plain arguments after it
};

// Checks the vector against the parser's option table before the parser sees it, so that
// unknown options, missing arguments and stray arguments are refused instead of skipped,
// and every value is one the parser stores as given: numbers whole and in range, texts
// that fit their field. Collects the data values (the parser stores none). False with a
// message.
bool scan_arguments(int argc, char **argv, Scan *out, std::string *error);

// The tool's own part of the help: what the library's usage text does not say.
void print_help_notes(FILE *out);

}  // namespace transfer_tool
