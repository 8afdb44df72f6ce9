// Request frames byte by byte, their checks, data extraction from replies, and labels.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/config_fixture.h"
#include "transfer_server.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Builds a frame as the request path does; the label is forced afterwards so the bytes
// do not depend on how many labels this process has taken.
Bytes build(const transfer_op_t &op, const Bytes &wdata, uint16_t lable, uint32_t channel) {
    frame_header_t fh{};
    request_header_t rh{};
    request_body_t rb{};
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, channel, op), 0);
    EXPECT_EQ(sdk_packet_add_request_header(&rh, channel, fh.n_frame_type, op), 0);
    EXPECT_EQ(sdk_packet_add_request_body(&rb, rh, op), 0);
    int32_t prefix = sdk_get_packet_length(rh, rb);
    size_t len = prefix + wdata.size() + 2 + (op.e_type == BODY_RECVCARD ? 2 : 0);
    fh.n_len = static_cast<uint16_t>(len - 10);
    fh.n_lable = lable;
    Bytes frame(len, 0);
    auto *w = wdata.empty() ? nullptr : const_cast<uint8_t *>(wdata.data());
    EXPECT_EQ(sdk_packet_data(frame.data(), w, wdata.size(), fh, rh, rb), 0);
    return frame;
}

transfer_op_t op_of(uint32_t slot, frame_code code, request_body_type type, uint32_t addr,
                    uint32_t read_len, uint32_t ack = EN_REQUEST_ACK) {
    transfer_op_t op{};
    op.e_mode = FPGA;
    op.n_slot = slot;
    op.n_no_ack = ack;
    op.e_code = code;
    op.n_read_len = read_len;
    op.e_type = type;
    op.st_addr_param.n_addr = addr;
    op.st_addr_param.n_device_type = type == BODY_RECVCARD ? DEVICE_ETH : 0;
    return op;
}

struct FrameCase {
    const char *what;
    transfer_op_t op;
    uint32_t channel;
    uint16_t lable, port, card;
    Bytes data;
    const char *frame;
};

TEST(Frame, RequestFramesByteForByte) {
    sdk::test::load_example_config();
    const FrameCase cases[] = {
        {"acknowledged address read (worked example)",
         op_of(100, FRAME_READ, BODY_ADDRESS, 0x1000, 4),
         0,
         1,
         0,
         0,
         {},
         "55BB00000001010016004000000000000000000000000010000004000000"
         "7C01"},
        {"acknowledged receiving-card read (worked example)",
         op_of(100, FRAME_READ, BODY_RECVCARD, 0x100, 8),
         0,
         2,
         1,
         5,
         {},
         "55BB0000000102001C0042020100000000000000000001010500000000010000080065553E02"},
        {"address write: no read length, data length, data",
         op_of(3, FRAME_WRITE, BODY_ADDRESS, 0x20, 0),
         6,
         7,
         0,
         0,
         {0xDE, 0xAD, 0xBE, 0xEF},
         "55BB0000000107001A006000000000000000000000002000000000000400DEADBEEFEE04"},
        {"address read: the read length in the error-code field",
         op_of(100, FRAME_READ, BODY_ADDRESS, 0, 16),
         0,
         3,
         0,
         0,
         {},
         "55BB000000010300160040000000000000000000000000000000100000007A01"},
        {"TLV read: tag, no error code",
         op_of(100, FRAME_READ, BODY_TLV, 0xABCD, 16),
         0,
         9,
         0,
         0,
         {},
         "55BB0000000109001600410000000000000000000000CDAB000000000000E902"},
        {"receiving-card broadcast write: seeded card checksum",
         op_of(100, FRAME_WRITE, BODY_RECVCARD, 0x40, 0),
         0,
         11,
         0xFF,
         0xFFFF,
         {1, 2, 3, 4, 5},
         "55BB000000010B0021006202FF00000000000000000001FFFFFF01004000000005000102030405A858F306"},
        {"unacknowledged receiving-card read",
         op_of(100, FRAME_READ, BODY_RECVCARD, 0x40, 12, EN_REQUEST_NO_ACK),
         0,
         12,
         0,
         0,
         {},
         "55BB000000010C001C00020200000000000000000000010000000000400000000C00A2558102"},
    };
    for (const FrameCase &c : cases) {
        SCOPED_TRACE(c.what);
        transfer_op_t op = c.op;
        op.st_addr_param.n_device_index = static_cast<uint8_t>(c.port);
        op.st_control.n_recvcard_id = c.card;
        Bytes f = build(op, c.data, c.lable, c.channel);
        std::string got;
        for (uint8_t b : f) {
            char two[3];
            snprintf(two, sizeof two, "%02X", b);
            got += two;
        }
        EXPECT_EQ(got, c.frame);
        EXPECT_EQ(sdk_transfer_checksum_data(f.data(), f.size()), 0);
        f[f.size() / 2] ^= 0x10;
        EXPECT_EQ(sdk_transfer_checksum_data(f.data(), f.size()), 1);
    }
}

