// A request's whole road over real UDP: request API, sender, network receive,
// trigger and time-out monitor, against simulated boards on 127.0.x.y. The
// engine starts once per program; the tests of this program run one after the
// other.
#include <poll.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "board_sim/board.h"
#include "support/netns_helpers.h"
#include "support/wait.h"
#include "transfer_server.h"

// The wall clock of this program can be stepped, as a controller's is when it
// sets its clock after boot (RTC, NTP): this definition takes the place of the
// C library's for the engine too, and add g_wall_step_s to the realtime clock.
namespace {
std::atomic<long> g_wall_step_s{0};
}
extern "C" int clock_gettime(clockid_t id, struct timespec *ts) {
    const long r = syscall(SYS_clock_gettime, id, ts);
    if (r == 0 && id == CLOCK_REALTIME) ts->tv_sec += g_wall_step_s.load();
    return static_cast<int>(r);
}
namespace {

using namespace sdk::test;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Bytes = std::vector<uint8_t>;
constexpr int32_t kRefused = -4000, kTimeout = -4001, kTooLong = -4006;

// Channels: 0 main FPGA, 1 main MCU, 2 sub card 1 FPGA (a sender card with
// receiving cards), 3 sub card 1 MCU, 4 sub card 2 FPGA, 5 sub card 2 MCU on a
// serial line that does not exist (so never opened).
constexpr const char *kConfig = R"({"device": {
    "main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 0},
    "sub_card": {"slot_num": 2, "type_num": 2, "min_slot": 1, "max_slot": 2, "id_offset": 2}},
  "transfer_param": {"send_list_num": 2, "send_thread_num": 1, "monitor_list_num": 3, "monitor_thread_num": 1},
  "rvcard_param": {"eth_max": 4, "rvcard_max": 8},
  "maincards": [{"slot": 100, "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.0.2", "port": 7000}], "mcu": [{"id_offset": 1, "type": 1, "ip": "127.0.0.3", "port": 7001}]}],
  "subcards": [{"slot": 1, "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.1.1", "port": 7002, "packet_code_type": 1}], "mcu": [{"id_offset": 1, "type": 1, "ip": "127.0.1.1", "port": 7003}]},
               {"slot": 2, "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.1.2", "port": 7004}], "mcu": [{"id_offset": 1, "type": 10, "ip": "/nonexistent/tty", "port": 115200}]}]})";

// Set-up, containers, then the sender, receive, trigger and monitor threads.
int32_t engine_start_once() {
    static const int32_t n_ret = [] {
        mio_json *root = mio_json_fromstring(kConfig);
        int32_t r = sdk_device_transfer_mem_init(root);
        if (r == 0) r = sdk_maincards_transfer_init(root);
        char served[] = {1, 2};
        if (r == 0) r = sdk_subcards_transfer_init(served, 2, root);
        if (r == 0) r = sdk_transfer_containers_init();
        mio_json_delete(root);
        for (auto body : {sdk_transfer_sender_thread, sdk_transfer_recv_thread,
                          sdk_transfer_trigger_thread, sdk_transfer_timeout_monitor_thread}) {
            pthread_t t;
            if (r == 0 && pthread_create(&t, nullptr, body, nullptr) == 0) pthread_detach(t);
        }
        return r;
    }();
    return n_ret;
}

// One simulated board on ip:port: records every frame with its arrival time and
// answers it as the board simulator does, after the delay the policy gives (-1:
// no answer).
class FakeBoard {
  public:
    using Policy = std::function<int(const Bytes &frame, size_t index)>;
    FakeBoard(const std::string &ip, uint16_t port, Policy policy = nullptr)
        : fd_(udp_socket(ip, port)), policy_(std::move(policy)), thread_([this] { run(); }) {}
    ~FakeBoard() {
        stop_ = true;
        thread_.join();
        close(fd_);
    }
    std::vector<std::pair<Bytes, Clock::time_point>> frames() {
        std::lock_guard<std::mutex> l(m_);
        return frames_;
    }
    size_t count() { return frames().size(); }
    std::atomic<size_t> replies_sent{0};
    std::atomic<size_t> pad{0};  // bytes appended to every reply after its length field

