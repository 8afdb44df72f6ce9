// transfer_tool: reads or writes a register of a board FPGA or MCU, or of a receiving card,
// through the transfer engine, and prints the reply.
//
// The command line is the library's (cmd_parse_recvcard, usage with -h); the files come
// from TRANSFER_CONFIG and TRANSFER_ZLOG_CONFIG (see print_help_notes). With -f the
// requests come one a line from a file and share one engine start-up.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "sdk_log.h"
#include "transfer_errors.h"
#include "transfer_server.h"
#include "transfer_tool/batch.h"
#include "transfer_tool/channels.h"
#include "transfer_tool/options.h"
#include "transfer_tool/output.h"
#include "transfer_tool/request.h"
#include "transfer_tool/result.h"
#include "transfer_tool/runner.h"

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

// One request of the run: from the command line (line 0) or a batch line.
struct Entry {
    uint32_t line = 0;
    int status = kExitDone;  // non-zero: refused before the engine, for `error`
    std::string error;
    Request req;
};

// Starts the engine with the sub-card slots of the requests (channels of sub cards open
// only for the slots listed) and reads the configuration back. 0, or the code of the
// failed start-up (kExitStartup for a configuration it cannot read back) with a message.
int32_t start_engine(const std::vector<Entry> &entries, Configuration *configured,
                     std::string *error) {
    const Locations where = locations();
    start_logging(where);
    std::string slots;
    for (const auto &e : entries) {
        const uint32_t slot = e.req.op.n_slot;
        if (e.status == kExitDone && slot <= 0xFF &&
            slots.find(static_cast<char>(slot)) == std::string::npos)
            slots += static_cast<char>(slot);
    }
    std::string config = where.transfer_config;
    const int32_t ret =
        sdk_transfer_init(slots.data(), static_cast<uint32_t>(slots.size()), config.data());
    if (ret != 0) {
        *error = "cannot start the transfer engine with " + config + ": " + sdk_strerror(ret) +
                 " (" + std::to_string(ret) + ")";
        return ret;
    }
    if (!read_configuration(config, configured, error)) return kExitStartup;
    report_missing_serial(*configured);
    return 0;
}

// Lists the reports queued since start-up.
void print_reports(uint32_t wait_ms, Format format) {
    usleep(static_cast<useconds_t>(wait_ms) * 1000u);
    static report_queue_data_t rec;
    int n = 0;
    while (sdk_report_queue_get_first(&rec, sdk_get_report_queue()) == 0) {
        sdk_report_queue_pull(sdk_get_report_queue());
        print_report(stdout, format, ++n, rec);
    }
    if (format != Format::kJson)
        printf("%d report%s received in %u ms\n", n, n == 1 ? "" : "s", wait_ms);
}

// Runs the entries on one engine; a batch prints a result for every entry (kLines or
// kJson), the command line's single entry prints as before. The worst status.
int run_entries(const std::vector<Entry> &entries, Format format, bool batch) {
    int worst = kExitDone;
    Configuration configured;
    std::string engine_error;
    const bool any = std::any_of(entries.begin(), entries.end(),
                                 [](const Entry &e) { return e.status == kExitDone; });
    const int32_t init = any ? start_engine(entries, &configured, &engine_error) : SDK_OK;
    if (init != 0) {
        fprintf(stderr, "transfer_tool: %s\n", engine_error.c_str());
        if (!batch) return kExitStartup;
    }
    for (const auto &e : entries) {
        Outcome o;
        o.line = e.line;
        o.status = e.status;
        o.error = e.error;
        const Request *req = nullptr;
        if (e.status == kExitDone) {
            req = &e.req;
            o.error = init == 0 ? check_target(configured, e.req.op) : engine_error;
            o.status = o.error.empty() ? kExitDone : init == 0 ? kExitRefused : kExitStartup;
            o.code = init == 0 ? (o.error.empty() ? SDK_OK : SDK_ERR_REFUSED) : init;
        }
        if (req != nullptr && o.status == kExitDone) {
            worst = std::max(worst, run(e.req, e.line, format));
        } else {
            worst = std::max(worst, o.status);
            if (batch || format == Format::kJson)
                print_result(stdout, format, req, o);
            else
                fprintf(stderr, "transfer_tool: %s: refused\n", o.error.c_str());
        }
    }
    return worst;
}

int tool_main(int argc, char **argv) {
    std::vector<std::string> args(argv, argv + argc);
    ToolOptions tool;
    std::string error;
    if (!take_tool_options(&args, &tool, &error)) return usage_error(error);
    const bool batch = !tool.batch.empty();
    const Format format = tool.json ? Format::kJson : batch ? Format::kLines : Format::kClassic;
    Timing timing;
    if (!timing_from_env(&timing, &error)) return usage_error(error);

    std::vector<Entry> entries;
    if (batch) {
        if (args.size() > 1)
            return usage_error("with -f the requests come from " + tool.batch + ", not '" +
                               args[1] + "'");
        std::vector<BatchLine> lines;
        if (!read_batch(tool.batch, &lines, &error)) {
            fprintf(stderr, "transfer_tool: %s\n", error.c_str());
            return kExitStartup;
        }
        for (const auto &l : lines) {
            Entry e;
            e.line = l.number;
            e.error = l.error;
            e.status = l.error.empty() ? kExitDone : kExitUsage;
            bool help = false;
            if (e.status == kExitDone)
                e.status = parse_request(l.words, timing, &e.req, &help, &e.error);
            if (help) {
                e.status = kExitUsage;
                e.error = "-h is not a request";
            }
            entries.push_back(std::move(e));
        }
    } else {
        Entry e;
        bool help = false;
        e.status = parse_request(args, timing, &e.req, &help, &error);
        if (help) {
            print_usage();
            return kExitDone;
        }
        if (e.status == kExitUsage) return usage_error(error);
        if (e.status != kExitDone) {
            fprintf(stderr, "transfer_tool: %s\n", error.c_str());
            return e.status;
        }
        entries.push_back(std::move(e));
    }
    int status = run_entries(entries, format, batch);
    if (timing.report_wait_ms > 0) print_reports(timing.report_wait_ms, format);
    if (tool.stats) print_stats(stdout, format);
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
