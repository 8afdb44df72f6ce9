// Path tests and splitting, free numbered names, file size and the directory-scan filters.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

#include "mio_sdfile/mio_internal.h"

namespace sdk::mio {

bool is_special_dir(const char *name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

bool path_fits(const char *path, const char *op) {
    if (path == nullptr) return false;
    if (strnlen(path, MIO_PATH_MAX) < MIO_PATH_MAX) return true;
    printf("%s: path longer than %d bytes refused\n", op, MIO_PATH_MAX - 1);
    return false;
}

bool append_path(std::string *path, const char *name, bool always_slash, const char *op) {
    const bool slash = always_slash || path->empty() || path->back() != '/';
    if (path->size() + (slash ? 1 : 0) + strlen(name) >= MIO_PATH_MAX) {
        printf("%s: path longer than %d bytes refused\n", op, MIO_PATH_MAX - 1);
        return false;
    }
    if (slash) *path += '/';
    *path += name;
    return true;
}

std::string shell_quote(const char *text) {
    std::string out = "'";
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p == '\'') {
            out += "'\\''";
        } else {
            out += *p;
        }
    }
    out += "'";
    return out;
}

}  // namespace sdk::mio

namespace {

// Shared body of the two free-name searches; taken(candidate) says whether n is in use.
template <typename Taken>
int unused_name(const char *front, const char *ext, char *out, Taken taken) {
    if (front == nullptr || ext == nullptr || out == nullptr) {
        printf("NULL");
        return -1;
    }
    for (int n = 0; n < 1000; ++n) {
        char candidate[MIO_NAME_MAX];
        int len = snprintf(candidate, sizeof(candidate), "%s%d%s", front, n, ext);
        // The output holds MIO_NAME_MAX bytes: a name that does not fit is refused rather
        // than cut (a cut name could be one that is taken).
        if (len < 0 || len >= MIO_NAME_MAX) {
            printf("name longer than %d bytes refused: %s...\n", MIO_NAME_MAX - 1, front);
            return -1;
        }
        if (!taken(candidate)) {
            memcpy(out, candidate, static_cast<size_t>(len) + 1);
            return n;
        }
    }
    return -1;
}

}  // namespace

extern "C" {

SDK_API bool mio_fileexist(const char *filename) {
    struct stat st;
    return filename != nullptr && lstat(filename, &st) == 0;
}

SDK_API bool mio_directoryexist(const char *dirname) {
    if (dirname == nullptr) return false;
    DIR *dir = opendir(dirname);
    if (dir == nullptr) return false;
    closedir(dir);
    return true;
}

SDK_API bool mio_getfilename(char *path, char *filename) {
    if (path == nullptr || filename == nullptr) return false;
    const char *slash = strrchr(path, '/');
    if (slash == nullptr) return false;
    memmove(filename, slash + 1, strlen(slash + 1) + 1);
    return true;
}

SDK_API bool mio_getdirname(char *path, char *dirname) {
    if (path == nullptr || dirname == nullptr) return false;
    const char *slash = strrchr(path, '/');
    size_t len = slash == nullptr ? strlen(path) : static_cast<size_t>(slash - path) + 1;
    memmove(dirname, path, len);
    dirname[len] = '\0';
    return true;
}

SDK_API int mio_getunusedfilename(char *front, const char *ext, char *filename) {
    return unused_name(front, ext, filename, mio_fileexist);
}

SDK_API int mio_getunuseddirname(char *front, char *ext, char *dirname) {
    return unused_name(front, ext, dirname, mio_directoryexist);
}

SDK_API int64_t mio_getfilesize(const char *path) {
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

SDK_API int dirfilter(const struct dirent *pDir) {
    if (pDir == nullptr) return 0;
    return pDir->d_type == DT_DIR && !sdk::mio::is_special_dir(pDir->d_name) ? 1 : 0;
}

SDK_API int filefilter(const struct dirent *pDir) {
    if (pDir == nullptr) return 0;
    return pDir->d_type != DT_DIR ? 1 : 0;
}

SDK_API void disposecharptr(void *str) {
    free(str);
}

}  // extern "C"
