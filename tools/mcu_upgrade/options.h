// Command line of mcu_upgrade: the library's option set (cmd_parse_recvcard_mcu), the
// serial device as the one plain argument, or else the device of the MCU's serial channel
// in the transfer configuration.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "transfer_server.h"

namespace mcu_upgrade {

enum ExitStatus {
    kExitDone = 0,
    kExitFailed = 1,    // the bootloader run failed
    kExitUsage = 2,     // bad command line
    kExitSetup = 3,     // image, configuration or serial device unusable
    kExitMismatch = 4,  // the flash read back differs from the image
};

// The largest image taken: the largest internal flash of the parts served (3 MiB).
constexpr uint32_t kMaxImage = 3u << 20;

struct Settings {
    upgrade_mcu_t cmd{};
    std::string device;  // the plain argument; "" when the configuration must name it
    bool help = false;
    bool verify = true;       // --no-verify clears it
    bool go = false;          // -g / --go
    uint32_t go_address = 0;  // where -g starts the application
};

// False with a message for an unknown option, a missing value, a value the library's scan
// would change (a number not whole or out of range, a text longer than its field) or extra
// arguments.
bool parse(int argc, char **argv, Settings *out, std::string *error);

void print_usage(FILE *out);

// TRANSFER_CONFIG, or the default path.
std::string transfer_config_path();

// The device and line speed of serial channel `index` of the "mcu" array of the board in
// `slot` ("maincards", "subcards" or "backplane"). False with a message.
bool device_from_config(const std::string &config, uint32_t slot, uint32_t index,
                        std::string *device, uint32_t *baud, std::string *error);

}  // namespace mcu_upgrade
