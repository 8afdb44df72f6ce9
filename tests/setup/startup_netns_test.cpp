// Library start-up from configuration files, and the engine it starts: a serial round trip
// over a pty and reports from UDP report channels and from a serial stream. The engine has
// no shutdown, so each failing start-up runs in a child process of its own.
#include <dirent.h>
#include <net/if.h>
#include <unistd.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/netns_helpers.h"
#include "support/log_capture.h"
#include "support/pty.h"
#include "transfer_server.h"

namespace {

using Bytes = std::vector<uint8_t>;
using sdk::test::TempDir;

constexpr const char *kDevice = R"("device": {
    "main_card": {"slot_num": 1, "type_num": 3, "min_slot": 100, "max_slot": 100, "id_offset": 0},
    "sub_card":  {"slot_num": 1, "type_num": 1, "min_slot": 1,   "max_slot": 1,   "id_offset": 3}
  })";

std::string chassis(const std::string &tty, const std::string &main_ip = "127.0.0.2",
                    const std::string &param = "") {
    return std::string("{") + kDevice + "," + param + R"(
  "maincards": [{"slot": 100,
     "fpga": [{"id_offset": 0, "type": 1,   "ip": ")" +
           main_ip + R"(", "port": 6000},
              {"id_offset": 1, "type": 100, "ip": "127.0.0.2", "port": 6100}],
     "mcu":  [{"id_offset": 2, "type": 10,  "ip": ")" +
           tty + R"(", "port": 115200}]}],
  "subcards": [{"slot": 1, "fpga": [{"id_offset": 0, "type": 100, "ip": "127.0.1.1", "port": 6101}]}]
})";
}

// Runs start-up in the current (child) process and reports its result on stderr.
void init_and_report(const std::string &path, char slot) {
    char slots[] = {slot};
    const int32_t r = sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str()));
    fprintf(stderr, "ret=%d\n", r);
    fflush(stderr);
    _exit(0);
}

Bytes serial_frame(uint16_t lable, uint8_t param, const Bytes &data) {
    Bytes f(30, 0);
    f[0] = 0xBB;
    f[1] = 0x55;
    f[5] = 1;
    f[6] = static_cast<uint8_t>(lable);
    f[7] = static_cast<uint8_t>(lable >> 8);
    f[10] = param;
    f[28] = static_cast<uint8_t>(data.size());
    for (uint8_t d : data)
        f.push_back(d);  // (insert trips a GCC 12 bounds false positive)
    f.push_back(0);
    f.push_back(0);
    f[8] = static_cast<uint8_t>(f.size() - 10);
    return f;
}

std::set<std::string> thread_names() {
    std::set<std::string> names;
    DIR *d = opendir("/proc/self/task");
    while (dirent *e = d != nullptr ? readdir(d) : nullptr) {
        std::ifstream comm(std::string("/proc/self/task/") + e->d_name + "/comm");
        std::string n;
        if (std::getline(comm, n)) names.insert(n);
    }
    if (d != nullptr) closedir(d);
    return names;
}

class StartupFailure : public ::testing::Test {
  protected:
    void SetUp() override {
        SKIP_OUTSIDE_PRIVATE_NETNS();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        sdk::test::log_capture();
    }
    TempDir dir_;
};

TEST_F(StartupFailure, FailingStepsEndWithTheirCode) {
    EXPECT_EXIT(init_and_report(dir_.path() + "/missing.json", 1), ::testing::ExitedWithCode(0),
                "ret=-1000");
    EXPECT_EXIT(init_and_report(dir_.write("bad.json", "{\"device\": "), 1),
                ::testing::ExitedWithCode(0), "ret=-1000");
    EXPECT_EXIT(init_and_report(dir_.write("nodev.json", R"({"maincards": []})"), 1),
                ::testing::ExitedWithCode(0), "ret=14");
    const std::string zero_lists = chassis(
        "/dev/null", "127.0.0.2",
        R"("transfer_param": {"send_list_num": 1, "send_thread_num": 1, "monitor_list_num": 0, "monitor_thread_num": 1},)");
    EXPECT_EXIT(init_and_report(dir_.write("zero.json", zero_lists), 1),
                ::testing::ExitedWithCode(0), "ret=-3");
    EXPECT_EXIT(init_and_report(dir_.write("ep.json", chassis("/dev/null", "not-an-ip")), 1),
                ::testing::ExitedWithCode(0), "ret=-4000");
}

