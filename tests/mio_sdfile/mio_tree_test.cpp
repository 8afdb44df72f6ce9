// Directory and path operations of the file utilities: creation, clearing, deletion,
// moving, copying, free names, filters; paths that try to run commands; overlong paths.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "mio_sdfile.h"
#include "support/log_capture.h"

namespace fs = std::filesystem;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

void make_file(const std::string &path, size_t size, char fill = 'x') {
    std::ofstream(path, std::ios::binary) << std::string(size, fill);
}

std::string content(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string pattern(size_t size) {
    std::string s(size, '\0');
    for (size_t i = 0; i < size; ++i)
        s[i] = static_cast<char>(i * 7 + i / 251);
    return s;
}

// Runs body with the working directory set to dir.
template <typename F>
void in_directory(const std::string &dir, F body) {
    char old[4096];
    ASSERT_NE(getcwd(old, sizeof(old)), nullptr);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    body();
    ASSERT_EQ(chdir(old), 0);
}

// Names that a shell would take for commands.
const char *const kHostileNames[] = {
    "a b",
    "x; touch PWNED_semi",
    "$(touch PWNED_subst)",
    "`touch PWNED_tick`",
    "q'uo\"te",
    "p | touch PWNED_pipe",
    "-rf",
    "n\nl && touch PWNED_and",
};

bool any_pwned(const std::string &dir) {
    for (const auto &e : fs::recursive_directory_iterator(dir)) {
        if (e.path().filename().string().rfind("PWNED", 0) == 0) return true;
    }
    return false;
}

// Removes a tree whatever the length of its paths, one directory descriptor at a time.
void remove_deep(int parent, const char *name) {
    int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (fd >= 0) {
        DIR *d = fdopendir(fd);
        while (const dirent *e = readdir(d)) {
            if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
            if (e->d_type == DT_DIR) {
                remove_deep(fd, e->d_name);
            } else {
                unlinkat(fd, e->d_name, 0);
            }
        }
        closedir(d);
    }
    unlinkat(parent, name, AT_REMOVEDIR);
}

}  // namespace

TEST(MioPaths, SplittingAndExistence) {
    char path[] = "/data/log/a.txt";
    char bare[] = "a.txt";
    char out[64] = "untouched";
    EXPECT_TRUE(mio_getdirname(path, out));
    EXPECT_STREQ(out, "/data/log/");
    EXPECT_TRUE(mio_getdirname(bare, out));
    EXPECT_STREQ(out, "a.txt");
    EXPECT_TRUE(mio_getfilename(path, out));
    EXPECT_STREQ(out, "a.txt");
    snprintf(out, sizeof(out), "%s", "untouched");
    EXPECT_FALSE(mio_getfilename(bare, out));
    EXPECT_STREQ(out, "untouched");

    sdk::test::TempDir dir;
    std::string file = dir.path() + "/f";
    make_file(file, 5000);
    std::string link = dir.path() + "/l";
    ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
    std::string dangling = dir.path() + "/d";
    ASSERT_EQ(symlink("/nonexistent/target", dangling.c_str()), 0);
    EXPECT_TRUE(mio_fileexist(file.c_str()));
    EXPECT_TRUE(mio_fileexist(dangling.c_str()));
    EXPECT_FALSE(mio_fileexist((dir.path() + "/none").c_str()));
    EXPECT_TRUE(mio_directoryexist(dir.path().c_str()));
    EXPECT_FALSE(mio_directoryexist(file.c_str()));
    EXPECT_EQ(mio_getfilesize(link.c_str()), 5000);
    EXPECT_EQ(mio_getfilesize(dangling.c_str()), -1);
    EXPECT_FALSE(mio_fileexist(nullptr));
    EXPECT_FALSE(mio_directoryexist(nullptr));
}

