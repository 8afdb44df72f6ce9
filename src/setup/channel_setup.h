// The board-array walk shared by the four channel set-up members. Each member is one
// BoardClass: the array it reads, the map it fills, the channel types it opens and the
// wording of its log lines.
#pragma once

#include <cstdint>

#include "transfer_server.h"

namespace sdk::setup {

// Limits of a configuration file (README, "Configuration limits"), each refused with
// -1000 beyond it. They bound what start-up allocates for a file: the channel table, the
// send and monitor lists, and the receiving-card matrix, "eth_max" ports by "rvcard_max"
// cards on every channel of packet_code_type 1 (about 120 bytes a card).
constexpr int64_t kMaxChannels = 65536;        // records of the channel table
constexpr uint32_t kMaxLists = 64;             // "send_list_num", "monitor_list_num"
constexpr uint32_t kMaxEthPorts = 64;          // "eth_max"
constexpr uint32_t kMaxCardsPerPort = 1024;    // "rvcard_max"
constexpr int64_t kMaxReceivingCards = 65536;  // summed over the channels of code type 1

// Which of the set-up members' log wordings a class uses.
enum class LogStyle { kMain, kSub, kBackplane, kReport };

// Channel types a class opens; any other type is logged as unknown and skipped.
enum : uint32_t { kOpenUdp = 1u << 0, kOpenReportUdp = 1u << 1, kOpenUart = 1u << 2 };

struct BoardClass {
    const char *array_key;                    // "maincards", ...
    const char *device_key;                   // its class object in "device": "main_card", ...
    transfer_id_map_t transfer_info_t::*map;  // the class map in g_st_transfer
    const char *absent_msg;                   // logged when the array is missing
    LogStyle style;
    uint32_t opens;  // kOpen* bits
};

// Sub-card slot filter: only boards whose slot is listed are set up.
struct SlotList {
    const char *slots;
    uint32_t count;
};

// Walks the class's board array in the configuration root, fills the class map and the
// channel records and opens the endpoints. With a slot list, only listed boards are set
// up (every board entry is still checked). 0, -1000 for a malformed file or an entry
// that does not fit the table, or the negative result of a UDP endpoint.
int32_t setup_board_class(const BoardClass &cls, mio_json *root, const SlotList *filter);

// Where a channel entry sits: its board's slot, its section and its index k in the
// section array.
struct EntryPlace {
    int32_t slot;
    transfer_section section;
    uint32_t index;
};

// One channel entry of a board (channel_entry.cpp): its row of the class map, its channel
// record and its endpoint. *sender_channels counts the channels of packet_code_type 1 in
// the table, this entry included once it is placed. 0, -1000, or the negative result of
// a UDP endpoint.
int32_t setup_channel_entry(const BoardClass &cls, const EntryPlace &place, mio_json *entry,
                            int64_t *sender_channels);

// The two refusals of malformed files: a bad or missing member, and a value beyond a
// limit. Both log their line and return -1000; the caller has logged which member of
// which entry is wrong, and why, in a line before.
int32_t json_error();
int32_t limit_error();

// Why member key of obj cannot be read: "is missing" when it is absent, otherwise "is not
// an integer from 0 to 2147483647" (or, with text, "is not a string").
const char *member_problem(mio_json *obj, const char *key, bool text = false);

}  // namespace sdk::setup
