// One channel entry of a board: its row of the class map, its record in the channel
// table and its endpoint (a UDP socket or a serial port).
#include <cstring>

#include "common/log.h"
#include "common/result.h"
#include "channel/transport.h"
#include "setup/channel_setup.h"
#include "uart.h"

namespace sdk::setup {

namespace {

// The members of a channel entry, read and checked before anything is written to the
// channel table or opened.
struct ChannelEntry {
    int32_t step;  // "id_offset"
    int32_t type;
    const char *ip = "";
    int32_t port;
};

// Logs which member of the entry is refused and why, then the refusal line.
int32_t member_error(const EntryPlace &place, mio_json *entry, const char *key, bool text = false) {
    TLOGE("slot %d: %s entry %u: \"%s\" %s", place.slot, sections[place.section], place.index, key,
          member_problem(entry, key, text));
    return json_error();
}

int32_t read_entry(mio_json *entry, const EntryPlace &place, transfer_id_map_t *map, int64_t row,
                   ChannelEntry *out) {
    out->step = mio_json_getobjectitemint(entry, "id_offset");
    if (out->step < 0) return member_error(place, entry, "id_offset");
    map->n_step[row] = out->step;
    out->type = mio_json_getobjectitemint(entry, "type");
    if (out->type < 0) return member_error(place, entry, "type");
    out->ip = mio_json_getobjectitemstr(entry, "ip");
    if (out->ip == nullptr) return member_error(place, entry, "ip", true);
    out->port = mio_json_getobjectitemint(entry, "port");
    if (out->port < 0) return member_error(place, entry, "port");
    return kOk;
}

// Receiving cards ("eth_max" ports by "rvcard_max" cards) that start-up gives each
// channel of packet_code_type 1.
int64_t cards_per_sender_channel() {
    const transfer_format_t &f = g_st_transfer.st_format;
    return static_cast<int64_t>(f.n_rvcard_eth_max) * f.n_rvcard_max;
}

bool is_channel_type(int32_t type) {
    return type == UDP || type == TCP || type == RAW_SOCKET || type == UART || type == REPORT_UDP;
}

}  // namespace

int32_t setup_channel_entry(const BoardClass &cls, const EntryPlace &place, mio_json *entry,
                            int64_t *sender_channels) {
    transfer_id_map_t &map = g_st_transfer.*cls.map;
    const char *section_name = sections[place.section];

    // Open point settled here: the class map has ten section rows; an entry whose
    // flattened row would lie beyond them is refused instead of writing past n_step.
    const int64_t row = place.section == FPGA
                            ? place.index
                            : static_cast<int64_t>(place.index) + map.n_section_num[FPGA];
    if (row >= SDK_MAP_STEP_NUM) {
        TLOGE("slot %d: %s entry %u needs section row %lld, a board has at most %d", place.slot,
              section_name, place.index, static_cast<long long>(row), SDK_MAP_STEP_NUM);
        return limit_error();
    }

    ChannelEntry e{};
    if (int32_t ret = read_entry(entry, place, &map, row, &e); ret != kOk) return ret;
    // Open point settled here: an "ip" text that does not fit the endpoint description
    // with its terminator is refused as malformed rather than cut to another address or
    // device path.
    const size_t ip_len = strnlen(e.ip, sizeof(sock_addr_t::p_ip));
    if (ip_len >= sizeof(sock_addr_t::p_ip)) {
        TLOGE("slot %d: %s entry %u has an ip text of %zu characters or more, at most %zu",
              place.slot, section_name, place.index, ip_len, sizeof(sock_addr_t::p_ip) - 1);
        return json_error();
    }
    const int32_t code = mio_json_getobjectitemint(entry, "packet_code_type");
    // Settled: 2 (PACKET_RECV) marks the engine's own receiving-card queues; a channel of
    // that kind would take every request and never send one (its queue has no port), so
    // such a file is refused when it is loaded, like any other value above 1.
    if (code > PACKET_SENDER) {
        TLOGE("slot %d: %s entry %u has packet_code_type %d, at most %d", place.slot, section_name,
              place.index, code, PACKET_SENDER);
        return json_error();
    }

    // Computed wide: the id must land inside the table, not wrap into it.
    const int64_t id = static_cast<int64_t>(map.n_id_offset) +
                       (static_cast<int64_t>(place.slot) - map.n_slot_min) * map.n_offset +
                       map.n_step[row];
    if (cls.style == LogStyle::kBackplane) {
        TLOGI("n_transfer_id %d  n_section_offset %d", static_cast<int32_t>(id),
              static_cast<int32_t>(row));
    }
    // Open point settled here: a channel id outside the table, or one that an earlier
    // entry already took, is refused; either would write past the table or lose an open
    // endpoint.
    if (id < 0 || id >= g_st_transfer.n_num) {
        TLOGE("slot %d: %s entry %u gives channel id %lld outside the table of %d channels",
              place.slot, section_name, place.index, static_cast<long long>(id),
              g_st_transfer.n_num);
        return limit_error();
    }
    transfer_data_t *ch = &g_st_transfer.st_info[id];
    if (ch->n_type != 0) {
        TLOGE("slot %d: %s entry %u gives channel id %lld, already set up for slot %d", place.slot,
              section_name, place.index, static_cast<long long>(id), ch->n_slot);
        return limit_error();
    }
    // Every channel of packet_code_type 1 gets the whole receiving-card matrix at
    // start-up; their sum is bounded like the channel table.
    if (code == PACKET_SENDER) {
        const int64_t cards = cards_per_sender_channel();
        if (cards > 0 && (*sender_channels + 1) * cards > kMaxReceivingCards) {
            TLOGE(
                "slot %d: %s entry %u: \"packet_code_type\" 1 makes %lld channels with "
                "\"eth_max\" %u x \"rvcard_max\" %u receiving cards each, more than %lld "
                "cards in all",
                place.slot, section_name, place.index, static_cast<long long>(*sender_channels + 1),
                g_st_transfer.st_format.n_rvcard_eth_max, g_st_transfer.st_format.n_rvcard_max,
                static_cast<long long>(kMaxReceivingCards));
            return limit_error();
        }
        ++*sender_channels;
    }

    ch->n_slot = place.slot;
    ch->n_section = place.section;
    // A number that is no channel type is not stored: the record keeps type 0, which
    // every worker reads as "no channel".
    ch->n_type = is_channel_type(e.type) ? static_cast<json_type_tbl>(e.type)
                                         : static_cast<json_type_tbl>(0);
    ch->e_packet_code_type = code < 0 ? PACKET_VIDEO : static_cast<packet_code_type>(code);
    // Until an endpoint is open the record holds no descriptor (0 would be stdin).
    ch->n_fd = -1;

    if (cls.style == LogStyle::kReport) {
        LOGD(LOG_DEVICE, "n_transfer_id %d ip %s port %d n_slot %d n_section %d",
             static_cast<int32_t>(id), e.ip, e.port, place.slot, place.section);
    } else if (cls.style != LogStyle::kBackplane) {
        LOGD(LOG_DEVICE, "ip %s port %d n_slot %d n_section %d", e.ip, e.port, place.slot,
             place.section);
    }

    const Transport *t = transport_of(e.type);
    if (t == nullptr || (cls.opens & t->open_bit) == 0) {
        TLOGE("unkonw type %d", e.type);
        return kOk;
    }
    return t->open(ch, e.ip, static_cast<uint32_t>(e.port), id);
}

}  // namespace sdk::setup
