// Command-line parsers of the register tool and of the firmware-upgrade tool.
#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "transfer_server.h"

namespace {

// Number in base 0 (decimal, 0x hexadecimal, leading-zero octal), kept in 32 bits.
uint32_t number(const char *text) {
    return static_cast<uint32_t>(strtol(text, nullptr, 0));
}

// Stores the number as given into the read/write field. Any number may be typed; a
// conversion to frame_code of a value other than 0 or 1 would be undefined, so the field
// receives the 32-bit value itself.
void store_code(frame_code *p_field, uint32_t n_value) {
    static_assert(sizeof(frame_code) == sizeof(uint32_t), "frame_code is a 32-bit field");
    memcpy(p_field, &n_value, sizeof(n_value));
}

// Copies text cut so that it and its zero fit the array of size bytes.
void copy_text(char *dst, size_t size, const char *text) {
    size_t len = strnlen(text, size - 1);
    memcpy(dst, text, len);
    dst[len] = '\0';
}

constexpr const char *kRecvcardShort = "h::s:R:L:e:r:B:E:D:A:C:P:d:";

const option kRecvcardLong[] = {
    {"slotid", required_argument, nullptr, 's'},
    {"addr_reg", required_argument, nullptr, 'R'},
    {"length", required_argument, nullptr, 'L'},
    {"n_eth_mask", required_argument, nullptr, 'e'},
    {"n_recvcard_num", required_argument, nullptr, 'r'},
    {"n_body_type", required_argument, nullptr, 'B'},
    {"n_e_code", required_argument, nullptr, 'E'},
    {"n_device_type", required_argument, nullptr, 'D'},
    {"n_no_ack", required_argument, nullptr, 'A'},
    {"n_times", required_argument, nullptr, 'C'},
    {"file_path", required_argument, nullptr, 'P'},
    {"data", required_argument, nullptr, 'd'},
    {nullptr, 0, nullptr, 0},
};

constexpr const char *kMcuShort = "veuERrc::s:m:p:l:t:f:i:d:g:b:";

const option kMcuLong[] = {
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

void recvcard_usage() {
    fputs("Usage: [OPTION...]\n", stderr);
    fputs(
        "transfer_tool -s slot_id  -R reg -L lenth -e deviceID -r netID -E 0/1(r/w) -D "
        "deviceType -A 0/1(ack/nack) -d data:\n",
        stderr);
    fputs("example:\n", stderr);
    fputs(
        "read mcu:    transfer_tool -s 101 -R 0x00000001 -L 3 -e 0 -r 0 -E 0 -D 1 -A 0 -d 0x0 "
        "0x1 0x0 \n",
        stderr);
    fputs(
        "write mcu:   transfer_tool -s 101 -R 0x00000001 -L 1 -e 0 -r 0 -E 1 -D 1 -A 0 -d "
        "0xff \n",
        stderr);
    fputs("read fpga:   transfer_tool -s 101 -R 0x00000001 -L 3 -e 0 -r 0 -E 0 -D 0 -A 0 \n",
          stderr);
    fputs("write fpga:  transfer_tool -s 101 -R 0x00000001 -L 3 -e 0 -r 0 -E 1 -D 0 -A 0 \n",
          stderr);
}

bool bad_vector(const void *record, int32_t n_argc, char **p_argv) {
    return record == nullptr || (n_argc > 0 && p_argv == nullptr);
}

}  // namespace

extern "C" {

SDK_API en_mid_ack cmd_parse_recvcard(recvcard_struct *p_common_cmd, int32_t n_argc,
                                      char **p_argv) {
    if (bad_vector(p_common_cmd, n_argc, p_argv)) return EN_MID_ACK_POINTER_NULL;
    if (n_argc <= 0) return EN_MID_ACK_TRUE;
    optind = 0;  // full re-initialisation of the scanner: a process may parse again
    int opt;
    int index = 0;
    while ((opt = getopt_long(n_argc, p_argv, kRecvcardShort, kRecvcardLong, &index)) != -1) {
        switch (opt) {
            case 'h':
                recvcard_usage();
                return EN_MID_ACK_INVALID;
            case 's':
                copy_text(p_common_cmd->n_slot_id, sizeof(p_common_cmd->n_slot_id), optarg);
                break;
            case 'R':
                p_common_cmd->n_reg_addr = number(optarg);
                break;
            case 'L':
                p_common_cmd->n_length = number(optarg);
                break;
            case 'e':
                p_common_cmd->n_eth_mask = number(optarg);
                break;
            case 'r':
                p_common_cmd->n_recvcard_num = number(optarg);
                break;
            case 'B':
                p_common_cmd->n_body_type = number(optarg);
                break;
            case 'E':
                store_code(&p_common_cmd->n_e_code, number(optarg));
                break;
            case 'D':
                p_common_cmd->n_device_type = number(optarg);
                break;
            case 'A':
                p_common_cmd->n_no_ack = number(optarg);
                break;
            case 'C':
                p_common_cmd->n_times = number(optarg);
                break;
            case 'P':
                copy_text(p_common_cmd->file_path, sizeof(p_common_cmd->file_path), optarg);
                break;
            default:  // -d (its values are the tool's business), unknown, missing argument
                break;
        }
    }
    return EN_MID_ACK_TRUE;
}

SDK_API en_mid_ack cmd_parse_recvcard_mcu(upgrade_mcu_t *p_common_cmd, int32_t n_argc,
                                          char **p_argv) {
    if (bad_vector(p_common_cmd, n_argc, p_argv)) return EN_MID_ACK_POINTER_NULL;
    if (n_argc <= 0) return EN_MID_ACK_TRUE;
    upgrade_mcu_t *c = p_common_cmd;
    optind = 0;
    int opt;
    int index = 0;
    while ((opt = getopt_long(n_argc, p_argv, kMcuShort, kMcuLong, &index)) != -1) {
        switch (opt) {
            case 'v':
                c->n_version = 1;
                break;
            case 'e':
                c->n_mode = 1;
                break;
            case 'u':
                c->n_com_mode = 1;
                break;
            case 'E':
                c->n_pre_erase = 1;
                break;
            case 'R':
                c->n_get_erase_result = 1;
                break;
            case 'r':
                c->n_reboot = 1;
                break;
            case 'c':
                c->n_check = 1;
                break;
            case 's':
                copy_text(c->n_slot_id, sizeof(c->n_slot_id), optarg);
                break;
            case 'm':
                c->n_mode_id = number(optarg);
                break;
            case 'p':
                copy_text(c->file_path, sizeof(c->file_path), optarg);
                break;
            case 'l':
                c->n_size = number(optarg);
                break;
            case 't':
                c->n_timeout = number(optarg);
                break;
            case 'f':
                c->n_filetype = number(optarg);
                break;
            case 'i':
                c->n_index = number(optarg);
                break;
            case 'd':
                c->n_devicetype = number(optarg);
                break;
            case 'g':
                c->n_deviceindex = number(optarg);
                break;
            case 'b':
                c->n_boot_mode = 1;
                break;
            default:
                break;
        }
    }
    return EN_MID_ACK_TRUE;
}

}  // extern "C"
