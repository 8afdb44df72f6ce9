// The option parsers of the register tool and of the firmware-upgrade tool, with hostile
// command lines: megabyte arguments, numbers beyond every range, tens of thousands of
// arguments and options cut off at the end of the vector.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "transfer_server.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

// Parses "tool args..." into the record; the parsers may permute the argument pointers,
// which stay in *argv for the caller.
template <class Rec>
en_mid_ack parse(Rec *r, std::vector<std::string> args, std::vector<char *> *argv = nullptr) {
    static std::vector<std::string> texts;  // kept alive for the pointers left in argv
    texts = std::move(args);
    texts.insert(texts.begin(), "tool");
    std::vector<char *> own, &v = argv != nullptr ? *argv : own;
    for (std::string &s : texts)
        v.push_back(s.data());
    v.push_back(nullptr);
    auto n = static_cast<int32_t>(texts.size());
    if constexpr (std::is_same_v<Rec, recvcard_struct>)
        return cmd_parse_recvcard(r, n, v.data());
    else
        return cmd_parse_recvcard_mcu(r, n, v.data());
}

recvcard_struct filled() {
    recvcard_struct r;
    memset(&r, 0x5A, sizeof(r));
    r.n_slot_id[0] = r.file_path[0] = '\0';
    return r;
}

using Fields = std::vector<uint64_t>;
Fields fields(const recvcard_struct &r) {
    uint32_t code = 0;  // the read/write field takes any number
    memcpy(&code, &r.n_e_code, sizeof code);
    return {r.n_reg_addr, r.n_length,      r.n_eth_mask, r.n_recvcard_num, r.n_body_type,
            code,         r.n_device_type, r.n_no_ack,   r.n_times};
}

TEST(CmdParse, RegisterToolOptionsAndNumberBases) {
    const std::string huge(1 << 20, 'A');
    const uint64_t x = 0x5A5A5A5A;
    struct {
        std::vector<std::string> args;
        Fields want;  // -R -L -e -r -B -E -D -A -C
        std::string slot, path;
    } cases[] = {
        {{"-s", "101", "-R", "0x00000001", "-L", "010", "-e", "2",  "-r", "0x10", "-B",
          "2",  "-E",  "1",  "-D",         "1",  "-A",  "1",  "-C", "7",  "-P",   "/tmp/f"},
         {1, 8, 2, 16, 2, FRAME_WRITE, 1, 1, 7},  // 010 is octal
         "101",
         "/tmp/f"},
        // Long forms; a field no option names keeps its value; the last repeat wins.
        {{"--slotid=5", "--addr_reg", "0x20", "--n_e_code=0", "--file_path=/a", "--n_times=1",
          "--n_times=0xFFFFFFFF"},
         {0x20, x, x, x, x, FRAME_READ, x, x, 0xFFFFFFFF},
         "5",
         "/a"},
        // Unknown options and a missing value draw getopt's complaints only.
        {{"-x", "-R", "9", "-L"}, {9, x, x, x, x, x, x, x, x}, "", ""},
        // Texts are cut to their fields; strtol saturates and the low 32 bits are kept.
        {{"-s", huge, "--file_path=" + huge, "-R", "0x1ffffffffffffffffffff", "-L",
          "-99999999999999999999", "-E", "7", "-C", "junk", "-A", "0x"},
         {0xFFFFFFFF, 0, x, x, x, 7, x, 0, 0},
         huge.substr(0, 511),
         huge.substr(0, 254)},
    };
    for (auto &c : cases) {
        recvcard_struct r = filled();
        CaptureStderr();
        EXPECT_EQ(parse(&r, c.args), EN_MID_ACK_TRUE);
        EXPECT_EQ(GetCapturedStderr().empty(), c.args[0] != "-x");
        EXPECT_EQ(fields(r), c.want);
        EXPECT_EQ(r.n_slot_id, c.slot);
        EXPECT_EQ(r.file_path, c.path);
        EXPECT_EQ(r.data, 0x5A);
    }
}

