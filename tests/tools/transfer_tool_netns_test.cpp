// transfer_tool as a child process against the board simulator on loopback, inside the
// private network namespace that ctest runs this program in.
#include <gtest/gtest.h>

#include <sstream>

#include "mio_json.h"
#include "run_tool.h"
#include "support/netns_helpers.h"
#include "support/sim_process.h"

using tools_test::run_tool;

namespace {

// Main card 100 with an FPGA (a sender card with receiving cards) and an MCU on the
// simulator; sub card 1 whose MCU nobody answers.
constexpr const char *kChassis = R"({
  "device": {
    "main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 0},
    "sub_card":  {"slot_num": 2, "type_num": 2, "min_slot": 1,   "max_slot": 2,   "id_offset": 2}
  },
  "rvcard_param": {"eth_max": 4, "rvcard_max": 16},
  "maincards": [{"slot": 100,
     "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.0.2", "port": 6300, "packet_code_type": 1}],
     "mcu":  [{"id_offset": 1, "type": 1, "ip": "127.0.0.3", "port": 6300}]}],
  "subcards": [{"slot": 1,
     "mcu":  [{"id_offset": 1, "type": 1, "ip": "127.0.0.12", "port": 6302}]}]
})";

}  // namespace

// Runs in order, each with its exit status and a text its standard output (or, for
// failures, its standard error) must hold once; later rows read what earlier ones wrote.
TEST(TransferTool, RunsAgainstTheSimulatedBoards) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    if (tools_test::tool_path("transfer_tool").empty())
        GTEST_SKIP() << "TRANSFER_BINARY_DIR not set: run through ctest";
    sdk::test::TempDir dir;
    const std::string config = "TRANSFER_CONFIG=" + dir.write("chassis.json", kChassis);
    const std::map<std::string, std::string> words = {
        {"I", dir.write("in.bin", std::string("\x01\x02\x03\xff", 4))},
        {"O", dir.path() + "/out.bin"},
        {"M", "TRANSFER_CONFIG=" + dir.path() + "/missing.json"},
        // A backplane MCU on a serial device that is missing.
        {"S", "TRANSFER_CONFIG=" + dir.write("serial.json", R"({
      "device": {"backplane": {"slot_num": 1, "type_num": 1, "min_slot": 101, "max_slot": 101,
                               "id_offset": 0}},
      "backplane": [{"slot": 101, "mcu": [{"id_offset": 0, "type": 10,
                                           "ip": "/nonexistent/ttyTOOL", "port": 115200}]}]})")}};
    sdk::test::SimProcess sim({"--udp", "127.0.0.2:6300", "--udp", "127.0.0.3:6300", "--trace"});
    ASSERT_TRUE(sim.wait_ready());
    const struct {
        const char *args;
        int status;
        const char *text, *absent = "\x01", *env = "";
    } cases[] = {
        {"-s 100 -R 0x1000 -E 1 -L 4 -d 0x12 0x34 0x56", 0,
         "#1 write 4 bytes at 0x00001000 of slot 100 FPGA 0: 0 data bytes in"},
        {"-s 100 -R 0x1000 -L 6 -C 2", 0,
         "#2 read 6 bytes at 0x00001000 of slot 100 FPGA 0: 6 data bytes"},
        {"-s 100 -R 0x1000 -L 6", 0, "  0000  12 34 56 00 00 00 "},
        {"-s 100 -D 1 -R 0x1000 -L 2", 0, "  0000  00 00 "},  // the MCU
        {"-s 0x64 -R 010 --length=0x10 -e 0", 0,
         "#1 read 16 bytes at 0x00000008 of slot 100 FPGA 0"},
        // A TLV write from a file cut to -L.
        {"-s 100 -B 1 -E 1 -R 0x20 -L 2 -P I", 0,
         "#1 write 2 bytes at tag 0x00000020 of slot 100 FPGA 0: 0 data bytes in"},
        {"-s 100 -B 2 -e 1 -r 5 -R 0x40 -E 1 -P I", 0,
         "write 4 bytes at 0x00000040 of receiving card 5"},
        {"-s 100 -B 2 -e 1 -r 5 -R 0x40 -L 4 -P O", 0, "written to", "board error code"},
        // A reply that cannot be saved is an error, not a success.
        {"-s 100 -R 0x1000 -L 2 -P /dev/full", 1, "cannot write /dev/full: No space left on device",
         "written to"},
        // A write without acknowledgement is confirmed by polling the card.
        {"-s 100 -B 2 -e 1 -r 5 -R 0x40 -E 1 -A 1 -d 7", 0, "no acknowledgement"},
        {"-s 1 -D 1 -R 0x10", 4, "#1 read 4 bytes at 0x00000010 of slot 1 MCU 0: timed out after",
         "\x01", "TRANSFER_TIMEOUT_MS=100 TRANSFER_RETRIES=1"},
        {"-s 7 -R 0x10", 3, "slot 7 FPGA 0 is not in the configuration"},
        {"-s 100 -e 5", 3, "slot 100 has 1 FPGA in the configuration"},
        {"-s 1 -D 0", 3, "slot 1 has no FPGA in the configuration"},
        {"-s 100 -R", 2, "TRANSFER_CONFIG"},
        {"-s 100 -R 0x10", 1, "cannot start the transfer engine with", "\x01", "M"},
        {"-s 101 -D 1 -R 0x10", 3, "/nonexistent/ttyTOOL", "\x01", "S"},  // named once
    };
    for (const auto &c : cases) {
        std::vector<std::string> env = {config, "TRANSFER_ZLOG_CONFIG=" + dir.path() + "/none"};
        for (const std::string &e : tools_test::split(c.env, words))
            env.push_back(e);  // the later entry wins
        const auto run = run_tool("transfer_tool", tools_test::split(c.args, words), env);
        EXPECT_EQ(run.status, c.status) << c.args << ": " << run.out << run.err;
        const std::string &shown = c.status == 0 ? run.out : run.err;
        const size_t at = shown.find(c.text);
        EXPECT_NE(at, std::string::npos) << run.out << run.err;
        EXPECT_EQ(shown.find(c.text, at + 1), std::string::npos) << shown;  // and only once
        EXPECT_EQ((run.out + run.err).find(c.absent), std::string::npos) << run.out << run.err;
        EXPECT_TRUE(c.status != 4 || run.out.empty()) << run.out;
    }
    EXPECT_EQ(tools_test::slurp(words.at("O")), std::string("\x01\x02\x03\xff", 4));
    std::string line;
    do
        line = sim.line();
    while (!line.empty() &&
           line.find("poll of receiving card 5 behind port 1") == std::string::npos);
    EXPECT_NE(line, "") << "no poll traced";
}