  private:
    void run() {
        std::vector<std::tuple<Clock::time_point, Bytes, sockaddr_in>> due;
        for (pollfd p{fd_, POLLIN, 0}; !stop_;) {
            uint8_t buf[65536];
            sockaddr_in from{};
            socklen_t len = sizeof(from);
            const ssize_t n =
                poll(&p, 1, 2) <= 0
                    ? 0
                    : recvfrom(fd_, buf, sizeof(buf), 0, reinterpret_cast<sockaddr *>(&from), &len);
            if (n > 0) {
                std::unique_lock<std::mutex> l(m_);
                frames_.emplace_back(Bytes(buf, buf + n), Clock::now());
                l.unlock();
                const int delay = policy_ ? policy_(frames_.back().first, frames_.size() - 1) : 0;
                Bytes reply = board_.handle(buf, static_cast<size_t>(n), &stats_);
                reply.resize(reply.size() + (reply.empty() ? 0 : pad.load()));
                if (delay >= 0 && !reply.empty())
                    due.emplace_back(Clock::now() + milliseconds(delay), reply, from);
            }
            for (auto it = due.begin(); it != due.end();) {
                auto &[at, reply, to] = *it;
                if (at > Clock::now()) {
                    ++it;
                    continue;
                }
                sendto(fd_, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&to),
                       sizeof(to));
                ++replies_sent;
                it = due.erase(it);
            }
        }
    }
    int fd_;
    Policy policy_;
    board_sim::Board board_;
    board_sim::Stats stats_;
    std::mutex m_;
    std::vector<std::pair<Bytes, Clock::time_point>> frames_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

transfer_op_t op_for(uint32_t slot, transfer_section section, frame_code code, uint32_t addr,
                     uint32_t len, uint32_t timeout = 500) {
    transfer_op_t op{};
    op.e_mode = section;
    op.n_slot = slot;
    op.n_timeout = timeout;
    op.e_code = code;
    op.n_read_len = len;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = addr;
    op.st_addr_param.n_device_type = section == FPGA ? DEVICE_FPGA : DEVICE_MCU;
    return op;
}

// A request to receiving card `card` behind Ethernet port `eth` of sub card 1.
transfer_op_t card_op(uint32_t eth, uint32_t card, frame_code code) {
    transfer_op_t op = op_for(1, FPGA, code, 0x10, 2);
    op.e_type = BODY_RECVCARD;
    op.st_addr_param.n_device_type = DEVICE_ETH;
    op.st_addr_param.n_device_index = static_cast<uint8_t>(eth);
    op.st_control.n_recvcard_id = card;
    return op;
}

// Without acknowledgement; polled every `poll_ms` when that is not 0.
transfer_op_t no_ack(transfer_op_t op, uint32_t write_wait_us, uint32_t poll_ms = 0) {
    op.n_no_ack = EN_REQUEST_NO_ACK;
    op.n_write_wait_time = write_wait_us;
    op.n_polling_state = poll_ms != 0 ? 1 : 0;
    op.n_polling_time = poll_ms;
    return op;
}

uint16_t frame_lable(const Bytes &f) {
    return static_cast<uint16_t>(f[6] | (f[7] << 8));
}
bool is_poll(const Bytes &f) {
    return f.size() >= 32 && (f[28] | (f[29] << 8) | (f[30] << 16) |
                              (static_cast<uint32_t>(f[31]) << 24)) == SDK_POLLING_REG_ADDR;
}
long ms_between(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration_cast<milliseconds>(b - a).count();
}

// A channel's counters, in the order sent, retransmitted, polls, replies matched,
// unmatched, bad frames, time-outs.
using Counts = std::array<uint64_t, 7>;
Counts counts_of(int32_t channel) {
    sdk_transfer_stats_t s[8];
    EXPECT_EQ(sdk_transfer_get_stats(s, 8), 6);
    EXPECT_EQ(s[channel].n_transfer_id, channel);
    const sdk_transfer_stats_t &c = s[channel];
    return {c.n_frames_sent,       c.n_retransmissions, c.n_polls,   c.n_replies_matched,
            c.n_replies_unmatched, c.n_bad_frames,      c.n_timeouts};
}
// What the counters of `channel` gained while `steps` ran.
Counts counted(int32_t channel, const std::function<void()> &steps) {
    const Counts before = counts_of(channel);
    steps();
    Counts after = counts_of(channel);
    for (size_t i = 0; i < after.size(); ++i)
        after[i] -= before[i];
    return after;
}

