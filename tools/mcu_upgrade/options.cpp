#include "mcu_upgrade/options.h"

#include <getopt.h>

#include <cstdlib>
#include <cstring>

#include "common/cli.h"
#include "common/config_path.h"
#include "isp.h"
#include "mio_json.h"

namespace mcu_upgrade {

namespace {

// The option table of cmd_parse_recvcard_mcu, plus -h / --help, --go and --no-verify, which
// it lacks. A first scan with it refuses what the library's scan would skip. The library
// maps -g to n_deviceindex; here -g ADDR (or --go ADDR) starts the application at ADDR after
// the run, as stm32flash's -g does (0: the flash base). The library's scan skips the two
// long options it lacks, so that the value of --go is left among the plain arguments: the
// device is taken from this first scan.
constexpr int kNoVerify = 256;
constexpr const char *kShortOptions = "hveuERrc::s:m:p:l:t:f:i:d:g:b:";
const option kLongOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"go", required_argument, nullptr, 'g'},
    {"no-verify", no_argument, nullptr, kNoVerify},
    {"n_version", no_argument, nullptr, 'v'},
    {"n_mode", no_argument, nullptr, 'e'},
    {"n_uart", no_argument, nullptr, 'u'},
    {"n_pre_erase", no_argument, nullptr, 'E'},
    {"n_get_erase_result", no_argument, nullptr, 'R'},
    {"n_reboot", no_argument, nullptr, 'r'},
    {"n_check", no_argument, nullptr, 'c'},
    {"n_slot_id", required_argument, nullptr, 's'},
    {"n_mode_id", required_argument, nullptr, 'm'},
    {"file_path", required_argument, nullptr, 'p'},
    {"n_size", required_argument, nullptr, 'l'},
    {"n_timeout", required_argument, nullptr, 't'},
    {"n_filetype", required_argument, nullptr, 'f'},
    {"n_index", required_argument, nullptr, 'i'},
    {"n_devicetype", required_argument, nullptr, 'd'},
    {"n_deviceindex", required_argument, nullptr, 'g'},
    {"n_boot", required_argument, nullptr, 'b'},
    {nullptr, 0, nullptr, 0},
};

constexpr uint32_t kDefaultTimeoutMs = 1000;
constexpr uint32_t kMaxTimeoutMs = 600000;

bool fail(std::string *error, const std::string &message) {
    *error = message;
    return false;
}

// The library's scan takes numbers through strtol cut to 32 bits ("abc" is 0, so -l abc
// would write the whole image) and cuts texts to their array. Only values it stores as
// given, and that the run can use, are accepted.
struct NumberRule {
    int option;
    uint64_t min;
    uint64_t max;
};
constexpr NumberRule kNumberRules[] = {
    {'s', 0, UINT32_MAX}, {'m', 0, UINT32_MAX}, {'l', 1, kMaxImage},  {'t', 1, kMaxTimeoutMs},
    {'f', 0, UINT32_MAX}, {'i', 0, UINT32_MAX}, {'d', 0, UINT32_MAX}, {'g', 0, UINT32_MAX},
};

bool check_value(int opt, const char *value, std::string *error) {
    if (opt == 's' && !tool_common::fits(value, sizeof(upgrade_mcu_t::n_slot_id)))
        return fail(error, "-s: the slot identifier has " + std::to_string(strlen(value)) +
                               " characters, at most " +
                               std::to_string(sizeof(upgrade_mcu_t::n_slot_id) - 1) + " fit");
    if (opt == 'p' && !tool_common::fits(value, sizeof(upgrade_mcu_t::file_path)))
        return fail(error, "-p: the path has " + std::to_string(strlen(value)) +
                               " characters, at most " +
                               std::to_string(sizeof(upgrade_mcu_t::file_path) - 1) + " fit");
    for (const auto &r : kNumberRules) {
        uint64_t v = 0;
        if (r.option != opt || tool_common::parse_number(value, r.min, r.max, &v)) continue;
        return fail(error, std::string("-") + static_cast<char>(opt) + " '" + value +
                               "': must be a number from " + std::to_string(r.min) + " to " +
                               std::to_string(r.max));
    }
    return true;
}

}  // namespace