TEST(Frame, BuildersAndAssemblyRefuseWhatTheyCannotBuild) {
    sdk::test::load_example_config();
    frame_header_t fh{};
    request_header_t rh{};
    request_body_t rb{};
    const transfer_op_t op = op_of(100, FRAME_READ, BODY_ADDRESS, 0, 4);
    uint16_t before = sdk_get_next_lable();
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, 0, op_of(50, FRAME_READ, BODY_ADDRESS, 0, 4)),
              -4000);                                                    // no such slot
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, 2, op), -4000);           // a report channel
    EXPECT_EQ(sdk_packet_add_frame_header(&fh, 1000, op), -4000);        // outside the table
    EXPECT_EQ(static_cast<uint16_t>(sdk_get_next_lable() - before), 1);  // refusals take no label
    EXPECT_EQ(sdk_packet_add_request_header(&rh, 0, 0, op), -4000);
    EXPECT_EQ(sdk_packet_add_request_body(&rb, rh, op), -4000);
    EXPECT_EQ(sdk_get_packet_length(rh, rb), -4000);
    transfer_op_t bad = op;
    bad.e_type = static_cast<request_body_type>(5);
    ASSERT_EQ(sdk_packet_add_request_header(&rh, 0, 1, bad), 0);
    EXPECT_EQ(sdk_packet_add_request_body(&rb, rh, bad), -4000);
    uint8_t buf[64] = {};
    EXPECT_EQ(sdk_packet_data(nullptr, nullptr, 0, fh, rh, rb), -4004);
    EXPECT_EQ(sdk_packet_data(buf, nullptr, 0, fh, rh, rb), -4000);
}

TEST(Frame, ChecksumsWrapAt16Bits) {
    std::vector<uint8_t> ff(258, 0xFF);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 0), 0);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 257), 0xFFFF);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 258), 0x00FE);
    EXPECT_EQ(sdk_transfer_checksum(nullptr, 3), -4004);
    uint8_t frame[5] = {0x10, 0x20, 0x30, 0x60, 0x00};
    EXPECT_EQ(sdk_transfer_checksum_data(frame, 5), 0);
    EXPECT_EQ(sdk_transfer_checksum_data(frame + 3, 2), 1);
    EXPECT_EQ(sdk_transfer_checksum_data(nullptr, 5), -4004);
    EXPECT_EQ(sdk_transfer_checksum_data(frame, 1), -4000);  // no room for a checksum
}

// Replies with an address body: the stated data length must lie inside the bytes received.
TEST(Frame, DataExtractionFromReplies) {
    struct {
        uint8_t param;
        uint16_t stated;
        size_t real, passed;  // data bytes in the frame; bytes handed over (0: all)
        int32_t result;
    } cases[] = {
        {0x40, 4, 4, 0, 4},     {0x00, 0, 0, 0, 0},       {0x40, 0, 0, 31, -4000},
        {0x40, 8, 4, 0, -4000}, {0x40, 100, 4, 0, -4000}, {0x40, 9001, 9001, 0, -4000},
        {0x41, 4, 4, 0, -4000},  // another body: refused
    };
    std::vector<int8_t> out(SDK_DATA_BUF_LEN);
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "stated " << c.stated << " real " << c.real);
        Bytes f(32 + c.real, 0);
        f[0] = 0x55;
        f[1] = 0xBB;
        f[5] = 1;
        f[10] = c.param;
        f[28] = c.stated & 0xFF;
        f[29] = c.stated >> 8;
        for (size_t i = 0; i < c.real; ++i)
            f[30 + i] = static_cast<uint8_t>(i + 1);
        auto n = static_cast<uint16_t>(c.passed ? c.passed : f.size());
        ASSERT_EQ(sdk_get_protocol_data(out.data(), reinterpret_cast<int8_t *>(f.data()), n),
                  c.result);
        for (int32_t i = 0; i < c.result; ++i)
            EXPECT_EQ(out[i], i + 1);
    }
}

// Labels count from 1 to 65535 and wrap to 1 (0 is never issued), and threads drawing at
// once never get the same one.
TEST(Frame, LabelsWrapPastZeroAndNeverRepeatAcrossThreads) {
    for (uint32_t i = 0, prev = sdk_get_next_lable(); i <= 65535; ++i) {
        uint32_t l = sdk_get_next_lable();
        ASSERT_EQ(l, prev % 65535 + 1);
        prev = l;
    }
    std::vector<std::vector<uint16_t>> got(4);
    std::vector<std::thread> threads;
    for (auto &mine : got) {
        threads.emplace_back([&mine] {
            for (int i = 0; i < 16000; ++i)  // 64000 labels: less than one turn
                mine.push_back(sdk_get_next_lable());
        });
    }
    std::vector<int> seen(65536, 0);
    for (size_t t = 0; t < got.size(); ++t) {
        threads[t].join();
        for (uint16_t l : got[t])
            ASSERT_EQ(++seen[l], 1) << "label " << l;
    }
    EXPECT_EQ(seen[0], 0);
}

}  // namespace
