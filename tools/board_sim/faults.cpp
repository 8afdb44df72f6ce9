#include "board_sim/faults.h"

#include "common/bytes.h"

namespace board_sim {

using sdk::get_le16;
using sdk::put_le16;

uint16_t foreign_label(uint16_t label, uint32_t random) {
    return static_cast<uint16_t>(label + 0x4000 + random % 0x8000);
}

void corrupt_frame(std::vector<uint8_t> *frame, Corruption kind, uint32_t random) {
    auto &f = *frame;
    if (f.size() < kFrameHeaderLen + 1) return;
    switch (kind) {
        case Corruption::kLength:
            // The frame length no longer matches the datagram.
            put_le16(&f[8], static_cast<uint16_t>(get_le16(&f[8]) + 1 + random % 7));
            break;
        case Corruption::kBodyType:
            f[10] = static_cast<uint8_t>((f[10] & ~kParamBodyMask) | (3 + random % 13));
            break;
        case Corruption::kLabel:
            put_le16(&f[6], foreign_label(get_le16(&f[6]), random));
            break;
    }
}

bool FaultInjector::roll(double pct) {
    // mt19937's output is fixed by the standard, unlike the distributions.
    return static_cast<double>(rng_() % 1000000) < pct * 10000.0;
}

std::vector<std::vector<uint8_t>> FaultInjector::apply(const std::vector<uint8_t> &reply,
                                                       Stats *stats) {
    bool drop = roll(config_.drop_pct);
    bool corrupt = roll(config_.corrupt_pct);
    auto kind = static_cast<Corruption>(rng_() % 3);
    uint32_t corrupt_random = rng_();
    bool dup = roll(config_.dup_pct);
    bool unsolicited = roll(config_.unsolicited_pct);
    uint32_t label_random = rng_();

    std::vector<std::vector<uint8_t>> out;
    if (drop) {
        ++stats->dropped;
    } else {
        out.push_back(reply);
        if (corrupt) {
            corrupt_frame(&out.back(), kind, corrupt_random);
            ++stats->corrupted;
        }
        if (dup) {
            out.push_back(out.back());
            ++stats->duplicated;
        }
    }
    if (unsolicited && reply.size() >= kFrameHeaderLen) {
        std::vector<uint8_t> extra = reply;
        put_le16(&extra[6], foreign_label(get_le16(&reply[6]), label_random));
        // Keep the checksum right so that only the label gives the frame away.
        put_le16(&extra[extra.size() - 2], sdk::byte_sum16(extra.data(), extra.size() - 2));
        out.push_back(std::move(extra));
        ++stats->unsolicited;
    }
    return out;
}

}  // namespace board_sim