// A batch runs through one engine start-up and answers every request line in order, a
// bad line on its own result line; the exit status is the worst. Read from a file and
// from standard input, as text and as JSON, with the counters of the channel used.
TEST(TransferTool, RunsABatch) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    const std::string tool = tools_test::tool_path("transfer_tool");
    if (tool.empty()) GTEST_SKIP() << "TRANSFER_BINARY_DIR not set: run through ctest";
    sdk::test::TempDir dir;
    const std::vector<std::string> env = {"TRANSFER_CONFIG=" + dir.write("chassis.json", kChassis),
                                          "TRANSFER_ZLOG_CONFIG=" + dir.path() + "/none"};
    const std::string batch = dir.write("batch.txt",
                                        " # board check\n"
                                        "-s 100 -R 0x1000 -E 1 -L 4 -d 0x12 0x34 0x56\n"
                                        "-s 100 -x\n"
                                        "-s 7 -R 0x10\n"
                                        "\n"
                                        "\t-s 100  -R 0x1000 -L 4\r\n");
    sdk::test::SimProcess sim({"--udp", "127.0.0.2:6300", "--udp", "127.0.0.3:6300"});
    ASSERT_TRUE(sim.wait_ready());
    // -1 and "-": the member is absent (a line that did not become a request).
    const struct {
        int line, slot, addr, length, status, code;
        const char *op, *data, *text;
    } results[] = {
        {2, 100, 0x1000, 4, 0, 0, "write", "", "write 4 bytes at 0x00001000 of slot 100 FPGA 0: 0"},
        {3, -1, -1, -1, 2, -1, "-", "-", "unknown option -x (status 2)"},
        {4, 7, 0x10, 4, 3, -4000, "read", "",
         "slot 7 FPGA 0 is not in the configuration (status 3)"},
        {6, 100, 0x1000, 4, 0, 0, "read", "12345600", "board error code 0: 12 34 56 00"},
    };
    const std::string from_stdin = "exec \"$0\" -f - --stats <\"$1\"";
    for (const auto &args : {std::vector<std::string>{"-f", batch},
                             std::vector<std::string>{"-c", from_stdin, tool, batch}}) {
        const auto run = run_tool(args[0] == "-f" ? "transfer_tool" : "/bin/sh", args, env);
        EXPECT_EQ(run.status, 3) << run.out << run.err;
        std::istringstream out(run.out);
        std::string line;
        for (const auto &r : results) {
            ASSERT_TRUE(std::getline(out, line)) << run.out;
            EXPECT_EQ(line.rfind("line " + std::to_string(r.line) + ": ", 0), 0u) << line;
            EXPECT_NE(line.find(r.text), std::string::npos) << line;
        }
        // Only the second run asked for the counters.
        EXPECT_EQ(std::getline(out, line) && line.find("matched") != std::string::npos,
                  args[0] != "-f")
            << run.out;
    }
    // As JSON, then the counters: the write and the read went out on channel 0 and were
    // answered; channel 1 (the MCU) is open but idle.
    const auto run = run_tool("transfer_tool", {"--json", "-f", batch, "--stats"}, env);
    EXPECT_EQ(run.status, 3) << run.err;
    std::istringstream out(run.out);
    std::string line;
    for (const auto &r : results) {
        ASSERT_TRUE(std::getline(out, line)) << run.out;
        mio_json *j = mio_json_fromstring(line.c_str());
        ASSERT_NE(j, nullptr) << line;
        const auto text = [j](const char *key) {
            const char *v = mio_json_getobjectitemstr(j, key);
            return std::string(v != nullptr ? v : "-");
        };
        EXPECT_EQ(mio_json_getobjectitemint(j, "line"), r.line) << line;
        EXPECT_EQ(mio_json_getobjectitemint(j, "slot"), r.slot) << line;
        EXPECT_EQ(mio_json_getobjectitemint(j, "addr"), r.addr) << line;
        EXPECT_EQ(mio_json_getobjectitemint(j, "length"), r.length) << line;
        EXPECT_EQ(mio_json_getobjectitemint(j, "status"), r.status) << line;
        EXPECT_EQ(mio_json_getobjectitemint(j, "code"), r.code) << line;
        EXPECT_EQ(text("op"), r.op) << line;
        EXPECT_EQ(text("data"), r.data) << line;
        EXPECT_EQ(text("error").empty(), r.status == 0) << line;
        mio_json_delete(j);
    }
    for (const auto &[channel, sent] : {std::pair{0, 2}, std::pair{1, 0}}) {
        ASSERT_TRUE(std::getline(out, line)) << run.out;
        mio_json *j = mio_json_fromstring(line.c_str());
        EXPECT_EQ(mio_json_getobjectitemint(j, "channel"), channel) << line;
        EXPECT_EQ(mio_json_getobjectitemint(j, "frames_sent"), sent) << line;
        EXPECT_EQ(mio_json_getobjectitemint(j, "replies_matched"), sent) << line;
        mio_json_delete(j);
    }
    EXPECT_FALSE(std::getline(out, line)) << line;
}
