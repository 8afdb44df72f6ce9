// A request's whole road over real UDP: request API, sender, network receive and the
// time-out monitor, against simulated boards.
#include <dirent.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <set>
#include <string>

#include "common/result.h"
#include "engine/engine_fixture.h"

// The wall clock of this program can be stepped, as a controller's is when it sets its
// clock after boot (RTC, NTP): these definitions take the place of the C library's for the
// engine too, and add g_wall_step_s to the realtime clock.
namespace {
std::atomic<long> g_wall_step_s{0};
}
extern "C" int clock_gettime(clockid_t id, struct timespec *ts) {
    const long r = syscall(SYS_clock_gettime, id, ts);
    if (r == 0 && id == CLOCK_REALTIME) ts->tv_sec += g_wall_step_s.load();
    return static_cast<int>(r);
}
extern "C" int gettimeofday(struct timeval *tv, void * /*tz*/) {
    struct timespec ts = {};
    const int r = clock_gettime(CLOCK_REALTIME, &ts);
    tv->tv_sec = ts.tv_sec;
    tv->tv_usec = ts.tv_nsec / 1000;
    return r;
}

namespace {

using namespace sdk::test;
using std::chrono::milliseconds;

class Engine : public ::testing::Test {
  protected:
    void SetUp() override {
        SKIP_OUTSIDE_PRIVATE_NETNS();
        ASSERT_EQ(engine_start_once(), 0);
    }
    // Runs one request to its end: the wait's result, the reply in *out.
    static int32_t run(transfer_op_t op, std::string *out = nullptr, std::string wdata = "") {
        int32_t r = sdk_request(wdata.empty() ? nullptr : wdata.data(),
                                static_cast<uint32_t>(wdata.size()), &op);
        if (r != 0) return r;
        char buf[SDK_DATA_BUF_LEN];
        r = sdk_request_wait(buf, &op);
        EXPECT_EQ(op.p_packet_node, nullptr);
        if (out != nullptr && r > 0) out->assign(buf, static_cast<size_t>(r));
        return r;
    }
    static long ms_between(Clock::time_point a, Clock::time_point b) {
        return std::chrono::duration_cast<milliseconds>(b - a).count();
    }
};

TEST_F(Engine, AcknowledgedReadIsAnsweredWithTheWrittenData) {
    FakeBoard board("127.0.0.2", 7000);
    transfer_op_t w = op_for(100, FPGA, FRAME_WRITE, 0x1000, 8);
    ASSERT_EQ(run(w, nullptr, "ABCDEFGH"), 4);  // error code and length, no data
    std::string reply;
    ASSERT_EQ(run(op_for(100, FPGA, FRAME_READ, 0x1000, 8), &reply), 12);
    EXPECT_EQ(reply.substr(4), "ABCDEFGH");
}

TEST_F(Engine, UnansweredFrameIsSentReplyTimesPlusOneThenTimesOut) {
    FakeBoard board("127.0.0.3", 7001, [](auto &, size_t) { return -1; });
    transfer_op_t op = op_for(100, MCU, FRAME_READ, 0x20, 4);
    op.n_timeout = 80;
    op.n_reply_times = 2;
    auto t0 = Clock::now();
    EXPECT_EQ(run(op), sdk::kErrTimeout);
    EXPECT_GE(ms_between(t0, Clock::now()), 3 * 80 - 5);
    std::this_thread::sleep_for(milliseconds(50));
    auto frames = board.frames();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[1].bytes, frames[0].bytes);
    EXPECT_EQ(frames[2].bytes, frames[0].bytes);
    // The channel is free again: the next request goes out and ends.
    EXPECT_EQ(run(op), sdk::kErrTimeout);
}

TEST_F(Engine, UnacknowledgedWriteEndsAfterItsWriteWait) {
    FakeBoard board("127.0.1.2", 7004);
    transfer_op_t op = op_for(2, FPGA, FRAME_WRITE, 0x30, 2);
    op.n_no_ack = EN_REQUEST_NO_ACK;
    op.n_write_wait_time = 60000;
    auto t0 = Clock::now();
    EXPECT_EQ(run(op, nullptr, "xy"), 0);
    EXPECT_GE(ms_between(t0, Clock::now()), 60);
    EXPECT_EQ(board.frames().size(), 1u);
}

