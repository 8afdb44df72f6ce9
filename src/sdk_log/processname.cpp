// The name of the running program, from the link /proc/self/exe.
#include <unistd.h>

#include <cstring>

#include "common/result.h"
#include "sdk_log.h"

extern "C" SDK_API int32_t get_processname(char *processname) {
    if (processname == nullptr) return sdk::kErrLog;
    char path[2048];
    ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (n <= 0) return sdk::kErrLog;
    path[n] = '\0';
    const char *slash = strrchr(path, '/');
    if (slash == nullptr) return sdk::kErrLog;
    // The name is shorter than the 2048-byte link buffer, the size hosts pass.
    memcpy(processname, slash + 1, strlen(slash + 1) + 1);
    return sdk::kOk;
}
