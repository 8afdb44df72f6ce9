// The option parsers of the register tool and of the firmware-upgrade tool, with hostile
// command lines: megabyte arguments, numbers beyond every range, tens of thousands of
// arguments and options cut off at the end of the vector.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "transfer_server.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

const std::string kHuge(1 << 20, 'A');  // stands for "HUGE" in a command line

// Parses "tool <line>" (split on spaces) into the record; the parsers may permute the
// argument pointers, which stay valid in `argv` until the next call.
std::vector<std::string> texts;
std::vector<char *> argv;
template <class Rec>
en_mid_ack parse(Rec *r, const std::string &line) {
    std::istringstream in("tool " + line);
    texts.clear();
    argv.clear();
    for (std::string word; in >> word; texts.push_back(word)) {
        if (size_t at = word.find("HUGE"); at != word.npos) word.replace(at, 4, kHuge);
    }
    for (std::string &s : texts)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    auto n = static_cast<int32_t>(texts.size());
    if constexpr (std::is_same_v<Rec, recvcard_struct>)
        return cmd_parse_recvcard(r, n, argv.data());
    else
        return cmd_parse_recvcard_mcu(r, n, argv.data());
}

recvcard_struct filled() {
    recvcard_struct r;
    memset(&r, 0x5A, sizeof(r));
    r.n_slot_id[0] = r.file_path[0] = '\0';
    return r;
}

// The numbers in hexadecimal, then the texts (a long one by its length).
template <class... N>
std::string show(const char *slot, const char *path, N... numbers) {
    std::ostringstream o;
    ((o << std::hex << static_cast<uint64_t>(numbers) << ' '), ...);
    for (const char *t : {slot, path})
        (strlen(t) > 20 ? o << '#' << std::dec << strlen(t) : o << t) << ' ';
    return o.str();
}

std::string show(const recvcard_struct &r) {
    uint32_t code = 0;  // the read/write field takes any number
    memcpy(&code, &r.n_e_code, sizeof code);
    return show(r.n_slot_id, r.file_path, r.n_reg_addr, r.n_length, r.n_eth_mask, r.n_recvcard_num,
                r.n_body_type, code, r.n_device_type, r.n_no_ack, r.n_times,
                static_cast<uint8_t>(r.data));
}

std::string show(const upgrade_mcu_t &m) {
    return show(m.n_slot_id, m.file_path, m.n_version, m.n_mode, m.n_com_mode, m.n_pre_erase,
                m.n_get_erase_result, m.n_reboot, m.n_check, m.n_mode_id, m.n_size, m.n_timeout,
                m.n_filetype, m.n_index, m.n_devicetype, m.n_deviceindex, m.n_boot_mode);
}

// -R -L -e -r -B -E -D -A -C, the data byte, -s, -P; "x" a field left as it was.
TEST(CmdParse, RegisterToolOptionsAndNumberBases) {
    const char *const cases[][2] = {
        {"-s 101 -R 0x00000001 -L 010 -e 2 -r 0x10 -B 2 -E 1 -D 1 -A 1 -C 7 -P /tmp/f",
         "1 8 2 10 2 1 1 1 7 5a 101 /tmp/f "},  // 010 is octal
        // Long forms; the last repeat wins.
        {"--slotid=5 --addr_reg 0x20 --n_e_code=0 --file_path=/a --n_times=1 --n_times=0xFFFFFFFF",
         "20 x x x x 0 x x ffffffff 5a 5 /a "},
        // Unknown options and a missing value draw getopt's complaints only.
        {"-x -R 9 -L", "9 x x x x x x x x 5a   "},
        // Texts are cut to their fields; strtol saturates and the low 32 bits are kept.
        {"-s HUGE --file_path=HUGE -R 0x1ffffffffffffffffffff -L -99999999999999999999 -E 7 -C "
         "junk -A 0x",
         "ffffffff 0 x x x 7 x 0 0 5a #511 #254 "},
    };
    for (auto [line, want] : cases) {
        recvcard_struct r = filled();
        CaptureStderr();
        EXPECT_EQ(parse(&r, line), EN_MID_ACK_TRUE);
        EXPECT_EQ(GetCapturedStderr().empty(), line[1] != 'x');
        std::string got = show(r);
        for (size_t at; (at = got.find("5a5a5a5a")) != got.npos;)
            got.replace(at, 8, "x");
        EXPECT_EQ(got, want) << line;
    }
}

TEST(CmdParse, RegisterToolHelpDataValuesAndArgumentFlood) {
    recvcard_struct r = filled();
    CaptureStderr();
    EXPECT_EQ(parse(&r, "-R 3 -h -L 4"), EN_MID_ACK_INVALID);
    std::string usage = GetCapturedStderr();
    EXPECT_EQ(usage.rfind("Usage: [OPTION...]\ntransfer_tool -s slot_id  -R reg", 0), 0u);
    EXPECT_NE(usage.find("write fpga:  transfer_tool -s 101 -R 0x00000001 -L 3"), usage.npos);
    EXPECT_EQ(r.n_reg_addr, 3u);         // stored before -h
    EXPECT_EQ(r.n_length, 0x5A5A5A5Au);  // never reached

    // The values after -d are left as non-option arguments for the tool.
    recvcard_struct before = r;
    EXPECT_EQ(parse(&r, "-d 0x0 0x1 0x0"), EN_MID_ACK_TRUE);
    EXPECT_EQ(memcmp(&r, &before, sizeof(r)), 0);
    ASSERT_EQ(optind, 3);
    EXPECT_STREQ(argv[3], "0x1");
    EXPECT_STREQ(argv[4], "0x0");

    std::string many;
    for (int i = 0; i < 25000; ++i)
        many += "-R " + std::to_string(i) + " ";
    EXPECT_EQ(parse(&r, many + "-s"), EN_MID_ACK_TRUE);  // no argument left for -s
    EXPECT_EQ(r.n_reg_addr, 24999u);
    EXPECT_EQ(cmd_parse_recvcard(&r, 2, nullptr), EN_MID_ACK_POINTER_NULL);
}

TEST(CmdParse, UpgradeToolFlagsNumbersAndTexts) {
    EXPECT_EQ(sizeof(upgrade_mcu_t), 827u);  // packed, as the tool's peers read it
    upgrade_mcu_t m{};
    EXPECT_EQ(parse(&m,
                    "-v -e -u -E -R -r -c -s 3 -m 0x2 -p /fw.bin -l 1024 -t 5000 -f 1 -i 4 "
                    "-d 1 -g 2 -b 3"),
              EN_MID_ACK_TRUE);
    EXPECT_EQ(show(m), "1 1 1 1 1 1 1 2 400 1388 1 4 1 2 1 3 /fw.bin ");  // -b: 1

    upgrade_mcu_t l{};
    EXPECT_EQ(parse(&l,
                    "--n_check --n_uart --n_slot_id HUGE --file_path HUGE --n_boot=HUGE "
                    "--n_deviceindex=0x11 -c1"),
              EN_MID_ACK_TRUE);
    EXPECT_EQ(show(l), "0 0 1 0 0 0 1 0 0 0 0 0 0 11 1 #511 #254 ");
    CaptureStderr();
    EXPECT_EQ(parse(&l, "-h -x --n_slot_id -t"), EN_MID_ACK_TRUE);  // no -h here
    GetCapturedStderr();
    EXPECT_STREQ(l.n_slot_id, "-t");  // an option's value even when it looks like an option
}

}  // namespace
