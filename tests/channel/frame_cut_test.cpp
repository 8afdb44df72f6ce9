// The serial frame cutter, driven in-process as the receive thread drives it: bytes are
// offered, the consumed prefix is dropped, the rest is offered again with the next read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "support/config_fixture.h"
#include "support/log_capture.h"
#include "engine/inflight.h"
#include "transfer_server.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int32_t kMainUart = 1;        // slot 100
constexpr int32_t kBackplaneUart = 35;  // slot 101

// A serial frame: 0xBB 0x55, frame type, label, length, parameter byte, address/TLV body
// with data, two checksum bytes (not checked by the cutter).
// Sized once and filled in place: growing it with insert() makes GCC 12 at -O3 report a
// false -Warray-bounds inside the standard library.
Bytes frame(uint16_t lable, uint8_t param, const Bytes &data, uint8_t frame_type = 1) {
    Bytes f(30 + data.size() + 2, 0);
    f[0] = 0xBB;
    f[1] = 0x55;
    f[5] = frame_type;
    f[6] = static_cast<uint8_t>(lable);
    f[7] = static_cast<uint8_t>(lable >> 8);
    f[10] = param;
    f[26] = 0x34;  // error code 0x1234
    f[27] = 0x12;
    f[28] = static_cast<uint8_t>(data.size());
    f[29] = static_cast<uint8_t>(data.size() >> 8);
    std::copy(data.begin(), data.end(), f.begin() + 30);
    f[f.size() - 2] = 0xC1;
    f[f.size() - 1] = 0xC2;
    const size_t n = f.size() - 10;
    f[8] = static_cast<uint8_t>(n);
    f[9] = static_cast<uint8_t>(n >> 8);
    return f;
}

// A frame of exactly n_body bytes after the header (a report, so no body is read).
Bytes report_of_len(uint32_t n_body) {
    Bytes f(10 + n_body, 0x77);
    f[0] = 0xBB;
    f[1] = 0x55;
    f[5] = 1;
    f[8] = static_cast<uint8_t>(n_body);
    f[9] = static_cast<uint8_t>(n_body >> 8);
    f[10] = 0x10;
    return f;
}

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

int32_t cut(Bytes &b, int32_t ch = kMainUart) {
    return sdk_uart_recv_manage(b.data(), static_cast<uint32_t>(b.size()), ch);
}

// The receive thread's loop over one channel: each chunk is a read; after it, empty reads
// follow as long as the cutter makes progress on held bytes. Returns the held bytes.
Bytes feed(const std::vector<Bytes> &chunks, int32_t ch = kMainUart) {
    Bytes held;
    for (const Bytes &c : chunks) {
        held.insert(held.end(), c.begin(), c.end());
        for (;;) {
            const int32_t used = cut(held, ch);
            EXPECT_GE(used, 0);
            EXPECT_LE(static_cast<size_t>(used), held.size());
            held.erase(held.begin(), held.begin() + used);
            if (used == 0 || held.empty()) break;
        }
    }
    return held;
}

struct Request {
    packet_data_t *p = nullptr;
    int32_t ch;
    Request(uint16_t lable, int32_t channel = kMainUart) : ch(channel) {
        p = static_cast<packet_data_t *>(calloc(1, sizeof(sdk::InFlight)));
        pthread_mutex_init(&p->p_packet.st_lock, nullptr);
        pthread_mutex_init(&p->st_wait_lock, nullptr);
        pthread_cond_init(&p->st_wait_signal, nullptr);
        p->p_packet.n_enable = true;
        p->p_packet.e_state = PACKET_SEND_END;
        // Without acknowledgement: the reply is stored and the request left for its
        // write-wait, so the harness sees the reply path alone.
        p->p_packet.n_no_ack = EN_REQUEST_NO_ACK;
        p->p_packet.n_send_lable = lable;
        EXPECT_EQ(sdk_lable_list_push(&g_st_transfer.st_info[ch].p_list, p), 0);
    }
    ~Request() {
        sdk_lable_list_remove(&g_st_transfer.st_info[ch].p_list, p);
        pthread_mutex_destroy(&p->p_packet.st_lock);
        pthread_mutex_destroy(&p->st_wait_lock);
        pthread_cond_destroy(&p->st_wait_signal);
        free(p);
    }
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;
    bool done() const { return p->p_packet.e_state == PACKET_RECV_DONE; }
    bool listed() const {
        packet_data_t *self = p;
        // Removing and pushing again keeps the probe free of side effects.
        if (sdk_lable_list_remove(&g_st_transfer.st_info[ch].p_list, self) != 0) return false;
        sdk_lable_list_push(&g_st_transfer.st_info[ch].p_list, self);
        return true;
    }
    Bytes data() const {
        return Bytes(p->st_recv_data.arr_buf, p->st_recv_data.arr_buf + p->st_recv_data.n_len);
    }
};

struct Report {
    Bytes bytes;
    uint32_t slot;
};