TEST(CmdParse, RegisterToolHelpDataValuesAndArgumentFlood) {
    recvcard_struct r = filled();
    CaptureStderr();
    EXPECT_EQ(parse(&r, {"-R", "3", "-h", "-L", "4"}), EN_MID_ACK_INVALID);
    std::string usage = GetCapturedStderr();
    EXPECT_EQ(usage.rfind("Usage: [OPTION...]\ntransfer_tool -s slot_id  -R reg", 0), 0u);
    EXPECT_NE(usage.find("write fpga:  transfer_tool -s 101 -R 0x00000001 -L 3"), usage.npos);
    EXPECT_EQ(fields(r)[0], 3u);           // stored before -h
    EXPECT_EQ(fields(r)[1], 0x5A5A5A5Au);  // never reached

    // The values after -d are left as non-option arguments for the tool.
    recvcard_struct before = r;
    std::vector<char *> argv;
    EXPECT_EQ(parse(&r, {"-d", "0x0", "0x1", "0x0"}, &argv), EN_MID_ACK_TRUE);
    EXPECT_EQ(memcmp(&r, &before, sizeof(r)), 0);
    ASSERT_EQ(optind, 3);
    EXPECT_STREQ(argv[3], "0x1");
    EXPECT_STREQ(argv[4], "0x0");

    std::vector<std::string> many;
    for (int i = 0; i < 50000; ++i)
        many.push_back(i % 2 ? std::to_string(i) : "-R");
    many.push_back("-s");  // no argument left for it
    CaptureStderr();
    EXPECT_EQ(parse(&r, many), EN_MID_ACK_TRUE);
    GetCapturedStderr();
    EXPECT_EQ(r.n_reg_addr, 49999u);
    EXPECT_STREQ(r.n_slot_id, "");
    char tool[] = "tool", *one[] = {tool, nullptr};
    EXPECT_EQ(cmd_parse_recvcard(nullptr, 1, one), EN_MID_ACK_POINTER_NULL);
    EXPECT_EQ(cmd_parse_recvcard(&r, 2, nullptr), EN_MID_ACK_POINTER_NULL);
}

TEST(CmdParse, UpgradeToolFlagsNumbersAndTexts) {
    EXPECT_EQ(sizeof(upgrade_mcu_t), 827u);  // packed, as the tool's peers read it
    EXPECT_EQ(offsetof(upgrade_mcu_t, n_size), 771u);
    EXPECT_EQ(offsetof(upgrade_mcu_t, n_boot_mode), 823u);
    auto flags = [](const upgrade_mcu_t &m) {
        return Fields{
            m.n_version,  m.n_mode,  m.n_com_mode,   m.n_pre_erase,   m.n_get_erase_result,
            m.n_reboot,   m.n_check, m.n_mode_id,    m.n_size,        m.n_timeout,
            m.n_filetype, m.n_index, m.n_devicetype, m.n_deviceindex, m.n_boot_mode};
    };
    upgrade_mcu_t m{};
    EXPECT_EQ(parse(&m, {"-v", "-e",  "-u", "-E",      "-R", "-r",   "-c", "-s",   "3",
                         "-m", "0x2", "-p", "/fw.bin", "-l", "1024", "-t", "5000", "-f",
                         "1",  "-i",  "4",  "-d",      "1",  "-g",   "2",  "-b",   "3"}),
              EN_MID_ACK_TRUE);
    EXPECT_EQ(flags(m), (Fields{1, 1, 1, 1, 1, 1, 1, 2, 1024, 5000, 1, 4, 1, 2, 1}));  // -b: 1
    EXPECT_STREQ(m.n_slot_id, "3");
    EXPECT_STREQ(m.file_path, "/fw.bin");

    const std::string huge(1 << 20, 'p');
    upgrade_mcu_t l{};
    EXPECT_EQ(parse(&l, {"--n_check", "--n_uart", "--n_slot_id", huge, "--file_path", huge,
                         "--n_boot=" + huge, "--n_deviceindex=0x11", "-c1"}),
              EN_MID_ACK_TRUE);
    EXPECT_EQ(flags(l), (Fields{0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0x11, 1}));
    EXPECT_EQ(std::string(l.n_slot_id, strnlen(l.n_slot_id, sizeof l.n_slot_id)),
              huge.substr(0, sizeof l.n_slot_id - 1));
    EXPECT_EQ(std::string(l.file_path, strnlen(l.file_path, sizeof l.file_path)),
              huge.substr(0, 254));

    upgrade_mcu_t u{};
    CaptureStderr();
    EXPECT_EQ(parse(&u, {"-h", "-x", "-s", "1", "--n_slot_id", "-t"}), EN_MID_ACK_TRUE);  // no -h
    GetCapturedStderr();
    EXPECT_STREQ(u.n_slot_id, "-t");  // an option's value even when it looks like an option
    EXPECT_EQ(cmd_parse_recvcard_mcu(nullptr, 1, nullptr), EN_MID_ACK_POINTER_NULL);
}

}  // namespace
