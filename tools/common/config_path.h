// Where a host program finds its default configuration files.
#pragma once

#include <string>

namespace tool_common {

// `name` in the configuration folder of an installed copy of the running program:
// <folder of /proc/self/exe>/<TOOL_CONFIG_DIR> (../etc/transfer for the default layout)
// when that folder exists, else `fallback`, the build's own default. The folder decides,
// not the file: an installed program whose file was removed names the file it looked for.
std::string default_config(const char *name, const char *fallback);

}  // namespace tool_common
