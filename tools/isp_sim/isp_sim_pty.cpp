// isp_sim_pty: a simulated MCU serial bootloader on a pseudo-terminal.
//
// Prints the slave path on the first line of standard output, then serves until SIGTERM
// or SIGINT. With --dump, the flash is written to the file at exit and on SIGUSR1 (each
// dump prints "dumped <file>").
#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "isp_sim/pty_server.h"

namespace {

isp_sim::PtyServer *g_server = nullptr;

void on_stop(int) {
    if (g_server != nullptr) g_server->request_stop();
}
void on_dump(int) {
    if (g_server != nullptr) g_server->request_dump();
}

void usage(FILE *out) {
    fputs(
        "Usage: isp_sim_pty [OPTION...]\n"
        "A simulated MCU serial bootloader (with its flash) served on a new pseudo-terminal,\n"
        "for trying mcu_upgrade without a board. The first line printed is the device to\n"
        "pass to mcu_upgrade (e.g. /dev/pts/3); it serves until SIGTERM or SIGINT.\n"
        "  --part NAME             stm32h750 (default), gd32f303, gd32f470, gd32e503\n"
        "  --pid N                 Get ID product identifier\n"
        "  --gd-id HEX|none        GD32 identifier bytes (e.g. 33564546), none: refused\n"
        "  --erase extended|plain  erase command offered\n"
        "  --refuse-erase          refuse the erase commands\n"
        "  --refuse-write-after N  refuse Write Memory after N accepted blocks\n"
        "  --ignore-sync N         leave the first N synchronisation bytes unanswered\n"
        "  --erase-delay MS        acknowledge erases this late\n"
        "  --corrupt-at ADDR       invert the flash byte at ADDR (e.g. 0x08000123) once it is\n"
        "                          written, so that a verify must fail there\n"
        "  --silent-after-reads N  answer N Read Memory commands, then half of the next\n"
        "                          one's data, then nothing more\n"
        "  --flash-size N          simulated flash size in bytes (default 2 MiB)\n"
        "  --page-size N           erase page size in bytes\n"
        "  --dump FILE             write the flash to FILE at exit and on SIGUSR1\n"
        "  --exit-with-parent      exit when the parent process ends\n"
        "  -h, --help              this text\n",
        out);
}

bool parse_hex_bytes(const char *text, std::vector<uint8_t> *out) {
    out->clear();
    if (strcmp(text, "none") == 0) return true;
    size_t len = strlen(text);
    if (len == 0 || len % 2 != 0) return false;
    for (size_t i = 0; i < len; i += 2) {
        char pair[3] = {text[i], text[i + 1], 0};
        char *end = nullptr;
        unsigned long v = strtoul(pair, &end, 16);
        if (*end != 0) return false;
        out->push_back(static_cast<uint8_t>(v));
    }
    return true;
}

bool parse_number(const char *text, unsigned long *out) {
    char *end = nullptr;
    errno = 0;
    *out = strtoul(text, &end, 0);
    return errno == 0 && end != text && *end == 0;
}

int serve(int argc, char **argv) {
    enum {
        kPart = 1,
        kPid,
        kGdId,
        kErase,
        kRefuseErase,
        kRefuseWrite,
        kIgnoreSync,
        kEraseDelay,
        kFlashSize,
        kPageSize,
        kCorruptAt,
        kSilentAfterReads,
        kDump,
        kExitWithParent,
        kHelp = 'h'
    };
    static const option options[] = {
        {"part", required_argument, nullptr, kPart},
        {"pid", required_argument, nullptr, kPid},
        {"gd-id", required_argument, nullptr, kGdId},
        {"erase", required_argument, nullptr, kErase},
        {"refuse-erase", no_argument, nullptr, kRefuseErase},
        {"refuse-write-after", required_argument, nullptr, kRefuseWrite},
        {"ignore-sync", required_argument, nullptr, kIgnoreSync},
        {"erase-delay", required_argument, nullptr, kEraseDelay},
        {"flash-size", required_argument, nullptr, kFlashSize},
        {"page-size", required_argument, nullptr, kPageSize},
        {"corrupt-at", required_argument, nullptr, kCorruptAt},
        {"silent-after-reads", required_argument, nullptr, kSilentAfterReads},
        {"dump", required_argument, nullptr, kDump},
        {"exit-with-parent", no_argument, nullptr, kExitWithParent},
        {"help", no_argument, nullptr, kHelp},
        {nullptr, 0, nullptr, 0}};

    isp_sim::Config cfg;
    std::string dump_path;
    bool exit_with_parent = false;
    int opt;
    while ((opt = getopt_long(argc, argv, "h", options, nullptr)) != -1) {
        unsigned long n = 0;
        bool ok = true;
        switch (opt) {
            case kPart:
                ok = isp_sim::part_config(optarg, &cfg);
                break;
            case kPid:
                ok = parse_number(optarg, &n) && n <= 0xFFFF;
                cfg.pid = static_cast<uint16_t>(n);
                break;
            case kGdId:
                ok = parse_hex_bytes(optarg, &cfg.gd_id) && cfg.gd_id.size() < 256;
                break;
            case kErase:
                ok = strcmp(optarg, "extended") == 0 || strcmp(optarg, "plain") == 0;
                cfg.extended_erase = strcmp(optarg, "extended") == 0;
                break;
            case kRefuseErase:
                cfg.refuse_erase = true;
                break;
            case kRefuseWrite:
                ok = parse_number(optarg, &n) && n <= 0x7FFFFFFF;
                cfg.refuse_write_after = static_cast<int>(n);
                break;
            case kIgnoreSync:
                ok = parse_number(optarg, &n) && n <= 0x7FFFFFFF;
                cfg.ignore_syncs = static_cast<int>(n);
                break;
            case kEraseDelay:
                ok = parse_number(optarg, &n) && n <= 3600000;
                cfg.erase_delay = std::chrono::milliseconds(n);
                break;
            case kFlashSize:
                ok = parse_number(optarg, &n) && n > 0 && n <= 0xF8000000ul;
                cfg.flash_size = static_cast<uint32_t>(n);
                break;
            case kPageSize:
                ok = parse_number(optarg, &n) && n > 0 && n <= 0xFFFFFFFFul;
                cfg.page_size = static_cast<uint32_t>(n);
                break;
            case kCorruptAt:
                ok = parse_number(optarg, &n) && n <= 0xFFFFFFFFul;
                cfg.corrupt_at = static_cast<uint32_t>(n);
                break;
            case kSilentAfterReads:
                ok = parse_number(optarg, &n) && n <= 0x7FFFFFFF;
                cfg.silent_after_reads = static_cast<int>(n);
                break;
            case kDump:
                dump_path = optarg;
                break;
            case kExitWithParent:
                exit_with_parent = true;
                break;
            case kHelp:
                usage(stdout);
                return 0;
            default:
                ok = false;
                break;
        }
        if (!ok) {
            if (optarg != nullptr) fprintf(stderr, "isp_sim_pty: bad value \"%s\"\n", optarg);
            usage(stderr);
            return 2;
        }
    }

    isp_sim::PtyServer server(cfg);
    if (!server.open()) {
        perror("isp_sim_pty: openpty");
        return 1;
    }
    server.set_dump_path(dump_path);
    if (exit_with_parent) server.watch_parent(getppid());
    g_server = &server;

    struct sigaction sa {};
    sigemptyset(&sa.sa_mask);
    sa.sa_handler = on_stop;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    sa.sa_handler = on_dump;
    sigaction(SIGUSR1, &sa, nullptr);

    printf("%s\n", server.slave_path().c_str());
    fflush(stdout);
    server.run();
    g_server = nullptr;
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return serve(argc, argv);
    } catch (const std::exception &e) {
        fprintf(stderr, "isp_sim_pty: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "isp_sim_pty: unexpected failure\n");
    }
    return 1;
}
