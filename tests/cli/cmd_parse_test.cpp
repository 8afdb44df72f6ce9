// The option parsers of the register tool and of the firmware-upgrade tool.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "transfer_server.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

// An argument vector the parsers may permute.
struct Argv {
    explicit Argv(std::vector<std::string> a) : args(std::move(a)) {
        for (auto &s : args)
            ptrs.push_back(s.data());
        ptrs.push_back(nullptr);
    }
    int32_t argc() const { return static_cast<int32_t>(args.size()); }
    char **argv() { return ptrs.data(); }
    std::vector<std::string> args;
    std::vector<char *> ptrs;
};

recvcard_struct filled_recvcard() {
    recvcard_struct r;
    memset(&r, 0x5A, sizeof(r));
    r.n_slot_id[0] = '\0';
    r.file_path[0] = '\0';
    return r;
}

en_mid_ack parse(recvcard_struct *r, std::vector<std::string> args) {
    args.insert(args.begin(), "transfer_tool");
    Argv v(args);
    return cmd_parse_recvcard(r, v.argc(), v.argv());
}

en_mid_ack parse(upgrade_mcu_t *r, std::vector<std::string> args) {
    args.insert(args.begin(), "upgrade_tool");
    Argv v(args);
    return cmd_parse_recvcard_mcu(r, v.argc(), v.argv());
}

const char *const kUsage =
    "Usage: [OPTION...]\n"
    "transfer_tool -s slot_id  -R reg -L lenth -e deviceID -r netID -E 0/1(r/w) -D deviceType "
    "-A 0/1(ack/nack) -d data:\n"
    "example:\n"
    "read mcu:    transfer_tool -s 101 -R 0x00000001 -L 3 -e 0 -r 0 -E 0 -D 1 -A 0 -d 0x0 0x1 "
    "0x0 \n"
    "write mcu:   transfer_tool -s 101 -R 0x00000001 -L 1 -e 0 -r 0 -E 1 -D 1 -A 0 -d 0xff \n"
    "read fpga:   transfer_tool -s 101 -R 0x00000001 -L 3 -e 0 -r 0 -E 0 -D 0 -A 0 \n"
    "write fpga:  transfer_tool -s 101 -R 0x00000001 -L 3 -e 0 -r 0 -E 1 -D 0 -A 0 \n";

}  // namespace

TEST(CmdParseRecvcard, EveryOptionAndNumberBase) {
    recvcard_struct r = filled_recvcard();
    EXPECT_EQ(parse(&r, {"-s", "101",  "-R", "0x00000001", "-L", "010",   "-e", "2",
                         "-r", "0x10", "-B", "2",          "-E", "1",     "-D", "1",
                         "-A", "1",    "-C", "7",          "-P", "/tmp/f"}),
              EN_MID_ACK_TRUE);
    EXPECT_STREQ(r.n_slot_id, "101");
    EXPECT_EQ(r.n_reg_addr, 1u);
    EXPECT_EQ(r.n_length, 8u);  // leading zero: octal
    EXPECT_EQ(r.n_eth_mask, 2u);
    EXPECT_EQ(r.n_recvcard_num, 16u);
    EXPECT_EQ(r.n_body_type, 2u);
    EXPECT_EQ(r.n_e_code, FRAME_WRITE);
    EXPECT_EQ(r.n_device_type, 1u);
    EXPECT_EQ(r.n_no_ack, 1u);
    EXPECT_EQ(r.n_times, 7u);
    EXPECT_STREQ(r.file_path, "/tmp/f");
    EXPECT_EQ(r.data, 0x5A);

    // Long forms; a field no option names keeps the caller's value; the last repeat wins.
    recvcard_struct l = filled_recvcard();
    EXPECT_EQ(parse(&l, {"--slotid=5", "--addr_reg", "0x20", "--n_e_code=0", "--file_path=/a",
                         "--n_times=1", "--n_times=0xFFFFFFFF"}),
              EN_MID_ACK_TRUE);
    EXPECT_STREQ(l.n_slot_id, "5");
    EXPECT_EQ(l.n_reg_addr, 0x20u);
    EXPECT_EQ(l.n_e_code, FRAME_READ);
    EXPECT_STREQ(l.file_path, "/a");
    EXPECT_EQ(l.n_times, 0xFFFFFFFFu);
    EXPECT_EQ(l.n_length, 0x5A5A5A5Au);
}

TEST(CmdParseRecvcard, HelpPrintsTheUsageAndStops) {
    recvcard_struct r = filled_recvcard();
    CaptureStderr();
    EXPECT_EQ(parse(&r, {"-R", "3", "-h", "-L", "4"}), EN_MID_ACK_INVALID);
    EXPECT_EQ(GetCapturedStderr(), kUsage);
    EXPECT_EQ(r.n_reg_addr, 3u);         // stored before -h
    EXPECT_EQ(r.n_length, 0x5A5A5A5Au);  // never reached
}

