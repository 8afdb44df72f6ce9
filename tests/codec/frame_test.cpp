// Request frames byte by byte, checksums and data extraction.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "support/config_fixture.h"
#include "support/log_capture.h"
#include "transfer_server.h"

namespace {

using Bytes = std::vector<uint8_t>;

transfer_op_t address_read(uint32_t slot, uint32_t addr, uint32_t len) {
    transfer_op_t op{};
    op.e_mode = FPGA;
    op.n_slot = slot;
    op.n_no_ack = EN_REQUEST_ACK;
    op.e_code = FRAME_READ;
    op.n_read_len = len;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = addr;
    return op;
}

// Builds a frame as the request path does; the label is forced afterwards so the bytes
// do not depend on how many labels this process has taken.
Bytes build(const transfer_op_t &op, const Bytes &wdata, uint16_t lable, uint32_t channel = 0) {
    frame_header_t fh{};
    request_header_t rh{};
    request_body_t rb{};
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, channel, op), 0);
    EXPECT_EQ(sdk_packet_add_request_header(&rh, channel, fh.n_frame_type, op), 0);
    EXPECT_EQ(sdk_packet_add_request_body(&rb, rh, op), 0);
    int32_t prefix = sdk_get_packet_length(rh, rb);
    EXPECT_GT(prefix, 0);
    size_t len = prefix + wdata.size() + 2 + (op.e_type == BODY_RECVCARD ? 2 : 0);
    fh.n_len = static_cast<uint16_t>(len - 10);
    fh.n_lable = lable;
    Bytes frame(len, 0);
    auto *w = wdata.empty() ? nullptr : const_cast<uint8_t *>(wdata.data());
    EXPECT_EQ(sdk_packet_data(frame.data(), w, wdata.size(), fh, rh, rb), 0);
    return frame;
}

uint16_t le16(const Bytes &b, size_t off) {
    return b[off] | (b[off + 1] << 8);
}

uint16_t sum(const Bytes &b, size_t from, size_t to) {
    uint32_t s = 0;
    for (size_t i = from; i < to; ++i)
        s += b[i];
    return static_cast<uint16_t>(s);
}

class FrameTest : public ::testing::Test {
  protected:
    void SetUp() override { sdk::test::load_example_config(); }
};

TEST_F(FrameTest, AcknowledgedAddressReadMatchesWorkedExample) {
    Bytes expected = {0x55, 0xBB, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00, 0x16, 0x00, 0x40,
                      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                      0x00, 0x10, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x7C, 0x01};
    EXPECT_EQ(build(address_read(100, 0x1000, 4), {}, 1), expected);
}

TEST_F(FrameTest, AcknowledgedReceivingCardReadMatchesWorkedExample) {
    transfer_op_t op = address_read(100, 0x100, 8);
    op.e_type = BODY_RECVCARD;
    op.st_addr_param.n_device_type = DEVICE_ETH;
    op.st_addr_param.n_device_index = 1;
    op.st_control.n_recvcard_id = 5;
    Bytes expected = {0x55, 0xBB, 0x00, 0x00, 0x00, 0x01, 0x02, 0x00, 0x1C, 0x00, 0x42, 0x02, 0x01,
                      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x01, 0x05, 0x00,
                      0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x08, 0x00, 0x65, 0x55, 0x3E, 0x02};
    EXPECT_EQ(build(op, {}, 2), expected);
}

TEST_F(FrameTest, AddressWriteCarriesDataLengthAndChecksum) {
    transfer_op_t op = address_read(3, 0x20, 0);
    op.e_code = FRAME_WRITE;
    Bytes f = build(op, {0xDE, 0xAD, 0xBE, 0xEF}, 7, 6);
    ASSERT_EQ(f.size(), 36u);
    EXPECT_EQ(le16(f, 8), 26);  // frame header length
    EXPECT_EQ(f[10], 0x60);     // acknowledged write, address body
    EXPECT_EQ(le16(f, 26), 0);  // no read length in a write
    EXPECT_EQ(le16(f, 28), 4);  // body data length
    EXPECT_EQ(f[30], 0xDE);
    EXPECT_EQ(le16(f, 34), sum(f, 0, 34));
    EXPECT_EQ(sdk_transfer_checksum_data(f.data(), f.size()), 0);
}