class Engine : public ::testing::Test {
  protected:
    void SetUp() override {
        SKIP_OUTSIDE_PRIVATE_NETNS();
        ASSERT_EQ(engine_start_once(), 0);
    }
    // Runs one request to its end: the wait's result, the data handed over in
    // *out.
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
    // Starts a in a thread, b in another once a's first frame reached `board`;
    // waits for both. Returns the milliseconds between the arrivals of the next
    // two frames.
    static long arrivals_apart(FakeBoard &board, transfer_op_t a, transfer_op_t b,
                               std::string data = "") {
        const size_t before = board.count();
        std::thread ta([&] { run(a, nullptr, data); });
        EXPECT_TRUE(wait_until([&] { return board.count() > before; }));
        std::thread tb([&] { run(b, nullptr, data); });
        ta.join();
        tb.join();
        const auto f = board.frames();
        EXPECT_GE(f.size(), before + 2);
        return f.size() < before + 2 ? -1 : ms_between(f[before].second, f[before + 1].second);
    }
};

// An acknowledged write and read; a reply that comes after its request timed
// out finds nothing and spoils nothing.
TEST_F(Engine, AcknowledgedRequestsAndALateReply) {
    FakeBoard board("127.0.1.1", 7003, [](auto &, size_t i) { return i == 0 ? 150 : 0; });
    const Counts late = counted(3, [&] {
        EXPECT_EQ(run(op_for(1, MCU, FRAME_READ, 0x50, 4, 50)), kTimeout);
        ASSERT_TRUE(wait_until([&] { return board.replies_sent.load() == 1; }));
        ASSERT_TRUE(wait_until([] { return counts_of(3)[4] > 0; }));
    });
    EXPECT_EQ(late, (Counts{1, 0, 0, 0, 1, 0, 1}));
    ASSERT_EQ(run(op_for(1, MCU, FRAME_WRITE, 0x60, 4), nullptr, "LATE"),
              4);  // error, length
    std::string reply;
    const auto t0 = Clock::now();  // an answered request ends with its reply
    EXPECT_EQ(run(op_for(1, MCU, FRAME_READ, 0x60, 4, 5000), &reply), 8);
    EXPECT_LT(ms_between(t0, Clock::now()), 2500);
    EXPECT_EQ(reply.substr(4), "LATE");
}

TEST_F(Engine, UnansweredFrameIsSentReplyTimesPlusOneThenTimesOut) {
    FakeBoard board("127.0.0.3", 7001, [](auto &, size_t) { return -1; });
    transfer_op_t op = op_for(100, MCU, FRAME_READ, 0x20, 4, 80);
    op.n_reply_times = 2;
    const auto t0 = Clock::now();
    EXPECT_EQ(counted(1, [&] { EXPECT_EQ(run(op), kTimeout); }), (Counts{1, 2, 0, 0, 0, 0, 1}));
    EXPECT_GE(ms_between(t0, Clock::now()), 3 * 80 - 5);
    const auto frames = board.frames();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[1].first, frames[0].first);
    EXPECT_EQ(frames[2].first, frames[0].first);
    EXPECT_EQ(run(op),
              kTimeout);  // the channel is free again: the next request goes out
    EXPECT_EQ(board.count(), 6u);
}

// A reply longer than its length field says is no reply.
TEST_F(Engine, ReplyLongerThanItsLengthFieldIsDropped) {
    FakeBoard board("127.0.0.2", 7000);
    board.pad = 1;
    EXPECT_EQ(
        counted(0, [] { EXPECT_EQ(run(op_for(100, FPGA, FRAME_READ, 0x10, 4, 100)), kTimeout); }),
        (Counts{1, 0, 0, 0, 0, 1, 1}));
    EXPECT_EQ(board.replies_sent.load(), 1u);
}