bool parse(int argc, char **argv, Settings *out, std::string *error) {
    optind = 0;
    int c;
    opterr = 0;  // the messages below say what is wrong
    while ((c = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
        if (c == '?') {
            const char *arg = argv[optind - 1];
            if (optopt != 0 && strchr(kShortOptions, optopt) != nullptr)
                return fail(error,
                            std::string("option -") + static_cast<char>(optopt) + " needs a value");
            if (optopt != 0)
                return fail(error, std::string("unknown option -") + static_cast<char>(optopt));
            return fail(error, std::string("unknown option or missing value: ") + arg);
        }
        if (c == 'h') out->help = true;
        if (optarg != nullptr && !check_value(c, optarg, error)) return false;
        if (c == kNoVerify) out->verify = false;
        if (c == 'g' && optarg != nullptr) {
            out->go = true;
            out->go_address = static_cast<uint32_t>(strtoul(optarg, nullptr, 0));
            if (out->go_address == 0) out->go_address = MCU_ISP_FLASH_BASE;
        }
    }
    if (out->help) return true;
    // getopt has moved the plain arguments behind the options.
    if (argc - optind > 1)
        return fail(error, std::string("unexpected argument '") + argv[optind + 1] + "'");
    if (argc - optind == 1) out->device = argv[optind];

    out->cmd = upgrade_mcu_t{};
    out->cmd.n_timeout = kDefaultTimeoutMs;
    cmd_parse_recvcard_mcu(&out->cmd, argc, argv);
    return true;
}

void print_usage(FILE *out) {
    fprintf(out,
            "Usage: mcu_upgrade -p FIRMWARE [OPTION...] [DEVICE]\n"
            "Writes FIRMWARE into the internal flash of an MCU (from 0x08000000) through its\n"
            "serial bootloader, reads it back and compares, then identifies the part.\n"
            "  DEVICE             serial device of the bootloader; without it the device (and\n"
            "                     its line speed) of the MCU's serial channel is taken from\n"
            "                     the transfer configuration: -s slot, -m index in its \"mcu\"\n"
            "                     array (default 0)\n"
            "  -p, --file_path    the firmware image: a regular file (raw binary) of at most\n"
            "                     %u bytes, the largest flash of the parts served\n"
            "  -l, --n_size       write only the first N bytes of the image (at most %u)\n"
            "  -t, --n_timeout    milliseconds to wait for each answer (default %u, at most %u)\n"
            "  -s, --n_slot_id    slot of the board, -m, --n_mode_id  its MCU index\n"
            "      --no-verify    do not read the flash back and compare it with the image\n"
            "                     (done by default after the write, with a bar of its own)\n"
            "  -g, --go ADDR      then start the application at ADDR (0: the flash base\n"
            "                     0x08000000) with the bootloader's Go command\n"
            "  -v, --n_version    print the version and exit\n"
            "  -h, --help         this text\n"
            "  -e -u -E -R -r -c -b -f -i -d are accepted and have no effect here.\n"
            "Files and settings (environment):\n"
            "  TRANSFER_CONFIG       transfer configuration, now %s\n"
            "                        (default %s)\n"
            "  MCU_UPGRADE_VERBOSE=1 show the programmer's own messages as they come (else\n"
            "                        they are shown only when the run fails)\n"
            "Numbers are decimal, 0x hexadecimal or 0-prefixed octal, whole and in range.\n"
            "Line: 8 data bits, even parity, 1 stop bit; 115200 bit/s unless the configuration\n"
            "names another speed. Progress is drawn on standard error; a failed run is\n"
            "explained first, followed by the programmer's last messages.\n"
            "Exit status: 0 written (and verified), 1 the bootloader run failed (no answer, a\n"
            "refusal, a read-back that broke off), 2 bad command line, 3 image, configuration\n"
            "or serial device unusable, 4 the flash read back differs from the image.\n",
            kMaxImage, kMaxImage, kDefaultTimeoutMs, kMaxTimeoutMs, transfer_config_path().c_str(),
            tool_common::default_config("transfer.json", MCU_UPGRADE_DEFAULT_CONFIG).c_str());
}

std::string transfer_config_path() {
    const char *v = getenv("TRANSFER_CONFIG");
    return v != nullptr && *v != 0
               ? v
               : tool_common::default_config("transfer.json", MCU_UPGRADE_DEFAULT_CONFIG);
}

bool device_from_config(const std::string &config, uint32_t slot, uint32_t index,
                        std::string *device, uint32_t *baud, std::string *error) {
    mio_json *root = mio_json_fromfile(config.c_str());
    if (root == nullptr) return fail(error, "cannot read or parse " + config);
    bool found = false;
    for (const char *array : {"maincards", "subcards", "backplane"}) {
        mio_json *boards = mio_json_getobjectitem(root, array);
        for (uint32_t i = 0; !found && i < mio_json_getarraysize(boards); ++i) {
            mio_json *board = mio_json_getarrayitem(boards, i);
            if (mio_json_getobjectitemint(board, "slot") != static_cast<int32_t>(slot)) continue;
            mio_json *entry = mio_json_getarrayitem(mio_json_getobjectitem(board, "mcu"), index);
            const char *path = mio_json_getobjectitemstr(entry, "ip");
            if (entry == nullptr || mio_json_getobjectitemint(entry, "type") != UART ||
                path == nullptr)
                continue;
            *device = path;
            const int32_t speed = mio_json_getobjectitemint(entry, "port");
            if (speed > 0) *baud = static_cast<uint32_t>(speed);
            found = true;
        }
    }
    mio_json_delete(root);
    if (!found)
        return fail(error, "no serial MCU channel " + std::to_string(index) + " of slot " +
                               std::to_string(slot) + " in " + config);
    return true;
}

}  // namespace mcu_upgrade
