// The file utilities: positioned record I/O, paths and free names, directory creation,
// clearing, deletion, moving and copying, and overlong paths.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "mio_sdfile.h"
#include "support/log_capture.h"

namespace {

using namespace testing::internal;

class Mio : public ::testing::Test {
  protected:
    std::string at(const std::string &name) const { return dir_.path() + "/" + name; }
    // Writes a file, making its folders.
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
    char rec[16] = "seven", text[] = "abc", buf[16] = {};
    int number = -123456, back = 0;
    FILE *fp = mio_openwritefile(path.data());
    EXPECT_TRUE(mio_writestructtosd(fp, 16, sizeof(rec), rec));
    EXPECT_EQ(read("rec.bin"), "");  // still buffered
    EXPECT_TRUE(mio_writechartosd(fp, 4, 3, text) && mio_writeinttosd(fp, 0, &number));
    EXPECT_FALSE(mio_writechartosd(fp, 0, 0, text) || mio_writechartosd(fp, 0, -1, text) ||
                 mio_writestructtosd(fp, 0, 4, nullptr));
    EXPECT_TRUE(mio_writestructtosd_sync(fp, 32, 4, text));  // flushed and synced
    std::string int_bytes(reinterpret_cast<char *>(&number), 4), zeros(9, '\0');
    EXPECT_EQ(read("rec.bin"), int_bytes + "abc" + zeros + std::string(rec, 16) + "abc" + '\0');
    mio_closefile(fp);
    fp = mio_openreadfile(path.data());
    EXPECT_EQ(mio_readstructfromsd(fp, 16, sizeof(buf), buf), 1);
    EXPECT_EQ(mio_readintfromsd(fp, 0, &back), 1);
    EXPECT_EQ(std::string(buf) + std::to_string(back), "seven-123456");
    EXPECT_EQ(mio_readcharfromsd(fp, 4, 3, buf), 3);
    EXPECT_EQ(std::string(buf, 3), "abc");
    EXPECT_EQ(mio_readstructfromsd(fp, 30, sizeof(buf), buf), 0);  // past the end
    EXPECT_EQ(mio_readcharfromsd(fp, 34, 8, buf), 2);
    EXPECT_EQ(mio_readcharfromsd(fp, 0, 4, nullptr), -1);
    EXPECT_FALSE(mio_writeinttosd(fp, 0, &number) || mio_writestructtosd_sync(fp, 0, 4, text));
    mio_closefile(fp);
    fp = mio_openwritefile_add(path.data());
    EXPECT_TRUE(mio_writechartosd(fp, 0, 3, text));
    mio_closefile(fp);
    EXPECT_EQ(mio_getfilesize(path.c_str()), 39);  // appended
    EXPECT_FALSE(mio_openreadfile(at("no/x").data()) || mio_openwritefile(at("no/x").data()));
    EXPECT_FALSE(mio_writestructtosd(nullptr, 0, 4, &number) ||
                 mio_writestructtosd_sync(nullptr, 0, 4, &number) ||
                 mio_writechartosd(nullptr, 0, 4, text) || mio_writeinttosd(nullptr, 0, &number));
    EXPECT_EQ(mio_readstructfromsd(nullptr, 0, 4, &number) + mio_readintfromsd(nullptr, 0, &back) +
                  mio_readcharfromsd(nullptr, 0, 4, text),
              -3);
    mio_closefile(nullptr);
}

TEST_F(Mio, PathsAndNames) {
    for (auto [path, parts] : std::vector<std::pair<std::string, std::string>>{
             {"/data/log/a.txt", "/data/log/ a.txt"}, {"a.txt", "a.txt -"}, {"d/", "d/ "}}) {
        char dir[64], file[64] = "-";
        EXPECT_TRUE(mio_getdirname(path.data(), dir));
        EXPECT_EQ(mio_getfilename(path.data(), file), parts.back() != '-');
        EXPECT_EQ(std::string(dir) + " " + file, parts);
    }
    make("f", std::string(5000, 'x'));
    symlink(at("f").c_str(), at("link").c_str());
    symlink("/nonexistent", at("dangling").c_str());
    for (auto [name, size] :
         std::map<std::string, int>{{"f", 5000}, {"link", 5000}, {"dangling", -1}, {"none", -2}}) {
        EXPECT_EQ(mio_fileexist(at(name).c_str()), size != -2) << name;
        EXPECT_EQ(mio_getfilesize(at(name).c_str()), std::max(size, -1)) << name;
    }
    EXPECT_TRUE(mio_directoryexist(dir_.path().c_str()) && !mio_directoryexist(at("f").c_str()));
    EXPECT_FALSE(mio_fileexist(nullptr) || mio_directoryexist(nullptr));

    // Free numbered names: the file variant wants no path, the directory one no directory.
    std::string front = at("rec"), ext = ".bin", big_front = at(std::string(300, 'n'));
    char name[MIO_NAME_MAX] = "untouched";
    mio_createdirectory(at("rec1.bin").data());
    for (int i = 0; i < 999; ++i)
        if (i != 1) make("rec" + std::to_string(i) + ".bin", "");
    EXPECT_EQ(mio_getunuseddirname(front.data(), ext.data(), name), 0);
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext.c_str(), name), 999);
    EXPECT_EQ(name, front + "999.bin");
    make("rec999.bin", "");
    strcpy(name, "untouched");
    CaptureStdout();
    EXPECT_EQ(mio_getunusedfilename(front.data(), ext.c_str(), name), -1);
    EXPECT_EQ(mio_getunusedfilename(big_front.data(), ext.c_str(), name), -1);  // not cut
    EXPECT_EQ(mio_getunuseddirname(big_front.data(), ext.data(), name), -1);
    EXPECT_EQ(mio_getunusedfilename(nullptr, ext.c_str(), name), -1);
    EXPECT_NE(GetCapturedStdout().find("NULL"), std::string::npos);
    EXPECT_STREQ(name, "untouched");
}