// A write without acknowledgement ends as done after its write-wait, also when that is
// longer than its time-out.
TEST_F(Engine, UnacknowledgedWriteEndsAfterItsWriteWait) {
    FakeBoard board("127.0.1.2", 7004);
    for (auto [timeout_ms, wait_ms] : {std::pair{500, 60}, {50, 250}}) {
        const auto t0 = Clock::now();
        transfer_op_t op = op_for(2, FPGA, FRAME_WRITE, 0x30, 2, static_cast<uint32_t>(timeout_ms));
        EXPECT_EQ(run(no_ack(op, static_cast<uint32_t>(wait_ms) * 1000), nullptr, "xy"), 0);
        EXPECT_GE(ms_between(t0, Clock::now()), wait_ms) << timeout_ms;
    }
    EXPECT_EQ(board.count(), 2u);
}

// A polled card write: the write, then polls of the card all with one label of
// their own until one is answered (here the third).
TEST_F(Engine, PolledCardWriteRepeatsThePollWithOneLabelUntilAnswered) {
    std::atomic<int> polls{0};
    FakeBoard board("127.0.1.1", 7002,
                    [&](const Bytes &f, size_t) { return is_poll(f) && ++polls <= 2 ? -1 : 0; });
    transfer_op_t op = no_ack(card_op(1, 3, FRAME_WRITE), 0, 20);
    op.n_timeout = 1000;
    EXPECT_EQ(counted(2, [&] { EXPECT_EQ(run(op, nullptr, "zz"), 0); }),
              (Counts{1, 0, 3, 1, 0, 0, 0}));
    const auto frames = board.frames();
    ASSERT_EQ(frames.size(), 4u);
    EXPECT_FALSE(is_poll(frames[0].first));
    std::set<uint16_t> poll_lables;
    for (size_t i = 1; i < frames.size(); ++i) {
        ASSERT_EQ(frames[i].first.size(), 38u);
        EXPECT_EQ(frames[i].first[23], 1);  // port
        EXPECT_EQ(frames[i].first[24], 3);  // card
        poll_lables.insert(frame_lable(frames[i].first));
    }
    EXPECT_EQ(poll_lables.size(), 1u);
    EXPECT_NE(*poll_lables.begin(), frame_lable(frames[0].first));
}

// One frame in flight per channel; behind a sender card, one per port for
// acknowledged requests and one per card for writes without acknowledgement.
TEST_F(Engine, FlowRulePerChannelCardAndPort) {
    FakeBoard board("127.0.1.1", 7002, [](auto &, size_t) { return 60; });
    EXPECT_GE(arrivals_apart(board, op_for(1, FPGA, FRAME_READ, 0x10, 4),
                             op_for(1, FPGA, FRAME_READ, 0x14, 4)),
              55);
    EXPECT_GE(arrivals_apart(board, card_op(0, 1, FRAME_READ), card_op(0, 2, FRAME_READ)), 55);
    const transfer_op_t a = no_ack(card_op(2, 1, FRAME_WRITE), 100000);
    EXPECT_LT(arrivals_apart(board, a, no_ack(card_op(2, 2, FRAME_WRITE), 100000), "ww"), 50);
    EXPECT_GE(arrivals_apart(board, a, a, "ww"), 95);
    // A write to all cards (0xFFFF) is card 0's, for the flow rule.
    EXPECT_GE(arrivals_apart(board, no_ack(card_op(2, 0xFFFF, FRAME_WRITE), 100000),
                             no_ack(card_op(2, 0, FRAME_WRITE), 100000), "ww"),
              95);
}

// n_no_ack and n_polling_state are flags: any value but 0 counts as set. A card
// write polled with 2 holds its port until its poll is answered, so another
// card's request on that port waits instead of taking the port (and the poll's
// answer) from it.
TEST_F(Engine, AcknowledgementAndPollingValuesAboveOneAreFlags) {
    FakeBoard board("127.0.1.1", 7002, [](auto &, size_t) { return 20; });
    transfer_op_t a = card_op(3, 1, FRAME_WRITE);
    a.n_no_ack = 2;
    a.n_polling_state = 2;
    a.n_polling_time = 10;
    a.n_timeout = 1000;
    int32_t ra = -1, rb = -1;
    std::thread ta([&] { ra = run(a, nullptr, "pp"); });
    ASSERT_TRUE(wait_until([&] { return board.count() > 0; }));
    std::thread tb([&] { rb = run(card_op(3, 2, FRAME_READ)); });
    ta.join();
    tb.join();
    EXPECT_EQ(ra, 0);
    EXPECT_GE(rb, 0);
    const auto f = board.frames();
    ASSERT_GE(f.size(), 3u);
    EXPECT_EQ(f[0].first[10] & 0x40, 0) << "no acknowledgement asked";
    EXPECT_TRUE(is_poll(f[1].first)) << "the poll comes before the other card's frame";
}