TEST_F(Engine, PolledCardWriteRepeatsThePollWithOneLabelUntilAnswered) {
    // The first two polls go unanswered.
    FakeBoard board("127.0.1.1", 7002, [](const std::vector<uint8_t> &f, size_t) {
        static int polls = 0;
        if (frame_reg(f) == SDK_POLLING_REG_ADDR && ++polls <= 2) return -1;
        return 0;
    });
    transfer_op_t op = card_op(1, 3, FRAME_WRITE, 0x44, 2);
    op.n_no_ack = EN_REQUEST_NO_ACK;
    op.n_polling_state = 1;
    op.n_polling_time = 20;
    op.n_timeout = 1000;
    EXPECT_EQ(run(op, nullptr, "zz"), 0);
    auto frames = board.frames();
    ASSERT_EQ(frames.size(), 4u);  // the write, three polls
    EXPECT_NE(frame_reg(frames[0].bytes), SDK_POLLING_REG_ADDR);
    std::set<uint16_t> poll_lables;
    for (size_t i = 1; i < frames.size(); ++i) {
        ASSERT_EQ(frames[i].bytes.size(), 38u);
        EXPECT_EQ(frames[i].bytes[23], 1);  // port
        EXPECT_EQ(frames[i].bytes[24], 3);  // card
        poll_lables.insert(frame_lable(frames[i].bytes));
    }
    EXPECT_EQ(poll_lables.size(), 1u);
    EXPECT_NE(*poll_lables.begin(), frame_lable(frames[0].bytes));
}

TEST_F(Engine, FlowRulePerChannelCardAndPort) {
    FakeBoard board("127.0.1.1", 7002, [](auto &, size_t) { return 60; });
    auto arrivals_apart = [&](transfer_op_t a, transfer_op_t b, std::string data) {
        size_t before = board.frames().size();
        std::thread ta([&] { run(a, nullptr, data); });
        std::this_thread::sleep_for(milliseconds(5));
        std::thread tb([&] { run(b, nullptr, data); });
        ta.join();
        tb.join();
        auto f = board.frames();
        EXPECT_EQ(f.size(), before + 2);
        return f.size() < before + 2 ? -1 : ms_between(f[before].at, f[before + 1].at);
    };
    // One channel: the second frame waits for the first reply.
    EXPECT_GE(arrivals_apart(op_for(1, FPGA, FRAME_READ, 0x10, 4),
                             op_for(1, FPGA, FRAME_READ, 0x14, 4), ""),
              55);
    // Acknowledged requests for two cards behind one port: one at a time on the port.
    EXPECT_GE(
        arrivals_apart(card_op(0, 1, FRAME_READ, 0x10, 2), card_op(0, 2, FRAME_READ, 0x10, 2), ""),
        55);
    // Unacknowledged writes: each card is busy only with its own request.
    transfer_op_t a = card_op(2, 1, FRAME_WRITE, 0x10, 2), b = card_op(2, 2, FRAME_WRITE, 0x10, 2);
    a.n_no_ack = b.n_no_ack = EN_REQUEST_NO_ACK;
    a.n_write_wait_time = b.n_write_wait_time = 100000;
    EXPECT_LT(arrivals_apart(a, b, "ww"), 50);
    // ... but the same card waits for the write-wait of the one before.
    b = card_op(2, 1, FRAME_WRITE, 0x10, 2);
    b.n_no_ack = EN_REQUEST_NO_ACK;
    b.n_write_wait_time = 100000;
    EXPECT_GE(arrivals_apart(a, b, "ww"), 95);
}

TEST_F(Engine, LateReplyAfterTimeOutIsDropped) {
    FakeBoard board("127.0.1.1", 7003, [](auto &, size_t i) { return i == 0 ? 150 : 0; });
    transfer_op_t late = op_for(1, MCU, FRAME_READ, 0x50, 4);
    late.n_timeout = 50;
    EXPECT_EQ(run(late), sdk::kErrTimeout);
    std::this_thread::sleep_for(milliseconds(200));  // the late reply arrives, finds nothing
    transfer_op_t w = op_for(1, MCU, FRAME_WRITE, 0x60, 4);
    ASSERT_EQ(run(w, nullptr, "LATE"), 4);
    std::string reply;
    EXPECT_EQ(run(op_for(1, MCU, FRAME_READ, 0x60, 4), &reply), 8);
    EXPECT_EQ(reply.substr(4), "LATE");
}

TEST_F(Engine, TwoRequestsWithOneLabelAfterTheWrapGetTheirOwnReplies) {
    FakeBoard board("127.0.1.2", 7005, [](auto &, size_t) { return 30; });
    ASSERT_EQ(run(op_for(2, MCU, FRAME_WRITE, 0x100, 4), nullptr, "AAAA"), 4);
    ASSERT_EQ(run(op_for(2, MCU, FRAME_WRITE, 0x200, 4), nullptr, "BBBB"), 4);
    // No other request draws labels meanwhile (the tests of this program run one by one).
    transfer_op_t a = op_for(2, MCU, FRAME_READ, 0x100, 4);
    transfer_op_t b = op_for(2, MCU, FRAME_READ, 0x200, 4);
    ASSERT_EQ(sdk_request(nullptr, 0, &a), 0);
    for (int i = 0; i < 65534; ++i)
        sdk_get_next_lable();
    ASSERT_EQ(sdk_request(nullptr, 0, &b), 0);
    char buf_a[SDK_DATA_BUF_LEN], buf_b[SDK_DATA_BUF_LEN];
    ASSERT_EQ(sdk_request_wait(buf_a, &a), 8);
    ASSERT_EQ(sdk_request_wait(buf_b, &b), 8);
    EXPECT_EQ(std::string(buf_a + 4, 4), "AAAA");
    EXPECT_EQ(std::string(buf_b + 4, 4), "BBBB");
    auto f = board.frames();
    ASSERT_GE(f.size(), 4u);
    EXPECT_EQ(frame_lable(f[f.size() - 2].bytes), frame_lable(f.back().bytes));
}

