// UDP endpoints with real sockets, inside a private network namespace that has an "eth0".
#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/netns_helpers.h"
#include "support/pty.h"

namespace {

using namespace sdk::test;

class UdpEndpoint : public ::testing::Test {
  protected:
    void SetUp() override { SKIP_OUTSIDE_PRIVATE_NETNS(); }
    void TearDown() override {
        for (transfer_data_t &c : ch)
            if (c.n_fd > 0) close(c.n_fd);
    }
    transfer_data_t ch[2]{};
};

// Two channels bind the configured port on every address; each is connected to its own
// board and sees only that board's datagrams.
TEST_F(UdpEndpoint, ChannelsSharingAPortEachSeeOnlyTheirBoard) {
    const char *ips[] = {"127.0.0.2", "127.0.0.3"};
    int boards[2];
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(sdk_udp_init(endpoint(ips[i], 7000), &ch[i]), 0);
        EXPECT_EQ(ch[i].n_state, CHANNEL_OK);
        EXPECT_EQ(local_port(ch[i].n_fd), 7000);
        EXPECT_EQ(peer_of(ch[i].n_fd), std::string(ips[i]) + ":7000");
        ASSERT_GE(boards[i] = udp_socket(ips[i], 7000), 0);
    }
    const int stranger = udp_socket("127.0.0.2", 7001);  // right address, wrong port
    send_to(stranger, "stranger", "127.0.0.1", 7000);
    send_to(boards[1], "three", "127.0.0.1", 7000);
    send_to(boards[0], "two", "127.0.0.1", 7000);
    EXPECT_EQ(recv_text(ch[0].n_fd), "two");
    EXPECT_EQ(recv_text(ch[1].n_fd), "three");
    EXPECT_EQ(recv_text(ch[0].n_fd, 50) + recv_text(ch[1].n_fd, 50), "");
    ASSERT_EQ(send(ch[1].n_fd, "hello", 5, 0), 5);  // reaches its own board alone
    std::string from;
    EXPECT_EQ(recv_text(boards[1], 1000, &from), "hello");
    EXPECT_EQ(from, "127.0.0.1:7000");
    EXPECT_EQ(recv_text(boards[0], 50), "");
    for (int fd : {boards[0], boards[1], stranger})
        close(fd);
}

TEST_F(UdpEndpoint, BindWalksUpWhileThePortIsTaken) {
    const int taken = udp_socket("0.0.0.0", 7100, false);
    ASSERT_GE(taken, 0);
    ASSERT_EQ(sdk_udp_init(endpoint("127.0.0.2", 7100), &ch[0]), 0);
    EXPECT_EQ(local_port(ch[0].n_fd), 7101);
    EXPECT_EQ(peer_of(ch[0].n_fd), "127.0.0.2:7101");  // the remote port moves along
    EXPECT_EQ(ch[0].n_state, CHANNEL_OK);
    close(taken);
}

// Every failure leaves the channel unopened and no socket open; a stopped eth0 too, though
// the call succeeds.
TEST_F(UdpEndpoint, FailuresLeaveNoSocketOpen) {
    const int top1 = udp_socket("0.0.0.0", 63354, false),
              top2 = udp_socket("0.0.0.0", 63355, false);
    sock_addr_t unterminated{};
    memset(unterminated.p_ip, '1', sizeof(unterminated.p_ip));
    unterminated.n_port = 7200;
    const struct {
        sock_addr_t at;
        int32_t result;
        bool eth0_down;
    } cases[] = {
        {endpoint("127.0.0.2", 63354), -1, false},  // 63355 is tried too, then no further
        {endpoint("board", 63355), -1, false},      // all-ones address; no port left either
        {endpoint("board-7", 7200), -4000, false},  // all-ones address: no connect
        {endpoint("127.0.0.2", 70000), -4000, false}, {unterminated, -4000, false},
        {endpoint("127.0.0.2", 7300), 0, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.at.n_port);
        const int fds = open_fd_count();
        transfer_data_t one{};
        ASSERT_TRUE(set_link("eth0", !c.eth0_down));
        EXPECT_EQ(sdk_udp_init(c.at, &one), c.result);
        ASSERT_TRUE(set_link("eth0", true));
        EXPECT_EQ(one.n_fd, -1);
        EXPECT_EQ(one.n_state, CHANNEL_NULL);
        EXPECT_EQ(open_fd_count(), fds);
    }
    EXPECT_EQ(sdk_udp_init(endpoint("127.0.0.2", 7200), nullptr), -4000);
    close(top1);
    close(top2);
}

}  // namespace