TEST(CmdParseRecvcard, DataValuesUnknownOptionsAndLongTexts) {
    recvcard_struct r = filled_recvcard();
    recvcard_struct before = r;
    Argv v({"transfer_tool", "-d", "0x0", "0x1", "0x0"});
    EXPECT_EQ(cmd_parse_recvcard(&r, v.argc(), v.argv()), EN_MID_ACK_TRUE);
    EXPECT_EQ(memcmp(&r, &before, sizeof(r)), 0);
    // The remaining values are left as non-option arguments for the tool.
    ASSERT_EQ(optind, 3);
    EXPECT_STREQ(v.argv()[3], "0x1");
    EXPECT_STREQ(v.argv()[4], "0x0");

    CaptureStderr();
    EXPECT_EQ(parse(&r, {"-x", "-R", "9", "-L"}), EN_MID_ACK_TRUE);
    EXPECT_NE(GetCapturedStderr(), "");  // getopt's own complaints
    EXPECT_EQ(r.n_reg_addr, 9u);

    const std::string slot(600, 's');
    const std::string path(300, 'p');
    EXPECT_EQ(parse(&r, {"-s", slot, "-P", path}), EN_MID_ACK_TRUE);
    EXPECT_EQ(std::string(r.n_slot_id), slot.substr(0, 511));
    EXPECT_EQ(std::string(r.file_path), path.substr(0, 254));

    EXPECT_EQ(cmd_parse_recvcard(nullptr, v.argc(), v.argv()), EN_MID_ACK_POINTER_NULL);
    EXPECT_EQ(cmd_parse_recvcard(&r, 2, nullptr), EN_MID_ACK_POINTER_NULL);
}

TEST(CmdParseMcu, PackedLayout) {
    EXPECT_EQ(sizeof(upgrade_mcu_t), 827u);
    EXPECT_EQ(offsetof(upgrade_mcu_t, n_mode_id), 512u);
    EXPECT_EQ(offsetof(upgrade_mcu_t, file_path), 516u);
    EXPECT_EQ(offsetof(upgrade_mcu_t, n_size), 771u);
    EXPECT_EQ(offsetof(upgrade_mcu_t, n_boot_mode), 823u);
}

TEST(CmdParseMcu, FlagsNumbersAndTexts) {
    upgrade_mcu_t m;
    memset(&m, 0, sizeof(m));
    EXPECT_EQ(parse(&m, {"-v", "-e",  "-u", "-E",      "-R", "-r",   "-c", "-s",   "3",
                         "-m", "0x2", "-p", "/fw.bin", "-l", "1024", "-t", "5000", "-f",
                         "1",  "-i",  "4",  "-d",      "1",  "-g",   "2",  "-b",   "3"}),
              EN_MID_ACK_TRUE);
    EXPECT_EQ(m.n_version, 1u);
    EXPECT_EQ(m.n_mode, 1u);
    EXPECT_EQ(m.n_com_mode, 1u);
    EXPECT_EQ(m.n_pre_erase, 1u);
    EXPECT_EQ(m.n_get_erase_result, 1u);
    EXPECT_EQ(m.n_reboot, 1u);
    EXPECT_EQ(m.n_check, 1u);
    EXPECT_STREQ(m.n_slot_id, "3");
    EXPECT_EQ(m.n_mode_id, 2u);
    EXPECT_STREQ(m.file_path, "/fw.bin");
    EXPECT_EQ(m.n_size, 1024u);
    EXPECT_EQ(m.n_timeout, 5000u);
    EXPECT_EQ(m.n_filetype, 1u);
    EXPECT_EQ(m.n_index, 4u);
    EXPECT_EQ(m.n_devicetype, 1u);
    EXPECT_EQ(m.n_deviceindex, 2u);
    EXPECT_EQ(m.n_boot_mode, 1u);  // the argument is ignored

    upgrade_mcu_t l;
    memset(&l, 0, sizeof(l));
    const std::string path(300, 'p');
    EXPECT_EQ(parse(&l, {"--n_check", "--n_uart", "--n_slot_id=7", "--file_path", path, "--n_boot",
                         "9", "--n_deviceindex=0x11", "-c1"}),
              EN_MID_ACK_TRUE);
    EXPECT_EQ(l.n_check, 1u);
    EXPECT_EQ(l.n_com_mode, 1u);
    EXPECT_STREQ(l.n_slot_id, "7");
    EXPECT_EQ(std::string(l.file_path), path.substr(0, 254));
    EXPECT_EQ(l.n_boot_mode, 1u);
    EXPECT_EQ(l.n_deviceindex, 0x11u);
    EXPECT_EQ(l.n_version, 0u);

    CaptureStderr();
    EXPECT_EQ(parse(&l, {"-h", "-x", "-m"}), EN_MID_ACK_TRUE);  // no -h here: skipped
    GetCapturedStderr();
    EXPECT_EQ(cmd_parse_recvcard_mcu(nullptr, 1, nullptr), EN_MID_ACK_POINTER_NULL);
}
