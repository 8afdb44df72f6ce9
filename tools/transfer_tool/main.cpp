// transfer_tool: reads or writes a register of a board FPGA or MCU, or of a receiving card,
// through the transfer engine, and prints the reply.
//
// The command line is the library's (cmd_parse_recvcard, usage with -h); the files come
// from TRANSFER_CONFIG and TRANSFER_ZLOG_CONFIG (see print_help_notes).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "common/cli.h"
#include "sdk_log.h"
#include "transfer_errors.h"
#include "transfer_server.h"
#include "transfer_tool/channels.h"
#include "transfer_tool/options.h"
#include "transfer_tool/request.h"
#include "transfer_tool/result.h"

using namespace transfer_tool;

namespace {

void print_usage() {
    recvcard_struct scratch;
    char name[] = "transfer_tool";
    char help[] = "-h";
    char *argv[] = {name, help, nullptr};
    cmd_parse_recvcard(&scratch, 2, argv);
    print_help_notes(stderr);
}

int usage_error(const std::string &message) {
    fprintf(stderr, "transfer_tool: %s\n", message.c_str());
    print_usage();
    return kExitUsage;
}

void start_logging(const Locations &where) {
    if (access(where.zlog_config.c_str(), R_OK) != 0) {
        if (where.zlog_from_env)
            fprintf(stderr, "transfer_tool: cannot read %s; library logging stays off\n",
                    where.zlog_config.c_str());
        return;
    }
    std::string path = where.zlog_config;
    if (sdk_log_init(reinterpret_cast<int8_t *>(path.data())) != 0)
        fprintf(stderr, "transfer_tool: zlog refused %s; library logging stays off\n",
                path.c_str());
}

// Whether channel `id` is set up and open.
bool channel_open(int32_t id) {
    if (id < 0 || id >= g_st_transfer.n_num) return false;
    const transfer_data_t &ch = g_st_transfer.st_info[id];
    return ch.n_type != 0 && ch.n_fd >= 0 && ch.n_state != 0;
}

// Why a request for this target cannot be routed, when the channel table tells.
void explain_refusal(const transfer_op_t &op, int32_t channel) {
    if (channel < 0) {
        fprintf(stderr, "transfer_tool: slot %u %s %u is not in the configuration\n", op.n_slot,
                op.e_mode == FPGA ? "FPGA" : "MCU", op.n_mode_id);
    } else if (g_st_transfer.st_info[channel].n_type == 0) {
        fprintf(stderr, "transfer_tool: channel %d (slot %u) has no entry in the configuration\n",
                channel, op.n_slot);
    } else if (!channel_open(channel)) {
        fprintf(stderr,
                "transfer_tool: channel %d (slot %u) is not open (UDP channels open only while "
                "eth0 is up; a serial device must exist)\n",
                channel, op.n_slot);
    }
}

// Says once which configured serial devices start-up could not open (the engine keeps
// such a channel with a negative descriptor and no name).
void report_missing_serial(const Configuration &config) {
    for (const auto &c : config.channels) {
        if (c.type != UART || c.id < 0 || c.id >= g_st_transfer.n_num) continue;
        const transfer_data_t &ch = g_st_transfer.st_info[c.id];
        if (ch.n_type != UART || ch.n_fd >= 0) continue;
        fprintf(stderr, "transfer_tool: cannot open serial device %s of slot %u %s %u\n",
                c.address.c_str(), c.slot, c.section == FPGA ? "FPGA" : "MCU", c.index);
    }
}

int run(const Request &req) {
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
        int32_t r = sdk_request(wdata.empty() ? nullptr : reinterpret_cast<char *>(wdata.data()),
                                static_cast<uint32_t>(wdata.size()), &op);
        if (r == 0) r = sdk_request_wait(reply, &op);
        const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        const Reply rep = split_reply(reinterpret_cast<uint8_t *>(reply), r, has_code);
        const int s = print_outcome(stdout, stderr, i, req.summary, r, rep, ms);
        if (s == kExitRefused) {
            explain_refusal(req.op, channel);
            return s;
        }
        if (status == kExitDone) status = s;
        if (r >= 0) {
            last = rep.data;
            got_reply = true;
        }
    }
    if (!req.output_file.empty() && got_reply) {
        std::string error;
        if (!tool_common::write_file(req.output_file, last.data(), last.size(), &error)) {
            fprintf(stderr, "transfer_tool: %s\n", error.c_str());
            return kExitStartup;
        }
        printf("reply data (%zu bytes) written to %s\n", last.size(), req.output_file.c_str());
    }
    return status;
}

