// transfer_tool as a child process against the board simulator on loopback, inside the
// private network namespace that ctest runs this program in.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/netns_helpers.h"
#include "run_tool.h"
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

class TransferTool : public testing::Test {
  protected:
    void SetUp() override {
        SKIP_OUTSIDE_PRIVATE_NETNS();
        if (tools_test::tool_path("transfer_tool").empty())
            GTEST_SKIP() << "TRANSFER_BINARY_DIR not set: run through ctest";
        env_ = {"TRANSFER_CONFIG=" + dir_.write("chassis.json", kChassis),
                "TRANSFER_ZLOG_CONFIG=" + dir_.path() + "/none.conf"};
    }
    tools_test::Run tool(const std::vector<std::string> &args,
                         const std::vector<std::string> &more_env = {}) {
        std::vector<std::string> env = more_env;
        env.insert(env.end(), env_.begin(), env_.end());
        return run_tool("transfer_tool", args, env);
    }

    sdk::test::TempDir dir_;
    std::vector<std::string> env_;
};

}  // namespace

TEST_F(TransferTool, WritesAndReadsBackRegisters) {
    sdk::test::SimProcess sim({"--udp", "127.0.0.2:6300", "--udp", "127.0.0.3:6300", "--trace"});
    ASSERT_TRUE(sim.wait_ready());

    auto run =
        tool({"-s", "100", "-R", "0x1000", "-E", "1", "-L", "4", "-d", "0x12", "0x34", "0x56"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("#1 write 4 bytes at 0x00001000 of slot 100 FPGA 0: 0 data bytes in"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("board error code 0"), std::string::npos) << run.out;

    run = tool({"-s", "100", "-R", "0x1000", "-L", "6", "-C", "2"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("#2 read 6 bytes at 0x00001000 of slot 100 FPGA 0: 6 data bytes"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("  0000  12 34 56 00 00 00 "), std::string::npos) << run.out;

    // The MCU is another device with registers of its own.
    run = tool({"-s", "100", "-D", "1", "-R", "0x1000", "-L", "2"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("  0000  00 00 "), std::string::npos) << run.out;

    // A receiving card written from a file and read back into one.
    const std::string in = dir_.write("in.bin", std::string("\x01\x02\x03\xff", 4));
    const std::string out = dir_.path() + "/out.bin";
    run = tool({"-s", "100", "-B", "2", "-e", "1", "-r", "5", "-R", "0x40", "-E", "1", "-P", in});
    EXPECT_EQ(run.status, 0) << run.err;
    run = tool({"-s", "100", "-B", "2", "-e", "1", "-r", "5", "-R", "0x40", "-L", "4", "-P", out});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out.find("board error code"), std::string::npos) << run.out;
    EXPECT_EQ(tools_test::slurp(out), std::string("\x01\x02\x03\xff", 4));

    // A reply that cannot be saved is an error, not a success.
    run = tool({"-s", "100", "-R", "0x1000", "-L", "2", "-P", "/dev/full"});
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_NE(run.err.find("cannot write /dev/full: No space left on device"), std::string::npos)
        << run.err;
    EXPECT_EQ(run.out.find("written to"), std::string::npos) << run.out;

    // A write without acknowledgement is confirmed by polling the card, which the simulator
    // traces.
    run = tool({"-s", "100", "-B", "2", "-e", "1", "-r", "5", "-R", "0x40", "-E", "1", "-A", "1",
                "-d", "7"});
    EXPECT_EQ(run.status, 0) << run.err;
    std::string line;
    do
        line = sim.line();
    while (!line.empty() &&
           line.find("poll of receiving card 5 behind port 1") == std::string::npos);
    EXPECT_NE(line, "") << "no poll traced";
}

TEST_F(TransferTool, TimeOutsRefusalsAndStartUpFailures) {
    auto run = tool({"-s", "1", "-D", "1", "-R", "0x10"},
                    {"TRANSFER_TIMEOUT_MS=100", "TRANSFER_RETRIES=1"});
    EXPECT_EQ(run.status, 4) << run.out << run.err;
    EXPECT_NE(run.err.find("#1 read 4 bytes at 0x00000010 of slot 1 MCU 0: timed out after"),
              std::string::npos)
        << run.err;
    EXPECT_EQ(run.out, "");

    run = tool({"-s", "7", "-R", "0x10"});
    EXPECT_EQ(run.status, 3) << run.err;
    EXPECT_NE(run.err.find("failed with -4000"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("slot 7 FPGA 0 is not in the configuration"), std::string::npos);

    run = tool({"-s", "100", "-R", "0x10"}, {"TRANSFER_CONFIG=" + dir_.path() + "/missing.json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("cannot start the transfer engine with"), std::string::npos) << run.err;

    run = tool({"-s", "100", "-R"});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("TRANSFER_CONFIG"), std::string::npos) << run.err;

    // Refused before anything is sent: inputs that are not regular files, a path that does
    // not fit, a device index the board does not have (routing would take another device).
    const struct {
        std::vector<std::string> args;
        int status;
        std::string message;
    } refused[] = {
        {{"-s", "100", "-E", "1", "-P", dir_.path()}, 1, " is not a regular file"},
        {{"-s", "100", "-E", "1", "-P", "/dev/zero"}, 1, "/dev/zero is not a regular file"},
        {{"-s", "100", "-P", dir_.path() + "/" + std::string(260, 'p')}, 2, "at most 254 fit"},
        {{"-s", "100", "-e", "5"}, 3, "slot 100 has 1 FPGA in the configuration"},
        {{"-s", "1", "-D", "0"}, 3, "slot 1 has no FPGA in the configuration"},
    };
    for (const auto &r : refused) {
        run = tool(r.args, {"TRANSFER_TIMEOUT_MS=100", "TRANSFER_RETRIES=0"});
        EXPECT_EQ(run.status, r.status) << r.message << ": " << run.err;
        EXPECT_NE(run.err.find(r.message), std::string::npos) << run.err;
    }

    // A configured serial device that is missing is named once, on standard error.
    const std::string serial = dir_.write("serial.json", R"({
      "device": {"backplane": {"slot_num": 1, "type_num": 1, "min_slot": 101, "max_slot": 101,
                               "id_offset": 0}},
      "backplane": [{"slot": 101, "mcu": [{"id_offset": 0, "type": 10,
                                           "ip": "/nonexistent/ttyTOOL", "port": 115200}]}]})");
    run = tool({"-s", "101", "-D", "1", "-R", "0x10"}, {"TRANSFER_CONFIG=" + serial});
    EXPECT_EQ(run.status, 3) << run.err;
    const size_t named = run.err.find("/nonexistent/ttyTOOL");
    EXPECT_NE(named, std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("/nonexistent/ttyTOOL", named + 1), std::string::npos) << run.err;
}