TEST(MioPaths, FreeNumberedNames) {
    sdk::test::TempDir dir;
    std::string front = dir.path() + "/rec";
    char ext[] = ".bin";
    char name[MIO_NAME_MAX] = "untouched";
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext, name), 0);
    EXPECT_EQ(std::string(name), front + "0.bin");
    make_file(front + "0.bin", 1);
    mio_createdirectory((front + "1.bin").data());
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext, name), 2);
    EXPECT_EQ(std::string(name), front + "2.bin");

    // The directory variant takes a name that is a file, not one that is a directory.
    char none[] = "";
    mio_createdirectory((front + "0").data());
    make_file(front + "1", 1);
    EXPECT_EQ(mio_getunuseddirname(front.data(), none, name), 1);

    for (int i = 0; i < 1000; ++i)
        make_file(front + std::to_string(i) + ".bin", 0);
    snprintf(name, sizeof(name), "%s", "untouched");
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext, name), -1);
    EXPECT_STREQ(name, "untouched");

    // A name that does not fit the output is refused, not cut.
    std::string long_front = dir.path() + "/" + std::string(300, 'n');
    CaptureStdout();
    EXPECT_EQ(mio_getunusedfilename(long_front.data(), ext, name), -1);
    EXPECT_EQ(mio_getunuseddirname(long_front.data(), ext, name), -1);
    EXPECT_EQ(mio_getunusedfilename(nullptr, ext, name), -1);
    EXPECT_NE(GetCapturedStdout().find("NULL"), std::string::npos);
    EXPECT_STREQ(name, "untouched");
}

TEST(MioPaths, ScanFilters) {
    dirent e = {};
    e.d_type = DT_DIR;
    for (const char *n : {".", ".."}) {
        snprintf(e.d_name, sizeof(e.d_name), "%s", n);
        EXPECT_EQ(dirfilter(&e), 0) << n;
        EXPECT_EQ(filefilter(&e), 0) << n;
    }
    snprintf(e.d_name, sizeof(e.d_name), "%s", "..hidden");
    EXPECT_EQ(dirfilter(&e), 1);
    EXPECT_EQ(filefilter(&e), 0);
    e.d_type = DT_REG;
    EXPECT_EQ(dirfilter(&e), 0);
    EXPECT_EQ(filefilter(&e), 1);
    e.d_type = DT_LNK;
    EXPECT_EQ(filefilter(&e), 1);

    sdk::test::TempDir dir;
    mio_createdirectory((dir.path() + "/sub").data());
    make_file(dir.path() + "/file", 1);
    dirent **list = nullptr;
    int n = scandir(dir.path().c_str(), &list, dirfilter, alphasort);
    ASSERT_EQ(n, 1);
    EXPECT_STREQ(list[0]->d_name, "sub");
    disposecharptr(list[0]);
    disposecharptr(list);
    disposecharptr(nullptr);
}

