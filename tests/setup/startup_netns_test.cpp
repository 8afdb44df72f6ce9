// Library start-up from a configuration file, and the engine it starts against the board
// simulator: failed start-ups and exits that leave nothing behind, channels left closed
// that open on a later call, round trips over UDP and a noisy serial line, and reports
// from UDP report channels and from inside the serial stream.
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "support/log_capture.h"
#include "support/netns_helpers.h"
#include "support/pty.h"
#include "support/sim_process.h"

namespace {

// data/chassis.json with its @FIELDS@ filled: main card 100 with its FPGA on UDP, a report
// channel and its MCU on a serial line, sub card 1 with a report channel.
std::string chassis(const std::string &tty, const std::string &ip = "127.0.0.2",
                    const char *sub_slot = "1", const char *lists = "1") {
    const char *src = getenv("TRANSFER_SOURCE_DIR");
    std::stringstream in;
    in << std::ifstream(std::string(src ? src : ".") + "/tests/setup/data/chassis.json").rdbuf();
    std::string s = in.str();
    const std::string fields[][2] = {
        {"@TTY@", tty}, {"@IP@", ip}, {"@SUB@", sub_slot}, {"@LISTS@", lists}};
    for (const auto &f : fields)
        s.replace(s.find(f[0]), f[0].size(), f[1]);
    return s;
}

transfer_op_t op_for(transfer_section section, frame_code code = FRAME_READ, uint32_t addr = 0,
                     int timeout = 2000) {
    transfer_op_t op{};
    op.e_mode = section;
    op.n_slot = 100;
    op.n_timeout = timeout;
    op.e_code = code;
    op.n_read_len = 4;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = addr;
    op.st_addr_param.n_device_type = section == FPGA ? DEVICE_FPGA : DEVICE_MCU;
    return op;
}

// The request's result (the reply's length, or its code), the reply in *out.
int32_t run(transfer_op_t op, std::string *out = nullptr, std::string wdata = "") {
    int32_t r = sdk_request(wdata.empty() ? nullptr : wdata.data(),
                            static_cast<uint32_t>(wdata.size()), &op);
    if (r != 0) return r;
    char buf[SDK_DATA_BUF_LEN];
    r = sdk_request_wait(buf, &op);
    if (out != nullptr && r > 0) out->assign(buf, static_cast<size_t>(r));
    return r;
}

long threads() {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
}

// Sockets and terminals open in this process: the channels' endpoints, the test's pty.
int endpoints() {
    int n = 0;
    for (const auto &e : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ec;
        const std::string target = std::filesystem::read_symlink(e.path(), ec).string();
        n += target.rfind("socket:", 0) == 0 || target.rfind("/dev/pts/", 0) == 0;
    }
    return n;
}

class Startup : public ::testing::Test {
  protected:
    void SetUp() override { SKIP_OUTSIDE_PRIVATE_NETNS(); }
    void TearDown() override { sdk_transfer_exit(); }
    int32_t init(const std::string &path) {
        char slots[] = {1};
        return sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str()));
    }
    sdk::test::LogCapture &log_ = sdk::test::log_capture();
    sdk::test::TempDir dir_;
    sdk::test::PtyPair pty_;
};

// A failed start-up (also one failing after channels were opened) leaves nothing open,
// so a later call starts afresh; sdk_transfer_exit ends what is in flight, stops the
// threads and closes the channels, and start-up then runs again.
TEST_F(Startup, FailuresAndExitLeaveNothingBehind) {
    const std::string good = chassis(pty_.slave_path());
    const std::pair<std::string, int32_t> failures[] = {
        {"", -1000},
        {"{\"device\": ", -1000},
        {"{\"maincards\": []}", 14},
        {chassis(pty_.slave_path(), "127.0.0.2", "1", "0"), -3},
        {chassis(pty_.slave_path(), "not-an-ip"), -4000},
        {chassis(pty_.slave_path(), "127.0.0.2", "9"), -1000},  // sub card outside 1..1
    };
    const int fds = endpoints();
    std::thread([] {}).join();  // (a sanitizer starts its own thread with the first one)
    const long idle = threads();
    for (const auto &[text, ret] : failures) {
        EXPECT_EQ(init(text.empty() ? dir_.path() + "/missing.json" : dir_.write("f.json", text)),
                  ret)
            << text;
        EXPECT_EQ(endpoints(), fds) << text;
    }
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(init(dir_.write("good.json", good)), 0);
        EXPECT_EQ(threads(), idle + 6);  // sender, receivers, trigger, monitor
        log_.clear();
        EXPECT_EQ(init(dir_.path() + "/good.json"), 0);
        EXPECT_TRUE(log_.contains("already initialised, 0 closed channel(s) opened now"));
        transfer_op_t op = op_for(FPGA, FRAME_READ, 0, 60000);  // nobody answers
        ASSERT_EQ(sdk_request(nullptr, 0, &op), 0);
        int32_t waited = 0;
        std::thread caller([&] {
            char buf[SDK_DATA_BUF_LEN];
            waited = sdk_request_wait(buf, &op);
        });
        EXPECT_EQ(sdk_transfer_exit(), 0);
        caller.join();
        EXPECT_EQ(waited, -4001);
        EXPECT_EQ(threads(), idle);
        EXPECT_EQ(endpoints(), fds);
        EXPECT_EQ(sdk_request(nullptr, 0, &op), -4000);  // nothing is configured now
    }
    EXPECT_EQ(sdk_transfer_exit(), 0);  // not running: nothing to do
}

