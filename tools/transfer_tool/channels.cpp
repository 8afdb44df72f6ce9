#include "transfer_tool/channels.h"

#include "mio_json.h"

namespace transfer_tool {

namespace {

struct BoardArray {
    const char *name;
    const transfer_id_map_t *map;
};

// The class of a slot, chosen as routing chooses it.
const transfer_id_map_t *class_of(uint32_t slot) {
    for (const transfer_id_map_t *m :
         {&g_st_transfer.st_main_card, &g_st_transfer.st_backplane, &g_st_transfer.st_sub_card}) {
        if (slot >= static_cast<uint32_t>(m->n_slot_min) &&
            slot <= static_cast<uint32_t>(m->n_slot_max))
            return m;
    }
    return nullptr;
}

void read_board(mio_json *board, const transfer_id_map_t *map, Configuration *out) {
    const int32_t slot = mio_json_getobjectitemint(board, "slot");
    if (slot < 0) return;
    ConfiguredBoard b;
    b.map = map;
    b.slot = static_cast<uint32_t>(slot);
    for (int s = FPGA; s < MAX_MODE; ++s) {
        mio_json *entries = mio_json_getobjectitem(board, s == FPGA ? "fpga" : "mcu");
        b.devices[s] = mio_json_getarraysize(entries);
        for (uint32_t k = 0; k < b.devices[s]; ++k) {
            mio_json *e = mio_json_getarrayitem(entries, k);
            ConfiguredChannel c;
            c.slot = b.slot;
            c.section = static_cast<transfer_section>(s);
            c.index = k;
            c.type = mio_json_getobjectitemint(e, "type");
            const char *ip = mio_json_getobjectitemstr(e, "ip");
            c.address = ip != nullptr ? ip : "";
            const int32_t id_offset = mio_json_getobjectitemint(e, "id_offset");
            if (id_offset >= 0)
                c.id = static_cast<int64_t>(map->n_id_offset) +
                       (static_cast<int64_t>(slot) - map->n_slot_min) * map->n_offset + id_offset;
            out->channels.push_back(std::move(c));
        }
    }
    out->boards.push_back(b);
}

}  // namespace

bool read_configuration(const std::string &path, Configuration *out, std::string *error) {
    mio_json *root = mio_json_fromfile(path.c_str());
    if (root == nullptr) {
        *error = "cannot read or parse " + path;
        return false;
    }
    const BoardArray arrays[] = {{"maincards", &g_st_transfer.st_main_card},
                                 {"subcards", &g_st_transfer.st_sub_card},
                                 {"backplane", &g_st_transfer.st_backplane}};
    for (const auto &a : arrays) {
        mio_json *boards = mio_json_getobjectitem(root, a.name);
        for (uint32_t i = 0; i < mio_json_getarraysize(boards); ++i)
            read_board(mio_json_getarrayitem(boards, i), a.map, out);
    }
    mio_json_delete(root);
    return true;
}

std::string check_target(const Configuration &config, const transfer_op_t &op) {
    const transfer_id_map_t *map = class_of(op.n_slot);
    const auto section = static_cast<uint32_t>(op.e_mode);
    if (map == nullptr || section >= MAX_MODE) return "";
    const ConfiguredBoard *board = nullptr;
    for (const auto &b : config.boards) {
        if (b.map == map && b.slot == op.n_slot) {
            board = &b;
            break;
        }
    }
    if (board == nullptr || op.n_mode_id < board->devices[section]) return "";
    const uint32_t n = board->devices[section];
    const std::string name = section == FPGA ? "FPGA" : "MCU";
    const std::string slot = "slot " + std::to_string(op.n_slot);
    if (n == 0) return slot + " has no " + name + " in the configuration";
    return slot + " has " + std::to_string(n) + " " + name + (n == 1 ? "" : "s") +
           " in the configuration (-e 0 to " + std::to_string(n - 1) + "), not " + name + " " +
           std::to_string(op.n_mode_id);
}

}  // namespace transfer_tool
