// Request frames byte by byte, their checks, data extraction from replies, and labels.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/config_fixture.h"
#include "transfer_server.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string hex(const uint8_t *p, size_t n) {
    std::string out;
    char two[3];
    for (size_t i = 0; i < n; ++i)
        out.append(two, snprintf(two, sizeof two, "%02X", p[i]));
    return out;
}

transfer_op_t op_of(uint32_t slot, frame_code code, request_body_type type, uint32_t addr,
                    uint32_t read_len, uint32_t ack = EN_REQUEST_ACK, uint8_t port = 0,
                    uint16_t card = 0) {
    transfer_op_t op{};
    op.e_mode = FPGA;
    op.n_slot = slot;
    op.n_no_ack = ack;
    op.e_code = code;
    op.n_read_len = read_len;
    op.e_type = type;
    op.st_addr_param = {addr, type == BODY_RECVCARD ? uint8_t{DEVICE_ETH} : uint8_t{0}, port, 0};
    op.st_control.n_recvcard_id = card;
    return op;
}

// Each frame is built as the request path builds it; the label is forced afterwards so the
// bytes do not depend on how many labels this process has taken.
TEST(Frame, RequestFramesByteForByte) {
    sdk::test::load_example_config();
    const struct {
        transfer_op_t op;
        uint32_t channel;
        uint16_t lable;
        std::string frame;
    } cases[] = {
        // The worked examples: acknowledged address read, acknowledged receiving-card read.
        {op_of(100, FRAME_READ, BODY_ADDRESS, 0x1000, 4), 0, 1,
         "55BB000000010100160040000000000000000000000000100000040000007C01"},
        {op_of(100, FRAME_READ, BODY_RECVCARD, 0x100, 8, EN_REQUEST_ACK, 1, 5), 0, 2,
         "55BB0000000102001C0042020100000000000000000001010500000000010000080065553E02"},
        // Address write: no read length whatever the descriptor holds, the data length and data.
        {op_of(3, FRAME_WRITE, BODY_ADDRESS, 0x20, 4), 6, 7,
         "55BB0000000107001A006000000000000000000000002000000000000400DEADBEEFEE04"},
        // Address read: the read length in the error-code field; TLV read: the tag, no
        // error code.
        {op_of(100, FRAME_READ, BODY_ADDRESS, 0, 16), 0, 3,
         "55BB000000010300160040000000000000000000000000000000100000007A01"},
        {op_of(100, FRAME_READ, BODY_TLV, 0xABCD, 16), 0, 9,
         "55BB0000000109001600410000000000000000000000CDAB000000000000E902"},
        // Receiving-card broadcast write (its own checksum, seeded), unacknowledged read.
        {op_of(100, FRAME_WRITE, BODY_RECVCARD, 0x40, 0, EN_REQUEST_ACK, 0xFF, 0xFFFF), 0, 11,
         "55BB000000010B0021006202FF00000000000000000001FFFFFF01004000000005000102030405A858F306"},
        {op_of(100, FRAME_READ, BODY_RECVCARD, 0x40, 12, EN_REQUEST_NO_ACK), 0, 12,
         "55BB000000010C001C00020200000000000000000000010000000000400000000C00A2558102"},
    };
    for (const auto &c : cases) {
        frame_header_t fh{};
        request_header_t rh{};
        request_body_t rb{};
        ASSERT_EQ(sdk_packet_add_frame_header(&fh, c.channel, c.op), 0);
        ASSERT_EQ(sdk_packet_add_request_header(&rh, c.channel, fh.n_frame_type, c.op), 0);
        ASSERT_EQ(sdk_packet_add_request_body(&rb, rh, c.op), 0);
        // The write data is taken from where the expected frame holds it.
        Bytes f(c.frame.size() / 2);
        const size_t n_prefix = sdk_get_packet_length(rh, rb);
        const size_t n_data = f.size() - n_prefix - (c.op.e_type == BODY_RECVCARD ? 4 : 2);
        Bytes data(n_data);
        for (size_t i = 0; i < n_data; ++i)
            data[i] =
                static_cast<uint8_t>(std::stoi(c.frame.substr(2 * (n_prefix + i), 2), nullptr, 16));
        fh.n_len = static_cast<uint16_t>(f.size() - 10);
        fh.n_lable = c.lable;
        ASSERT_EQ(sdk_packet_data(f.data(), n_data ? data.data() : nullptr, n_data, fh, rh, rb), 0);
        EXPECT_EQ(hex(f.data(), f.size()), c.frame);
        EXPECT_EQ(sdk_transfer_checksum_data(f.data(), f.size()), 0);
        f[f.size() / 2] ^= 0x10;
        EXPECT_EQ(sdk_transfer_checksum_data(f.data(), f.size()), 1);
    }
}

// A request the table cannot route is refused before it takes a label.
TEST(Frame, RefusedHeadersTakeNoLabel) {
    sdk::test::load_example_config();
    frame_header_t fh{};
    const uint16_t before = sdk_get_next_lable();
    for (auto [channel, slot] : {std::pair{0u, 50u}, {2u, 100u}, {1000u, 100u}}) {  // no such
        EXPECT_EQ(sdk_packet_add_frame_header(  // slot, a report channel, outside the table
                      &fh, channel, op_of(slot, FRAME_READ, BODY_ADDRESS, 0, 4)),
                  -4000);
    }
    EXPECT_EQ(static_cast<uint16_t>(sdk_get_next_lable() - before), 1);
}

TEST(Frame, ChecksumsWrapAt16Bits) {
    std::vector<uint8_t> ff(258, 0xFF);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 257), 0xFFFF);
    EXPECT_EQ(sdk_transfer_checksum(ff.data(), 258), 0x00FE);
    ff[256] = 0x00;
    ff[257] = 0xFF;  // the frame check reads the last two bytes little-endian
    EXPECT_EQ(sdk_transfer_checksum_data(ff.data(), 258), 0);
    EXPECT_EQ(sdk_transfer_checksum_data(ff.data(), 1), -4000);  // no room for a checksum
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
        f[0] = 0x55, f[1] = 0xBB, f[5] = 1, f[10] = c.param;
        f[28] = c.stated & 0xFF, f[29] = c.stated >> 8;
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