TEST_F(FrameTest, TlvBodyCarriesTagAndNoErrorCode) {
    transfer_op_t op = address_read(100, 0xABCD, 16);
    op.e_type = BODY_TLV;
    Bytes f = build(op, {}, 9);
    ASSERT_EQ(f.size(), 32u);
    EXPECT_EQ(f[10], 0x41);
    EXPECT_EQ(f[22], 0xCD);
    EXPECT_EQ(f[23], 0xAB);
    EXPECT_EQ(le16(f, 26), 0);
    EXPECT_EQ(le16(f, 30), sum(f, 0, 30));
}

TEST_F(FrameTest, AddressReadWithoutDataPutsLengthInErrorField) {
    Bytes f = build(address_read(100, 0, 16), {}, 3);
    ASSERT_EQ(f.size(), 32u);
    EXPECT_EQ(le16(f, 26), 16);
    EXPECT_EQ(le16(f, 28), 0);
    EXPECT_EQ(le16(f, 30), sum(f, 0, 30));
}

TEST_F(FrameTest, ReceivingCardWriteAndUnacknowledgedRead) {
    transfer_op_t op = address_read(100, 0x40, 0);
    op.e_type = BODY_RECVCARD;
    op.e_code = FRAME_WRITE;
    op.st_addr_param.n_device_type = DEVICE_ETH;
    op.st_addr_param.n_device_index = 0xFF;
    op.st_control.n_recvcard_id = 0xFFFF;
    Bytes data = {1, 2, 3, 4, 5};
    Bytes f = build(op, data, 11);
    ASSERT_EQ(f.size(), 38u + data.size());
    EXPECT_EQ(f[23], 0xFF);          // broadcast port kept in the frame
    EXPECT_EQ(le16(f, 24), 0xFFFF);  // broadcast card kept in the frame
    EXPECT_EQ(le16(f, 32), data.size());
    uint16_t rv = static_cast<uint16_t>(sum(f, 22, 34) + sum(data, 0, data.size()) + 0x5555);
    EXPECT_EQ(le16(f, 34 + data.size()), rv);
    EXPECT_EQ(le16(f, 36 + data.size()), sum(f, 0, 36 + data.size()));

    op.e_code = FRAME_READ;
    op.n_no_ack = EN_REQUEST_NO_ACK;
    op.n_read_len = 12;
    Bytes r = build(op, {}, 12);
    ASSERT_EQ(r.size(), 38u);
    EXPECT_EQ(r[10], 0x02);
    EXPECT_EQ(le16(r, 32), 12);  // read length in the data-length field
    EXPECT_EQ(le16(r, 34), static_cast<uint16_t>(sum(r, 22, 34) + 0x5555));
}

TEST_F(FrameTest, BuildersRefuseBadSlotChannelTypeAndHeaderType) {
    auto &log = sdk::test::log_capture();
    log.clear();
    frame_header_t fh{};
    uint16_t before = sdk_get_next_lable();
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, 0, address_read(50, 0, 4)), -4000);
    EXPECT_TRUE(log.contains("unkonw frame type slot 50 section 0"));
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, 2, address_read(100, 0, 4)), -4000);
    EXPECT_TRUE(log.contains("unknow transfer type 100"));  // a report channel
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, 1000, address_read(100, 0, 4)), -4000);
    // Refusals take no label.
    EXPECT_EQ(static_cast<uint16_t>(sdk_get_next_lable() - before), 1);

    request_header_t rh{};
    EXPECT_EQ(sdk_packet_add_request_header(&rh, 0, 0, address_read(100, 0, 4)), -4000);
    EXPECT_EQ(rh.n_header_type, 0u);
    request_body_t rb{};
    EXPECT_EQ(sdk_packet_add_request_body(&rb, rh, address_read(100, 0, 4)), -4000);
    EXPECT_EQ(sdk_get_packet_length(rh, rb), -4000);
    EXPECT_TRUE(log.contains("unknow request header 0"));

    transfer_op_t bad = address_read(100, 0, 4);
    bad.e_type = static_cast<request_body_type>(5);
    ASSERT_EQ(sdk_packet_add_request_header(&rh, 0, 1, bad), 0);
    EXPECT_EQ(sdk_packet_add_request_body(&rb, rh, bad), -4000);
    EXPECT_TRUE(log.contains("unkonw request body type"));
    uint8_t buf[64] = {};
    EXPECT_EQ(sdk_packet_data(nullptr, nullptr, 0, fh, rh, rb), -4004);
    EXPECT_EQ(sdk_packet_data(buf, nullptr, 0, fh, rh, rb), -4000);
}

