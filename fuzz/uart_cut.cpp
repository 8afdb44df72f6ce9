// Fuzz target: the serial frame cutter fed an arbitrary stream in arbitrary chunks, driven
// the way the serial receive thread drives it (the unconsumed tail is kept, moved to the
// front and offered again with the next read).
//
// Input: channel selector, request count (0..3) and their labels, chunking seed, then the
// stream itself.
#include <algorithm>

#include "fuzz_support.h"

namespace {

constexpr uint32_t kStreamBufLen = 65535;  // the receive thread's buffer
constexpr uint32_t kMaxTries = 1000;       // reads per wake-up of the thread

// Selector: mostly the main card's line, the backplane's, or bytes of a channel outside
// the table.
int32_t channel_of(uint8_t sel) {
    if (sel % 8 == 7) return (sel & 0x80) != 0 ? -1 : 5;
    return sel % 8 == 6 ? fuzz::kBackplaneUart : fuzz::kMainUart;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::load_chassis();
    fuzz::Input in{data, size};
    const int32_t n_channel = channel_of(in.byte());
    fuzz::Requests requests;
    for (uint8_t i = 0, n_requests = in.byte() % 4; i < n_requests; ++i) {
        const uint16_t lable = in.le16();
        if (n_channel >= 0 && n_channel < g_st_transfer.n_num) {
            requests.add(lable, &g_st_transfer.st_info[n_channel].p_list);
        }
    }
    uint32_t n_rng = in.le16() | 1u;
    auto held = std::make_unique<uint8_t[]>(kStreamBufLen);
    uint32_t n_held = 0;
    for (size_t n_pos = 0; n_pos < in.n;) {
        // The next read: 1 to 64 bytes, now and then all that is left, never more than the
        // room behind the held bytes.
        n_rng ^= n_rng << 13, n_rng ^= n_rng >> 17, n_rng ^= n_rng << 5;
        size_t n_read = (n_rng & 0x700) == 0 ? in.n - n_pos : 1 + (n_rng & 63);
        n_read = std::min({n_read, in.n - n_pos, size_t{kStreamBufLen - n_held}});
        memcpy(held.get() + n_held, in.p + n_pos, n_read);
        n_held += static_cast<uint32_t>(n_read);
        n_pos += n_read;
        // Empty reads follow while the cutter makes progress on held bytes. Each call sees
        // exactly the held bytes (a buffer of that size, so a read past them is caught),
        // then the consumed prefix is dropped.
        for (uint32_t n_try = 0; n_try < kMaxTries && n_held > 0; ++n_try) {
            auto buf = fuzz::exact(held.get(), n_held);
            const int32_t n_used = sdk_uart_recv_manage(buf.get(), n_held, n_channel);
            if (n_used < 0 || static_cast<uint32_t>(n_used) > n_held) {
                fuzz::fail("the cutter consumed outside the offered bytes");
            }
            if (n_used == 0) break;
            n_held -= static_cast<uint32_t>(n_used);
            memmove(held.get(), held.get() + n_used, n_held);
        }
        // The host takes a report now and then.
        if ((n_rng & 0x800) != 0) sdk_report_queue_pull(sdk_get_report_queue());
        // A full buffer that the cutter does not shrink would block the thread for ever:
        // its tries run out and the bytes are given up.
        if (n_held == kStreamBufLen) n_held = 0;
    }
    while (sdk_report_queue_pull(sdk_get_report_queue()) == 0) {
    }
    return 0;
}
