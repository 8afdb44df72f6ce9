// The whole channel table of a realistic chassis (data/chassis.json): a main card with
// FPGA, MCU and report channels and a serial MCU port, three sub cards of which this
// process serves two, a backplane with a serial channel, and a report board. Boards are
// simulated on 127.0.0.x, serial devices on pseudo-terminals.
#include <fstream>
#include <sstream>
#include <vector>

#include "support/netns_helpers.h"
#include "setup/setup_fixture.h"
#include "support/pty.h"
#include "uart.h"

namespace {

using namespace sdk::test;

std::string chassis_text(const std::string &main_tty, const std::string &back_tty) {
    const char *src = getenv("TRANSFER_SOURCE_DIR");
    std::ifstream in(std::string(src ? src : ".") + "/tests/setup/data/chassis.json");
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    for (auto [key, value] : {std::pair{std::string("@MAIN_MCU_TTY@"), main_tty},
                              std::pair{std::string("@BACKPLANE_TTY@"), back_tty}}) {
        text.replace(text.find(key), key.size(), value);
    }
    return text;
}

struct Expected {
    int id;
    int slot;
    transfer_section section;
    json_type_tbl type;
    packet_code_type code;
    std::string ip;  // board address, or empty for a serial channel
    uint16_t port;
};

class Chassis : public ChannelSetup {
  protected:
    PtyPair main_tty_, back_tty_;
};

TEST_F(Chassis, EveryConfiguredChannelIsOpenAndReachable) {
    ASSERT_EQ(load(chassis_text(main_tty_.slave_path(), back_tty_.slave_path())), 0);
    ASSERT_EQ(g_st_transfer.n_num, 15);
    const char served[] = {1, 3};
    ASSERT_EQ(sdk_maincards_transfer_init(root()), 0);
    ASSERT_EQ(sdk_subcards_transfer_init(const_cast<char *>(served), 2, root()), 0);
    ASSERT_EQ(sdk_backplane_transfer_init(root()), 0);
    ASSERT_EQ(sdk_report_transfer_init(root()), 0);

    const std::vector<Expected> table = {
        {0, 100, FPGA, UDP, PACKET_SENDER, "127.0.0.2", 6000},
        {1, 100, FPGA, REPORT_UDP, PACKET_VIDEO, "127.0.0.2", 6100},
        {2, 100, MCU, UART, PACKET_VIDEO, "", 0},
        {3, 100, MCU, UDP, PACKET_VIDEO, "127.0.0.3", 6000},
        {4, 1, FPGA, UDP, PACKET_VIDEO, "127.0.1.1", 6001},
        {5, 1, MCU, UDP, PACKET_VIDEO, "127.0.1.1", 6002},
        {8, 3, FPGA, UDP, PACKET_SENDER, "127.0.1.3", 6001},
        {9, 3, MCU, REPORT_UDP, PACKET_VIDEO, "127.0.1.3", 6100},
        {12, 101, FPGA, UDP, PACKET_VIDEO, "127.0.2.1", 6003},
        {13, 101, MCU, UART, PACKET_VIDEO, "", 0},
        {14, 102, FPGA, REPORT_UDP, PACKET_VIDEO, "127.0.3.1", 6100},
    };
    std::vector<bool> configured(15, false);
    for (const Expected &e : table) {
        SCOPED_TRACE("channel " + std::to_string(e.id));
        configured[e.id] = true;
        const transfer_data_t &ch = channel(e.id);
        EXPECT_EQ(ch.n_slot, e.slot);
        EXPECT_EQ(ch.n_section, e.section);
        EXPECT_EQ(ch.n_type, e.type);
        EXPECT_EQ(ch.e_packet_code_type, e.code);
        EXPECT_EQ(ch.n_state, CHANNEL_OK);
        ASSERT_GE(ch.n_fd, 0);
        if (e.ip.empty()) continue;

        EXPECT_EQ(local_port(ch.n_fd), e.port);
        EXPECT_EQ(peer_of(ch.n_fd), e.ip + ":" + std::to_string(e.port));
        // The board reaches the channel and the channel reaches the board.
        int board = udp_socket(e.ip, e.port);
        ASSERT_GE(board, 0);
        const std::string hello = "board of channel " + std::to_string(e.id);
        send_to(board, hello, "127.0.0.1", e.port);
        EXPECT_EQ(recv_text(ch.n_fd), hello);
        ASSERT_EQ(send(ch.n_fd, "frame", 5, 0), 5);
        std::string from;
        EXPECT_EQ(recv_text(board, 1000, &from), "frame");
        EXPECT_EQ(from, "127.0.0.1:" + std::to_string(e.port));
        close(board);
    }
    // Sub card 2 is not served by this process: its records stay empty.
    for (int id = 0; id < 15; ++id) {
        if (!configured[id]) {
            EXPECT_EQ(channel(id).n_type, 0) << id;
        }
    }

    // The class maps hold the section rows of their boards.
    EXPECT_EQ(g_st_transfer.st_main_card.n_section_num[0], 2);
    EXPECT_EQ(g_st_transfer.st_main_card.n_section_num[1], 2);
    EXPECT_EQ(g_st_transfer.st_main_card.n_step[3], 3);
    EXPECT_EQ(g_st_transfer.st_sub_card.n_step[1], 1);
    EXPECT_EQ(g_st_transfer.st_backplane.n_step[1], 1);

    // Routing lands on the channels that set-up filled.
    transfer_op_t op{};
    op.e_mode = MCU;
    op.n_slot = 3;
    EXPECT_EQ(sdk_get_transfer_map_id(op), 9);
    op.n_slot = 101;
    EXPECT_EQ(sdk_get_transfer_map_id(op), 13);

    // Serial channels: the backplane's port, opened last, is the one published.
    EXPECT_EQ(n_mcu_isp_uart_fd, static_cast<uint32_t>(channel(13).n_fd));
    uint8_t frame[] = {0x55, 0xBB, 0x00, 0x11, 0x13};
    for (auto [id, tty] : {std::pair{2, &main_tty_}, std::pair{13, &back_tty_}}) {
        const auto fd = static_cast<uint32_t>(channel(id).n_fd);
        EXPECT_EQ(sdk_uart_write(fd, frame, sizeof(frame)), 5);
        EXPECT_EQ(tty->receive(5), std::vector<uint8_t>(frame, frame + 5));
        tty->send({0xBB, 0x55, static_cast<uint8_t>(id)});
        ASSERT_TRUE(wait_readable(channel(id).n_fd, 1000));
        uint8_t in[8];
        EXPECT_EQ(sdk_uart_read(fd, in, sizeof(in), 0), 3);
        EXPECT_EQ(in[2], id);
    }
}

TEST_F(Chassis, UdpEndpointFailureEndsTheMember) {
    ASSERT_EQ(load(R"({"device": {"main_card": {"slot_num": 1, "type_num": 3, "min_slot": 100,
        "max_slot": 100, "id_offset": 0}},
      "maincards": [{"slot": 100, "fpga": [
        {"id_offset": 0, "type": 1, "ip": "127.0.0.2", "port": 6500},
        {"id_offset": 1, "type": 1, "ip": "board-two", "port": 6500},
        {"id_offset": 2, "type": 1, "ip": "127.0.0.4", "port": 6500}]}]})"),
              0);
    EXPECT_EQ(sdk_maincards_transfer_init(root()), -4000);
    EXPECT_TRUE(log().contains("ERROR [TRANSFER] error code -4000"));
    EXPECT_TRUE(log().contains("INFO [TRANSFER] end ret :-4000"));
    EXPECT_EQ(channel(0).n_state, CHANNEL_OK);  // opened before the failure, stays open
    EXPECT_EQ(channel(1).n_fd, -1);
    EXPECT_EQ(channel(1).n_state, CHANNEL_NULL);
    EXPECT_EQ(channel(2).n_type, 0);  // never reached
}

}  // namespace
