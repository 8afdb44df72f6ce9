// The serial frame cutter, driven in-process as the receive thread drives it: bytes are
// offered, the consumed prefix is dropped, the rest is offered again with the next read.
// Replies go to requests waiting in the channel's label list, reports to the report queue.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "engine/inflight.h"
#include "support/config_fixture.h"
#include "support/log_capture.h"
#include "transfer_server.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr int32_t kMainUart = 1, kBackplaneUart = 35;  // slots 100 and 101

// A serial frame: 0xBB 0x55, frame type, label, length, parameter byte (0x10 report, body
// kind 0 address, 1 TLV), error code 0x1234, data length and data, two checksum bytes.
// Sized once and filled in place: growing it with insert() makes GCC 12 at -O3 report a
// false -Warray-bounds inside the standard library.
Bytes frame(uint16_t lable, uint8_t param, const Bytes &data, uint8_t frame_type = 1) {
    Bytes f(32 + data.size(), 0);
    const uint32_t n = static_cast<uint32_t>(f.size() - 10), d = static_cast<uint32_t>(data.size());
    for (auto [at, v] : {std::pair<uint32_t, uint32_t>{0, 0xBB},
                         {1, 0x55},
                         {5, frame_type},
                         {6, lable % 256u},
                         {7, lable / 256u},
                         {8, n % 256},
                         {9, n / 256},
                         {10, param},
                         {26, 0x34},
                         {27, 0x12},
                         {28, d % 256},
                         {29, d / 256}})
        f[at] = static_cast<uint8_t>(v);
    std::copy(data.begin(), data.end(), f.begin() + 30);
    return f;
}

// A report of exactly n_body bytes after the 10-byte header (no body is read).
Bytes report_of_len(uint32_t n_body, size_t keep = SIZE_MAX) {
    Bytes f(10 + n_body, 0x77);
    f[0] = 0xBB;
    f[1] = 0x55;
    f[5] = 1;
    f[8] = static_cast<uint8_t>(n_body);
    f[9] = static_cast<uint8_t>(n_body >> 8);
    f[10] = 0x10;
    f.resize(std::min(keep, f.size()));
    return f;
}

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

int32_t cut(Bytes b, int32_t ch = kMainUart) {
    return sdk_uart_recv_manage(b.data(), static_cast<uint32_t>(b.size()), ch);
}

// The receive thread's loop over one channel: after each read, the cutter is called again
// as long as it makes progress on the held bytes. Returns what is left held.
Bytes feed(const std::vector<Bytes> &reads, int32_t ch = kMainUart) {
    Bytes held;
    for (const Bytes &r : reads) {
        held.insert(held.end(), r.begin(), r.end());
        for (int32_t used = 1; used != 0 && !held.empty();) {
            used = cut(held, ch);
            EXPECT_GE(used, 0);
            EXPECT_LE(static_cast<size_t>(used), held.size());
            held.erase(held.begin(), held.begin() + used);
        }
    }
    return held;
}

// A request without acknowledgement waiting for its reply under `lable`: the reply is
// stored and the request left for its write-wait, so the reply path is seen alone. (Its
// zeroed locks are statically initialised ones.)
struct Request {
    packet_data_t *p = static_cast<packet_data_t *>(calloc(1, sizeof(sdk::InFlight)));
    int32_t ch;
    explicit Request(uint16_t lable, int32_t channel = kMainUart) : ch(channel) {
        p->p_packet.n_enable = true;
        p->p_packet.e_state = PACKET_SEND_END;
        p->p_packet.n_no_ack = EN_REQUEST_NO_ACK;
        p->p_packet.n_send_lable = lable;
        EXPECT_EQ(sdk_lable_list_push(&g_st_transfer.st_info[ch].p_list, p), 0);
    }
    ~Request() {
        sdk_lable_list_remove(&g_st_transfer.st_info[ch].p_list, p);
        free(p);
    }
    bool done() const { return p->p_packet.e_state == PACKET_RECV_DONE; }
    Bytes data() const {
        return Bytes(p->st_recv_data.arr_buf, p->st_recv_data.arr_buf + p->st_recv_data.n_len);
    }
};

// The reports queued so far, each with its slot appended.
std::vector<Bytes> drain_reports() {
    std::vector<Bytes> out;
    auto rec = std::make_unique<report_queue_data_t>();
    while (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) == 0) {
        out.emplace_back(rec->arr_buf, rec->arr_buf + rec->n_len);
        out.back().push_back(static_cast<uint8_t>(rec->n_slot));
        sdk_report_queue_pull(sdk_get_report_queue());
    }
    return out;
}

Bytes with_slot(Bytes b, uint8_t slot) {
    b.push_back(slot);
    return b;
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
    }
};

