// Channel set-up without network: the walk over board arrays, the maps' section rows,
// the refusals of entries that do not fit, the sub-card slot filter and serial channels
// on pseudo-terminals. Entries of type 2 (TCP, never opened) stand for network channels.
#include <termios.h>

#include <string>

#include "setup/setup_fixture.h"
#include "support/pty.h"
#include "uart.h"

namespace {

using sdk::test::PtyPair;

// One class per block: main card 100 (ids 0..19), sub cards 1..4 (20..27), backplane
// 101 (28..29), report 102 (30).
constexpr const char *kDevice = R"("device": {
    "main_card": {"slot_num": 1, "type_num": 20, "min_slot": 100, "max_slot": 100, "id_offset": 0},
    "sub_card":  {"slot_num": 4, "type_num": 2,  "min_slot": 1,   "max_slot": 4,   "id_offset": 20},
    "backplane": {"slot_num": 1, "type_num": 2,  "min_slot": 101, "max_slot": 101, "id_offset": 28},
    "report":    {"slot_num": 1, "type_num": 1,  "min_slot": 102, "max_slot": 102, "id_offset": 30}})";

std::string config(const std::string &arrays) {
    return "{" + std::string(kDevice) + arrays + "}";
}

std::string entry(int id_offset, int type, const std::string &ip = "10.0.0.1", int port = 5000,
                  const std::string &extra = "") {
    return R"({"id_offset": )" + std::to_string(id_offset) + R"(, "type": )" +
           std::to_string(type) + R"(, "ip": ")" + ip + R"(", "port": )" + std::to_string(port) +
           extra + "}";
}

class Setup : public sdk::test::ChannelSetup {};

TEST_F(Setup, RefusesEntriesThatWouldCorruptMemory) {
    // Channel id beyond the table: the report block is the last one, one id wide.
    ASSERT_EQ(load(config(R"(, "report": [{"slot": 102, "fpga": [)" + entry(0, 2) + "," +
                          entry(1, 2) + "]}]")),
              0);
    EXPECT_EQ(sdk_report_transfer_init(root()), -1000);
    EXPECT_TRUE(
        log().contains("ERROR [TRANSFER] slot 102: fpga entry 1 gives channel id 31 "
                       "outside the table of 31 channels"));
    EXPECT_TRUE(log().contains("ERROR [TRANSFER]  max num error code -1000"));
    EXPECT_TRUE(log().contains("INFO [TRANSFER] end ret :-1000"));
    EXPECT_EQ(channel(30).n_type, TCP);  // the entry before was set up

    // Eleven section rows on one board: the eleventh would lie past n_step.
    std::string fpga, mcu;
    for (int k = 0; k < 6; ++k)
        fpga += (k ? "," : "") + entry(k, 2);
    for (int k = 0; k < 5; ++k)
        mcu += (k ? "," : "") + entry(6 + k, 2);
    ASSERT_EQ(load(config(R"(, "maincards": [{"slot": 100, "fpga": [)" + fpga + R"(], "mcu": [)" +
                          mcu + "]}]")),
              0);
    EXPECT_EQ(sdk_maincards_transfer_init(root()), -1000);
    EXPECT_TRUE(
        log().contains("slot 100: mcu entry 4 needs section row 10, a board has at most 10"));
    const transfer_id_map_t &map = g_st_transfer.st_main_card;
    EXPECT_EQ(map.n_step[9], 9);
    EXPECT_EQ(map.n_section_num[0], 6);  // the field after n_step is intact
    EXPECT_EQ(map.n_section_num[1], 5);
    EXPECT_EQ(channel(9).n_type, TCP);

    // An "ip" text must fit the endpoint description with its terminator.
    ASSERT_EQ(load(config(R"(, "maincards": [{"slot": 100, "fpga": [)" +
                          entry(0, 2, std::string(254, 'a')) + "," +
                          entry(1, 2, std::string(255, 'b')) + "]}]")),
              0);
    EXPECT_EQ(sdk_maincards_transfer_init(root()), -1000);
    EXPECT_TRUE(log().contains("slot 100: fpga entry 1 has an ip text of 255 characters or more"));
    EXPECT_TRUE(log().contains("ERROR [TRANSFER]  json error code -1000"));
    EXPECT_EQ(channel(0).n_type, TCP);
    EXPECT_EQ(channel(1).n_type, 0);

    // Two board entries for one slot would share channel records.
    ASSERT_EQ(load(config(R"(, "backplane": [{"slot": 101, "fpga": [)" + entry(0, 2) +
                          R"(]}, {"slot": 101, "fpga": [)" + entry(0, 2) + "]}]")),
              0);
    EXPECT_EQ(sdk_backplane_transfer_init(root()), -1000);
    EXPECT_TRUE(log().contains("gives channel id 28, already set up for slot 101"));
}