TEST_F(Engine, RefusedRequestsLeaveNothingBehind) {
    transfer_op_t op = card_op(4, 0, FRAME_READ, 0x10, 2);  // port 4 of 4
    op.p_packet_node = reinterpret_cast<packet_data_t *>(0x1);
    EXPECT_EQ(sdk_request(nullptr, 0, &op), sdk::kErrRefused);
    EXPECT_EQ(op.p_packet_node, reinterpret_cast<packet_data_t *>(0x1));
    op = card_op(0, 8, FRAME_READ, 0x10, 2);  // card 8 of 8
    EXPECT_EQ(sdk_request(nullptr, 0, &op), sdk::kErrRefused);
    op = op_for(100, FPGA, FRAME_READ, 0x10, 4);
    op.e_type = BODY_RECVCARD;
    op.st_addr_param.n_device_type = DEVICE_ETH;  // channel 0 has no receiving cards
    EXPECT_EQ(sdk_request(nullptr, 0, &op), sdk::kErrRefused);
    std::string big(9000 - 32 + 1, 'x');  // frame of 9001 bytes
    op = op_for(100, FPGA, FRAME_WRITE, 0x10, 0);
    op.p_packet_node = nullptr;
    EXPECT_EQ(sdk_request(big.data(), static_cast<uint32_t>(big.size()), &op),
              sdk::kErrFrameTooLong);
    EXPECT_EQ(op.p_packet_node, nullptr);
    EXPECT_EQ(sdk_request_wait(nullptr, &op), 0);
    EXPECT_EQ(sdk_request_free(&op), 0);
    EXPECT_EQ(sdk_request_get_state(&op), sdk::kErrRefused);
}

// Time-outs are elapsed times: a step of the wall clock while a request waits neither ends
// it at once nor keeps it waiting far past its time.
TEST_F(Engine, WallClockStepsDoNotMoveTimeOuts) {
    FakeBoard board("127.0.0.3", 7001, [](auto &, size_t i) { return i == 0 ? 150 : -1; });
    struct Case {
        long step_s;
        int32_t result;
        long min_ms;  // the request's remaining time, less a margin
    };
    for (const Case c : {Case{3600, 8, 0}, Case{-3600, sdk::kErrTimeout, 250}}) {
        transfer_op_t op = op_for(100, MCU, FRAME_READ, 0x20, 4);
        op.n_timeout = 400;
        ASSERT_EQ(sdk_request(nullptr, 0, &op), 0);
        std::this_thread::sleep_for(milliseconds(50));
        g_wall_step_s += c.step_s;
        const auto t0 = Clock::now();
        char buf[SDK_DATA_BUF_LEN];
        EXPECT_EQ(sdk_request_wait(buf, &op), c.result) << c.step_s;
        const long ms = ms_between(t0, Clock::now());
        EXPECT_GE(ms, c.min_ms) << c.step_s;
        EXPECT_LT(ms, 2000) << c.step_s;
    }
    g_wall_step_s = 0;
}

// A frame that never left the host ends as timed out, never as done: here a write
// without acknowledgement whose time runs out while it waits behind a slow read. With a
// retransmission left it goes out late instead, and ends after its write-wait.
TEST_F(Engine, WriteThatTimedOutInItsQueueIsNotReportedDone) {
    FakeBoard board("127.0.0.3", 7001, [](auto &, size_t) { return 150; });
    for (const uint32_t retries : {0u, 1u}) {
        const size_t before = board.frames().size();
        transfer_op_t slow = op_for(100, MCU, FRAME_READ, 0x20, 4);
        transfer_op_t write = op_for(100, MCU, FRAME_WRITE, 0x24, 2);
        write.n_no_ack = EN_REQUEST_NO_ACK;
        write.n_write_wait_time = 1000;
        write.n_timeout = 50;
        write.n_reply_times = retries;
        ASSERT_EQ(sdk_request(nullptr, 0, &slow), 0);
        std::string data = "ww";
        ASSERT_EQ(sdk_request(data.data(), 2, &write), 0);
        char buf[SDK_DATA_BUF_LEN];
        EXPECT_EQ(sdk_request_wait(buf, &slow), 8);
        EXPECT_EQ(sdk_request_wait(buf, &write), retries == 0 ? sdk::kErrTimeout : 0);
        std::this_thread::sleep_for(milliseconds(20));
        EXPECT_EQ(board.frames().size(), before + 1 + retries) << retries;
    }
}

