// Directory creation, clearing, deletion and moving.
//
// No path is ever handed to a shell, so no character of a path can run a command: the
// creation of missing parents and the clearing are done with system calls, and the move
// runs mv(1) directly with the paths as its arguments.
#include <dirent.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mio_sdfile/mio_internal.h"

extern char **environ;

namespace {

using sdk::mio::append_path;
using sdk::mio::is_special_dir;
using sdk::mio::no_throw;
using sdk::mio::path_fits;

bool is_directory(const char *path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// What "mkdir -p" does: every missing component, parents first.
bool make_parents(const char *path) {
    std::string prefix;
    for (const char *p = path; *p != '\0'; ++p) {
        if (*p == '/' && !prefix.empty() && prefix.back() != '/') {
            if (mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) return false;
        }
        prefix += *p;
    }
    return (mkdir(path, 0777) == 0 || errno == EEXIST) && is_directory(path);
}

int remove_entry(const char *fpath, const struct stat *, int, struct FTW *) {
    (void)remove(fpath);
    return 0;
}

// What "rm -rf" does to one path: symbolic links are removed, never followed.
void remove_tree(const char *path) {
    (void)nftw(path, remove_entry, 16, FTW_DEPTH | FTW_PHYS);
}

// True when dir names the root ("/", "//", "/tmp/..", ...).
bool is_root(const char *dir) {
    char real[PATH_MAX];
    return realpath(dir, real) != nullptr && strcmp(real, "/") == 0;
}

void print_root_refusal(const char *dir) {
    printf(
        "\n\n\n\n\n\n\n\n\n\n\nCan not delete root directory   dir=%s  !!!\n\n\n\n\n\n\n\n\n\n\n",
        dir);
}

// Deletes what path names; entries are appended to path and cut off again. A symbolic
// link, device or pipe named by the caller is left alone. Inside a tree it is removed
// (the link itself, never what it points to): left there, it would keep its directory
// from being removed and the deletion of the tree would fail.
bool delete_path(std::string &path, bool in_tree) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return true;  // nothing to delete
    if (S_ISREG(st.st_mode)) return unlink(path.c_str()) == 0;
    if (!S_ISDIR(st.st_mode)) return !in_tree || unlink(path.c_str()) == 0;

    DIR *dir = opendir(path.c_str());
    if (dir == nullptr) return false;
    bool ok = true;
    const size_t len = path.size();
    while (const dirent *entry = readdir(dir)) {
        if (is_special_dir(entry->d_name)) continue;
        // An entry whose path does not fit is refused and stays, and so does its directory.
        if (!append_path(&path, entry->d_name, false, "mio_deletedirectory")) {
            ok = false;
            continue;
        }
        ok = delete_path(path, true) && ok;
        path.resize(len);
    }
    closedir(dir);
    return rmdir(path.c_str()) == 0 && ok;
}

// The body of mio_cleardirectory.
void clear_matching(const char *dir) {
    printf("\n MIO_ClearDirectory  [%s] \n", dir);
    if (dir[0] == '\0' || strcmp(dir, "/") == 0 || strcmp(dir, "/*") == 0 ||
        strcmp(dir, "\\*") == 0 || strcmp(dir, "*") == 0) {
        print_root_refusal(dir);
        return;
    }
    if (!path_fits(dir, "mio_cleardirectory")) return;

    // The path is the prefix of the pattern "<dir>*", taken literally: the entries of its
    // directory part whose names begin with its last component.
    const char *slash = strrchr(dir, '/');
    std::string parent =
        slash == nullptr ? "." : std::string(dir, static_cast<size_t>(slash - dir) + 1);
    const char *prefix = slash == nullptr ? dir : slash + 1;
    // Any other spelling of the root ("//", "/tmp/../") is refused as well.
    if (*prefix == '\0' && is_root(parent.c_str())) {
        print_root_refusal(dir);
        return;
    }

    DIR *d = opendir(parent.c_str());
    if (d == nullptr) return;
    const size_t prefix_len = strlen(prefix);
    while (const dirent *entry = readdir(d)) {
        const char *name = entry->d_name;
        if (is_special_dir(name) || strncmp(name, prefix, prefix_len) != 0) continue;
        // As with the shell's "*", names beginning with a dot match only a dotted prefix.
        if (name[0] == '.' && prefix[0] != '.') continue;
        std::string entry_path = slash == nullptr ? std::string(name) : parent;
        if (slash != nullptr && !append_path(&entry_path, name, false, "mio_cleardirectory")) {
            continue;
        }
        remove_tree(entry_path.c_str());
    }
    closedir(d);
}

}  // namespace

extern "C" {

SDK_API bool mio_createdirectory(char *dirname) {
    if (!path_fits(dirname, "mio_createdirectory")) return false;
    (void)mkdir(dirname, 0766);
    if (!mio_fileexist(dirname) && !no_throw(false, [dirname] { return make_parents(dirname); })) {
        printf("cmd=mkdir -p %s\n", dirname);
    }
    return true;
}

SDK_API void mio_cleardirectory(char *dir) {
    if (dir == nullptr) return;
    (void)no_throw(false, [dir] {
        clear_matching(dir);
        return true;
    });
}

SDK_API bool mio_deletedirectory(char *path) {
    if (!path_fits(path, "mio_deletedirectory")) return false;
    return no_throw(false, [path] {
        std::string walk;
        walk.reserve(MIO_PATH_MAX);  // the whole walk in this one buffer
        walk = path;
        return delete_path(walk, false);
    });
}

SDK_API bool mio_deletefile(char *filename) {
    return filename != nullptr && remove(filename) == 0;
}

SDK_API void mio_movedirectory(char *srcdir, char *desdir) {
    if (!path_fits(srcdir, "mio_movedirectory") || !path_fits(desdir, "mio_movedirectory")) {
        return;
    }
    // mv moves across file systems and into an existing directory, which rename(2) does
    // not; it gets the paths as arguments, not through a shell ("--" keeps a path that
    // begins with "-" from being taken as an option).
    char mv[] = "mv";
    char force[] = "-f";
    char end_of_options[] = "--";
    char *argv[] = {mv, force, end_of_options, srcdir, desdir, nullptr};
    pid_t pid = -1;
    if (posix_spawnp(&pid, "mv", nullptr, nullptr, argv, environ) == 0) {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    (void)no_throw(false, [srcdir, desdir] {
        std::string shown = "mv -f -- " + sdk::mio::shell_quote(srcdir);
        shown += " " + sdk::mio::shell_quote(desdir) + " ";
        printf("MIO_SDFILE MIO_MoveDirectory command = %s", shown.c_str());
        return true;
    });
}

}  // extern "C"
