// Turns the parsed command line of transfer_tool into a request descriptor and the bytes
// to send with it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "transfer_server.h"
#include "transfer_tool/options.h"

namespace transfer_tool {

// -L when the command line has none (the parser keeps the caller's values).
constexpr uint32_t kLengthUnset = UINT32_MAX;

// The record before parsing: the tool's defaults (read, FPGA 0, address body, ack, once).
void set_defaults(recvcard_struct *cmd);

struct Request {
    transfer_op_t op{};
    std::vector<uint8_t> payload;  // bytes sent with the frame
    uint32_t count = 1;            // -C
    std::string output_file;       // read with -P: where the reply data goes
    std::string summary;           // "read 4 bytes at 0x00001000 of slot 100 FPGA 0"
};

// What the request sends besides the descriptor: the -d values, or the contents of the
// -P file of a write (file_data, read by the caller).
struct Payload {
    bool data_given = false;
    std::vector<uint8_t> data;
    bool file_given = false;
    std::vector<uint8_t> file_data;
};

// Builds the request from a record whose values scan_arguments has checked; false with a
// message for what the values cannot do together (no slot, more data than -L, a length
// no frame can carry).
bool build_request(const recvcard_struct &cmd, const Payload &payload, const Timing &timing,
                   Request *out, std::string *error);

// The whole way from the words of one request (the program name first) to the request:
// checks, the library's parser, the file of a -P write. kExitDone with the request;
// kExitDone with *help set for -h; kExitUsage or, for an unreadable file, kExitStartup
// with a message.
int parse_request(const std::vector<std::string> &words, const Timing &timing, Request *out,
                  bool *help, std::string *error);

// The most data one write frame can carry for body type `body_type` (-B).
uint32_t max_write_data(uint32_t body_type);

}  // namespace transfer_tool
