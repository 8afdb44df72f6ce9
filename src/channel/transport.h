// The transport table: what each kind of channel does, one const entry per channel type.
// The engine's shared code (set-up, sender, monitor, receive threads) asks the table and
// never switches on the channel type itself.
#pragma once

#include <cstdint>

#include "transfer_server.h"

namespace sdk {

// The receive thread that reads a kind of channel.
enum class Receiver { kNet, kReport, kUart };

struct Transport {
    json_type_tbl type;
    uint32_t open_bit;  // the board-class flag that lets a class open this kind (setup)
    Receiver receiver;
    bool b_sends;  // request frames go out on it
    // Opens the endpoint into ch: n_fd, n_state 1 and the addresses once open. 0, also
    // when the endpoint had to stay closed (eth0 down, no serial device); a negative code
    // that ends start-up otherwise. n_id names the channel in log lines.
    int32_t (*open)(transfer_data_t *ch, const char *where, uint32_t port, int64_t n_id);
    // Puts one whole frame on the channel: 0, or what the send or write returned.
    int32_t (*send)(const transfer_data_t &ch, uint8_t *b, uint32_t n);
};

// The entry of a channel type; nullptr for a type that the engine does not carry.
const Transport *transport_of(int32_t type);

// Request frames can go out on the channel (its type sends).
inline bool sends(const transfer_data_t &ch) {
    const Transport *t = transport_of(ch.n_type);
    return t != nullptr && t->b_sends;
}

}  // namespace sdk
