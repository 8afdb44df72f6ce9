// A simulated board in-process: what it accepts, what it answers and the bytes of its
// replies.
#include <gtest/gtest.h>

#include <random>

#include "board_sim/board.h"
#include "request_frames.h"

using namespace board_sim;
using namespace board_sim_test;
using Bytes = std::vector<uint8_t>;

namespace {

uint16_t le16(const Bytes &f, size_t at) {
    return sdk::get_le16(&f[at]);
}

bool checksum_ok(const Bytes &f) {
    return f.size() >= 2 && le16(f, f.size() - 2) == sdk::byte_sum16(f.data(), f.size() - 2);
}

class BoardTest : public ::testing::Test {
  protected:
    Bytes handle(const Bytes &f) { return board.handle(f.data(), f.size(), &stats); }
    Board board;
    Stats stats;
};

}  // namespace

TEST(FrameTest, ParsesTheLibrarysWorkedExamples) {
    const Bytes addr_read = {0x55, 0xBB, 0, 0, 0, 1, 1, 0,    0x16, 0, 0x40, 0, 0, 0, 0,    0,
                             0,    0,    0, 0, 0, 0, 0, 0x10, 0,    0, 4,    0, 0, 0, 0x7C, 0x01};
    EXPECT_EQ(addr_request(1, true, 0, 0x1000, 4, {}), addr_read);
    Request r;
    ASSERT_EQ(parse_request(addr_read.data(), addr_read.size(), &r), ParseError::kNone);
    EXPECT_EQ(r.label, 1);
    EXPECT_TRUE(r.ack);
    EXPECT_FALSE(r.write);
    EXPECT_EQ(r.addr, 0x1000u);
    EXPECT_EQ(r.read_len, 4);

    const Bytes rv_read = {0x55, 0xBB, 0, 0, 0, 1, 2, 0, 0x1C, 0,    0x42, 2,   1,
                           0,    0,    0, 0, 0, 0, 0, 0, 0,    1,    1,    5,   0,
                           0,    0,    0, 1, 0, 0, 8, 0, 0x65, 0x55, 0x3E, 0x02};
    Target t;
    t.port = 1;
    t.card = 5;
    EXPECT_EQ(rvcard_request(2, true, 0x100, 8, {}, t), rv_read);
    ASSERT_EQ(parse_request(rv_read.data(), rv_read.size(), &r), ParseError::kNone);
    EXPECT_EQ(r.body, BodyKind::kRvcard);
    EXPECT_EQ(r.port, 1);
    EXPECT_EQ(r.card, 5);
    EXPECT_EQ(r.read_len, 8);
}

TEST(FrameTest, RefusesMalformedFrames) {
    Request r;
    Bytes good = addr_request(7, true, 0, 0x20, 4, {1, 2, 3, 4});
    ASSERT_EQ(parse_request(good.data(), good.size(), &r), ParseError::kNone);

    auto refused = [&](Bytes f) { return parse_request(f.data(), f.size(), &r); };
    Bytes f = good;
    f[f.size() - 1] ^= 1;
    EXPECT_EQ(refused(f), ParseError::kChecksum);
    f = good;
    f[0] = 0xBB;
    EXPECT_EQ(refused(f), ParseError::kDelimiter);
    f = good;
    f[5] = 0;
    EXPECT_EQ(refused(f), ParseError::kFrameType);
    f = good;
    f.push_back(0);
    EXPECT_EQ(refused(f), ParseError::kLength);
    f = good;
    f[28] = 5;  // body length disagrees with the frame length
    EXPECT_EQ(refused(f), ParseError::kLength);
    f = good;
    f[10] = 0x43;
    EXPECT_EQ(refused(f), ParseError::kBodyType);
    f.assign(good.begin(), good.begin() + 9);
    EXPECT_EQ(refused(f), ParseError::kShort);

    Target t;
    Bytes rv = rvcard_request(3, true, 0x10, 0, {9, 9}, t);
    rv[35 + 2] ^= 1;  // receiving-card checksum (after 2 data bytes) no longer matches
    EXPECT_EQ(refused(rv), ParseError::kChecksum);
}

TEST_F(BoardTest, AddressReadReturnsWrittenBytesAndZerosElsewhere) {
    EXPECT_TRUE(handle(addr_request(10, true, 0, 0x1002, 0, {0xAA, 0xBB})).size() == 32);
    Bytes reply = handle(addr_request(0xBEEF, true, 0, 0x1000, 6, {}));
    ASSERT_EQ(reply.size(), 38u);
    EXPECT_EQ(le16(reply, 0), 0xBB55);
    EXPECT_EQ(reply[5], 1);
    EXPECT_EQ(le16(reply, 6), 0xBEEF);
    EXPECT_EQ(le16(reply, 8), reply.size() - 10);
    EXPECT_EQ(reply[10], 0x40);
    EXPECT_EQ(sdk::get_le32(&reply[22]), 0x1000u);
    EXPECT_EQ(le16(reply, 26), 0);  // error code
    EXPECT_EQ(le16(reply, 28), 6);
    EXPECT_EQ(Bytes(reply.begin() + 30, reply.begin() + 36), (Bytes{0, 0, 0xAA, 0xBB, 0, 0}));
    EXPECT_TRUE(checksum_ok(reply));
    EXPECT_EQ(stats.requests, 2u);
}

