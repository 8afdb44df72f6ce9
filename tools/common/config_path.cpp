#include "common/config_path.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace tool_common {

std::string default_config(const char *name, const char *fallback) {
    std::string dir = TOOL_CONFIG_DIR;
    if (dir.empty() || dir[0] != '/') {
        char exe[PATH_MAX];
        ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
        if (n <= 0) return fallback;
        std::string path(exe, static_cast<size_t>(n));
        dir = path.substr(0, path.rfind('/') + 1) + dir;
    }
    char real[PATH_MAX];
    struct stat st {};
    if (realpath(dir.c_str(), real) == nullptr || stat(real, &st) != 0 || !S_ISDIR(st.st_mode))
        return fallback;
    return std::string(real) + "/" + name;
}

}  // namespace tool_common