TEST_F(Mio, CreateDeleteMoveAndClear) {
    EXPECT_TRUE(mio_createdirectory(at("a").data()) && mio_createdirectory(at("a/b/c").data()));
    EXPECT_TRUE(mio_createdirectory(at("a/b/c").data()));  // there already
    struct stat st;
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_TRUE(stat(at("a").c_str(), &st) == 0 && (st.st_mode & 0777) == (0766u & ~mask));
    EXPECT_TRUE(mio_directoryexist(at("a/b/c").c_str()));
    EXPECT_FALSE(mio_createdirectory(nullptr));
    // A tree goes with the links (to a folder, a file, nowhere) and the pipe in it; what the
    // links point to stays, and so does a link named by the caller.
    make("a/b/c/f", "1");
    make("outside", "xxx");
    make("out_dir/kept", "xx");
    symlink(at("out_dir").c_str(), at("a/b/dirlink").c_str());
    symlink(at("outside").c_str(), at("a/b/link").c_str());
    symlink("/nonexistent", at("a/b/c/dangling").c_str());
    mkfifo(at("a/fifo").c_str(), 0600);
    symlink(at("out_dir").c_str(), at("top_link").c_str());
    EXPECT_TRUE(mio_deletedirectory(at("a").data()) && mio_deletedirectory(at("top_link").data()));
    EXPECT_EQ(read("outside") + read("out_dir/kept") + read("top_link/kept"), "xxxxxxx");
    EXPECT_TRUE(mio_deletedirectory(at("a").data()) && mio_deletedirectory(at("outside").data()));
    EXPECT_FALSE(exists("a") || exists("outside"));
    std::string m = make("m", "mmmm"), to = at("out_dir"), renamed = at("renamed");
    EXPECT_TRUE(mio_deletefile(m.data()) && !mio_deletefile(m.data()));
    // A move into a folder, then a rename.
    make("m", "mmmm");
    CaptureStdout();
    mio_movedirectory(m.data(), to.data());
    mio_movedirectory(to.data(), renamed.data());
    EXPECT_NE(GetCapturedStdout().find("MIO_MoveDirectory command = mv -f -- '" + m + "' '" + to),
              std::string::npos);
    EXPECT_EQ(read("renamed/m") + read("renamed/kept"), "mmmmxx");
    EXPECT_FALSE(exists("out_dir"));

    // Clearing takes what "<dir>*" would match: not the dot files, not through a link.
    for (const char *file : {"d/a", "d/.hidden", "d/sub/deeper/f", "d/log1", "d/log2", "keep"})
        make(file, "1");
    symlink(dir_.path().c_str(), at("d/up").c_str());
    std::string prefix = at("d/log"), d = at("d/");
    CaptureStdout();
    mio_cleardirectory(prefix.data());
    EXPECT_TRUE(!exists("d/log1") && !exists("d/log2") && exists("d/a"));
    mio_cleardirectory(d.data());
    EXPECT_TRUE(!exists("d/a") && !exists("d/sub") && !exists("d/up"));
    EXPECT_TRUE(exists("d/.hidden") && exists("keep"));
    GetCapturedStdout();
    // The root is refused under any of its names.
    for (std::string root : {"", "/", "/*", "\\*", "*", "//", "/tmp/../../../"}) {
        CaptureStdout();
        mio_cleardirectory(root.data());
        EXPECT_EQ(GetCapturedStdout().find("Can not delete root directory   dir=" + root + "  !!!"),
                  root.size() + 37);
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
    EXPECT_FALSE(mio_copyfile(missing.data(), onto_dir.data()) ||
                 mio_copyfile(src.data(), onto_dir.data()));
    // A destination without "/" is a file of the working directory.
    char old[4096], bare[] = "bare.txt";
    ASSERT_TRUE(getcwd(old, sizeof(old)) && chdir(dir_.path().c_str()) == 0);
    EXPECT_TRUE(mio_copyfile(src.data(), bare));
    ASSERT_EQ(chdir(old), 0);
    EXPECT_EQ(read("bare.txt"), data);

    // Trees: files and folders copied, links skipped, the old destination replaced; a file
    // or overlapping folders refused.
    make("t/top", "ttt");
    make("t/sub/deeper/leaf", data);
    symlink("/etc", at("t/link").c_str());
    make("dst/stale", "1");
    std::string t = at("t"), dst = at("dst"), in = at("t/sub/copy"), sub = at("t/sub");
    EXPECT_TRUE(mio_copydirectory(t.data(), dst.data()));
    EXPECT_EQ(read("dst/top") + read("dst/sub/deeper/leaf"), "ttt" + data);
    EXPECT_FALSE(exists("dst/link") || exists("dst/stale"));
    std::string file = at("t/top"), other = at("other");
    CaptureStdout();
    for (auto [from, to] :
         std::vector<std::pair<std::string, std::string>>{{file, other}, {t, in}, {sub, t}})
        EXPECT_FALSE(mio_copydirectory(from.data(), to.data())) << from << " " << to;
    EXPECT_FALSE(mio_copydirectory(t.data(), t.data()));
    GetCapturedStdout();
    EXPECT_FALSE(exists("other") || exists("t/sub/copy"));
    EXPECT_EQ(read("t/sub/deeper/leaf"), data);
}

// Paths longer than the buffers, also those built while walking a tree deeper than that,
// are refused with nothing overrun or touched.
TEST_F(Mio, OverlongPathsAreRefused) {
    std::string huge = at(std::string(5000, 'h')), ok = make("ok", "x"), deep = at("deep");
    std::string copy = at("deepcopy"), component(200, 'c');
    char old[4096];
    ASSERT_TRUE(getcwd(old, sizeof(old)) && chdir(dir_.path().c_str()) == 0);
    for (int i = 0; i < 25; ++i)  // relative to each parent, as no path reaches that deep
        ASSERT_TRUE(mkdir(i ? component.c_str() : "deep", 0755) == 0 &&
                    chdir(i ? component.c_str() : "deep") == 0);
    CaptureStdout();
    EXPECT_FALSE(mio_createdirectory(huge.data()) || mio_deletedirectory(huge.data()) ||
                 mio_copyfile(ok.data(), huge.data()) || mio_copyfile(huge.data(), ok.data()) ||
                 mio_copydirectory(huge.data(), ok.data()));
    mio_cleardirectory(huge.data());
    mio_movedirectory(ok.data(), huge.data());
    EXPECT_FALSE(mio_copydirectory(deep.data(), copy.data()) || mio_deletedirectory(deep.data()));
    std::string out = GetCapturedStdout();
    EXPECT_NE(out.find("path longer than 4095 bytes refused"), std::string::npos);
    EXPECT_EQ(read("ok"), "x");
    EXPECT_TRUE(mio_directoryexist(deep.c_str()));
    for (int i = 0; i < 25; ++i)  // undone from the bottom up
        ASSERT_TRUE(chdir("..") == 0 && std::filesystem::remove_all(i < 24 ? component : "deep"));
    ASSERT_EQ(chdir(old), 0);
}

}  // namespace