TEST(MioTree, CreateDeleteAndMove) {
    sdk::test::TempDir dir;
    std::string nested = dir.path() + "/a/b/c";
    EXPECT_TRUE(mio_createdirectory(nested.data()));
    EXPECT_TRUE(mio_directoryexist(nested.c_str()));
    EXPECT_TRUE(mio_createdirectory(nested.data()));  // exists already
    std::string single = dir.path() + "/single";
    EXPECT_TRUE(mio_createdirectory(single.data()));
    struct stat st;
    ASSERT_EQ(stat(single.c_str(), &st), 0);
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0766u & ~mask);
    EXPECT_FALSE(mio_createdirectory(nullptr));

    make_file(nested + "/f", 10);
    std::string outside = dir.path() + "/outside";
    make_file(outside, 3);
    std::string outside_dir = dir.path() + "/outside_dir";
    mio_createdirectory(outside_dir.data());
    make_file(outside_dir + "/kept", 2);
    // Links (to a directory, to a file, dangling) and a pipe inside the tree go with it;
    // what the links point to stays.
    std::string a = dir.path() + "/a";
    ASSERT_EQ(symlink(outside_dir.c_str(), (a + "/b/dirlink").c_str()), 0);
    ASSERT_EQ(symlink(outside.c_str(), (a + "/b/link").c_str()), 0);
    ASSERT_EQ(symlink("/nonexistent", (nested + "/dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((a + "/fifo").c_str(), 0600), 0);
    EXPECT_TRUE(mio_deletedirectory(a.data()));
    EXPECT_FALSE(mio_fileexist(a.c_str()));
    EXPECT_EQ(content(outside), "xxx");
    EXPECT_EQ(content(outside_dir + "/kept"), "xx");
    // A link named by the caller is not followed and stays.
    std::string top_link = dir.path() + "/top_link";
    ASSERT_EQ(symlink(outside_dir.c_str(), top_link.c_str()), 0);
    EXPECT_TRUE(mio_deletedirectory(top_link.data()));
    EXPECT_TRUE(mio_fileexist(top_link.c_str()));
    EXPECT_EQ(content(outside_dir + "/kept"), "xx");
    EXPECT_TRUE(mio_deletedirectory(a.data()));  // nothing to delete
    EXPECT_TRUE(mio_deletedirectory(outside.data()));
    EXPECT_FALSE(mio_fileexist(outside.c_str()));
    if (geteuid() != 0) {
        std::string closed = dir.path() + "/closed";
        mio_createdirectory(closed.data());
        chmod(closed.c_str(), 0);
        EXPECT_FALSE(mio_deletedirectory(closed.data()));
        chmod(closed.c_str(), 0700);
    }

    std::string f = dir.path() + "/m";
    make_file(f, 4);
    EXPECT_TRUE(mio_deletefile(f.data()));
    EXPECT_FALSE(mio_deletefile(f.data()));

    // A move into an existing directory, and a rename.
    make_file(f, 4);
    std::string to = dir.path() + "/single";
    CaptureStdout();
    mio_movedirectory(f.data(), to.data());
    std::string moved = dir.path() + "/renamed";
    mio_movedirectory(to.data(), moved.data());
    std::string out = GetCapturedStdout();
    EXPECT_EQ(content(moved + "/m"), "xxxx");
    EXPECT_FALSE(mio_fileexist(to.c_str()));
    EXPECT_NE(out.find("MIO_SDFILE MIO_MoveDirectory command = mv -f -- '" + f + "' '" + to + "' "),
              std::string::npos);
}

TEST(MioTree, ClearDirectory) {
    sdk::test::TempDir dir;
    std::string d = dir.path() + "/d/";
    mio_createdirectory(d.data());
    make_file(d + "a", 1);
    make_file(d + ".hidden", 1);
    mio_createdirectory((d + "sub/deeper").data());
    make_file(d + "sub/deeper/f", 1);
    ASSERT_EQ(symlink(dir.path().c_str(), (d + "up").c_str()), 0);
    make_file(dir.path() + "/keep", 1);

    CaptureStdout();
    mio_cleardirectory(d.data());
    EXPECT_EQ(GetCapturedStdout(), "\n MIO_ClearDirectory  [" + d + "] \n");
    EXPECT_TRUE(mio_directoryexist(d.c_str()));
    EXPECT_FALSE(mio_fileexist((d + "a").c_str()));
    EXPECT_FALSE(mio_fileexist((d + "sub").c_str()));
    EXPECT_FALSE(mio_fileexist((d + "up").c_str()));
    EXPECT_TRUE(mio_fileexist((d + ".hidden").c_str()));         // as with the shell's "*"
    EXPECT_TRUE(mio_fileexist((dir.path() + "/keep").c_str()));  // the link was not followed

    // Without a trailing slash the path is a name prefix.
    make_file(d + "log1", 1);
    make_file(d + "log2", 1);
    make_file(d + "other", 1);
    std::string prefix = d + "log";
    CaptureStdout();
    mio_cleardirectory(prefix.data());
    GetCapturedStdout();
    EXPECT_FALSE(mio_fileexist((d + "log1").c_str()));
    EXPECT_FALSE(mio_fileexist((d + "log2").c_str()));
    EXPECT_TRUE(mio_fileexist((d + "other").c_str()));

    const std::string newlines(11, '\n');
    std::string root_alias = dir.path() + "/../../../../../../../";
    for (std::string root : {"", "/", "/*", "\\*", "*", "//", root_alias.c_str()}) {
        SCOPED_TRACE(root);
        CaptureStdout();
        mio_cleardirectory(root.data());
        std::string expected = "\n MIO_ClearDirectory  [" + root + "] \n";
        expected += newlines;
        expected += "Can not delete root directory   dir=" + root + "  !!!";
        expected += newlines;
        EXPECT_EQ(GetCapturedStdout(), expected);
    }
    mio_cleardirectory(nullptr);
}

TEST(MioTree, CopyFiles) {
    sdk::test::TempDir dir;
    for (size_t size : {size_t{0}, size_t{4096}, size_t{5000}}) {
        std::string src = dir.path() + "/src" + std::to_string(size);
        std::string data = pattern(size);
        std::ofstream(src, std::ios::binary) << data;
        std::string dst = dir.path() + "/new/dir/copy" + std::to_string(size);
        EXPECT_TRUE(mio_copyfile(src.data(), dst.data()));
        EXPECT_EQ(content(dst), data) << size;
    }
    std::string src = dir.path() + "/src5000";
    EXPECT_TRUE(mio_copyfile(src.data(), src.data()));  // onto itself: nothing lost
    EXPECT_EQ(content(src), pattern(5000));

    std::string missing = dir.path() + "/missing";
    std::string dst = dir.path() + "/x";
    EXPECT_FALSE(mio_copyfile(missing.data(), dst.data()));
    std::string onto_dir = dir.path() + "/new";
    EXPECT_FALSE(mio_copyfile(src.data(), onto_dir.data()));

    // A destination without "/" is a file of the working directory, not a directory.
    in_directory(dir.path(), [&] {
        char bare[] = "bare.txt";
        EXPECT_TRUE(mio_copyfile(src.data(), bare));
        EXPECT_EQ(content(dir.path() + "/bare.txt"), pattern(5000));
    });
}

TEST(MioTree, CopyDirectoryTrees) {
    sdk::test::TempDir dir;
    std::string src = dir.path() + "/src";
    mio_createdirectory((src + "/sub/deeper").data());
    make_file(src + "/top", 3, 't');
    make_file(src + "/sub/deeper/leaf", 5000, 'l');
    ASSERT_EQ(symlink("/etc", (src + "/link").c_str()), 0);
    std::string dst = dir.path() + "/dst";
    mio_createdirectory(dst.data());
    make_file(dst + "/stale", 1);

    EXPECT_TRUE(mio_copydirectory(src.data(), dst.data()));
    EXPECT_EQ(content(dst + "/top"), "ttt");
    EXPECT_EQ(content(dst + "/sub/deeper/leaf"), std::string(5000, 'l'));
    EXPECT_FALSE(mio_fileexist((dst + "/link").c_str()));
    EXPECT_FALSE(mio_fileexist((dst + "/stale").c_str()));

    std::string file = src + "/top";
    std::string other = dir.path() + "/other";
    EXPECT_FALSE(mio_copydirectory(file.data(), other.data()));
    EXPECT_FALSE(mio_fileexist(other.c_str()));
    // Onto itself, into itself, onto an ancestor: refused, the source intact.
    std::string inside = src + "/sub/copy";
    CaptureStdout();
    EXPECT_FALSE(mio_copydirectory(src.data(), src.data()));
    EXPECT_FALSE(mio_copydirectory(src.data(), inside.data()));
    std::string sub = src + "/sub";
    EXPECT_FALSE(mio_copydirectory(sub.data(), src.data()));
    GetCapturedStdout();
    EXPECT_EQ(content(src + "/sub/deeper/leaf"), std::string(5000, 'l'));
}

// No character of a path reaches a shell: names that a shell would run stay names.
TEST(MioTree, PathsNeverRunCommands) {
    sdk::test::TempDir dir;
    in_directory(dir.path(), [&] {
        for (const char *name : kHostileNames) {
            SCOPED_TRACE(name);
            std::string base = dir.path() + "/" + name;
            std::string d = base + "/inner " + name;
            CaptureStdout();
            EXPECT_TRUE(mio_createdirectory(d.data()));
            EXPECT_TRUE(mio_directoryexist(d.c_str()));
            make_file(d + "/f", 2);
            std::string copy = dir.path() + "/copy of " + name;
            EXPECT_TRUE(mio_copydirectory(base.data(), copy.data()));
            EXPECT_EQ(content(copy + "/inner " + name + "/f"), "xx");
            std::string moved = dir.path() + "/moved " + name;
            mio_movedirectory(copy.data(), moved.data());
            EXPECT_EQ(content(moved + "/inner " + name + "/f"), "xx");
            std::string clear = moved + "/";
            mio_cleardirectory(clear.data());
            EXPECT_TRUE(mio_directoryexist(moved.c_str()));
            EXPECT_FALSE(mio_fileexist((moved + "/inner " + name).c_str()));
            EXPECT_TRUE(mio_deletedirectory(moved.data()));
            EXPECT_TRUE(mio_deletedirectory(base.data()));
            // A relative path that begins with "-" is no option of mv either.
            make_file(dir.path() + "/" + name + ".f", 1);
            std::string rel_src = std::string(name) + ".f";
            std::string rel_dst = std::string(name) + ".g";
            mio_movedirectory(rel_src.data(), rel_dst.data());
            GetCapturedStdout();
            EXPECT_TRUE(mio_fileexist(rel_dst.c_str()));
        }
    });
    EXPECT_FALSE(any_pwned(dir.path()));
}

// Paths longer than the buffers are refused, with nothing overrun or touched.
TEST(MioTree, OverlongPathsAreRefused) {
    sdk::test::TempDir dir;
    std::string huge = dir.path() + "/" + std::string(5000, 'h');
    std::string ok = dir.path() + "/ok";
    make_file(ok, 1);
    CaptureStdout();
    EXPECT_FALSE(mio_createdirectory(huge.data()));
    EXPECT_FALSE(mio_deletedirectory(huge.data()));
    EXPECT_FALSE(mio_copyfile(ok.data(), huge.data()));
    EXPECT_FALSE(mio_copyfile(huge.data(), ok.data()));
    EXPECT_FALSE(mio_copydirectory(huge.data(), ok.data()));
    mio_cleardirectory(huge.data());
    mio_movedirectory(ok.data(), huge.data());
    std::string out = GetCapturedStdout();
    EXPECT_NE(out.find("path longer than 4095 bytes refused"), std::string::npos);
    EXPECT_EQ(content(ok), "x");

    // A tree deeper than the path buffer: deletion and copy stop at the limit.
    std::string top = dir.path() + "/deep";
    mio_createdirectory(top.data());
    int fd = open(top.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    const std::string component(200, 'c');
    for (int i = 0; i < 25; ++i) {
        ASSERT_EQ(mkdirat(fd, component.c_str(), 0755), 0);
        int next = openat(fd, component.c_str(), O_RDONLY | O_DIRECTORY);
        close(fd);
        fd = next;
        ASSERT_GE(fd, 0);
    }
    close(fd);
    std::string copy = dir.path() + "/deepcopy";
    CaptureStdout();
    EXPECT_FALSE(mio_copydirectory(top.data(), copy.data()));
    EXPECT_FALSE(mio_deletedirectory(top.data()));
    out = GetCapturedStdout();
    EXPECT_NE(out.find("path longer than 4095 bytes refused"), std::string::npos);
    EXPECT_TRUE(mio_directoryexist(top.c_str()));
    int base = open(dir.path().c_str(), O_RDONLY | O_DIRECTORY);
    remove_deep(base, "deep");
    remove_deep(base, "deepcopy");
    close(base);
}
