// The board_sim program over real UDP on loopback, talking to sockets set up the way the
// library sets up its channels: bound to the port on all addresses, connected to the board.
#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "request_frames.h"
#include "support/sim_process.h"

using namespace board_sim_test;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;
using sdk::test::SimProcess;

namespace {

sockaddr_in address(const char *ip, uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    inet_pton(AF_INET, ip, &a.sin_addr);
    return a;
}

// A channel socket like the library's: port on all addresses, connected to the board.
int channel_socket(const char *board_ip, uint16_t port) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in local = address("0.0.0.0", port);
    sockaddr_in remote = address(board_ip, port);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&local), sizeof local), 0);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&remote), sizeof remote), 0);
    return fd;
}

Bytes receive(int fd, int timeout_ms = 2000) {
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, timeout_ms) <= 0) return {};
    Bytes buf(65536);
    ssize_t n = recv(fd, buf.data(), buf.size(), 0);
    buf.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return buf;
}

Bytes round_trip(int fd, const Bytes &request) {
    EXPECT_EQ(send(fd, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    return receive(fd);
}

}  // namespace

TEST(BoardSimProgram, AnswersEachBoardOnItsOwnAddress) {
    SimProcess sim({"--udp", "127.0.0.2:7100", "--udp", "127.0.0.3:7100"});
    ASSERT_EQ(sim.line(), "ready");
    int board2 = channel_socket("127.0.0.2", 7100);
    int board3 = channel_socket("127.0.0.3", 7100);

    Bytes ack = round_trip(board2, addr_request(1, true, 0, 0x2000, 0, {0x12, 0x34}));
    ASSERT_EQ(ack.size(), 32u);
    EXPECT_EQ(sdk::get_le16(&ack[6]), 1);

    Bytes reply = round_trip(board2, addr_request(2, true, 0, 0x2000, 2, {}));
    ASSERT_EQ(reply.size(), 34u);
    EXPECT_EQ(sdk::get_le16(&reply[6]), 2);
    EXPECT_EQ(reply[30], 0x12);
    EXPECT_EQ(reply[31], 0x34);
    reply = round_trip(board3, addr_request(3, true, 0, 0x2000, 2, {}));
    ASSERT_EQ(reply.size(), 34u);
    EXPECT_EQ(reply[30], 0);  // the other board has its own registers

    Target card;
    card.port = 2;
    card.card = 7;
    reply = round_trip(board3, poll_request(4, 2, 7));
    ASSERT_EQ(reply.size(), 28u);
    EXPECT_EQ(sdk::get_le16(&reply[12]), 2);

    // Garbage and unacknowledged requests get no answer; the next request still does.
    const Bytes garbage = {0x55, 0xBB, 1, 2, 3};
    send(board3, garbage.data(), garbage.size(), 0);
    Bytes quiet = rvcard_request(5, false, 0x30, 0, {9}, card);
    send(board3, quiet.data(), quiet.size(), 0);
    reply = round_trip(board3, rvcard_request(6, true, 0x30, 1, {}, card));
    ASSERT_EQ(reply.size(), 27u);
    EXPECT_EQ(sdk::get_le16(&reply[6]), 6);
    EXPECT_EQ(reply[24], 9);

    EXPECT_EQ(sim.wait_exit(true), 0);
    std::string stats = sim.line();
    EXPECT_NE(stats.find("requests=6 replies=5 bad=1"), std::string::npos) << stats;
    close(board2);
    close(board3);
}

TEST(BoardSimProgram, SendsReportsUntilItsDurationEnds) {
    SimProcess sim({"--report", "127.0.0.4:7200:7200:20", "--duration", "0.5"});
    ASSERT_EQ(sim.line(), "ready");
    int channel = channel_socket("127.0.0.4", 7200);
    uint32_t last_seq = 0;
    for (int i = 0; i < 3; ++i) {
        Bytes report = receive(channel);
        ASSERT_EQ(report.size(), 36u);
        EXPECT_NE(report[10] & board_sim::kParamReport, 0);
        EXPECT_EQ(sdk::get_le16(&report[8]) + 10u, report.size());
        EXPECT_EQ(sdk::get_le16(&report[34]), sdk::byte_sum16(report.data(), 34));
        uint32_t seq = sdk::get_le32(&report[30]);
        EXPECT_GT(seq, last_seq);
        last_seq = seq;
    }
    EXPECT_EQ(sim.wait_exit(false), 0);
    EXPECT_NE(sim.line().find("reports="), std::string::npos);
    close(channel);
}

TEST(BoardSimProgram, DelaysAndDuplicatesReplies) {
    SimProcess sim({"--udp", "127.0.0.5:7300", "--delay-ms", "150", "--dup", "100"});
    ASSERT_EQ(sim.line(), "ready");
    int channel = channel_socket("127.0.0.5", 7300);
    Bytes request = addr_request(9, true, 1, 0x5, 4, {});
    auto sent = Clock::now();
    Bytes first = round_trip(channel, request);
    auto elapsed = Clock::now() - sent;
    ASSERT_EQ(first.size(), 36u);
    EXPECT_GE(elapsed, std::chrono::milliseconds(140));
    EXPECT_EQ(receive(channel), first);
    EXPECT_EQ(sim.wait_exit(true), 0);
    EXPECT_NE(sim.line().find("duplicated=1"), std::string::npos);
    close(channel);
}