std::vector<Report> drain_reports() {
    std::vector<Report> out;
    auto rec = std::make_unique<report_queue_data_t>();
    while (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) == 0) {
        out.push_back({Bytes(rec->arr_buf, rec->arr_buf + rec->n_len), rec->n_slot});
        sdk_report_queue_pull(sdk_get_report_queue());
    }
    return out;
}

class FrameCut : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        sdk::test::log_capture();
        sdk::test::load_example_config();
        ASSERT_EQ(sdk_report_queue_init(sdk_get_report_queue()), 0);
        ASSERT_EQ(sdk_lable_list_manage_init(&g_st_transfer), 0);
    }
    void SetUp() override {
        drain_reports();
        sdk_report_queue_set_max(sdk_get_report_queue(), SDK_REPORT_QUEUE_DEFAULT_MAX);
        sdk::test::log_capture().clear();
    }
};

TEST_F(FrameCut, ReplyAndReportSurviveASplitAtEveryOffset) {
    const Bytes reply = frame(0x0102, 0x00, {1, 2, 3, 4, 5});
    const Bytes report = frame(0x0999, 0x10, {9, 8, 7});
    const Bytes stream = cat({reply, report});
    for (size_t k = 0; k <= stream.size(); ++k) {
        SCOPED_TRACE(k);
        Request req(0x0102);
        const Bytes held = feed({Bytes(stream.begin(), stream.begin() + static_cast<long>(k)),
                                 Bytes(stream.begin() + static_cast<long>(k), stream.end())});
        EXPECT_TRUE(held.empty());
        EXPECT_TRUE(req.done());
        EXPECT_EQ(req.data(), (Bytes{1, 2, 3, 4, 5}));
        const auto reports = drain_reports();
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_EQ(reports[0].bytes, report);
        EXPECT_EQ(reports[0].slot, 100u);
    }
}

TEST_F(FrameCut, IncompleteFrameIsHeldFromItsStart) {
    const Bytes f = frame(7, 0x00, {1, 2, 3});
    Bytes b = cat({frame(0x0999, 0x10, {}), Bytes(f.begin(), f.begin() + 12)});
    EXPECT_EQ(cut(b), 32);  // the report is consumed, the partial reply waits
    Bytes header_only(f.begin(), f.begin() + 9);
    EXPECT_EQ(cut(header_only), 0);
}

TEST_F(FrameCut, SeveralFramesInOneReadAreAllHandledInOneCall) {
    Request a(11), b(12);
    Bytes s = cat({frame(11, 0x00, {0xA1}), frame(12, 0x01, {0xB1, 0xB2}), frame(13, 0x10, {})});
    EXPECT_EQ(cut(s), static_cast<int32_t>(s.size()));
    EXPECT_EQ(a.data(), (Bytes{0xA1}));
    // TLV: error code, length and data.
    EXPECT_EQ(b.data(), (Bytes{0x34, 0x12, 2, 0, 0xB1, 0xB2}));
    EXPECT_EQ(drain_reports().size(), 1u);
}

TEST_F(FrameCut, HandOverRulesOfAddressAndTlvReplies) {
    Request addr(21), tlv(22);
    Bytes s = cat({frame(21, 0x00, {1, 2, 3, 4, 5}), frame(22, 0x01, {1, 2, 3, 4, 5})});
    EXPECT_EQ(cut(s), static_cast<int32_t>(s.size()));
    EXPECT_EQ(addr.data().size(), 5u);
    EXPECT_EQ(tlv.data().size(), 9u);
    EXPECT_EQ(tlv.data(), (Bytes{0x34, 0x12, 5, 0, 1, 2, 3, 4, 5}));
    EXPECT_FALSE(addr.listed());
}

TEST_F(FrameCut, NoiseIsSkippedOneByteAPerCall) {
    Request req(31);
    Bytes s = cat({Bytes{0x00, 0x55, 0x12}, frame(31, 0x00, {6})});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(cut(s), 1);
        s.erase(s.begin());
    }
    EXPECT_EQ(cut(s), static_cast<int32_t>(s.size()));
    EXPECT_EQ(req.data(), (Bytes{6}));
}

TEST_F(FrameCut, TrailingDelimiterByteIsKeptForTheNextRead) {
    Request req(41);
    const Bytes f = frame(41, 0x00, {4, 1});
    Bytes s{0x01, 0xBB};
    EXPECT_EQ(cut(s), 1);
    s.erase(s.begin());
    EXPECT_EQ(cut(s), 0);
    EXPECT_TRUE(feed({s, Bytes(f.begin() + 1, f.end())}).empty());
    EXPECT_EQ(req.data(), (Bytes{4, 1}));
}