// Each refusal says which member of which entry is wrong, and why, in a line of its own
// before the code line.
TEST_F(Setup, MalformedEntriesStopTheMember) {
    const std::string not_int = "is not an integer from 0 to 2147483647";
    const std::pair<std::string, std::string> bad_entries[] = {
        {R"({"type": 2, "ip": "a", "port": 1})", R"("id_offset" is missing)"},
        {R"({"id_offset": 0, "type": -1, "ip": "a", "port": 1})", R"("type" )" + not_int},
        {R"({"id_offset": 0, "type": 2, "ip": 7, "port": 1})", R"("ip" is not a string)"},
        {R"({"id_offset": 0, "type": 2, "port": 1})", R"("ip" is missing)"},
        {R"({"id_offset": 0, "type": 2, "ip": "a", "port": "1"})", R"("port" )" + not_int},
    };
    for (const auto &[e, why] : bad_entries) {
        ASSERT_EQ(load(config(R"(, "report": [{"slot": 102, "fpga": [)" + e + "]}]")), 0);
        EXPECT_EQ(sdk_report_transfer_init(root()), -1000) << e;
        EXPECT_TRUE(log().contains("ERROR [TRANSFER] slot 102: fpga entry 0: " + why)) << why;
        EXPECT_TRUE(log().contains(" json error code -1000")) << e;
    }
    for (const char *code : {"2", "3"}) {
        ASSERT_EQ(load(config(R"(, "report": [{"slot": 102, "fpga": [)" +
                              entry(0, 2, "a", 1, std::string(R"(, "packet_code_type": )") + code) +
                              "]}]")),
                  0);
        EXPECT_EQ(sdk_report_transfer_init(root()), -1000) << code;
        EXPECT_TRUE(log().contains(std::string("slot 102: fpga entry 0 has packet_code_type ") +
                                   code + ", at most 1"));
    }

    const std::pair<std::string, std::string> bad_boards[] = {
        {R"([{"fpga": []}])", R"("report" entry 0: "slot" is missing)"},
        {R"([{"slot": 102}, null])", R"("report" entry 1: "slot" is missing)"},
        {R"([{"slot": 103}])",
         R"("report" entry 0: slot 103 outside 102..102, "min_slot".."max_slot" of "report")"},
    };
    for (const auto &[b, why] : bad_boards) {
        ASSERT_EQ(load(config(R"(, "report": )" + b)), 0);
        EXPECT_EQ(sdk_report_transfer_init(root()), -1000) << b;
        EXPECT_TRUE(log().contains("ERROR [TRANSFER] " + why)) << why;
    }
    EXPECT_TRUE(log().contains(" max num error code -1000"));  // the slot range
    EXPECT_EQ(sdk_maincards_transfer_init(nullptr), -1000);
    EXPECT_TRUE(log().contains(R"(no configuration to read "maincards" from)"));
    char slot = 1;
    EXPECT_EQ(sdk_subcards_transfer_init(&slot, 1, nullptr), -1000);
    EXPECT_EQ(sdk_subcards_transfer_init(nullptr, 2, root()), 0);  // no "subcards": nothing to do
}

// Every channel of packet_code_type 1 gets eth_max x rvcard_max receiving cards at
// start-up; over all of them, whichever member places them, the sum is bounded.
TEST_F(Setup, ReceivingCardsAreBoundedOverAllSenderChannels) {
    const std::string sender = R"(, "packet_code_type": 1)";
    ASSERT_EQ(load(config(R"(, "rvcard_param": {"eth_max": 64, "rvcard_max": 512},)"
                          R"( "maincards": [{"slot": 100, "fpga": [)" +
                          entry(0, 2, "a", 1, sender) + "," + entry(1, 2, "a", 1, sender) +
                          R"(]}], "backplane": [{"slot": 101, "fpga": [)" +
                          entry(0, 2, "a", 1, sender) + "]}]")),
              0);
    EXPECT_EQ(sdk_maincards_transfer_init(root()), 0);  // 2 x 32768 cards
    EXPECT_EQ(sdk_backplane_transfer_init(root()), -1000);
    EXPECT_TRUE(log().contains(R"(slot 101: fpga entry 0: "packet_code_type" 1 makes 3 channels )"
                               R"(with "eth_max" 64 x "rvcard_max" 512 receiving cards each, )"
                               R"(more than 65536 cards in all)"));
    EXPECT_TRUE(log().contains(" max num error code -1000"));
    EXPECT_EQ(channel(28).n_type, 0);
}