// A start-up that fails (no file; a bad entry after channels were opened) leaves nothing
// open or allocated behind, so a later call starts afresh.
TEST_F(StartupFailure, FailedStartUpLeavesNothingAndCanBeRetried) {
    const std::string good = dir_.write("good.json", chassis("/dev/null"));
    std::string broken = chassis("/dev/null");
    broken.replace(broken.find("\"slot\": 1,"), 10, "\"slot\": 9,");  // outside 1..1
    const std::string bad = dir_.write("bad_sub.json", broken);
    auto open_fds = [] {
        int n = 0;
        DIR *d = opendir("/proc/self/fd");
        while (d != nullptr && readdir(d) != nullptr)
            ++n;
        if (d != nullptr) closedir(d);
        return n;
    };
    auto attempts = [&] {
        char slots[] = {1};
        auto init = [&](const std::string &path) {
            return sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str()));
        };
        const int fds = open_fds();
        const int32_t a = init(dir_.path() + "/missing.json");
        const int32_t b = init(bad);
        const int leaked = open_fds() - fds;
        const int32_t c = init(good);
        const int32_t d = init(good);
        fprintf(stderr, "ret=%d,%d,%d,%d leaked=%d\n", a, b, c, d, leaked);
        fflush(stderr);
        _exit(0);
    };
    EXPECT_EXIT(attempts(), ::testing::ExitedWithCode(0), "ret=-1000,-1000,0,0 leaked=0");
}

// Channels that start-up had to leave closed (eth0 down, the serial device not there yet)
// open when the host calls again; requests for them are refused until then.
TEST_F(StartupFailure, ClosedChannelsOpenOnALaterCall) {
    auto run = [&] {
        sdk::test::PtyPair pty;
        const std::string tty = dir_.path() + "/ttyMCU";
        const std::string path = dir_.write("late.json", chassis(tty));
        char slots[] = {1};
        auto init = [&] { return sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str())); };
        auto request = [](transfer_section section, transfer_op_t *op) {
            *op = transfer_op_t{};
            op->e_mode = section;
            op->n_slot = 100;
            op->n_timeout = 2000;
            op->n_read_len = 4;
            op->st_addr_param.n_device_type = section == FPGA ? DEVICE_FPGA : DEVICE_MCU;
            return sdk_request(nullptr, 0, op);
        };
        sdk::test::set_link("eth0", false);
        const int32_t first = init();
        transfer_op_t udp{}, uart{};
        const int32_t refused_udp = request(FPGA, &udp), refused_uart = request(MCU, &uart);

        sdk::test::set_link("eth0", true);
        for (int i = 0; i < 200 && !(sdk::test::link_flags("eth0") & IFF_RUNNING); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (symlink(pty.slave_path().c_str(), tty.c_str()) != 0) _exit(3);
        const int32_t again = init();

        const int board = sdk::test::udp_socket("127.0.0.2", 6000);
        const int32_t sent_udp = request(FPGA, &udp), sent_uart = request(MCU, &uart);
        uint8_t buf[64];
        const ssize_t n = recv(board, buf, sizeof buf, 0);  // the UDP frame
        const sockaddr_in engine = sdk::test::inet("127.0.0.1", 6000);
        const Bytes udp_reply =
            serial_frame(static_cast<uint16_t>(buf[6] | (buf[7] << 8)), 0, {1, 2});
        sendto(board, udp_reply.data(), udp_reply.size(), 0,
               reinterpret_cast<const sockaddr *>(&engine), sizeof engine);
        const Bytes frame = pty.receive(32, 2000);  // the serial frame
        if (frame.size() >= 8)
            pty.send(serial_frame(static_cast<uint16_t>(frame[6] | (frame[7] << 8)), 0, {3}));
        char rbuf[SDK_DATA_BUF_LEN];
        const int32_t got_udp = sdk_request_wait(rbuf, &udp);
        const int32_t got_uart = sdk_request_wait(rbuf, &uart);
        fprintf(stderr, "ret=%d refused=%d,%d again=%d sent=%d,%d frame=%zd got=%d,%d\n", first,
                refused_udp, refused_uart, again, sent_udp, sent_uart, n, got_udp, got_uart);
        fflush(stderr);
        _exit(0);
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0),
                "ret=0 refused=-4000,-4000 again=0 sent=0,0 frame=32 got=6,1");
}