// An address reply hands over its data, a TLV reply error code, length and data, a report
// is queued with its channel's slot; wherever the reads split the stream.
TEST_F(FrameCut, RepliesAndReportSurviveASplitAtEveryOffset) {
    const Bytes report = frame(0x0999, 0x10, {9, 8, 7});
    const Bytes stream =
        cat({frame(0x0102, 0x00, {1, 2, 3, 4, 5}), frame(12, 0x01, {6, 7}), report});
    for (long k = 0; k <= static_cast<long>(stream.size()); ++k) {
        SCOPED_TRACE(k);
        Request addr(0x0102), tlv(12);
        EXPECT_TRUE(feed({Bytes(stream.begin(), stream.begin() + k),
                          Bytes(stream.begin() + k, stream.end())})
                        .empty());
        EXPECT_EQ(addr.data(), (Bytes{1, 2, 3, 4, 5}));
        EXPECT_EQ(tlv.data(), (Bytes{0x34, 0x12, 2, 0, 6, 7}));
        EXPECT_TRUE(addr.done() && tlv.done());
        EXPECT_EQ(drain_reports(), std::vector<Bytes>{with_slot(report, 100)});
    }
    Request other(0x0999, kBackplaneUart);  // a report leaves a request of its label waiting
    EXPECT_EQ(cut(report, kBackplaneUart), static_cast<int32_t>(report.size()));
    EXPECT_EQ(drain_reports(), std::vector<Bytes>{with_slot(report, 101)});
    EXPECT_FALSE(other.done());
}

// What one call consumes of what it is offered. Frames that cannot be handed over are
// skipped and leave the request of their label waiting for its own reply.
TEST_F(FrameCut, BytesConsumedByOneCall) {
    const Bytes f = frame(7, 0x00, {1, 2, 3});
    Bytes too_long = frame(61, 0x00, {1, 2, 3}), short_reply = report_of_len(5);
    too_long[28] = 200;      // claims more data than the frame holds
    short_reply[10] = 0x00;  // a reply too short for its body
    short_reply[6] = 61;
    const struct {
        const char *what;
        Bytes bytes;
        int32_t used;
    } cases[] = {
        {"noise goes one byte a call", cat({{0x00, 0x55, 0x12}, f}), 1},
        {"a 0xBB at the end waits for the next read", {0x01, 0xBB}, 1},
        {"... and alone is kept", {0xBB}, 0},
        {"a doubled 0xBB loses its frame", cat({{0xBB}, f}), 2},
        {"a header alone waits", Bytes(f.begin(), f.begin() + 9), 0},
        {"a report before a partial reply",
         cat({frame(9, 0x10, {}), Bytes(f.begin(), f.begin() + 12)}), 32},
        {"length field 4132 is the longest", report_of_len(4132), 4142},
        {"4133 with no pair after it: all but a last 0xBB", cat({report_of_len(4133, 19), {0xBB}}),
         19},
        {"an unmatched reply", frame(0x4242, 0x00, {1}), 33},
        {"another frame type", frame(61, 0x00, {1}, 2), 33},
        {"an unknown body kind", frame(61, 0x02, {1}), 33},
        {"data past the frame", too_long, 35},
        {"a reply too short for its body", short_reply, 15},
        {"4133: resynchronised at the next pair",
         cat({report_of_len(4133, 40), frame(61, 0x00, {7})}), 73},
        {"nothing offered", {}, 0},
    };
    Request req(61);
    for (const auto &c : cases)
        EXPECT_EQ(cut(c.bytes), c.used) << c.what;
    EXPECT_EQ(req.data(), Bytes{7});
    EXPECT_EQ(drain_reports().size(), 2u);  // the 32-byte and the 4142-byte report
    EXPECT_EQ(sdk_uart_recv_manage(nullptr, 10, kMainUart), 0);
    for (int32_t ch : {999, -1})
        EXPECT_EQ(cut(f, ch), static_cast<int32_t>(f.size()));
}

TEST_F(FrameCut, FullReportQueueKeepsTheReportInTheStream) {
    ASSERT_EQ(sdk_report_queue_set_max(sdk_get_report_queue(), 1), 0);
    ASSERT_EQ(cut(frame(1, 0x10, {})), 32);
    Request req(81);
    const Bytes reply = frame(81, 0x00, {3}), rest = frame(2, 0x10, {5});
    EXPECT_EQ(cut(cat({reply, rest})), static_cast<int32_t>(reply.size()));
    EXPECT_TRUE(req.done());
    drain_reports();
    EXPECT_EQ(cut(rest), static_cast<int32_t>(rest.size()));
    EXPECT_EQ(drain_reports().size(), 1u);
}

}  // namespace