TEST_F(Setup, MissingArraysAreNoFailure) {
    ASSERT_EQ(load(config("")), 0);
    char slot = 1;
    EXPECT_EQ(sdk_maincards_transfer_init(root()), 0);
    EXPECT_EQ(sdk_subcards_transfer_init(&slot, 1, root()), 0);
    EXPECT_EQ(sdk_backplane_transfer_init(root()), 0);
    EXPECT_EQ(sdk_report_transfer_init(root()), 0);
    for (const char *msg : {"maincard transfer is null", "subcard transfer is null",
                            "backplane transfer is null", "report transfer is null"}) {
        EXPECT_TRUE(log().contains(std::string("ERROR [TRANSFER] ") + msg)) << msg;
    }
    EXPECT_EQ(log().count("INFO [TRANSFER] start!"), 3);  // the backplane has none
    EXPECT_EQ(log().count("INFO [TRANSFER] end ret :0"), 4);
}

TEST_F(Setup, SubCardSlotFilter) {
    std::string boards;
    for (int slot = 1; slot <= 3; ++slot) {
        boards += std::string(slot > 1 ? "," : "") + R"({"slot": )" + std::to_string(slot) +
                  R"(, "fpga": [)" + entry(0, 2) + R"(], "mcu": [)" + entry(1, 3) + "]}";
    }
    const std::string text = config(R"(, "subcards": [)" + boards + "]");
    ASSERT_EQ(load(text), 0);
    EXPECT_EQ(sdk_subcards_transfer_init(nullptr, 0, root()), 0);
    for (int id = 20; id < 28; ++id)
        EXPECT_EQ(channel(id).n_type, 0) << id;

    // 3 twice, 200 (a byte above 127) and 4 have no board.
    const char list[] = {3, 1, 3, static_cast<char>(200), 4};
    EXPECT_EQ(sdk_subcards_transfer_init(const_cast<char *>(list), sizeof(list), root()), 0);
    EXPECT_EQ(channel(20).n_slot, 1);
    EXPECT_EQ(channel(20).n_type, TCP);
    EXPECT_EQ(channel(21).n_type, RAW_SOCKET);
    EXPECT_EQ(channel(21).n_section, MCU);
    EXPECT_EQ(channel(22).n_type, 0);  // slot 2 not listed
    EXPECT_EQ(channel(24).n_slot, 3);
    EXPECT_EQ(channel(25).n_fd, -1);
    EXPECT_EQ(channel(26).n_type, 0);
    EXPECT_TRUE(log().contains(" slot[3] is 200, "));
    EXPECT_TRUE(log().contains("slot 3 listed again, already set up"));
    EXPECT_EQ(log().count("slotid  is 3"), 1);

    // Every entry is range-checked, listed or not.
    ASSERT_EQ(load(config(R"(, "subcards": [{"slot": 1}, {"slot": 17}])")), 0);
    const char one[] = {1};
    EXPECT_EQ(sdk_subcards_transfer_init(const_cast<char *>(one), 1, root()), -1000);
}

TEST_F(Setup, SectionRowsAndRecordFields) {
    // A board with only "mcu": its rows follow the "fpga" count of its class map (0 here).
    ASSERT_EQ(load(config(R"(, "maincards": [{"slot": 100, "fpga": [)" + entry(4, 2) + "," +
                          entry(5, 2) + R"(]}], "backplane": [{"slot": 101, "mcu": [)" +
                          entry(1, 2, "b", 1, R"(, "packet_code_type": 1)") + "]}]")),
              0);
    EXPECT_EQ(sdk_maincards_transfer_init(root()), 0);
    EXPECT_EQ(sdk_backplane_transfer_init(root()), 0);
    const transfer_id_map_t &main = g_st_transfer.st_main_card;
    EXPECT_EQ(main.n_section_num[0], 2);
    EXPECT_EQ(main.n_step[1], 5);
    EXPECT_EQ(channel(5).e_packet_code_type, PACKET_VIDEO);
    const transfer_id_map_t &back = g_st_transfer.st_backplane;
    EXPECT_EQ(back.n_section_num[1], 1);
    EXPECT_EQ(back.n_step[0], 1);  // mcu row 0 + the 0 "fpga" rows
    EXPECT_EQ(channel(29).n_slot, 101);
    EXPECT_EQ(channel(29).n_section, MCU);
    EXPECT_EQ(channel(29).e_packet_code_type, PACKET_SENDER);
    EXPECT_TRUE(log().contains("INFO [TRANSFER] n_transfer_id 29  n_section_offset 0"));

    // A board with both arrays after one with only "fpga" of three entries.
    ASSERT_EQ(load(config(R"(, "subcards": [{"slot": 1, "fpga": [)" + entry(0, 2) + "," +
                          entry(1, 3) + R"(]}, {"slot": 2, "mcu": [)" + entry(1, 2) + "]}]")),
              0);
    const char slots[] = {1, 2};
    EXPECT_EQ(sdk_subcards_transfer_init(const_cast<char *>(slots), 2, root()), 0);
    EXPECT_EQ(g_st_transfer.st_sub_card.n_step[2], 1);  // row 0 + 2 "fpga" entries
    EXPECT_EQ(channel(23).n_slot, 2);
    EXPECT_EQ(channel(23).n_section, MCU);
}

