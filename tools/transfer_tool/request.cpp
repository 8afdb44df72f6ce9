#include "transfer_tool/request.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/cli.h"
#include "transfer_tool/result.h"

namespace transfer_tool {

namespace {

// Requests without acknowledgement count as done this long after sending; receiving
// cards are polled for completion at this interval instead.
constexpr uint32_t kWriteWaitUs = 10000;
constexpr uint32_t kPollingMs = 20;

bool parse_slot(const char *text, uint32_t *out) {
    uint64_t v = 0;
    if (!tool_common::parse_number(text, 0, UINT32_MAX, &v)) return false;
    *out = static_cast<uint32_t>(v);
    return true;
}

std::string hex(uint32_t v, int width) {
    char buf[16];
    snprintf(buf, sizeof buf, "0x%0*x", width, v);
    return buf;
}

bool fail(std::string *error, const std::string &message) {
    *error = message;
    return false;
}

// The bytes a write sends: the -d values padded with zeros to -L, or -L bytes of the file.
bool write_payload(const recvcard_struct &cmd, const Payload &p, std::vector<uint8_t> *out,
                   std::string *error) {
    if (p.data_given && p.file_given) return fail(error, "give the data with -d or -P, not both");
    const uint32_t max = max_write_data(cmd.n_body_type);
    if (cmd.n_length != kLengthUnset && cmd.n_length > max)
        return fail(error, "-L: a write carries at most " + std::to_string(max) + " bytes");
    *out = p.file_given ? p.file_data : p.data;
    if (cmd.n_length == kLengthUnset) {
        if (out->empty()) return fail(error, "nothing to write: give -d values, -P file or -L");
        if (out->size() > max)
            return fail(error, std::to_string(out->size()) +
                                   " bytes to write; a write carries at most " +
                                   std::to_string(max));
        return true;
    }
    if (out->size() > cmd.n_length) {
        if (p.file_given) {
            out->resize(cmd.n_length);
            return true;
        }
        return fail(error, std::to_string(out->size()) + " data values but -L " +
                               std::to_string(cmd.n_length));
    }
    if (p.file_given && out->size() < cmd.n_length)
        return fail(error, "the file of -P has " + std::to_string(out->size()) +
                               " bytes, fewer than -L " + std::to_string(cmd.n_length));
    out->resize(cmd.n_length, 0);
    return true;
}

std::string summary_of(const Request &r) {
    const transfer_op_t &op = r.op;
    const size_t n = op.e_code == FRAME_WRITE ? r.payload.size() : op.n_read_len;
    std::string s = op.e_code == FRAME_WRITE ? "write " : "read ";
    s += std::to_string(n) + (n == 1 ? " byte at " : " bytes at ");
    s += op.e_type == BODY_TLV ? "tag " : "";
    s += hex(op.st_addr_param.n_addr, 8) + " of ";
    if (op.e_type == BODY_RECVCARD) {
        const uint32_t card = op.st_control.n_recvcard_id;
        const uint32_t port = op.st_addr_param.n_device_index;
        s += card == 0xFFFF ? "every receiving card" : "receiving card " + std::to_string(card);
        s += port == 0xFF ? " behind every port" : " behind port " + std::to_string(port);
        s += " of ";
    }
    s += "slot " + std::to_string(op.n_slot) + " " + (op.e_mode == FPGA ? "FPGA " : "MCU ") +
         std::to_string(op.n_mode_id);
    if (op.n_no_ack == EN_REQUEST_NO_ACK) s += ", no acknowledgement";
    return s;
}

}  // namespace

void set_defaults(recvcard_struct *cmd) {
    *cmd = recvcard_struct{};
    cmd->n_length = kLengthUnset;
    cmd->n_e_code = FRAME_READ;
    cmd->n_body_type = BODY_ADDRESS;
    cmd->n_no_ack = EN_REQUEST_ACK;
    cmd->n_device_type = FPGA;
    cmd->n_times = 1;
}

bool build_request(const recvcard_struct &cmd, const Payload &payload, const Timing &timing,
                   Request *out, std::string *error) {
    Request r;
    transfer_op_t &op = r.op;
    uint32_t slot = 0;
    if (!parse_slot(cmd.n_slot_id, &slot))
        return fail(error, cmd.n_slot_id[0] == 0 ? "no slot: give -s"
                                                 : std::string("bad slot '") + cmd.n_slot_id + "'");
    // The values themselves were checked before the parser saw them (scan_arguments). The
    // parser stores any number in the read/write field, so it is looked at as a number
    // before it is used as a frame_code.
    uint32_t code = 0;
    memcpy(&code, &cmd.n_e_code, sizeof code);
    if (code > FRAME_WRITE || cmd.n_body_type > BODY_RECVCARD || cmd.n_device_type > MCU)
        return fail(error, "-E, -B or -D out of range");

    op.n_slot = slot;
    op.e_mode = static_cast<transfer_section>(cmd.n_device_type);
    op.n_reply_times = timing.retries;
    op.n_no_ack = cmd.n_no_ack;
    op.n_write_wait_time = kWriteWaitUs;
    op.n_timeout = timing.timeout_ms;
    op.e_code = code == FRAME_WRITE ? FRAME_WRITE : FRAME_READ;
    op.e_type = static_cast<request_body_type>(cmd.n_body_type);
    op.st_addr_param.n_addr = cmd.n_reg_addr;
    op.st_control.n_recvcard_id = cmd.n_recvcard_num;
    if (op.e_type == BODY_RECVCARD) {
        // -e names the sender card's Ethernet port; the card sits behind the first
        // device of the section. A broadcast over the ports is queued on port 0.
        op.st_addr_param.n_device_type = DEVICE_ETH;
        op.st_addr_param.n_device_index = static_cast<uint8_t>(cmd.n_eth_mask);
        op.n_mode_id = 0;
        op.n_broadcast_eth_id = 0;
        if (op.n_no_ack == EN_REQUEST_NO_ACK) {
            op.n_polling_state = 1;
            op.n_polling_time = kPollingMs;
        }
    } else {
        op.st_addr_param.n_device_type = static_cast<uint8_t>(cmd.n_device_type);
        op.st_addr_param.n_device_index = static_cast<uint8_t>(cmd.n_eth_mask);
        op.n_mode_id = cmd.n_eth_mask;
    }

    if (op.e_code == FRAME_WRITE) {
        if (!write_payload(cmd, payload, &r.payload, error)) return false;
    } else {
        // A reply with error code and length in front of the data must fit the 9000-byte
        // receive buffer as a whole.
        const uint32_t len = cmd.n_length == kLengthUnset ? 4 : cmd.n_length;
        const uint32_t max = op.e_type == BODY_RECVCARD ? SDK_DATA_BUF_LEN : SDK_DATA_BUF_LEN - 4;
        if (len > max) return fail(error, "-L: at most " + std::to_string(max) + " bytes");
        op.n_read_len = len;
        r.payload = payload.data;  // parameters of the read, sent along
        if (payload.file_given) r.output_file = cmd.file_path;
    }
    r.count = cmd.n_times;
    r.summary = summary_of(r);
    *out = std::move(r);
    return true;
}

int parse_request(const std::vector<std::string> &words, const Timing &timing, Request *out,
                  bool *help, std::string *error) {
    // The parser takes a vector it may reorder; it gets copies of the words.
    std::vector<std::string> copies = words;
    std::vector<char *> argv;
    argv.reserve(copies.size() + 1);
    for (auto &w : copies)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    const int argc = static_cast<int>(copies.size());
    Scan scan;
    if (!scan_arguments(argc, argv.data(), &scan, error)) return kExitUsage;
    *help = scan.help;
    if (scan.help) return kExitDone;
    if (argc < 2) {
        *error = "nothing to do";
        return kExitUsage;
    }
    recvcard_struct cmd;
    set_defaults(&cmd);
    cmd_parse_recvcard(&cmd, argc, argv.data());

    Payload payload;
    payload.data_given = scan.data_given;
    payload.data = scan.data;
    payload.file_given = cmd.file_path[0] != 0;
    if (payload.file_given && cmd.n_e_code == FRAME_WRITE) {
        // Never more than one frame can carry: -L bytes of the file, or all of a file
        // that fits.
        const size_t max = max_write_data(cmd.n_body_type);
        const size_t take = cmd.n_length == kLengthUnset ? tool_common::kWholeFile
                                                         : std::min<size_t>(cmd.n_length, max);
        if (!tool_common::read_file(cmd.file_path, max, "fit one frame (or give -L)",
                                    &payload.file_data, error, take))
            return kExitStartup;
    }
    return build_request(cmd, payload, timing, out, error) ? kExitDone : kExitUsage;
}

uint32_t max_write_data(uint32_t body_type) {
    // Frames are built in the 9000-byte send buffer: headers and body in front of the
    // data, the checksum (two for a receiving card) behind it.
    return body_type == BODY_RECVCARD ? SDK_DATA_BUF_LEN - 34 - 4 : SDK_DATA_BUF_LEN - 30 - 2;
}

}  // namespace transfer_tool
