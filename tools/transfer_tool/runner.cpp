#include "transfer_tool/runner.h"

#include <chrono>
#include <cstdio>
#include <vector>

#include "common/cli.h"
#include "transfer_errors.h"

namespace transfer_tool {

namespace {

// Whether channel `id` is set up and open.
bool channel_open(int32_t id) {
    if (id < 0 || id >= g_st_transfer.n_num) return false;
    const transfer_data_t &ch = g_st_transfer.st_info[id];
    return ch.n_type != 0 && ch.n_fd >= 0 && ch.n_state != 0;
}

// Why a request for this target cannot be routed, when the channel table tells; "" when
// it does not.
std::string refusal_reason(const transfer_op_t &op, int32_t channel) {
    const std::string slot = "slot " + std::to_string(op.n_slot);
    if (channel < 0)
        return slot + (op.e_mode == FPGA ? " FPGA " : " MCU ") + std::to_string(op.n_mode_id) +
               " is not in the configuration";
    const std::string ch = "channel " + std::to_string(channel) + " (" + slot + ")";
    if (g_st_transfer.st_info[channel].n_type == 0)
        return ch + " has no entry in the configuration";
    if (!channel_open(channel))
        return ch +
               " is not open (UDP channels open only while eth0 is up; a serial device must "
               "exist)";
    return "";
}

// Sets status and error of an outcome whose code and reply are set.
void classify(const transfer_op_t &op, int32_t channel, Outcome *o) {
    o->status = status_of(o->code, o->reply);
    if (o->status == kExitBoardError) {
        o->error = "board error code " + std::to_string(o->reply.error_code);
    } else if (o->status != kExitDone) {
        const std::string why = o->status == kExitRefused ? refusal_reason(op, channel) : "";
        o->error = why.empty()
                       ? std::string(sdk_strerror(o->code)) + " (" + std::to_string(o->code) + ")"
                       : why;
    }
}

}  // namespace

void report_missing_serial(const Configuration &config) {
    for (const auto &c : config.channels) {
        if (c.type != UART || c.id < 0 || c.id >= g_st_transfer.n_num) continue;
        const transfer_data_t &ch = g_st_transfer.st_info[c.id];
        if (ch.n_type != UART || ch.n_fd >= 0) continue;
        fprintf(stderr, "transfer_tool: cannot open serial device %s of slot %u %s %u\n",
                c.address.c_str(), c.slot, c.section == FPGA ? "FPGA" : "MCU", c.index);
    }
}

int run(const Request &req, uint32_t line, Format format) {
    using Clock = std::chrono::steady_clock;
    const int32_t channel = sdk_get_transfer_map_id(req.op);
    const bool has_code = channel_open(channel) &&
                          reply_has_error_code(g_st_transfer.st_info[channel].n_type, req.op);
    static char reply[SDK_DATA_BUF_LEN];
    std::vector<uint8_t> wdata = req.payload;
    std::vector<uint8_t> last;
    bool got_reply = false;
    int status = kExitDone;
    for (uint32_t i = 1; i <= req.count; ++i) {
        transfer_op_t op = req.op;
        const auto start = Clock::now();
        // The request and its wait in one call: the reply comes straight to this thread.
        const int32_t r =
            sdk_request_run(wdata.empty() ? nullptr : reinterpret_cast<char *>(wdata.data()),
                            static_cast<uint32_t>(wdata.size()), reply, &op);
        Outcome o;
        o.line = line;
        o.run = i;
        o.runs = req.count;
        o.ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        o.code = r < 0 ? r : 0;
        o.reply = split_reply(reinterpret_cast<uint8_t *>(reply), r, has_code);
        classify(req.op, channel, &o);
        if (r >= 0) {
            last = o.reply.data;
            got_reply = true;
        }
        // Outside kClassic the last result says whether the reply data could be saved.
        const bool last_run = i == req.count || o.status == kExitRefused;
        std::string file_error;
        if (format != Format::kClassic && last_run && got_reply && !req.output_file.empty() &&
            !tool_common::write_file(req.output_file, last.data(), last.size(), &file_error)) {
            o.status = o.status == kExitDone ? kExitStartup : o.status;
            o.error = file_error;
        }
        if (format == Format::kClassic) {
            print_outcome(stdout, stderr, i, req.summary, r, o.reply, o.ms);
            const std::string why = refusal_reason(req.op, channel);
            if (o.status == kExitRefused && !why.empty())
                fprintf(stderr, "transfer_tool: %s\n", why.c_str());
        } else {
            print_result(stdout, format, &req, o);
        }
        if (status == kExitDone) status = o.status;
        if (o.status == kExitRefused) return status;
    }
    if (format == Format::kClassic && !req.output_file.empty() && got_reply) {
        std::string error;
        if (!tool_common::write_file(req.output_file, last.data(), last.size(), &error)) {
            fprintf(stderr, "transfer_tool: %s\n", error.c_str());
            return kExitStartup;
        }
        printf("reply data (%zu bytes) written to %s\n", last.size(), req.output_file.c_str());
    }
    return status;
}

}  // namespace transfer_tool