// n_no_ack and n_polling_state are flags: any value but 0 counts as set. A card write
// polled with 2 holds its port until its poll is answered, so another card's request on
// that port waits instead of taking the port (and the poll's answer) from it.
TEST_F(Engine, AcknowledgementAndPollingValuesAboveOneAreFlags) {
    FakeBoard board("127.0.1.1", 7002, [](auto &, size_t) { return 20; });
    transfer_op_t a = card_op(3, 1, FRAME_WRITE, 0x10, 2);
    a.n_no_ack = 2;
    a.n_polling_state = 2;
    a.n_polling_time = 10;
    a.n_timeout = 1000;
    transfer_op_t b = card_op(3, 2, FRAME_READ, 0x10, 2);
    int32_t ra = -1, rb = -1;
    std::thread ta([&] { ra = run(a, nullptr, "pp"); });
    std::this_thread::sleep_for(milliseconds(5));
    std::thread tb([&] { rb = run(b); });
    ta.join();
    tb.join();
    EXPECT_EQ(ra, 0);
    EXPECT_GE(rb, 0);
    auto f = board.frames();
    ASSERT_GE(f.size(), 3u);
    EXPECT_EQ(f[0].bytes[10] & 0x40, 0) << "no acknowledgement asked";
    EXPECT_EQ(f[1].bytes.size(), 38u) << "the poll comes before the other card's frame";
}

// With nothing in flight the trigger thread sleeps until a request comes: no periodic
// wake-ups. (It is the one engine thread without a name of its own.)
TEST_F(Engine, IdleTriggerThreadDoesNotWakeUp) {
    auto switches = [] {
        long total = -1;
        const std::string self = std::to_string(getpid());
        std::string main_comm;
        std::getline(std::ifstream("/proc/self/comm"), main_comm);
        DIR *d = opendir("/proc/self/task");
        while (dirent *e = d != nullptr ? readdir(d) : nullptr) {
            const std::string tid = e->d_name;
            if (tid == "." || tid == ".." || tid == self) continue;
            std::string comm;
            std::getline(std::ifstream("/proc/self/task/" + tid + "/comm"), comm);
            if (comm != main_comm) continue;
            std::ifstream status("/proc/self/task/" + tid + "/status");
            total = 0;
            for (std::string line; std::getline(status, line);) {
                if (line.find("ctxt_switches:") != std::string::npos)
                    total += std::stol(line.substr(line.find(':') + 1));
            }
        }
        if (d != nullptr) closedir(d);
        return total;
    };
    std::this_thread::sleep_for(milliseconds(50));
    const long before = switches();
    ASSERT_GE(before, 0) << "trigger thread not found";
    std::this_thread::sleep_for(milliseconds(400));
    EXPECT_EQ(switches(), before);
}

TEST_F(Engine, ManyHostThreadsOnSeveralChannelsEveryRequestEndsOnce) {
    auto lossy = [](auto &, size_t i) { return i % 7 == 3 ? -1 : static_cast<int>(i % 3); };
    FakeBoard b0("127.0.0.2", 7000, lossy), b1("127.0.0.3", 7001, lossy);
    FakeBoard b4("127.0.1.2", 7004, lossy), b5("127.0.1.2", 7005, lossy);
    const std::vector<std::pair<uint32_t, transfer_section>> targets = {
        {100, FPGA}, {100, MCU}, {2, FPGA}, {2, MCU}};
    std::atomic<int> answered{0}, timed_out{0}, other{0};
    std::vector<std::thread> hosts;
    for (int t = 0; t < 6; ++t) {
        hosts.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i) {
                auto [slot, section] = targets[static_cast<size_t>(t + i) % targets.size()];
                transfer_op_t op = op_for(slot, section, FRAME_READ, 0x10, 4);
                op.n_timeout = 40;
                op.n_reply_times = 1;
                int32_t r = run(op);
                (r == 8 ? answered : r == sdk::kErrTimeout ? timed_out : other)++;
            }
        });
    }
    for (auto &h : hosts)
        h.join();
    EXPECT_EQ(answered + timed_out, 150);
    EXPECT_EQ(other, 0);
    EXPECT_GT(answered, 100);
    std::this_thread::sleep_for(milliseconds(20));
    for (int ch : {0, 1, 4, 5})
        EXPECT_EQ(__atomic_load_n(&g_st_transfer.st_info[ch].n_state, __ATOMIC_ACQUIRE), 1) << ch;
}

}  // namespace
