// mcu_upgrade against the simulated bootloader served on a pty, and the exit statuses and
// messages of the host programs for command lines they refuse before any port or socket
// is opened.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "isp_sim/pty_server.h"
#include "run_tool.h"

using tools_test::run_tool;

namespace {

class Programs : public testing::Test {
  protected:
    void SetUp() override {
        if (tools_test::tool_path("mcu_upgrade").empty())
            GTEST_SKIP() << "TRANSFER_BINARY_DIR not set: run through ctest";
        for (size_t i = 0; i < image_.size(); ++i)
            image_[i] = static_cast<char>(i * 7 + i / 256);
        file_ = dir_.write("fw.bin", image_);
    }
    sdk::test::TempDir dir_;
    std::string image_ = std::string(3000, '\0');
    std::string file_;
};

}  // namespace

// A bootloader that takes the image (verified and started, or not verified), one that
// corrupts a byte, one that falls silent during the read-back, one that refuses the erase
// and a silent one. The part is named only after a read that waits out the time-out
// (-t 1000): a run timed without it would report about a second less than it took.
// Explanations of failures come before the programmer's lines; the programmer's chatter
// stays off standard output.
TEST_F(Programs, McuUpgradeAgainstTheBootloader) {
    isp_sim::Config good, corrupting, fading, refusing, silent;
    ASSERT_TRUE(isp_sim::part_config("gd32f303", &good));
    corrupting.corrupt_at = 0x08000abc;  // the image has 0x2e there
    fading.silent_after_reads = 5;
    refusing.refuse_erase = true;
    silent.ignore_syncs = 100;
    const struct {
        isp_sim::Config cfg;
        const char *args;
        int status, reads;
        const char *message;
    } cases[] = {
        {good, "-t 1000 -g 0", 0, 12,
         "3000 bytes written and verified at 0x08000000, part MCU_GD32F303\nmcu_upgrade: the "
         "application was started at 0x08000000\n"},
        {corrupting, "-t 100 --no-verify", 0, 0, "3000 bytes written (not verified) at 0x0800"},
        {corrupting, "-t 100 --go 0", 4, 11,
         "failed (-6): the flash differs from the image: 0x08000abc holds 0xd1, the image 0x2e"},
        {fading, "-t 100", 1, 5, "failed (-5): the read-back broke off at 0x08000500"},
        {refusing, "-t 100", 1, 0, "failed (-2): the bootloader refused the erase"},
        {silent, "-t 100", 1, 0, "failed (-1): the bootloader did not answer"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args + std::string(" ") + c.message);
        isp_sim::PtyServer server(c.cfg);
        ASSERT_TRUE(server.open());
        server.start();
        const auto start = std::chrono::steady_clock::now();
        std::vector<std::string> args = tools_test::split(c.args, {});
        args.insert(args.end(), {"-p", file_, server.slave_path()});
        const auto run = run_tool("mcu_upgrade", args);
        const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
        server.stop();
        EXPECT_EQ(run.status, c.status) << run.out << run.err;
        EXPECT_EQ(run.out.find("try_times"), std::string::npos);
        const bool written = !c.cfg.refuse_erase && c.cfg.ignore_syncs == 0;
        std::string held = image_;
        if (c.cfg.corrupt_at) held[*c.cfg.corrupt_at - 0x08000000] ^= '\xff';
        const std::vector<uint8_t> flash = server.flash();
        EXPECT_EQ(std::string(flash.begin(), flash.begin() + 3000) == held, written);
        const isp_sim::Stats stats = server.stats();
        EXPECT_EQ(stats.writes, written ? 12 : 0);
        EXPECT_EQ(stats.reads, c.reads);
        const bool go = c.status == 0 && strstr(c.args, "-g") != nullptr;
        EXPECT_EQ(stats.go_address, go ? 0x08000000u : 0u);
        EXPECT_EQ(run.err.find("\rverify [" + std::string(40, '#') + "] 100%") != std::string::npos,
                  c.reads == 12);
        if (c.status != 0) {
            const size_t explained = run.err.find(c.message);
            EXPECT_NE(explained, std::string::npos) << run.err;
            EXPECT_LT(explained, run.err.find("try_times")) << run.err;
            continue;
        }
        EXPECT_NE(run.out.find(c.message), std::string::npos) << run.out;
        EXPECT_NE(run.err.find("write  [" + std::string(40, '#') + "] 100%"), std::string::npos);
        const size_t at = run.out.find("done in ");
        ASSERT_NE(at, std::string::npos) << run.out;
        EXPECT_GT(std::stod(run.out.substr(at + 8)), wall.count() - 0.5) << run.out;
        EXPECT_LE(std::stod(run.out.substr(at + 8)), wall.count() + 0.1) << run.out;
    }
}

