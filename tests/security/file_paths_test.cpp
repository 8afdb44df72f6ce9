// File utilities given absolute paths that a shell would read as commands: each aimed at
// a canary file outside the working folder. No operation may run anything (the canary
// must not appear), and each must act on the literal name.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "mio_sdfile.h"
#include "support/log_capture.h"

namespace {

TEST(FilePaths, ShellMetacharactersRunNothing) {
    sdk::test::TempDir dir;
    sdk::test::TempDir canary_dir;
    const std::string canary = canary_dir.path() + "/pwned";
    const std::string touch = "touch " + canary;
    const std::vector<std::string> names = {
        "a; " + touch,        "$(" + touch + ")",      "`" + touch + "`",
        "'; " + touch + " '", "\"; " + touch + "; \"", "x\n" + touch,
        "x | " + touch,       "x && " + touch + " #",  "-rf; " + touch,
    };
    testing::internal::CaptureStdout();
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        // A name may hold "/" (the canary's path): each part becomes a directory.
        std::string base = dir.path() + "/" + name;
        std::string sub = base + "/sub";
        EXPECT_TRUE(mio_createdirectory(sub.data()));
        EXPECT_TRUE(mio_directoryexist(sub.c_str()));
        std::string file = sub + "/f";
        std::ofstream(file) << "data";
        std::string copy = base + " copy";
        EXPECT_TRUE(mio_copyfile(file.data(), copy.data()));
        EXPECT_EQ(mio_getfilesize(copy.c_str()), 4);
        std::string tree = dir.path() + "/tree " + std::to_string(&name - names.data());
        EXPECT_TRUE(mio_copydirectory(base.data(), tree.data()));
        std::string moved = tree + " moved";
        mio_movedirectory(tree.data(), moved.data());
        EXPECT_TRUE(mio_fileexist((moved + "/sub/f").c_str()));
        std::string clear = base + "/";
        mio_cleardirectory(clear.data());
        EXPECT_FALSE(mio_fileexist(sub.c_str()));
        char out[MIO_NAME_MAX];
        std::string front = base + "/n";
        EXPECT_EQ(mio_getunusedfilename(front.data(), ".bin", out), 0);
        EXPECT_EQ(mio_getunuseddirname(front.data(), const_cast<char *>(";x"), out), 0);
        EXPECT_TRUE(mio_deletedirectory(moved.data()));
        EXPECT_TRUE(mio_deletedirectory(base.data()));
        EXPECT_TRUE(mio_deletefile(copy.data()));
        EXPECT_FALSE(mio_fileexist(base.c_str()));
    }
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(mio_fileexist(canary.c_str())) << "a path was run as a command";
    EXPECT_EQ(access("pwned", F_OK), -1);
}

}  // namespace
