#include "transfer_tool/options.h"

#include <cstdlib>
#include <cstring>

#include "common/cli.h"
#include "common/config_path.h"
#include "transfer_server.h"

namespace transfer_tool {

namespace {

// The option table of cmd_parse_recvcard: every option but -h takes a value.
struct LongOption {
    const char *name;
    char short_name;
};
constexpr LongOption kLongOptions[] = {
    {"slotid", 's'},         {"addr_reg", 'R'},    {"length", 'L'},    {"n_eth_mask", 'e'},
    {"n_recvcard_num", 'r'}, {"n_body_type", 'B'}, {"n_e_code", 'E'},  {"n_device_type", 'D'},
    {"n_no_ack", 'A'},       {"n_times", 'C'},     {"file_path", 'P'}, {"data", 'd'},
};
constexpr const char *kShortWithValue = "sRLerBEDACPd";

// The parser takes any text: numbers through strtol cut to 32 bits ("abc" is 0, "4x" is
// 4, "-5" is 0xfffffffb) and texts cut to their array. The tool accepts only values that
// the parser stores unchanged and that the request can carry.
struct NumberRule {
    char option;
    uint64_t min;
    uint64_t max;
    const char *accepted;
};
constexpr NumberRule kNumberRules[] = {
    {'R', 0, UINT32_MAX, "a number from 0 to 0xffffffff"},
    {'L', 0, UINT32_MAX, "a number from 0 to 0xffffffff"},
    {'e', 0, 0xFF, "a number from 0 to 0xff"},
    {'r', 0, 0xFFFF, "a number from 0 to 0xffff"},
    {'B', BODY_ADDRESS, BODY_RECVCARD, "0 (address), 1 (TLV) or 2 (receiving card)"},
    {'E', FRAME_READ, FRAME_WRITE, "0 (read) or 1 (write)"},
    {'D', FPGA, MCU, "0 (FPGA) or 1 (MCU)"},
    {'A', EN_REQUEST_ACK, EN_REQUEST_NO_ACK, "0 (ack) or 1 (no ack)"},
    {'C', 1, UINT32_MAX, "a number from 1 to 4294967295"},
};

struct TextRule {
    char option;
    size_t size;  // of the record's array, terminating zero included
    const char *what;
};
constexpr TextRule kTextRules[] = {
    {'s', sizeof(recvcard_struct::n_slot_id), "slot identifier"},
    {'P', sizeof(recvcard_struct::file_path), "path"},
};

std::string env_or(const char *name, const char *fallback, bool *from_env = nullptr) {
    const char *v = getenv(name);
    bool set = v != nullptr && *v != 0;
    if (from_env != nullptr) *from_env = set;
    return set ? v : fallback;
}

bool parse_u32(const char *text, uint32_t *out) {
    uint64_t v = 0;
    if (!tool_common::parse_number(text, 0, UINT32_MAX, &v)) return false;
    *out = static_cast<uint32_t>(v);
    return true;
}

bool add_byte(const char *text, Scan *out, std::string *error) {
    uint64_t v = 0;
    if (!tool_common::parse_number(text, 0, 0xFF, &v)) {
        *error = std::string("data value '") + text + "' is not a byte (0 to 0xff)";
        return false;
    }
    out->data.push_back(static_cast<uint8_t>(v));
    return true;
}

// Refuses a value that the parser would store otherwise than as given.
bool check_value(char opt, const char *value, std::string *error) {
    for (const auto &r : kNumberRules) {
        uint64_t v = 0;
        if (r.option != opt || tool_common::parse_number(value, r.min, r.max, &v)) continue;
        *error = std::string("-") + opt + " '" + value + "': must be " + r.accepted;
        return false;
    }
    for (const auto &r : kTextRules) {
        if (r.option != opt || tool_common::fits(value, r.size)) continue;
        *error = std::string("-") + opt + ": the " + r.what + " has " +
                 std::to_string(strlen(value)) + " characters, at most " +
                 std::to_string(r.size - 1) + " fit";
        return false;
    }
    return true;
}

// The short name of a long option: an exact name, or a prefix of exactly one name, as
// getopt_long accepts them. 0 when unknown or ambiguous.
char find_long(const std::string &name) {
    char found = 0;
    int matches = 0;
    for (const auto &o : kLongOptions) {
        if (name == o.name) return o.short_name;
        if (strncmp(o.name, name.c_str(), name.size()) == 0) {
            found = o.short_name;
            ++matches;
        }
    }
    return matches == 1 ? found : 0;
}

}  // namespace

bool take_tool_options(std::vector<std::string> *args, ToolOptions *out, std::string *error) {
    std::vector<std::string> rest;
    for (size_t i = 0; i < args->size(); ++i) {
        const std::string &a = (*args)[i];
        if (i > 0 && a == "--json") {
            out->json = true;
        } else if (i > 0 && a == "--stats") {
            out->stats = true;
        } else if (i > 0 && a == "-f") {
            if (i + 1 >= args->size() || (*args)[i + 1].empty()) {
                *error = "option -f needs a file (- for standard input)";
                return false;
            }
            out->batch = (*args)[++i];
        } else {
            rest.push_back(a);
            // A value given as the next word is the option's, whatever it looks like.
            const bool takes_value =
                a.size() == 2 && a[0] == '-' && strchr(kShortWithValue, a[1]) != nullptr;
            if (i > 0 && takes_value && i + 1 < args->size()) rest.push_back((*args)[++i]);
        }
    }
    *args = std::move(rest);
    return true;
}

Locations locations() {
    Locations l;
    l.transfer_config =
        env_or("TRANSFER_CONFIG",
               tool_common::default_config("transfer.json", TRANSFER_TOOL_DEFAULT_CONFIG).c_str());
    l.zlog_config =
        env_or("TRANSFER_ZLOG_CONFIG",
               tool_common::default_config("zlog.conf", TRANSFER_TOOL_DEFAULT_ZLOG).c_str(),
               &l.zlog_from_env);
    return l;
}

bool timing_from_env(Timing *out, std::string *error) {
    const char *names[] = {"TRANSFER_TIMEOUT_MS", "TRANSFER_RETRIES", "TRANSFER_REPORT_WAIT_MS"};
    uint32_t *fields[] = {&out->timeout_ms, &out->retries, &out->report_wait_ms};
    for (int i = 0; i < 3; ++i) {
        const char *v = getenv(names[i]);
        if (v == nullptr || *v == 0) continue;
        if (!parse_u32(v, fields[i]) || (i == 0 && *fields[i] == 0)) {
            *error = std::string(names[i]) + "='" + v + "' is not a valid number";
            return false;
        }
    }
    return true;
}

bool scan_arguments(int argc, char **argv, Scan *out, std::string *error) {
    bool in_data = false;  // plain arguments right after -d are more data values
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        char opt = 0;
        const char *value = nullptr;
        if (arg == "--") {
            for (++i; i < argc; ++i) {
                if (!in_data) {
                    *error = std::string("unexpected argument '") + argv[i] + "'";
                    return false;
                }
                if (!add_byte(argv[i], out, error)) return false;
            }
            break;
        }
        if (arg == "--help") {
            out->help = true;
            in_data = false;
            continue;
        }
        if (arg.size() > 2 && arg[0] == '-' && arg[1] == '-') {
            const size_t eq = arg.find('=');
            const std::string name = arg.substr(2, eq == std::string::npos ? eq : eq - 2);
            opt = find_long(name);
            if (opt == 0) {
                *error = "unknown or ambiguous option --" + name;
                return false;
            }
            if (eq != std::string::npos) value = argv[i] + eq + 1;
        } else if (arg.size() > 1 && arg[0] == '-') {
            opt = arg[1];
            if (opt == 'h') {
                out->help = true;
                in_data = false;
                continue;
            }
            if (strchr(kShortWithValue, opt) == nullptr) {
                *error = "unknown option -" + arg.substr(1, 1);
                return false;
            }
            if (arg.size() > 2) value = argv[i] + 2;
        } else {
            if (!in_data) {
                *error = "unexpected argument '" + arg + "' (data values follow -d)";
                return false;
            }
            if (!add_byte(argv[i], out, error)) return false;
            continue;
        }
        if (value == nullptr) {
            if (i + 1 >= argc) {
                *error = std::string("option ") + argv[i] + " needs a value";
                return false;
            }
            value = argv[++i];
        }
        if (!check_value(opt, value, error)) return false;
        in_data = opt == 'd';
        if (in_data) {
            out->data_given = true;
            if (!add_byte(value, out, error)) return false;
        }
    }
    return true;
}

