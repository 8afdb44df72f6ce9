// Request descriptors as a C host may fill them: enumeration fields holding numbers that
// are no enumerator. The frame length checked and queued must be the length written,
// also when e_type carries bits above the body type (only its low four bits count).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/netns_helpers.h"
#include "transfer_server.h"

namespace {

// One sender-card channel (slot 100, FPGA) with receiving cards. No worker thread runs:
// accepted requests stay queued (and referenced by the engine) until the process ends.
constexpr const char *kConfig = R"({
  "device": {"main_card": {"slot_num": 1, "type_num": 1, "min_slot": 100, "max_slot": 100, "id_offset": 0}},
  "rvcard_param": {"eth_max": 2, "rvcard_max": 4},
  "maincards": [{"slot": 100, "fpga": [{"id_offset": 0, "type": 1, "ip": "127.0.0.2", "port": 7100,
                                         "packet_code_type": 1}]}]
})";

TEST(RequestInput, CardBodyLengthFollowsTheLowBitsOfTheBodyType) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    mio_json *root = mio_json_fromstring(kConfig);
    ASSERT_EQ(sdk_device_transfer_mem_init(root), 0);
    ASSERT_EQ(sdk_maincards_transfer_init(root), 0);
    ASSERT_EQ(sdk_transfer_containers_init(), 0);
    mio_json_delete(root);

    std::string data(8963, 'd');  // 34 + 8963 + 4 = 9001: one byte too long
    for (uint32_t n_type : {2u, 0x12u, 0xF2u}) {
        SCOPED_TRACE(n_type);
        transfer_op_t op{};
        op.n_slot = 100;
        op.n_timeout = 100;
        const uint32_t n_code = 0x101;  // a write (only its low bit counts)
        memcpy(reinterpret_cast<uint8_t *>(&op) + offsetof(transfer_op_t, e_type), &n_type, 4);
        memcpy(reinterpret_cast<uint8_t *>(&op) + offsetof(transfer_op_t, e_code), &n_code, 4);
        op.st_addr_param.n_device_type = DEVICE_ETH;
        op.st_addr_param.n_device_index = 1;
        op.st_control.n_recvcard_id = 2;
        EXPECT_EQ(sdk_request(data.data(), 8963, &op), -4006);
        EXPECT_EQ(sdk_request(data.data(), 8962, &op), 0);
        ASSERT_NE(op.p_packet_node, nullptr);
        const data_buf_t &sent = op.p_packet_node->st_send_data;
        EXPECT_EQ(sent.n_len, 9000u);
        EXPECT_EQ(sent.arr_buf[10], 0x62);  // ack, write, body type 2
        EXPECT_EQ(sent.arr_buf[8] | (sent.arr_buf[9] << 8), 8990);
        EXPECT_EQ(sdk_transfer_checksum_data(const_cast<uint8_t *>(sent.arr_buf), sent.n_len), 0);
    }
}

}  // namespace
