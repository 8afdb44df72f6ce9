// Copying files and directory trees.
#include <dirent.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mio_sdfile/mio_internal.h"

namespace {

using sdk::mio::append_path;
using sdk::mio::is_special_dir;
using sdk::mio::no_throw;
using sdk::mio::path_fits;

constexpr size_t kChunk = 2048;

bool same_file(const char *a, const char *b) {
    struct stat sa;
    struct stat sb;
    return stat(a, &sa) == 0 && stat(b, &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

// The absolute form of a path whose last component may not exist yet.
std::string canonical(const char *path) {
    char real[PATH_MAX];
    if (realpath(path, real) != nullptr) return real;
    std::string p = path;
    while (p.size() > 1 && p.back() == '/')
        p.pop_back();
    size_t slash = p.rfind('/');
    std::string parent = slash == std::string::npos ? "." : p.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? p : p.substr(slash + 1);
    if (realpath(parent.c_str(), real) == nullptr) return p;
    std::string out = real;
    if (out.back() != '/') out += '/';
    return out + name;
}

bool is_within(const std::string &inner, const std::string &outer) {
    return inner == outer ||
           (inner.size() > outer.size() && inner.compare(0, outer.size(), outer) == 0 &&
            (outer.back() == '/' || inner[outer.size()] == '/'));
}

// Copies the directory tree from into to; entries are appended to both paths and cut
// off again.
bool copy_tree(std::string &from, std::string &to) {
    struct stat st;
    if (lstat(from.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    if (mio_directoryexist(to.c_str())) mio_deletedirectory(to.data());
    DIR *dir = opendir(from.c_str());
    if (dir == nullptr) return false;
    mio_createdirectory(to.data());

    bool ok = true;
    const size_t from_len = from.size();
    const size_t to_len = to.size();
    while (const dirent *entry = readdir(dir)) {
        if (is_special_dir(entry->d_name)) continue;
        if (append_path(&from, entry->d_name, true, "mio_copydirectory") &&
            append_path(&to, entry->d_name, true, "mio_copydirectory")) {
            // Symbolic links and special files are skipped.
            struct stat est;
            if (lstat(from.c_str(), &est) != 0) {
                // gone since the directory was read: nothing to copy
            } else if (S_ISREG(est.st_mode)) {
                ok = mio_copyfile(from.data(), to.data()) && ok;
            } else if (S_ISDIR(est.st_mode)) {
                ok = copy_tree(from, to) && ok;
            }
        } else {
            ok = false;  // refused: the path does not fit
        }
        from.resize(from_len);
        to.resize(to_len);
    }
    closedir(dir);
    return ok;
}

}  // namespace

extern "C" {

SDK_API bool mio_copyfile(char *oldFile, char *newFile) {
    if (!path_fits(oldFile, "mio_copyfile") || !path_fits(newFile, "mio_copyfile")) {
        return false;
    }
    // A destination without "/" lies in the current directory, which exists: its whole
    // name is no directory to create.
    if (strchr(newFile, '/') != nullptr) {
        char dir[MIO_PATH_MAX];
        mio_getdirname(newFile, dir);
        if (!mio_directoryexist(dir)) mio_createdirectory(dir);
    }
    // Opening the destination "w" would empty the source first.
    if (same_file(oldFile, newFile)) return true;

    FILE *in = fopen(oldFile, "r");
    if (in == nullptr) return false;
    FILE *out = fopen(newFile, "w");
    if (out == nullptr) {
        fclose(in);
        return false;
    }
    bool ok = true;
    char chunk[kChunk];
    size_t n;
    do {
        n = fread(chunk, 1, kChunk, in);
        if (n == 0) break;
        if (fwrite(chunk, 1, n, out) != n) {
            ok = false;
            break;
        }
    } while (n == kChunk);
    if (ferror(in)) ok = false;
    fclose(in);
    if (fclose(out) != 0) ok = false;
    return ok;
}

SDK_API bool mio_copydirectory(char *oldPath, char *newPath) {
    if (!path_fits(oldPath, "mio_copydirectory") || !path_fits(newPath, "mio_copydirectory")) {
        return false;
    }
    struct stat st;
    if (lstat(oldPath, &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    return no_throw(false, [oldPath, newPath] {
        // Copying a tree into itself would never end, and onto itself or an ancestor would
        // delete the source before the copy.
        const std::string src = canonical(oldPath);
        const std::string dst = canonical(newPath);
        if (is_within(dst, src) || is_within(src, dst)) {
            printf("mio_copydirectory: %s and %s overlap, refused\n", oldPath, newPath);
            return false;
        }
        std::string from;
        std::string to;
        from.reserve(MIO_PATH_MAX);  // the whole walk in these two buffers
        to.reserve(MIO_PATH_MAX);
        from = oldPath;
        to = newPath;
        return copy_tree(from, to);
    });
}

}  // extern "C"
