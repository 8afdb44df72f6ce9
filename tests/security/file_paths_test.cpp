// The file utilities given paths that a shell would read as commands, each aimed at a
// canary file outside the working folder: every operation acts on the literal name and
// runs nothing (the canary never appears).
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "mio_sdfile.h"
#include "support/log_capture.h"

TEST(FilePaths, ShellMetacharactersRunNothing) {
    sdk::test::TempDir dir, canary_dir;
    const std::string canary = canary_dir.path() + "/pwned", touch = "touch " + canary;
    char old[4096];
    ASSERT_TRUE(getcwd(old, sizeof(old)) && chdir(dir.path().c_str()) == 0);
    testing::internal::CaptureStdout();
    int n = 0;
    for (const std::string &name : std::vector<std::string>{
             "a; " + touch, "$(" + touch + ")", "`" + touch + "`", "'; " + touch + " '", "a b",
             "\"; " + touch + "; \"", "x\n" + touch, "x | " + touch, "x && " + touch + " #",
             "-rf; " + touch, "q'uo\"te", "-rf"}) {
        SCOPED_TRACE(name);
        // A name may hold "/" (the canary's path): each part becomes a folder.
        std::string base = dir.path() + "/" + name, sub = base + "/sub", file = sub + "/f";
        std::string copy = base + " copy", tree = dir.path() + "/tree " + std::to_string(++n);
        std::string moved = tree + " moved", clear = base + "/", front = base + "/n";
        EXPECT_TRUE(mio_createdirectory(sub.data()) && mio_directoryexist(sub.c_str()));
        dir.write(name + "/sub/f", "data");
        EXPECT_TRUE(mio_copyfile(file.data(), copy.data()));
        EXPECT_EQ(mio_getfilesize(copy.c_str()), 4);
        EXPECT_TRUE(mio_copydirectory(base.data(), tree.data()));
        mio_movedirectory(tree.data(), moved.data());
        EXPECT_TRUE(mio_fileexist((moved + "/sub/f").c_str()));
        mio_cleardirectory(clear.data());
        EXPECT_FALSE(mio_fileexist(sub.c_str()));
        char out[MIO_NAME_MAX], ext[] = ";x";
        EXPECT_EQ(mio_getunusedfilename(front.data(), ".bin", out), 0);
        EXPECT_EQ(mio_getunuseddirname(front.data(), ext, out), 0);
        EXPECT_TRUE(mio_deletedirectory(moved.data()) && mio_deletedirectory(base.data()) &&
                    mio_deletefile(copy.data()) && !mio_fileexist(base.c_str()));
        // A relative name beginning with "-" is no option of mv either.
        std::string rel = name.substr(0, name.find('/')) + ".f", rel_to = rel + ".g";
        dir.write(rel, "1");
        mio_movedirectory(rel.data(), rel_to.data());
        EXPECT_TRUE(mio_fileexist(rel_to.c_str()) && !mio_fileexist(rel.c_str()));
    }
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(chdir(old), 0);
    EXPECT_FALSE(mio_fileexist(canary.c_str())) << "a path was run as a command";
}
