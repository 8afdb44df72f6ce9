// The results of transfer_tool in a batch (one line each) or as JSON objects, one a line,
// for scripts.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "transfer_manage.h"
#include "transfer_tool/request.h"
#include "transfer_tool/result.h"

namespace transfer_tool {

// kClassic: the command line's output (print_outcome); kLines: one text line per result;
// kJson: one JSON object per result.
enum class Format { kClassic, kLines, kJson };

struct Outcome {
    uint32_t line = 0;  // of the batch; 0 for the command line
    uint32_t run = 1;   // repetition (-C), from 1
    uint32_t runs = 1;
    int status = kExitDone;
    int32_t code = 0;   // library result: 0, or the negative code the request ended with
    std::string error;  // why it failed, or ""
    Reply reply;
    double ms = 0;
};

// Prints one result in `format` (kLines or kJson). `req` is null for a batch line that
// did not become a request; the outcome then has only line, status and error.
void print_result(FILE *out, Format format, const Request *req, const Outcome &o);

// The channel counters of the engine: a table of the channels with an entry, or one JSON
// object per channel.
void print_stats(FILE *out, Format format);

// A report a board sent: slot and frame, as text (number from 1) or a JSON object.
void print_report(FILE *out, Format format, int number, const report_queue_data_t &rec);

}  // namespace transfer_tool