// Channels that start-up had to leave closed (eth0 down, the serial device not there yet)
// open when the host calls again; requests for them are refused until then. Then the
// engine serves the simulated chassis.
TEST_F(Startup, ClosedChannelsOpenOnALaterCallAndServeTheChassis) {
    const std::string link = dir_.path() + "/mcu", tty = dir_.path() + "/late";
    sdk::test::SimProcess sim({"--udp", "127.0.0.2:6000", "--pty", link, "--serial-split",
                               "--serial-noise", "50", "--serial-report", link + ":3600000",
                               "--report", "127.0.0.2:6100:6100:3600000", "--report",
                               "127.0.1.1:6101:6101:3600000"});
    ASSERT_TRUE(sim.wait_ready());
    ASSERT_TRUE(sdk::test::set_link("eth0", false));
    const int32_t first = init(dir_.write("chassis.json", chassis(tty)));
    ASSERT_TRUE(sdk::test::set_link("eth0", true));
    ASSERT_EQ(first, 0);
    EXPECT_EQ(run(op_for(FPGA)), -4000);
    EXPECT_EQ(run(op_for(MCU)), -4000);
    ASSERT_EQ(symlink(link.c_str(), tty.c_str()), 0);
    ASSERT_EQ(init(dir_.path() + "/chassis.json"), 0);
    EXPECT_EQ(sdk_get_uart_fd(), g_st_transfer.st_info[2].n_fd);

    // Serial replies hand over the data alone; UDP replies error code and length first.
    for (uint32_t i = 0; i < 25; ++i) {
        const std::string value = "s" + std::to_string(100 + i);
        std::string got;
        ASSERT_EQ(run(op_for(MCU, FRAME_WRITE, 0x100 + 4 * i), nullptr, value), 0) << i;
        ASSERT_EQ(run(op_for(MCU, FRAME_READ, 0x100 + 4 * i), &got), 4) << i;
        EXPECT_EQ(got, value);
        ASSERT_EQ(run(op_for(FPGA, FRAME_WRITE, 0x200 + 4 * i), nullptr, value), 4) << i;
        ASSERT_EQ(run(op_for(FPGA, FRAME_READ, 0x200 + 4 * i), &got), 8) << i;
        EXPECT_EQ(got.substr(4), value);
    }

    // One report from each source, on demand, after whatever came before.
    auto rec = std::make_unique<report_queue_data_t>();
    report_queue_t *queue = sdk_get_report_queue();
    while (sdk_report_queue_get_first(rec.get(), queue) == 0)
        sdk_report_queue_pull(queue);
    kill(sim.pid(), SIGUSR1);
    std::multiset<std::pair<uint32_t, uint8_t>> got;  // slot, first byte (BB: the serial stream)
    EXPECT_TRUE(sdk::test::wait_until([&] {
        if (sdk_report_queue_get_first(rec.get(), queue) != 0) return false;
        sdk_report_queue_pull(queue);
        EXPECT_EQ(rec->n_len, 36u);
        EXPECT_NE(rec->arr_buf[10] & 0x10, 0);
        got.insert({rec->n_slot, rec->arr_buf[0]});
        return got.size() == 3;
    }));
    EXPECT_EQ(got,
              (std::multiset<std::pair<uint32_t, uint8_t>>{{1, 0x55}, {100, 0x55}, {100, 0xBB}}));
    EXPECT_EQ(sim.wait_exit(true), 0);
    const std::string stats = sim.line();
    EXPECT_NE(stats.find("bad=0"), std::string::npos) << stats;
    EXPECT_EQ(stats.find("noise=0 "), std::string::npos) << stats;
}

}  // namespace