TEST(Checksum, ByteSumWrapsAt16Bits) {
    std::vector<uint8_t> ff(258, 0xFF);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 0), 0);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 257), 0xFFFF);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 258), 0x00FE);
    EXPECT_EQ(sdk_transfer_checksum(nullptr, 3), -4004);
}

TEST(Checksum, FrameCheck) {
    uint8_t two[2] = {0, 0};
    EXPECT_EQ(sdk_transfer_checksum_data(two, 2), 0);
    two[1] = 1;
    EXPECT_EQ(sdk_transfer_checksum_data(two, 2), 1);
    uint8_t frame[5] = {0x10, 0x20, 0x30, 0x60, 0x00};
    EXPECT_EQ(sdk_transfer_checksum_data(frame, 5), 0);
    frame[0] ^= 1;
    EXPECT_EQ(sdk_transfer_checksum_data(frame, 5), 1);
    EXPECT_EQ(sdk_transfer_checksum_data(nullptr, 5), -4004);
    EXPECT_EQ(sdk_transfer_checksum_data(frame, 1), -4000);  // no room for a checksum
}

// A reply frame with an address body and n data bytes.
Bytes reply(uint8_t param, uint16_t stated_len, size_t real_len) {
    Bytes f(32 + real_len, 0);
    f[0] = 0x55;
    f[1] = 0xBB;
    f[5] = 1;
    f[10] = param;
    f[28] = stated_len & 0xFF;
    f[29] = stated_len >> 8;
    for (size_t i = 0; i < real_len; ++i)
        f[30 + i] = static_cast<uint8_t>(i + 1);
    return f;
}

TEST(ProtocolData, CopiesAddressReplyDataAndRefusesTheRest) {
    auto &log = sdk::test::log_capture();
    std::vector<int8_t> out(SDK_DATA_BUF_LEN);
    Bytes f = reply(0x40, 4, 4);
    EXPECT_EQ(sdk_get_protocol_data(out.data(), reinterpret_cast<int8_t *>(f.data()), f.size()), 4);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[3], 4);

    log.clear();
    EXPECT_EQ(sdk_get_protocol_data(out.data(), reinterpret_cast<int8_t *>(f.data()), 31), -4000);
    EXPECT_TRUE(log.contains(" max num error code -4000"));

    log.clear();
    Bytes big = reply(0x40, 9001, 0);
    EXPECT_EQ(sdk_get_protocol_data(out.data(), reinterpret_cast<int8_t *>(big.data()), big.size()),
              -4000);
    EXPECT_TRUE(log.contains(" max num error code -4000"));

    // A stated length running past the bytes received is refused, not read.
    Bytes lying = reply(0x40, 100, 4);
    EXPECT_EQ(
        sdk_get_protocol_data(out.data(), reinterpret_cast<int8_t *>(lying.data()), lying.size()),
        -4000);

    log.clear();
    Bytes tlv = reply(0x41, 4, 4);
    EXPECT_EQ(sdk_get_protocol_data(out.data(), reinterpret_cast<int8_t *>(tlv.data()), tlv.size()),
              -4000);
    EXPECT_TRUE(log.lines().empty());  // other bodies are refused silently
}

}  // namespace