// Lists the reports queued since start-up: slot, length and the frame in hex.
void print_reports(uint32_t wait_ms) {
    usleep(static_cast<useconds_t>(wait_ms) * 1000u);
    static report_queue_data_t rec;
    int n = 0;
    while (sdk_report_queue_get_first(&rec, sdk_get_report_queue()) == 0) {
        sdk_report_queue_pull(sdk_get_report_queue());
        printf("report %d from slot %u, %u bytes:\n", ++n, rec.n_slot, rec.n_len);
        print_hex(stdout, rec.arr_buf, rec.n_len);
    }
    printf("%d report%s received in %u ms\n", n, n == 1 ? "" : "s", wait_ms);
}

int tool_main(int argc, char **argv) {
    Scan scan;
    std::string error;
    if (!scan_arguments(argc, argv, &scan, &error)) return usage_error(error);
    if (scan.help) {
        print_usage();
        return kExitDone;
    }
    if (argc < 2) return usage_error("nothing to do");
    recvcard_struct cmd;
    set_defaults(&cmd);
    cmd_parse_recvcard(&cmd, argc, argv);

    Timing timing;
    if (!timing_from_env(&timing, &error)) return usage_error(error);
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
                                    &payload.file_data, &error, take)) {
            fprintf(stderr, "transfer_tool: %s\n", error.c_str());
            return kExitStartup;
        }
    }
    Request req;
    if (!build_request(cmd, payload, timing, &req, &error)) return usage_error(error);

    const Locations where = locations();
    start_logging(where);
    // Sub-card channels open only for the slots listed here: list the target's.
    char slot = static_cast<char>(req.op.n_slot);
    std::string config = where.transfer_config;
    const int32_t ret = sdk_transfer_init(&slot, req.op.n_slot <= 0xFF ? 1 : 0, config.data());
    if (ret != 0) {
        fprintf(stderr, "transfer_tool: cannot start the transfer engine with %s: %s (%d)\n",
                config.c_str(), sdk_strerror(ret), ret);
        return kExitStartup;
    }
    Configuration configured;
    if (!read_configuration(config, &configured, &error)) {
        fprintf(stderr, "transfer_tool: %s\n", error.c_str());
        return kExitStartup;
    }
    report_missing_serial(configured);
    const std::string beyond = check_target(configured, req.op);
    if (!beyond.empty()) {
        fprintf(stderr, "transfer_tool: %s: refused\n", beyond.c_str());
        return kExitRefused;
    }
    int status = run(req);
    if (timing.report_wait_ms > 0) print_reports(timing.report_wait_ms);
    if (fflush(stdout) != 0 || ferror(stdout)) {
        fprintf(stderr, "transfer_tool: cannot write the results to standard output\n");
        if (status == kExitDone) status = kExitStartup;
    }
    return status;
}

}  // namespace

int main(int argc, char **argv) {
    int status = kExitStartup;
    try {
        status = tool_main(argc, argv);
    } catch (const std::exception &e) {
        fprintf(stderr, "transfer_tool: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "transfer_tool: unexpected failure\n");
    }
    // The engine's threads run until the process ends; leave without running destructors
    // under them.
    fflush(stdout);
    fflush(stderr);
    _exit(status);
}
