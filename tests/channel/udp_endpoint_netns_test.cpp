// UDP endpoints with real sockets, inside a private network namespace that has an "eth0".
#include <sched.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "support/netns_helpers.h"
#include "support/log_capture.h"
#include "support/pty.h"

namespace {

using namespace sdk::test;

class UdpEndpoint : public ::testing::Test {
  protected:
    void SetUp() override { SKIP_OUTSIDE_PRIVATE_NETNS(); }
};

// Closes what a test's channel records hold.
struct Channels {
    transfer_data_t ch[2]{};
    ~Channels() {
        for (transfer_data_t &c : ch) {
            if (c.n_fd > 0) close(c.n_fd);
        }
    }
};

TEST_F(UdpEndpoint, ChannelsSharingAPortEachSeeOnlyTheirBoard) {
    Channels c;
    ASSERT_EQ(sdk_udp_init(endpoint("127.0.0.2", 7000), &c.ch[0]), 0);
    ASSERT_EQ(sdk_udp_init(endpoint("127.0.0.3", 7000), &c.ch[1]), 0);
    for (int i = 0; i < 2; ++i) {
        const transfer_data_t &ch = c.ch[i];
        EXPECT_EQ(ch.n_state, CHANNEL_OK);
        EXPECT_EQ(local_port(ch.n_fd), 7000);  // both bind the configured port
        EXPECT_EQ(ch.st_local_address.sin_addr.s_addr, htonl(INADDR_ANY));
        EXPECT_EQ(ntohs(ch.st_local_address.sin_port), 7000);
        EXPECT_EQ(ntohs(ch.st_remote_address.sin_port), 7000);
    }
    EXPECT_EQ(peer_of(c.ch[0].n_fd), "127.0.0.2:7000");
    EXPECT_EQ(peer_of(c.ch[1].n_fd), "127.0.0.3:7000");

    int board2 = udp_socket("127.0.0.2", 7000);
    int board3 = udp_socket("127.0.0.3", 7000);
    int stranger = udp_socket("127.0.0.2", 7001);  // right address, wrong port
    ASSERT_GE(board2, 0);
    ASSERT_GE(board3, 0);
    for (int i = 0; i < 3; ++i) {
        send_to(stranger, "stranger", "127.0.0.1", 7000);
        send_to(board3, "three" + std::to_string(i), "127.0.0.1", 7000);
        send_to(board2, "two" + std::to_string(i), "127.0.0.1", 7000);
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(recv_text(c.ch[0].n_fd), "two" + std::to_string(i));
        EXPECT_EQ(recv_text(c.ch[1].n_fd), "three" + std::to_string(i));
    }
    EXPECT_EQ(recv_text(c.ch[0].n_fd, 50), "");
    EXPECT_EQ(recv_text(c.ch[1].n_fd, 50), "");

    // A plain send on the channel reaches its own board from the shared port.
    ASSERT_EQ(send(c.ch[1].n_fd, "hello", 5, 0), 5);
    std::string from;
    EXPECT_EQ(recv_text(board3, 1000, &from), "hello");
    EXPECT_EQ(from, "127.0.0.1:7000");
    EXPECT_EQ(recv_text(board2, 50), "");
    close(board2);
    close(board3);
    close(stranger);
}

TEST_F(UdpEndpoint, BindWalksUpWhileThePortIsTaken) {
    auto &log = log_capture();
    log.clear();
    int taken = udp_socket("0.0.0.0", 7100, false);
    ASSERT_GE(taken, 0);
    Channels c;
    ASSERT_EQ(sdk_udp_init(endpoint("127.0.0.2", 7100), &c.ch[0]), 0);
    EXPECT_EQ(local_port(c.ch[0].n_fd), 7101);
    EXPECT_EQ(ntohs(c.ch[0].st_local_address.sin_port), 7101);
    EXPECT_EQ(peer_of(c.ch[0].n_fd), "127.0.0.2:7101");  // the remote port moves along
    EXPECT_EQ(c.ch[0].n_state, CHANNEL_OK);
    EXPECT_TRUE(log.contains("ERROR [TRANSFER] ip: 127.0.0.2 bind fail. port: 7100, n_ret: -1"));
    close(taken);

    // At the top of the walk: 63354 gets one more try at 63355, 63355 gets none.
    int top1 = udp_socket("0.0.0.0", 63354, false);
    int top2 = udp_socket("0.0.0.0", 63355, false);
    ASSERT_GE(top1, 0);
    ASSERT_GE(top2, 0);
    const int fds = open_fd_count();
    log.clear();
    EXPECT_EQ(sdk_udp_init(endpoint("127.0.0.2", 63354), &c.ch[1]), -1);
    EXPECT_EQ(c.ch[1].n_fd, -1);
    EXPECT_EQ(c.ch[1].n_state, CHANNEL_NULL);
    EXPECT_EQ(open_fd_count(), fds);
    EXPECT_EQ(log.count("bind fail. port: 63354, n_ret: -1"), 1);
    EXPECT_EQ(log.count("bind fail. port: 63355, n_ret: -1"), 2);  // the last one twice

    log.clear();
    EXPECT_EQ(sdk_udp_init(endpoint("board", 63355), &c.ch[1]), -1);
    EXPECT_EQ(log.count("ip: 255.255.255.255 bind fail. port: 63355, n_ret: -1"), 2);
    EXPECT_EQ(log.count("bind fail"), 2);
    EXPECT_EQ(open_fd_count(), fds);
    close(top1);
    close(top2);
}

TEST_F(UdpEndpoint, FailuresLeaveNoSocketOpen) {
    auto &log = log_capture();
    log.clear();
    const int fds = open_fd_count();
    transfer_data_t ch{};
    EXPECT_EQ(sdk_udp_init(endpoint("board-7", 7200), &ch), -4000);  // all-ones: no connect
    EXPECT_TRUE(log.contains("ERROR [TRANSFER] connect fail!"));
    EXPECT_EQ(ch.n_fd, -1);
    EXPECT_EQ(ch.n_state, CHANNEL_NULL);

    EXPECT_EQ(sdk_udp_init(endpoint("127.0.0.2", 70000), &ch), -4000);
    EXPECT_EQ(ch.n_fd, -1);
    sock_addr_t unterminated{};
    memset(unterminated.p_ip, '1', sizeof(unterminated.p_ip));
    unterminated.n_port = 7200;
    EXPECT_EQ(sdk_udp_init(unterminated, &ch), -4000);
    EXPECT_EQ(sdk_udp_init(endpoint("127.0.0.2", 7200), nullptr), -4000);
    EXPECT_EQ(open_fd_count(), fds);
}

TEST_F(UdpEndpoint, StoppedEth0LeavesTheChannelUnopened) {
    auto &log = log_capture();
    log.clear();
    ASSERT_TRUE(set_link("eth0", false));
    const int fds = open_fd_count();
    transfer_data_t ch{};
    EXPECT_EQ(sdk_udp_init(endpoint("127.0.0.2", 7300), &ch), 0);
    EXPECT_TRUE(set_link("eth0", true));
    EXPECT_TRUE(log.contains("ERROR [TRANSFER] eth0 does not exist!"));
    EXPECT_EQ(ch.n_fd, -1);
    EXPECT_EQ(ch.n_state, CHANNEL_NULL);
    EXPECT_EQ(open_fd_count(), fds);
}

TEST_F(UdpEndpoint, MissingEth0LeavesTheChannelUnopened) {
    auto &log = log_capture();
    log.clear();
    // A nested namespace of our own with nothing but lo.
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        if (unshare(CLONE_NEWNET) != 0 || !set_link("lo", true)) _exit(77);
        const int fds = open_fd_count();
        transfer_data_t ch{};
        int bad = 0;
        if (sdk_udp_init(endpoint("127.0.0.2", 7400), &ch) != 0) bad |= 1;
        if (ch.n_state != CHANNEL_NULL) bad |= 2;
        if (ch.n_fd != -1) bad |= 4;
        if (open_fd_count() != fds) bad |= 8;
        _exit(bad);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no nested network namespace here";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1 result, 2 state, 4 descriptor, 8 socket left open";
    EXPECT_TRUE(log.contains("ERROR [TRANSFER] ioctl error!"));
}

}  // namespace
