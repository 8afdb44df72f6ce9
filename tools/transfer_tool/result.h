// How transfer_tool reports the outcome of a request and what its exit status says.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "transfer_server.h"

namespace transfer_tool {

enum ExitStatus {
    kExitDone = 0,
    kExitStartup = 1,     // configuration or engine start-up failed
    kExitUsage = 2,       // bad command line
    kExitRefused = 3,     // sdk_request refused the request
    kExitTimeout = 4,     // no reply within the time-out and retransmissions
    kExitBoardError = 5,  // the board answered with a non-zero error code
};

// The reply of one request, split as the receive path hands it over.
struct Reply {
    bool has_error_code = false;
    int16_t error_code = 0;
    std::vector<uint8_t> data;
};

// Address and TLV replies on UDP channels, and TLV replies on serial channels, begin with
// the board's error code and the data length; serial address replies and receiving-card
// replies are the data alone.
bool reply_has_error_code(json_type_tbl channel_type, const transfer_op_t &op);

Reply split_reply(const uint8_t *buf, int32_t len, bool has_error_code);

// Lines of 16 bytes: "  0000  12 34 ...  |.4..|".
void print_hex(FILE *out, const uint8_t *data, size_t len);

// The exit status of a request that ended with `result` (what sdk_request or
// sdk_request_wait returned) and `reply`.
int status_of(int32_t result, const Reply &reply);

// Prints the outcome of request number `index` (from 1) that took `ms` milliseconds and
// returns its exit status. `result` is what sdk_request_wait returned.
int print_outcome(FILE *out, FILE *err, uint32_t index, const std::string &summary, int32_t result,
                  const Reply &reply, double ms);

}  // namespace transfer_tool
