// The file utilities: positioned record I/O, path splitting and free names, directory
// creation, clearing, deletion, moving and copying, and overlong paths.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include "mio_sdfile.h"
#include "support/log_capture.h"

namespace {

using namespace testing::internal;

class Mio : public ::testing::Test {
  protected:
    // A path below the test's folder (made with its parents when a file is written).
    std::string at(const std::string &name) const { return dir_.path() + "/" + name; }
    std::string make(const std::string &name, const std::string &text) const {
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        return dir_.write(name, text);
    }
    std::string read(const std::string &name) const {
        std::ifstream in(at(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    bool exists(const std::string &name) const { return mio_fileexist(at(name).c_str()); }
    sdk::test::TempDir dir_;
};

TEST_F(Mio, PositionedRecordsBytesAndInts) {
    std::string path = at("rec.bin");
    FILE *fp = mio_openwritefile(path.data());
    ASSERT_NE(fp, nullptr);
    char rec[16] = "seven", text[] = "abc", buf[16] = {};
    int number = -123456, back = 0;
    EXPECT_TRUE(mio_writestructtosd(fp, 16, sizeof(rec), rec));
    EXPECT_EQ(read("rec.bin").size(), 0u);  // still buffered
    EXPECT_TRUE(mio_writechartosd(fp, 4, 3, text));
    EXPECT_TRUE(mio_writeinttosd(fp, 0, &number));
    EXPECT_FALSE(mio_writechartosd(fp, 0, 0, text));
    EXPECT_TRUE(mio_writestructtosd_sync(fp, 32, 4, text));  // flushed and synced
    EXPECT_EQ(read("rec.bin"), std::string("\xc0\x1d\xfe\xff"
                                           "abc",
                                           7) +
                                   std::string(9, '\0') + std::string(rec, 16) + "abc" +
                                   std::string(1, '\0'));
    mio_closefile(fp);
    fp = mio_openreadfile(path.data());
    EXPECT_EQ(mio_readstructfromsd(fp, 16, sizeof(buf), buf), 1);
    EXPECT_STREQ(buf, "seven");
    EXPECT_EQ(mio_readintfromsd(fp, 0, &back), 1);
    EXPECT_EQ(back, number);
    EXPECT_EQ(mio_readcharfromsd(fp, 4, 3, buf), 3);
    EXPECT_EQ(std::string(buf, 3), "abc");
    EXPECT_EQ(mio_readstructfromsd(fp, 30, sizeof(buf), buf), 0);  // past the end
    EXPECT_EQ(mio_readcharfromsd(fp, 34, 8, buf), 2);
    EXPECT_FALSE(mio_writeinttosd(fp, 0, &number));  // a read-only stream
    EXPECT_FALSE(mio_writestructtosd_sync(fp, 0, 4, text));
    mio_closefile(fp);
    fp = mio_openwritefile_add(path.data());
    EXPECT_TRUE(mio_writechartosd(fp, 0, 3, text));
    EXPECT_FALSE(mio_writestructtosd(fp, 0, 4, nullptr));
    EXPECT_FALSE(mio_writechartosd(fp, 0, -1, text));
    EXPECT_EQ(mio_readcharfromsd(fp, 0, 4, nullptr), -1);
    mio_closefile(fp);
    EXPECT_EQ(mio_getfilesize(path.c_str()), 39);
    EXPECT_EQ(mio_openreadfile(at("none/x").data()), nullptr);
    EXPECT_EQ(mio_openwritefile(at("none/x").data()), nullptr);
    // A null stream.
    EXPECT_FALSE(mio_writestructtosd(nullptr, 0, 4, &number));
    EXPECT_FALSE(mio_writestructtosd_sync(nullptr, 0, 4, &number));
    EXPECT_EQ(mio_readstructfromsd(nullptr, 0, 4, &number), -1);
    EXPECT_FALSE(mio_writechartosd(nullptr, 0, 4, text));
    EXPECT_EQ(mio_readcharfromsd(nullptr, 0, 4, text), -1);
    EXPECT_FALSE(mio_writeinttosd(nullptr, 0, &number));
    EXPECT_EQ(mio_readintfromsd(nullptr, 0, &number), -1);
    mio_closefile(nullptr);
}

TEST_F(Mio, PathsNamesAndFilters) {
    for (auto [path, dir, file] :
         std::vector<std::array<std::string, 3>>{{"/data/log/a.txt", "/data/log/", "a.txt"},
                                                 {"a.txt", "a.txt", "-"},
                                                 {"d/", "d/", ""}}) {
        char out[64] = "-";
        EXPECT_TRUE(mio_getdirname(path.data(), out));
        EXPECT_EQ(out, dir);
        snprintf(out, sizeof(out), "-");
        EXPECT_EQ(mio_getfilename(path.data(), out), file != "-");
        EXPECT_EQ(out, file);
    }
    make("f", std::string(5000, 'x'));
    symlink(at("f").c_str(), at("link").c_str());
    symlink("/nonexistent", at("dangling").c_str());
    for (auto [name, exists, is_dir, size] :
         std::vector<std::tuple<std::string, bool, bool, int>>{{"f", true, false, 5000},
                                                               {"link", true, false, 5000},
                                                               {"dangling", true, false, -1},
                                                               {"none", false, false, -1}}) {
        EXPECT_EQ(mio_fileexist(at(name).c_str()), exists) << name;
        EXPECT_EQ(mio_directoryexist(at(name).c_str()), is_dir) << name;
        EXPECT_EQ(mio_getfilesize(at(name).c_str()), size) << name;
    }
    EXPECT_TRUE(mio_directoryexist(dir_.path().c_str()));
    EXPECT_FALSE(mio_fileexist(nullptr) || mio_directoryexist(nullptr));

    // Free numbered names: the file variant wants no path, the directory one no directory.
    std::string front = at("rec"), ext = ".bin";
    char name[MIO_NAME_MAX] = "untouched";
    make("rec0.bin", "");
    mio_createdirectory(at("rec1.bin").data());
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext.c_str(), name), 2);
    EXPECT_EQ(name, front + "2.bin");
    EXPECT_EQ(mio_getunuseddirname(front.data(), ext.data(), name), 0);
    for (int i = 2; i < 999; ++i)
        make("rec" + std::to_string(i) + ".bin", "");
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext.c_str(), name), 999);
    make("rec999.bin", "");
    strcpy(name, "untouched");
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext.c_str(), name), -1);
    std::string long_front = at(std::string(300, 'n'));  // refused, not cut
    CaptureStdout();
    EXPECT_EQ(mio_getunusedfilename(long_front.data(), ext.c_str(), name), -1);
    EXPECT_EQ(mio_getunuseddirname(long_front.data(), ext.data(), name), -1);
    EXPECT_EQ(mio_getunusedfilename(nullptr, ext.c_str(), name), -1);
    EXPECT_NE(GetCapturedStdout().find("NULL"), std::string::npos);
    EXPECT_STREQ(name, "untouched");

    // Scan filters: directories but "." and ".."; everything that is no directory.
    mio_createdirectory(at("sub").data());
    mio_createdirectory(at("..hidden").data());
    dirent **list = nullptr;
    std::string names;
    for (auto filter : {dirfilter, filefilter}) {
        int n = scandir(dir_.path().c_str(), &list, filter, alphasort);
        for (int i = 0; i < n; ++i) {
            names += std::string(list[i]->d_name) + " ";
            disposecharptr(list[i]);
        }
        disposecharptr(list);
        names += "| ";
    }
    disposecharptr(nullptr);
    EXPECT_EQ(names.substr(0, 36), "..hidden rec1.bin sub | dangling f l");
}

