// The boards and channel entries of the transfer configuration as the engine placed them,
// read again from the file it was started with: the library routes a device index beyond
// a board's entries to some other channel, and keeps no device path of a serial channel.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "transfer_server.h"

namespace transfer_tool {

struct ConfiguredBoard {
    const transfer_id_map_t *map = nullptr;  // class map of the array it is listed in
    uint32_t slot = 0;
    uint32_t devices[MAX_MODE] = {};  // entries of its "fpga" and "mcu" arrays
};

struct ConfiguredChannel {
    uint32_t slot = 0;
    transfer_section section = FPGA;
    uint32_t index = 0;  // in the board's section array
    int32_t type = 0;
    std::string address;  // "ip": the IP address, or the device of a serial channel
    int64_t id = -1;      // place in the channel table
};

struct Configuration {
    std::vector<ConfiguredBoard> boards;
    std::vector<ConfiguredChannel> channels;
};

// Reads the board arrays of the file; the class maps of g_st_transfer must have been
// filled by start-up. False with a message.
bool read_configuration(const std::string &path, Configuration *out, std::string *error);

// Why the configuration gives the board in the target's slot no device at the target's
// index; "" when it does, or when no board is listed in that slot (routing then refuses).
std::string check_target(const Configuration &config, const transfer_op_t &op);

}  // namespace transfer_tool