TEST_F(FrameCut, DoubledDelimiterLosesTheFrame) {
    Request req(51);
    Bytes s = cat({Bytes{0xBB}, frame(51, 0x00, {1})});
    EXPECT_EQ(cut(s), 2);  // 0xBB 0xBB
    s.erase(s.begin(), s.begin() + 2);
    EXPECT_EQ(cut(s), 1);  // the 0x55, now noise
    EXPECT_TRUE(feed({Bytes(s.begin() + 1, s.end())}).empty());
    EXPECT_FALSE(req.done());
    EXPECT_TRUE(req.listed());
}

TEST_F(FrameCut, LengthLimitAndResynchronisation) {
    Bytes ok = report_of_len(4132);
    EXPECT_EQ(cut(ok), static_cast<int32_t>(ok.size()));
    auto reports = drain_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].bytes.size(), 4142u);
    EXPECT_FALSE(sdk::test::log_capture().contains("frame len error"));

    // 4133: resynchronised at the next delimiter pair inside the same bytes.
    Request req(61);
    Bytes bad = report_of_len(4133);
    bad.resize(40);
    Bytes s = cat({bad, frame(61, 0x00, {7})});
    EXPECT_EQ(cut(s), static_cast<int32_t>(s.size()));
    EXPECT_TRUE(sdk::test::log_capture().contains("frame len error"));
    EXPECT_EQ(req.data(), (Bytes{7}));
    EXPECT_TRUE(drain_reports().empty());

    // No pair after it: everything goes but a last 0xBB, which may start a frame.
    Bytes lone = report_of_len(4133);
    lone.resize(20);
    lone.back() = 0xBB;
    EXPECT_EQ(cut(lone), 19);
}

TEST_F(FrameCut, ReportsCarryTheirChannelSlotAndLeaveLabelsAlone) {
    Request req(71, kBackplaneUart);
    Bytes rep = frame(71, 0x10 | 0x00, {1, 2});
    EXPECT_EQ(cut(rep, kBackplaneUart), static_cast<int32_t>(rep.size()));
    auto reports = drain_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].bytes, rep);
    EXPECT_EQ(reports[0].slot, 101u);
    EXPECT_FALSE(req.done());
    EXPECT_TRUE(req.listed());
}

TEST_F(FrameCut, FullReportQueueKeepsTheReportInTheStream) {
    ASSERT_EQ(sdk_report_queue_set_max(sdk_get_report_queue(), 1), 0);
    Bytes first = frame(1, 0x10, {});
    ASSERT_EQ(cut(first), static_cast<int32_t>(first.size()));
    Request req(81);
    const Bytes reply = frame(81, 0x00, {3});
    Bytes s = cat({reply, frame(2, 0x10, {5})});
    EXPECT_EQ(cut(s), static_cast<int32_t>(reply.size()));
    EXPECT_TRUE(req.done());
    EXPECT_TRUE(sdk::test::log_capture().contains("error code -4000"));
    drain_reports();
    s.erase(s.begin(), s.begin() + static_cast<long>(reply.size()));
    EXPECT_EQ(cut(s), static_cast<int32_t>(s.size()));
    EXPECT_EQ(drain_reports().size(), 1u);
}

TEST_F(FrameCut, FramesThatCannotBeHandedOverAreSkippedAndLeaveTheRequestWaiting) {
    Request req(91);
    Bytes wrong_type = frame(91, 0x00, {1}, 2);
    Bytes unknown_kind = frame(91, 0x02, {1});
    Bytes too_long = frame(91, 0x00, {1, 2, 3});
    too_long[28] = 200;  // claims more data than the frame holds
    Bytes short_reply = report_of_len(5);
    short_reply[10] = 0x00;  // a reply too short for its body
    short_reply[6] = 91;
    Bytes s = cat({wrong_type, unknown_kind, too_long, short_reply});
    EXPECT_EQ(cut(s), static_cast<int32_t>(s.size()));
    EXPECT_FALSE(req.done());
    EXPECT_TRUE(req.listed());
    EXPECT_EQ(req.p->st_recv_data.n_len, 0u);
    auto &log = sdk::test::log_capture();
    EXPECT_TRUE(log.contains("UNKNOW FRAME_SLOT"));
    EXPECT_TRUE(log.contains("st_request_header = NULL"));
    EXPECT_EQ(log.count("UNKNOW BODY TYPE"), 3);
}

TEST_F(FrameCut, UnmatchedReplyIsSkippedAndBadArgumentsAreHarmless) {
    Bytes s = frame(0x4242, 0x00, {1});
    EXPECT_EQ(cut(s), static_cast<int32_t>(s.size()));
    EXPECT_EQ(sdk_uart_recv_manage(nullptr, 10, kMainUart), 0);
    EXPECT_EQ(cut(s, 999), static_cast<int32_t>(s.size()));
    EXPECT_EQ(cut(s, -1), static_cast<int32_t>(s.size()));
    EXPECT_EQ(sdk_uart_recv_manage(s.data(), 0, kMainUart), 0);
    EXPECT_TRUE(drain_reports().empty());
}

}  // namespace