TEST_F(Mio, CreateDeleteMoveAndClear) {
    EXPECT_TRUE(mio_createdirectory(at("a/b/c").data()));
    EXPECT_TRUE(mio_createdirectory(at("a/b/c").data()));  // exists already
    EXPECT_TRUE(mio_directoryexist(at("a/b/c").c_str()));
    EXPECT_TRUE(mio_createdirectory(at("single").data()));
    struct stat st;
    mode_t mask = umask(0);
    umask(mask);
    ASSERT_EQ(stat(at("single").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0766u & ~mask);
    EXPECT_FALSE(mio_createdirectory(nullptr));

    // A tree goes with the links (to a directory, a file, nowhere) and the pipe in it; what
    // the links point to stays, and so does a link named by the caller.
    make("a/b/c/f", "1");
    make("outside", "xxx");
    make("out_dir/kept", "xx");
    symlink(at("out_dir").c_str(), at("a/b/dirlink").c_str());
    symlink(at("outside").c_str(), at("a/b/link").c_str());
    symlink("/nonexistent", at("a/b/c/dangling").c_str());
    mkfifo(at("a/fifo").c_str(), 0600);
    symlink(at("out_dir").c_str(), at("top_link").c_str());
    EXPECT_TRUE(mio_deletedirectory(at("a").data()) && mio_deletedirectory(at("top_link").data()));
    EXPECT_EQ(read("outside") + read("out_dir/kept"), "xxxxx");
    EXPECT_TRUE(exists("top_link") && !exists("a"));
    EXPECT_TRUE(mio_deletedirectory(at("a").data()) && mio_deletedirectory(at("outside").data()));
    EXPECT_FALSE(exists("outside"));
    if (geteuid() != 0) {
        mio_createdirectory(at("closed").data());
        chmod(at("closed").c_str(), 0);
        EXPECT_FALSE(mio_deletedirectory(at("closed").data()));
        chmod(at("closed").c_str(), 0700);
    }
    std::string m = make("m", "mmmm");
    EXPECT_TRUE(mio_deletefile(m.data()));
    EXPECT_FALSE(mio_deletefile(m.data()));

    // A move into a directory, then a rename.
    make("m", "mmmm");
    std::string single = at("single"), renamed = at("renamed");
    CaptureStdout();
    mio_movedirectory(m.data(), single.data());
    mio_movedirectory(single.data(), renamed.data());
    EXPECT_NE(GetCapturedStdout().find("MIO_SDFILE MIO_MoveDirectory command = mv -f -- '" + m +
                                       "' '" + single + "' "),
              std::string::npos);
    EXPECT_EQ(read("renamed/m"), "mmmm");
    EXPECT_FALSE(exists("single"));

    // Clearing takes what "<dir>*" matches: not the dot files, not through a link.
    for (const char *name : {"d/a", "d/.hidden", "d/sub/deeper/f", "d/log1", "d/log2", "keep"})
        make(name, "1");
    symlink(dir_.path().c_str(), at("d/up").c_str());
    std::string prefix = at("d/log"), d = at("d/");
    CaptureStdout();
    mio_cleardirectory(prefix.data());
    EXPECT_TRUE(!exists("d/log1") && !exists("d/log2") && exists("d/a"));
    mio_cleardirectory(d.data());
    EXPECT_EQ(GetCapturedStdout(),
              "\n MIO_ClearDirectory  [" + prefix + "] \n\n MIO_ClearDirectory  [" + d + "] \n");
    EXPECT_TRUE(!exists("d/a") && !exists("d/sub") && !exists("d/up"));
    EXPECT_TRUE(exists("d/.hidden") && exists("keep"));
    // The root, under any of its names, is refused.
    const std::string nl(11, '\n');
    for (std::string root : {"", "/", "/*", "\\*", "*", "//", "/tmp/../../../"}) {
        CaptureStdout();
        mio_cleardirectory(root.data());
        EXPECT_EQ(GetCapturedStdout(), "\n MIO_ClearDirectory  [" + root + "] \n" + nl +
                                           "Can not delete root directory   dir=" + root + "  !!!" +
                                           nl);
    }
    mio_cleardirectory(nullptr);
}

TEST_F(Mio, CopyFilesAndTrees) {
    std::string data(5000, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 7 + i / 251);
    for (size_t size : {size_t{0}, size_t{4096}, size_t{5000}}) {
        std::string src = make("src" + std::to_string(size), data.substr(0, size));
        std::string dst = at("new/dir/copy" + std::to_string(size));
        EXPECT_TRUE(mio_copyfile(src.data(), dst.data()));
        EXPECT_EQ(read("new/dir/copy" + std::to_string(size)), data.substr(0, size));
    }
    std::string src = at("src5000"), missing = at("missing"), onto_dir = at("new");
    EXPECT_TRUE(mio_copyfile(src.data(), src.data()));  // onto itself: nothing lost
    EXPECT_EQ(read("src5000"), data);
    EXPECT_FALSE(mio_copyfile(missing.data(), onto_dir.data()));
    EXPECT_FALSE(mio_copyfile(src.data(), onto_dir.data()));
    // A destination without "/" is a file of the working directory.
    char old[4096], bare[] = "bare.txt";
    ASSERT_EQ(getcwd(old, sizeof(old)), old);
    ASSERT_EQ(chdir(dir_.path().c_str()), 0);
    EXPECT_TRUE(mio_copyfile(src.data(), bare));
    ASSERT_EQ(chdir(old), 0);
    EXPECT_EQ(read("bare.txt"), data);

    // Trees: files and folders copied, links skipped, the old destination replaced.
    make("t/top", "ttt");
    make("t/sub/deeper/leaf", data);
    symlink("/etc", at("t/link").c_str());
    make("dst/stale", "1");
    std::string t = at("t"), dst = at("dst"), inside = at("t/sub/copy"), sub = at("t/sub");
    EXPECT_TRUE(mio_copydirectory(t.data(), dst.data()));
    EXPECT_EQ(read("dst/top") + read("dst/sub/deeper/leaf"), "ttt" + data);
    EXPECT_FALSE(exists("dst/link") || exists("dst/stale"));
    std::string file = at("t/top"), other = at("other");
    CaptureStdout();
    for (auto [from, to] : std::vector<std::pair<std::string, std::string>>{
             {file, other}, {t, t}, {t, inside}, {sub, t}})  // overlapping: refused
        EXPECT_FALSE(mio_copydirectory(from.data(), to.data())) << from << " " << to;
    GetCapturedStdout();
    EXPECT_FALSE(exists("other") || exists("t/sub/copy"));
    EXPECT_EQ(read("t/sub/deeper/leaf"), data);
}

// Paths longer than the buffers are refused, nothing overrun or touched; so are trees
// deeper than the path buffer.
TEST_F(Mio, OverlongPathsAreRefused) {
    std::string huge = at(std::string(5000, 'h')), ok = make("ok", "x");
    char old[4096];
    ASSERT_EQ(getcwd(old, sizeof(old)), old);
    CaptureStdout();
    EXPECT_FALSE(mio_createdirectory(huge.data()));
    EXPECT_FALSE(mio_deletedirectory(huge.data()));
    EXPECT_FALSE(mio_copyfile(ok.data(), huge.data()));
    EXPECT_FALSE(mio_copyfile(huge.data(), ok.data()));
    EXPECT_FALSE(mio_copydirectory(huge.data(), ok.data()));
    mio_cleardirectory(huge.data());
    mio_movedirectory(ok.data(), huge.data());
    EXPECT_NE(GetCapturedStdout().find("path longer than 4095 bytes refused"), std::string::npos);
    EXPECT_EQ(read("ok"), "x");
    std::string deep = at("deep"), component(200, 'c');
    mio_createdirectory(deep.data());
    int fd = open(deep.c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < 25; ++i) {
        ASSERT_EQ(mkdirat(fd, component.c_str(), 0755), 0);
        int next = openat(fd, component.c_str(), O_RDONLY | O_DIRECTORY);
        close(fd);
        fd = next;
    }
    close(fd);
    std::string copy = at("deepcopy");
    CaptureStdout();
    EXPECT_FALSE(mio_copydirectory(deep.data(), copy.data()));
    EXPECT_FALSE(mio_deletedirectory(deep.data()));
    EXPECT_NE(GetCapturedStdout().find("path longer than 4095 bytes refused"), std::string::npos);
    EXPECT_TRUE(mio_directoryexist(deep.c_str()));
    // Undo from the bottom up, relative to each parent, as no path reaches that deep.
    ASSERT_EQ(chdir(deep.c_str()), 0);
    for (int i = 0; i < 25; ++i)
        ASSERT_EQ(chdir(component.c_str()), 0);
    for (int i = 0; i < 25; ++i) {
        ASSERT_EQ(chdir(".."), 0);
        std::filesystem::remove_all(component);
    }
    ASSERT_EQ(chdir(old), 0);
}

}  // namespace