void print_help_notes(FILE *out) {
    const Locations l = locations();
    fprintf(out,
            "\ntransfer_tool: read or write a register of a board FPGA or MCU, or of a receiving\n"
            "card, through the transfer engine; prints the reply data as hex with offsets.\n"
            "  -s slot   -D 0 FPGA / 1 MCU   -e device index in that section, one of the\n"
            "  board's \"fpga\" / \"mcu\" entries in the configuration (with -B 2: the Ethernet\n"
            "  port, 0xff all)   -r receiving card (-B 2; 0xffff all)   -B body type:\n"
            "  0 address, 1 TLV, 2 receiving card   -R register (TLV: tag)   -L bytes to read,\n"
            "  or to write (the -d values are padded with zeros to it)   -d data bytes to send\n"
            "  -P write: file with the data to send (a regular file of at most one frame's\n"
            "  data, or -L bytes of it); read: file that receives the reply data\n"
            "  -A 1 no acknowledgement   -C repeat count (default 1)   -h, --help this text\n"
            "  -f FILE  one request per line (- standard input; # comments; words split at\n"
            "  blanks, no quoting), one engine start-up, one result line per request line\n"
            "  --json  results as JSON objects, one a line   --stats  channel counters after\n"
            "  the requests\n"
            "Numbers are decimal, 0x hexadecimal or 0-prefixed octal, whole and in range;\n"
            "anything else is refused, as is a path of more than 254 characters.\n"
            "The engine must reach the boards: on a machine without them, run board_sim with\n"
            "the same configuration first (see the README).\n"
            "Files and settings (environment):\n"
            "  TRANSFER_CONFIG       transfer configuration, now %s\n"
            "                        (default %s)\n"
            "  TRANSFER_ZLOG_CONFIG  zlog configuration, now %s\n"
            "                        (default %s;\n"
            "                        without the file the library does not log)\n"
            "  TRANSFER_TIMEOUT_MS   time allowed for one attempt (default 1000)\n"
            "  TRANSFER_RETRIES      retransmissions after a time-out (default 2)\n"
            "  TRANSFER_REPORT_WAIT_MS  after the requests, wait this long and list the\n"
            "                        reports the boards sent meanwhile (default 0: none)\n"
            "Exit status: 0 done, 1 configuration, start-up or file error, 2 bad command line,\n"
            "3 request refused (also: a device index the configuration does not give the\n"
            "board), 4 timed out, 5 the board answered with an error code; of a batch, the\n"
            "highest of its requests.\n",
            l.transfer_config.c_str(),
            tool_common::default_config("transfer.json", TRANSFER_TOOL_DEFAULT_CONFIG).c_str(),
            l.zlog_config.c_str(),
            tool_common::default_config("zlog.conf", TRANSFER_TOOL_DEFAULT_ZLOG).c_str());
}

}  // namespace transfer_tool