// Refused requests take no record and leave the op as it was; the calls after a refusal
// see no request. Frames up to 9000 bytes go out whole, also for a C host's descriptor
// whose e_type carries bits above the body type (only its low four bits count) and whose
// e_code is no enumerator (only its low bit counts).
TEST_F(Engine, RefusedRequestsAndTheLongestFrame) {
    auto raw = [](transfer_op_t op, uint32_t n_type, uint32_t n_code) {
        memcpy(reinterpret_cast<uint8_t *>(&op) + offsetof(transfer_op_t, e_type), &n_type, 4);
        memcpy(reinterpret_cast<uint8_t *>(&op) + offsetof(transfer_op_t, e_code), &n_code, 4);
        return op;
    };
    transfer_op_t channel_without_cards = card_op(0, 0, FRAME_READ);
    channel_without_cards.n_slot = 100;
    const std::string big(9000 - 32 + 1, 'x'), card_big(9000 - 38 + 1, 'c');  // 9001 bytes
    const struct {
        transfer_op_t op;
        std::string data;
        int32_t result;
    } cases[] = {
        {card_op(4, 0, FRAME_READ), "", kRefused},  // port 4 of 4
        {card_op(0, 8, FRAME_READ), "", kRefused},  // card 8 of 8
        {channel_without_cards, "", kRefused},
        {op_for(2, MCU, FRAME_READ, 0x10, 4), "", kRefused},  // channel not open
        {op_for(100, FPGA, FRAME_WRITE, 0x10, 0), big, kTooLong},
        {raw(card_op(1, 2, FRAME_WRITE), 0x12, 0x101), card_big, kTooLong},
        {raw(card_op(1, 2, FRAME_WRITE), 0x12, 0x101), card_big.substr(1), 0},
        {raw(card_op(1, 2, FRAME_WRITE), 0xF2, 0x101), card_big.substr(1), 0},
    };
    FakeBoard board("127.0.1.1", 7002);
    for (size_t i = 0; i < std::size(cases); ++i) {
        auto c = cases[i];
        SCOPED_TRACE(i);
        c.op.p_packet_node = nullptr;
        const int32_t r = sdk_request(c.data.data(), static_cast<uint32_t>(c.data.size()), &c.op);
        EXPECT_EQ(r, c.result);
        if (r == 0) {
            EXPECT_EQ(sdk_request_wait(nullptr, &c.op), 0);
            const auto frames = board.frames();
            ASSERT_FALSE(frames.empty());
            const Bytes &sent = frames.back().first;
            ASSERT_EQ(sent.size(), 9000u);
            EXPECT_EQ(sent[10], 0x62);  // acknowledged write, body type 2
            EXPECT_EQ(sent[8] | (sent[9] << 8), 8990);
            EXPECT_EQ(sdk_transfer_checksum_data(const_cast<uint8_t *>(sent.data()), 9000), 0);
            continue;
        }
        EXPECT_EQ(c.op.p_packet_node, nullptr);
        EXPECT_EQ(sdk_request_wait(nullptr, &c.op), 0);
        EXPECT_EQ(sdk_request_free(&c.op), 0);
        EXPECT_EQ(sdk_request_get_state(&c.op), kRefused);
    }
}

