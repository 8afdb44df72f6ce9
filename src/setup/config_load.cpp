// First loading step of the transfer configuration: the board classes under "device",
// the pool sizes and the receiving-card limits, and the channel table itself.
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "setup/channel_setup.h"

extern "C" {
SDK_API transfer_info_t g_st_transfer;
const char sections[MAX_MODE + 1][SDK_SECTION_NAME_LEN] = {"fpga", "mcu", "MAX_MODE"};
}

namespace {

struct ClassDesc {
    const char *key;
    transfer_id_map_t transfer_info_t::*map;
    const char *absent_msg;
};

constexpr std::array<ClassDesc, 4> kClasses = {{
    {"main_card", &transfer_info_t::st_main_card, "maincard transfer is null "},
    {"sub_card", &transfer_info_t::st_sub_card, "subcard transfer is null"},
    {"backplane", &transfer_info_t::st_backplane, "backplane transfer is null"},
    {"report", &transfer_info_t::st_report, "report transfer is null"},
}};

// Channel-id block [first, first + count) of one class.
struct Block {
    const char *key;
    int64_t first;
    int64_t count;
};

using sdk::setup::json_error;
using sdk::setup::kMaxChannels;
using sdk::setup::limit_error;
using sdk::setup::member_problem;

// Reads a non-negative integer member; a failure logs which member of which object
// (where) is wrong and why, then the refusal line.
bool read_member(mio_json *obj, const char *where, const char *key, int32_t *out) {
    const int32_t v = mio_json_getobjectitemint(obj, key);
    if (v >= 0) {
        *out = v;
        return true;
    }
    TLOGE("%s: \"%s\" %s", where, key, member_problem(obj, key));
    json_error();
    return false;
}

// Reads the five members of a present class object, in file order; a failure keeps what
// was stored before it.
int32_t read_class(mio_json *obj, const char *key, transfer_id_map_t *map, int64_t *slots) {
    char where[64];
    snprintf(where, sizeof(where), "device \"%s\"", key);
    int32_t slot_num = 0;
    if (!read_member(obj, where, "slot_num", &slot_num) ||
        !read_member(obj, where, "type_num", &map->n_offset) ||
        !read_member(obj, where, "min_slot", &map->n_slot_min) ||
        !read_member(obj, where, "max_slot", &map->n_slot_max) ||
        !read_member(obj, where, "id_offset", &map->n_id_offset)) {
        return sdk::kErrConfig;
    }
    *slots = slot_num;
    return sdk::kOk;
}

// A pool size: its member, where it is stored and the most a file may ask for.
struct Count {
    const char *key;
    uint32_t transfer_format_t::*field;
    uint32_t max;
};

// Reads the members of an optional object into st_format, in the given order. Each is
// refused when it is missing or negative, or above its limit: start-up allocates by
// these counts, so a huge one would have it allocate until memory runs out.
template <size_t N>
int32_t read_counts(mio_json *obj, const char *where, const std::array<Count, N> &counts) {
    for (const Count &c : counts) {
        int32_t v = 0;
        if (!read_member(obj, where, c.key, &v)) return sdk::kErrConfig;
        if (static_cast<uint32_t>(v) > c.max) {
            TLOGE("%s: \"%s\" %d is above the limit of %u", where, c.key, v, c.max);
            return limit_error();
        }
        g_st_transfer.st_format.*c.field = static_cast<uint32_t>(v);
    }
    return sdk::kOk;
}

// The thread counts are stored only (start-up runs one sender and one monitor thread),
// so any value is allowed.
constexpr uint32_t kAny = INT32_MAX;
constexpr std::array<Count, 4> kPoolCounts = {{
    {"send_list_num", &transfer_format_t::n_send_list_num, sdk::setup::kMaxLists},
    {"send_thread_num", &transfer_format_t::n_send_thread_num, kAny},
    {"monitor_list_num", &transfer_format_t::n_monitor_list_num, sdk::setup::kMaxLists},
    {"monitor_thread_num", &transfer_format_t::n_monitor_thread_num, kAny},
}};
constexpr std::array<Count, 2> kRvcardCounts = {{
    {"eth_max", &transfer_format_t::n_rvcard_eth_max, sdk::setup::kMaxEthPorts},
    {"rvcard_max", &transfer_format_t::n_rvcard_max, sdk::setup::kMaxCardsPerPort},
}};

// Open point settled here: blocks of different classes that overlap, or a block that runs
// past the table, would make two boards share a channel record or make set-up write past
// the table. Such a file is refused as malformed (-1000) before anything is allocated.
int32_t check_blocks(const std::array<Block, 4> &blocks, int64_t total) {
    for (size_t i = 0; i < blocks.size(); ++i) {
        const Block &a = blocks[i];
        if (a.count == 0) continue;
        if (a.first + a.count > total) {
            TLOGE(
                "device \"%s\": \"id_offset\" places class %s ids %lld..%lld outside the "
                "table of %lld channels",
                a.key, a.key, static_cast<long long>(a.first),
                static_cast<long long>(a.first + a.count - 1), static_cast<long long>(total));
            return json_error();
        }
        for (size_t j = i + 1; j < blocks.size(); ++j) {
            const Block &b = blocks[j];
            if (b.count != 0 && a.first < b.first + b.count && b.first < a.first + a.count) {
                TLOGE(
                    "device \"%s\" and \"%s\": \"id_offset\" makes classes %s and %s share "
                    "channel ids",
                    a.key, b.key, a.key, b.key);
                return json_error();
            }
        }
    }
    return sdk::kOk;
}

int32_t load(mio_json *root) {
    // Start-up loads once; a repeated load (tests, tools) replaces the earlier table.
    free(g_st_transfer.st_info);
    g_st_transfer.st_info = nullptr;
    g_st_transfer.n_num = 0;

    mio_json *device = mio_json_getobjectitem(root, "device");
    if (device == nullptr) {
        TLOGE("error code %d", sdk::kErrNoDevice);
        return sdk::kErrNoDevice;
    }

    std::array<Block, 4> blocks{};
    int64_t total = 0;
    for (size_t i = 0; i < kClasses.size(); ++i) {
        const ClassDesc &c = kClasses[i];
        blocks[i] = Block{c.key, 0, 0};
        mio_json *obj = mio_json_getobjectitem(device, c.key);
        if (obj == nullptr) {
            TLOGI("%s", c.absent_msg);
            continue;
        }
        transfer_id_map_t *map = &(g_st_transfer.*c.map);
        int64_t slots = 0;
        if (int32_t ret = read_class(obj, c.key, map, &slots); ret != sdk::kOk) return ret;
        blocks[i] = Block{c.key, map->n_id_offset, slots * map->n_offset};
        total += blocks[i].count;
    }

    transfer_format_t &fmt = g_st_transfer.st_format;
    if (mio_json *obj = mio_json_getobjectitem(root, "transfer_param"); obj != nullptr) {
        if (int32_t ret = read_counts(obj, "\"transfer_param\"", kPoolCounts); ret != sdk::kOk) {
            return ret;
        }
    } else {
        TLOGI("transfer_param is null used default");
        fmt.n_send_list_num = fmt.n_send_thread_num = 1;
        fmt.n_monitor_list_num = fmt.n_monitor_thread_num = 1;
    }

    if (mio_json *obj = mio_json_getobjectitem(root, "rvcard_param"); obj != nullptr) {
        if (int32_t ret = read_counts(obj, "\"rvcard_param\"", kRvcardCounts); ret != sdk::kOk) {
            return ret;
        }
    } else {
        TLOGI("rvcard_param is null used default");
        fmt.n_rvcard_eth_max = 0;
        fmt.n_rvcard_max = 0;
    }

    // Each class contributes at most INT32_MAX^2 ids, so the sum cannot overflow int64.
    // Settled: a table beyond kMaxChannels records is malformed. A chassis has a few
    // hundred channels; a file asking for millions would otherwise have start-up allocate
    // (and the workers walk) records, send queues and lists for every one of them.
    if (total > kMaxChannels) {
        TLOGE(
            "device: the classes' \"slot_num\" x \"type_num\" make a channel table of %lld "
            "records, above the limit of %lld",
            static_cast<long long>(total), static_cast<long long>(kMaxChannels));
        return json_error();
    }
    if (int32_t ret = check_blocks(blocks, total); ret != sdk::kOk) return ret;

    // One spare record so that an empty table is a valid allocation too.
    auto *table = static_cast<transfer_data_t *>(
        calloc(static_cast<size_t>(total) + 1, sizeof(transfer_data_t)));
    if (table == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    g_st_transfer.st_info = table;
    g_st_transfer.n_num = static_cast<int32_t>(total);
    return sdk::kOk;
}

}  // namespace

extern "C" SDK_API int32_t sdk_device_transfer_mem_init(mio_json *p_transfer_root) {
    TLOGI("start!");
    int32_t ret = load(p_transfer_root);
    TLOGI("end ret :%d", ret);
    return ret;
}