// Numbers are taken whole and in range, texts only when they fit their field (the
// library's parser would store "abc" as 0, "4x" as 4, "-5" as 0xfffffffb and cut a long
// slot or path), inputs only when they are regular files that fit. In the command lines,
// D is the test's folder, F a 3000-byte image, T a missing device, O a 1-byte file, B a
// file larger than the flash, L a path too long for its field.
TEST_F(Programs, RefusedCommandLines) {
    const std::map<std::string, std::string> words = {
        {"D", dir_.path()},
        {"F", file_},
        {"T", dir_.path() + "/no-such-tty"},
        {"O", dir_.write("one.bin", "\x01")},
        {"B", dir_.write("big.bin", std::string((3u << 20) + 1, '\0'))},
        {"L", dir_.path() + "/" + std::string(250, 'p')},
        {"S", std::string(512, '0') + "7"}};
    const struct {
        const char *tool, *args;
        int status;
        const char *message;
    } cases[] = {
        {"mcu_upgrade", "-p F T", 3, "cannot open"},
        {"mcu_upgrade", "-p F", 2, "TRANSFER_CONFIG"},  // no device, no slot
        {"mcu_upgrade", "-p D T", 3, " is not a regular file"},
        {"mcu_upgrade", "-p /dev/zero T", 3, "/dev/zero is not a regular file"},
        {"mcu_upgrade", "-p B T", 3, "at most 3145728 fit the flash"},
        {"mcu_upgrade", "-p F -l abc T", 2, "-l 'abc': must be a number from 1 to 3145728"},
        {"mcu_upgrade", "-p F -s -1", 2, "-s '-1'"},
        {"mcu_upgrade", "-p L T", 2, "at most 254 fit"},
        {"mcu_upgrade", "-p F --go T", 2, "-g '"},
        {"transfer_tool", "-R 1", 2, "no slot: give -s"},
        {"transfer_tool", "-s", 2, "option -s needs a value"},
        {"transfer_tool", "-s 1 -x", 2, "unknown option -x"},
        {"transfer_tool", "-s 1 extra", 2, "unexpected argument 'extra' (data values follow -d)"},
        {"transfer_tool", "-s 1 -E 1", 2, "nothing to write: give -d values, -P file or -L"},
        {"transfer_tool", "-s 1 -E 1 -d 1 -P O", 2, "give the data with -d or -P, not both"},
        {"transfer_tool", "-s 1 -E 1 -L 4 -P O", 2, "the file of -P has 1 bytes, fewer than -L 4"},
        {"transfer_tool", "-s 1 -E 1 -P D", 1, " is not a regular file"},
        {"transfer_tool", "-s 1 -L 8997", 2, "-L: at most 8996 bytes"},
        {"transfer_tool", "-s 1 -E 1 -L 8969 -d 1", 2, "-L: a write carries at most 8968 bytes"},
        {"transfer_tool", "-s 1 -B 2 -E 1 -L 8963", 2, "-L: a write carries at most 8962 bytes"},
        {"transfer_tool", "-s 1 -d 0x100", 2, "data value '0x100' is not a byte (0 to 0xff)"},
        {"transfer_tool", "-s 1 -L abc", 2, "-L 'abc': must be a number from 0 to 0xffffffff"},
        {"transfer_tool", "-s 1 --length=4294967296", 2, "-L '4294967296': must be"},
        {"transfer_tool", "-s 1 -R -5", 2, "-R '-5': must be"},
        {"transfer_tool", "-s 1 -C 0", 2, "-C '0': must be a number from 1 to 4294967295"},
        {"transfer_tool", "-s 1 -e 256", 2, "-e '256': must be a number from 0 to 0xff"},
        {"transfer_tool", "-s 1 -E 2", 2, "-E '2': must be 0 (read) or 1 (write)"},
        {"transfer_tool", "-s S", 2, "-s: the slot identifier has 513 characters, at most 511"},
        {"transfer_tool", "-s 1 -P L", 2, "-P: the path has 2"},
        {"transfer_tool", "--json -f", 2, "option -f needs a file (- for standard input)"},
        {"transfer_tool", "-f D", 1, " is not a regular file"},
        {"transfer_tool", "-f F -s 1", 2, "with -f the requests come from"},
    };
    for (const auto &c : cases) {
        const auto run = run_tool(c.tool, tools_test::split(c.args, words),
                                  {"TRANSFER_CONFIG=" + dir_.path() + "/none.json"});
        EXPECT_EQ(run.status, c.status) << c.tool << " " << c.args << ": " << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << c.tool << ": " << run.err;
    }
}

TEST_F(Programs, AnswerBothHelpFlags) {
    for (const char *name :
         {"transfer_tool", "mcu_upgrade", "board_sim", "isp_sim/isp_sim_pty", "example_host"}) {
        const auto h = run_tool(name, {"-h"});
        const auto help = run_tool(name, {"--help"});
        EXPECT_EQ(h.status, 0) << name << ": " << h.err;
        EXPECT_EQ(help.status, 0) << name << ": " << help.err;
        const std::string text = h.out + h.err;
        EXPECT_NE(text.find("Usage"), std::string::npos) << name << ": " << text;
        EXPECT_EQ(text, help.out + help.err) << name;
        EXPECT_EQ(text.find("%%"), std::string::npos) << name << ": " << text;
    }
}