// sdk_request_run ends a request as the two calls do, and leaves the channel to the
// receive thread afterwards: a request nobody waits for still ends on its reply.
TEST_F(Engine, OneCallRequestsEndAsTwoCallsDo) {
    FakeBoard board("127.0.0.2", 7000);
    FakeBoard mute("127.0.0.3", 7001, [](auto &, size_t) { return -1; });
    auto run1 = [](transfer_op_t op, std::string wdata = "", std::string *out = nullptr) {
        char buf[SDK_DATA_BUF_LEN];
        const int32_t r = sdk_request_run(wdata.empty() ? nullptr : wdata.data(),
                                          static_cast<uint32_t>(wdata.size()), buf, &op);
        EXPECT_EQ(op.p_packet_node, nullptr);
        if (out != nullptr && r > 0) out->assign(buf, static_cast<size_t>(r));
        return r;
    };
    std::string reply;
    EXPECT_EQ(run1(op_for(100, FPGA, FRAME_WRITE, 0x70, 4), "ABCD"), 4);
    EXPECT_EQ(run1(op_for(100, FPGA, FRAME_READ, 0x70, 4), "", &reply), 8);
    EXPECT_EQ(reply.substr(4), "ABCD");
    EXPECT_EQ(run1(op_for(100, MCU, FRAME_READ, 0x70, 4, 50)), kTimeout);
    EXPECT_EQ(run1(op_for(2, MCU, FRAME_READ, 0x10, 4)), kRefused);  // channel not open
    EXPECT_EQ(run1(op_for(100, FPGA, FRAME_WRITE, 0x10, 0), std::string(8969, 'x')), kTooLong);
    EXPECT_EQ(sdk_request_run(nullptr, 0, nullptr, nullptr), kRefused);

    transfer_op_t op = op_for(100, FPGA, FRAME_READ, 0x70, 4);
    ASSERT_EQ(sdk_request(nullptr, 0, &op), 0);
    EXPECT_TRUE(wait_until([&] { return sdk_request_get_state(&op) == PACKET_END; }));
    EXPECT_EQ(sdk_request_wait(nullptr, &op), 8);

    std::atomic<int> answered{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 3; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 40; ++i)
                answered += run1(op_for(100, FPGA, FRAME_READ, 0x70, 4, 2000)) == 8;
        });
    }
    for (auto &c : callers)
        c.join();
    EXPECT_EQ(answered.load(), 120);
}

// Time-outs are elapsed times: a step of the wall clock while a request waits
// neither ends it at once nor keeps it waiting far past its time.
TEST_F(Engine, WallClockStepsDoNotMoveTimeOuts) {
    FakeBoard board("127.0.0.3", 7001, [](auto &, size_t i) { return i == 0 ? 150 : -1; });
    struct Case {
        long step_s;
        int32_t result;
        long min_ms;  // the request's remaining time, less a margin
    };
    for (const Case c : {Case{3600, 8, 0}, Case{-3600, kTimeout, 250}}) {
        transfer_op_t op = op_for(100, MCU, FRAME_READ, 0x20, 4, 400);
        const size_t before = board.count();
        ASSERT_EQ(sdk_request(nullptr, 0, &op), 0);
        ASSERT_TRUE(wait_until([&] { return board.count() > before; }));
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

// A frame that never left the host ends as timed out, never as done: here a
// write without acknowledgement whose time runs out while it waits behind a
// slow read. With a retransmission left it goes out late instead, and ends
// after its write-wait.
TEST_F(Engine, WriteThatTimedOutInItsQueueIsNotReportedDone) {
    FakeBoard board("127.0.0.3", 7001, [](auto &, size_t) { return 150; });
    for (const uint32_t retries : {0u, 1u}) {
        const size_t before = board.count();
        transfer_op_t slow = op_for(100, MCU, FRAME_READ, 0x20, 4);
        transfer_op_t write = no_ack(op_for(100, MCU, FRAME_WRITE, 0x24, 2, 50), 1000);
        write.n_reply_times = retries;
        ASSERT_EQ(sdk_request(nullptr, 0, &slow), 0);
        ASSERT_EQ(sdk_request(const_cast<char *>("ww"), 2, &write), 0);
        char buf[SDK_DATA_BUF_LEN];
        EXPECT_EQ(sdk_request_wait(buf, &slow), 8);
        EXPECT_EQ(sdk_request_wait(buf, &write), retries == 0 ? kTimeout : 0);
        EXPECT_EQ(board.count(), before + 1 + retries) << retries;
    }
}

}  // namespace
