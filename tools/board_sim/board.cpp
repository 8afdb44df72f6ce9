#include "board_sim/board.h"

namespace board_sim {

SpaceKey space_of(const Request &r) {
    if (r.body == BodyKind::kRvcard) return {static_cast<uint8_t>(r.body), r.port, r.card};
    return {static_cast<uint8_t>(r.body), r.device_type(), r.device_index()};
}

std::vector<uint8_t> Board::handle(const uint8_t *p, size_t n, Stats *stats) {
    Request r;
    if (parse_request(p, n, &r) != ParseError::kNone) {
        ++stats->bad;
        return {};
    }
    ++stats->requests;

    // The library polls without regard to how the polled write was sent, so a poll is
    // always answered.
    if (is_poll(r)) {
        ++stats->polls;
        return build_reply(r, 0, kPollDone.data(), kPollDone.size());
    }

    if (r.write) {
        registers_.write(space_of(r), r.addr, r.data, r.data_len);
        if (!r.ack || !options_.reply_writes) return {};
        return build_reply(r, 0, nullptr, 0);
    }
    if (!r.ack) return {};
    if (r.read_len < 0 || static_cast<size_t>(r.read_len) > kMaxData) {
        // No reply could carry that much: say so in the error code (the receiving-card
        // reply has none, so it comes back empty).
        return build_reply(r, -1, nullptr, 0);
    }
    std::vector<uint8_t> data(static_cast<size_t>(r.read_len));
    registers_.read(space_of(r), r.addr, data.data(), data.size());
    return build_reply(r, 0, data.data(), data.size());
}

}  // namespace board_sim