TEST_F(BoardTest, AddressSpacesAreKeptApart) {
    Target mcu;
    mcu.device_type = 1;
    mcu.device_index = 3;
    handle(addr_request(1, true, 0, 0x40, 0, {0x11}, mcu));
    handle(addr_request(2, true, 1, 0x40, 0, {0x22}, mcu));  // TLV tag 0x40 of the same MCU
    EXPECT_EQ(handle(addr_request(3, true, 0, 0x40, 1, {}, mcu))[30], 0x11);
    EXPECT_EQ(handle(addr_request(4, true, 1, 0x40, 1, {}, mcu))[30], 0x22);
    EXPECT_EQ(handle(addr_request(5, true, 0, 0x40, 1, {}))[30], 0);  // the FPGA
}

TEST_F(BoardTest, AnswersOnlyWhenAnAcknowledgementIsAsked) {
    EXPECT_TRUE(handle(addr_request(1, false, 0, 0x10, 0, {1, 2})).empty());
    EXPECT_TRUE(handle(addr_request(2, false, 0, 0x10, 2, {})).empty());
    Bytes reply = handle(addr_request(3, true, 0, 0x10, 2, {}));
    ASSERT_EQ(reply.size(), 34u);
    EXPECT_EQ(reply[30], 1);  // the unacknowledged write was stored all the same
    EXPECT_EQ(reply[31], 2);

    Board silent(BoardOptions{false});
    Bytes w = addr_request(4, true, 0, 0x10, 0, {7});
    EXPECT_TRUE(silent.handle(w.data(), w.size(), &stats).empty());
    Bytes rd = addr_request(5, true, 0, 0x10, 1, {});
    EXPECT_EQ(silent.handle(rd.data(), rd.size(), &stats)[30], 7);
}

TEST_F(BoardTest, ReadBeyondTheReplyLimitGetsAnErrorCode) {
    Bytes reply = handle(addr_request(1, true, 0, 0, 9001, {}));
    ASSERT_EQ(reply.size(), 32u);
    EXPECT_EQ(static_cast<int16_t>(le16(reply, 26)), -1);
    EXPECT_EQ(le16(reply, 28), 0);
    EXPECT_EQ(handle(addr_request(2, true, 0, 0, 9000, {})).size(), 9032u);
}

TEST_F(BoardTest, ReceivingCardsAreStoredPerPortAndCard) {
    Target card5;
    card5.port = 1;
    card5.card = 5;
    Target card6 = card5;
    card6.card = 6;
    Bytes ack = handle(rvcard_request(20, true, 0x100, 0, {0xDE, 0xAD}, card5));
    ASSERT_EQ(ack.size(), 26u);
    EXPECT_EQ(le16(ack, 22), 0);

    Bytes reply = handle(rvcard_request(21, true, 0x100, 3, {}, card5));
    ASSERT_EQ(reply.size(), 29u);
    EXPECT_EQ(le16(reply, 6), 21);
    EXPECT_EQ(le16(reply, 8), 19);
    EXPECT_EQ(reply[10] & 0x0F, 2);
    EXPECT_EQ(reply[11], 2);        // DEVICE_ETH
    EXPECT_EQ(le16(reply, 12), 1);  // the port
    EXPECT_EQ(le16(reply, 22), 3);
    EXPECT_EQ(Bytes(reply.begin() + 24, reply.begin() + 27), (Bytes{0xDE, 0xAD, 0}));
    EXPECT_TRUE(checksum_ok(reply));

    EXPECT_EQ(handle(rvcard_request(22, true, 0x100, 1, {}, card6))[24], 0);
}

TEST_F(BoardTest, PollIsAnsweredDoneEvenWithoutAcknowledgement) {
    Bytes poll = poll_request(0x1234, 3, 9);
    ASSERT_EQ(poll.size(), 38u);
    poll[10] &= static_cast<uint8_t>(~kParamAck);
    sdk::put_le16(&poll[36], sdk::byte_sum16(poll.data(), 36));
    Bytes reply = handle(poll);
    ASSERT_EQ(reply.size(), 28u);
    EXPECT_EQ(le16(reply, 6), 0x1234);
    EXPECT_EQ(le16(reply, 12), 3);
    EXPECT_EQ(le16(reply, 22), 2);
    EXPECT_EQ(Bytes(reply.begin() + 24, reply.begin() + 26),
              Bytes(kPollDone.begin(), kPollDone.end()));
    EXPECT_TRUE(checksum_ok(reply));
}

TEST_F(BoardTest, SurvivesGarbage) {
    std::mt19937 rng(42);
    Bytes good = addr_request(1, true, 0, 0x10, 4, {});
    for (int i = 0; i < 20000; ++i) {
        Bytes f = good;
        if (i % 2 == 0) f.resize(rng() % 80);
        for (int k = 0; k < 3 && !f.empty(); ++k)
            f[rng() % f.size()] = static_cast<uint8_t>(rng());
        handle(f);
    }
    EXPECT_GT(stats.bad, 15000u);
    EXPECT_EQ(handle(good).size(), 36u);
}