// Serves one request written on the pty by answering on its master side.
TEST(Startup, RunningEngineServesSerialRepliesAndQueuesReports) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    auto &log = sdk::test::log_capture();
    sdk::test::PtyPair pty;
    TempDir dir;
    const std::string path = dir.write("chassis.json", chassis(pty.slave_path()));
    char slots[] = {1};
    ASSERT_EQ(sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str())), 0);
    EXPECT_EQ(sdk_get_uart_fd(), g_st_transfer.st_info[2].n_fd);

    const auto names = thread_names();
    for (const char *n :
         {"sender_thread", "recv_thread", "report_recv", "uart_recv", "monitor_thread"}) {
        EXPECT_TRUE(names.count(n)) << n;
    }
    log.clear();
    EXPECT_EQ(sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str())), 0);
    EXPECT_TRUE(log.contains("already initialised, 0 closed channel(s) opened now"));

    // Round trip on the serial channel: the device answers with the request's label.
    transfer_op_t op{};
    op.e_mode = MCU;
    op.n_slot = 100;
    op.n_timeout = 2000;
    op.e_code = FRAME_READ;
    op.n_read_len = 4;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = 0x10;
    op.st_addr_param.n_device_type = DEVICE_MCU;
    ASSERT_EQ(sdk_request(nullptr, 0, &op), 0);
    const Bytes sent = pty.receive(32, 1500);
    ASSERT_GE(sent.size(), 10u);
    EXPECT_EQ(sent[0], 0x55);
    const auto lable = static_cast<uint16_t>(sent[6] | (sent[7] << 8));
    pty.send(serial_frame(lable, 0x00, {0xDE, 0xAD, 0xBE, 0xEF}));
    char rbuf[9000] = {};
    ASSERT_EQ(sdk_request_wait(rbuf, &op), 4);
    EXPECT_EQ(Bytes(rbuf, rbuf + 4), (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));

    // Reports: two UDP report channels (slots 100 and 1) and one from the serial stream,
    // this one split over two writes.
    const Bytes udp_report = serial_frame(0, 0x10, {1, 2, 3});
    const int main_board = sdk::test::udp_socket("127.0.0.2", 6100);
    const int sub_board = sdk::test::udp_socket("127.0.1.1", 6101);
    ASSERT_GE(main_board, 0);
    ASSERT_GE(sub_board, 0);
    const sockaddr_in to_main = sdk::test::inet("127.0.0.1", 6100);
    const sockaddr_in to_sub = sdk::test::inet("127.0.0.1", 6101);
    sendto(main_board, udp_report.data(), udp_report.size(), 0,
           reinterpret_cast<const sockaddr *>(&to_main), sizeof(to_main));
    sendto(sub_board, udp_report.data(), udp_report.size(), 0,
           reinterpret_cast<const sockaddr *>(&to_sub), sizeof(to_sub));
    const Bytes uart_report = serial_frame(7, 0x10, {9, 9});
    pty.send(Bytes(uart_report.begin(), uart_report.begin() + 5));
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    pty.send(Bytes(uart_report.begin() + 5, uart_report.end()));

    std::multiset<std::pair<uint32_t, Bytes>> got;
    auto rec = std::make_unique<report_queue_data_t>();
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (got.size() < 3 && std::chrono::steady_clock::now() < until) {
        if (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) == 0) {
            got.insert({rec->n_slot, Bytes(rec->arr_buf, rec->arr_buf + rec->n_len)});
            sdk_report_queue_pull(sdk_get_report_queue());
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    const std::multiset<std::pair<uint32_t, Bytes>> want = {
        {100, udp_report}, {1, udp_report}, {100, uart_report}};
    EXPECT_EQ(got, want);
    close(main_board);
    close(sub_board);
}

}  // namespace

namespace {

// sdk_transfer_exit ends what is in flight, stops the threads, closes the channels and
// frees the engine; start-up then runs again as in a fresh process.
TEST(Startup, ExitStopsTheEngineAndStartUpRunsAgain) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    sdk::test::log_capture();
    sdk::test::PtyPair pty;
    TempDir dir;
    const std::string path = dir.write("exit.json", chassis(pty.slave_path()));
    char slots[] = {1};
    auto engine_threads = [] {
        const auto names = thread_names();
        return names.count("sender_thread") + names.count("recv_thread") +
               names.count("monitor_thread") + names.count("uart_recv") +
               names.count("report_recv");
    };
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str())), 0) << round;
        EXPECT_EQ(engine_threads(), 5u);
        transfer_op_t op{};
        op.e_mode = FPGA;
        op.n_slot = 100;
        op.n_timeout = 60000;  // nobody answers: only the exit ends it
        op.n_read_len = 4;
        ASSERT_EQ(sdk_request(nullptr, 0, &op), 0);
        int32_t waited = 0;
        std::thread caller([&] {
            char rbuf[SDK_DATA_BUF_LEN];
            waited = sdk_request_wait(rbuf, &op);
        });
        EXPECT_EQ(sdk_transfer_exit(), 0);
        caller.join();
        EXPECT_EQ(waited, -4001);
        EXPECT_EQ(engine_threads(), 0u);
        EXPECT_EQ(g_st_transfer.n_num, 0);
        EXPECT_EQ(sdk_request(nullptr, 0, &op), -4000);  // nothing is configured now
    }
    EXPECT_EQ(sdk_transfer_exit(), 0);  // not running: nothing to do
}

}  // namespace