TEST_F(Setup, ChannelTypesEachClassOpens) {
    ASSERT_EQ(load(config(R"(, "subcards": [{"slot": 1, "fpga": [)" + entry(0, UART, "/dev/null") +
                          "," + entry(1, 55) + R"(]}], "backplane": [{"slot": 101, "fpga": [)" +
                          entry(0, REPORT_UDP) + "]}]")),
              0);
    const char one[] = {1};
    EXPECT_EQ(sdk_subcards_transfer_init(const_cast<char *>(one), 1, root()), 0);
    EXPECT_EQ(sdk_backplane_transfer_init(root()), 0);
    EXPECT_TRUE(log().contains("ERROR [TRANSFER] unkonw type 10"));
    EXPECT_TRUE(log().contains("ERROR [TRANSFER] unkonw type 55"));
    EXPECT_TRUE(log().contains("ERROR [TRANSFER] unkonw type 100"));
    // Records of channels not opened: type kept when it is one, never a descriptor.
    for (auto [id, type] : {std::pair{20, UART}, std::pair{21, static_cast<json_type_tbl>(0)},
                            std::pair{28, REPORT_UDP}}) {
        EXPECT_EQ(channel(id).n_type, type) << id;
        EXPECT_EQ(channel(id).n_fd, -1) << id;
        EXPECT_EQ(channel(id).n_state, CHANNEL_NULL) << id;
    }
}

TEST_F(Setup, SerialChannelsOnPseudoTerminals) {
    PtyPair mcu_port, back_port;
    n_mcu_isp_uart_fd = static_cast<uint32_t>(-1);
    ASSERT_EQ(load(config(R"(, "maincards": [{"slot": 100, "mcu": [)" +
                          entry(0, UART, mcu_port.slave_path(), 115200) + "," +
                          entry(1, UART, "/dev/no-such-port", 9600) + "," + entry(2, 2) +
                          R"(]}], "backplane": [{"slot": 101, "fpga": [)" +
                          entry(1, UART, back_port.slave_path(), 57600) + "]}]")),
              0);
    EXPECT_EQ(sdk_maincards_transfer_init(root()), 0);
    const int main_fd = channel(0).n_fd;
    ASSERT_GE(main_fd, 0);
    EXPECT_EQ(channel(0).n_state, CHANNEL_OK);
    EXPECT_EQ(n_mcu_isp_uart_fd, static_cast<uint32_t>(main_fd));
    termios t = mcu_port.slave_attrs();
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B115200));
    EXPECT_EQ(t.c_lflag & ICANON, 0u);

    // A port that cannot be opened leaves its channel unused; the walk goes on and the
    // published descriptor stays the last good one.
    EXPECT_LT(channel(1).n_fd, 0);
    EXPECT_EQ(channel(1).n_state, CHANNEL_NULL);
    EXPECT_EQ(channel(2).n_type, TCP);
    EXPECT_EQ(n_mcu_isp_uart_fd, static_cast<uint32_t>(main_fd));

    EXPECT_EQ(sdk_backplane_transfer_init(root()), 0);
    const int back_fd = channel(29).n_fd;
    ASSERT_GE(back_fd, 0);
    EXPECT_EQ(n_mcu_isp_uart_fd, static_cast<uint32_t>(back_fd));  // the last opened wins
    t = back_port.slave_attrs();
    EXPECT_EQ(cfgetispeed(&t), static_cast<speed_t>(B57600));

    // Both channels carry bytes to their own device.
    uint8_t frame[] = {0x55, 0xBB, 0x0A, 0x0D};
    EXPECT_EQ(sdk_uart_write(static_cast<uint32_t>(main_fd), frame, sizeof(frame)), 4);
    EXPECT_EQ(mcu_port.receive(4), std::vector<uint8_t>(frame, frame + 4));
    back_port.send({0xBB, 0x55});
    ASSERT_TRUE(sdk::test::wait_readable(back_fd, 1000));
    uint8_t in[4];
    EXPECT_EQ(sdk_uart_read(static_cast<uint32_t>(back_fd), in, sizeof(in), 0), 2);
    EXPECT_FALSE(sdk::test::wait_readable(mcu_port.master(), 0));
}

}  // namespace
