// Hostile command lines for both parsers: arguments of a megabyte, numbers beyond every
// range, tens of thousands of arguments and options cut off at the end of the vector.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "transfer_server.h"

namespace {

// An argument vector that owns its texts; the parsers may permute the pointers.
struct Argv {
    explicit Argv(std::vector<std::string> args) : texts(std::move(args)) {
        texts.insert(texts.begin(), "tool");
        for (std::string &t : texts)
            ptrs.push_back(t.data());
        ptrs.push_back(nullptr);
    }
    int32_t argc() const { return static_cast<int32_t>(texts.size()); }
    std::vector<std::string> texts;
    std::vector<char *> ptrs;
};

TEST(CmdInput, MegabyteArgumentsAreCutToTheirFields) {
    const std::string huge(1 << 20, 'A');
    Argv a({"-s", huge, "--file_path=" + huge, "-d", huge, huge});
    recvcard_struct r{};
    testing::internal::CaptureStderr();
    EXPECT_EQ(cmd_parse_recvcard(&r, a.argc(), a.ptrs.data()), EN_MID_ACK_TRUE);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(strlen(r.n_slot_id), sizeof(r.n_slot_id) - 1);
    EXPECT_EQ(strlen(r.file_path), sizeof(r.file_path) - 1);

    Argv m({"--n_slot_id", huge, "-p", huge, "--n_boot=" + huge, "-c" + huge});
    upgrade_mcu_t u{};
    EXPECT_EQ(cmd_parse_recvcard_mcu(&u, m.argc(), m.ptrs.data()), EN_MID_ACK_TRUE);
    EXPECT_EQ(strnlen(u.n_slot_id, sizeof(u.n_slot_id)), sizeof(u.n_slot_id) - 1);
    EXPECT_EQ(strnlen(u.file_path, sizeof(u.file_path)), sizeof(u.file_path) - 1);
    EXPECT_EQ(u.n_boot_mode, 1u);
    EXPECT_EQ(u.n_check, 1u);
}

TEST(CmdInput, NumbersBeyondTheirRangeStayDefined) {
    // strtol saturates; the low 32 bits of the saturated value are stored, whatever the
    // text, and -E takes any number without trouble for the read/write field.
    Argv a({"-R", "0x1ffffffffffffffffffff", "-L", "-99999999999999999999", "-E", "7", "-C", "junk",
            "-A", "0x"});
    recvcard_struct r{};
    EXPECT_EQ(cmd_parse_recvcard(&r, a.argc(), a.ptrs.data()), EN_MID_ACK_TRUE);
    EXPECT_EQ(r.n_reg_addr, 0xFFFFFFFFu);
    EXPECT_EQ(r.n_length, 0u);
    uint32_t code = 0;
    memcpy(&code, &r.n_e_code, sizeof(code));
    EXPECT_EQ(code, 7u);
    EXPECT_EQ(r.n_times, 0u);
    EXPECT_EQ(r.n_no_ack, 0u);
}

TEST(CmdInput, ManyArgumentsAndOptionsCutOffAtTheEnd) {
    std::vector<std::string> many;
    for (int i = 0; i < 50000; ++i)
        many.push_back(i % 2 ? std::to_string(i) : "-R");
    many.push_back("-s");  // no argument left for it
    Argv a(many);
    recvcard_struct r{};
    strcpy(r.n_slot_id, "keep");
    testing::internal::CaptureStderr();
    EXPECT_EQ(cmd_parse_recvcard(&r, a.argc(), a.ptrs.data()), EN_MID_ACK_TRUE);
    EXPECT_EQ(r.n_reg_addr, 49999u);
    EXPECT_STREQ(r.n_slot_id, "keep");

    Argv m({"-s", "1", "--n_slot_id", "-t"});
    upgrade_mcu_t u{};
    EXPECT_EQ(cmd_parse_recvcard_mcu(&u, m.argc(), m.ptrs.data()), EN_MID_ACK_TRUE);
    testing::internal::GetCapturedStderr();
    EXPECT_STREQ(u.n_slot_id, "-t");
}

}  // namespace
