// Positioned record, byte and integer I/O of the file utilities.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "mio_sdfile.h"
#include "support/log_capture.h"

namespace {

struct Record {
    int32_t id;
    char name[12];
};

// What another reader of the file sees now (not through the stream's buffer).
std::string on_disk(const std::string &path) {
    int fd = open(path.c_str(), O_RDONLY);
    std::string out;
    char buf[256];
    ssize_t n;
    while (fd >= 0 && (n = read(fd, buf, sizeof(buf))) > 0)
        out.append(buf, static_cast<size_t>(n));
    if (fd >= 0) close(fd);
    return out;
}

}  // namespace

TEST(MioStream, PositionedRecordsBytesAndInts) {
    sdk::test::TempDir dir;
    std::string path = dir.path() + "/rec.bin";
    FILE *fp = mio_openwritefile(path.data());
    ASSERT_NE(fp, nullptr);
    Record a = {7, "seven"};
    EXPECT_TRUE(mio_writestructtosd(fp, 16, sizeof(a), &a));
    char text[] = "abc";
    EXPECT_TRUE(mio_writechartosd(fp, 4, 3, text));
    int number = -123456;
    EXPECT_TRUE(mio_writeinttosd(fp, 0, &number));
    EXPECT_FALSE(mio_writechartosd(fp, 0, 0, text));
    mio_closefile(fp);
    EXPECT_EQ(mio_getfilesize(path.c_str()), static_cast<int64_t>(16 + sizeof(Record)));

    fp = mio_openreadfile(path.data());
    ASSERT_NE(fp, nullptr);
    Record b = {};
    EXPECT_EQ(mio_readstructfromsd(fp, 16, sizeof(b), &b), 1);
    EXPECT_EQ(b.id, 7);
    EXPECT_STREQ(b.name, "seven");
    int back = 0;
    EXPECT_EQ(mio_readintfromsd(fp, 0, &back), 1);
    EXPECT_EQ(back, -123456);
    char chars[8] = {};
    EXPECT_EQ(mio_readcharfromsd(fp, 4, 3, chars), 3);
    EXPECT_STREQ(chars, "abc");
    // Past the end: no whole item, a short byte count.
    EXPECT_EQ(mio_readstructfromsd(fp, 20, sizeof(b), &b), 0);
    EXPECT_EQ(mio_readcharfromsd(fp, 16 + sizeof(Record) - 2, 8, chars), 2);
    // A read-only stream takes no write.
    EXPECT_FALSE(mio_writeinttosd(fp, 0, &number));
    mio_closefile(fp);

    // Appending keeps what is there.
    fp = mio_openwritefile_add(path.data());
    ASSERT_NE(fp, nullptr);
    EXPECT_TRUE(mio_writechartosd(fp, 0, 3, text));
    mio_closefile(fp);
    EXPECT_EQ(mio_getfilesize(path.c_str()), static_cast<int64_t>(16 + sizeof(Record) + 3));

    std::string missing = dir.path() + "/none/x";
    EXPECT_EQ(mio_openreadfile(missing.data()), nullptr);
    EXPECT_EQ(mio_openwritefile(missing.data()), nullptr);
}

TEST(MioStream, NullStreamsAndBuffers) {
    int n = 0;
    char c[4] = {};
    EXPECT_FALSE(mio_writestructtosd(nullptr, 0, 4, &n));
    EXPECT_FALSE(mio_writestructtosd_sync(nullptr, 0, 4, &n));
    EXPECT_EQ(mio_readstructfromsd(nullptr, 0, 4, &n), -1);
    EXPECT_FALSE(mio_writechartosd(nullptr, 0, 4, c));
    EXPECT_EQ(mio_readcharfromsd(nullptr, 0, 4, c), -1);
    EXPECT_FALSE(mio_writeinttosd(nullptr, 0, &n));
    EXPECT_EQ(mio_readintfromsd(nullptr, 0, &n), -1);
    mio_closefile(nullptr);

    sdk::test::TempDir dir;
    std::string path = dir.path() + "/f";
    FILE *fp = mio_openwritefile(path.data());
    ASSERT_NE(fp, nullptr);
    EXPECT_FALSE(mio_writestructtosd(fp, 0, 4, nullptr));
    EXPECT_FALSE(mio_writechartosd(fp, 0, -1, c));
    EXPECT_EQ(mio_readcharfromsd(fp, 0, 4, nullptr), -1);
    mio_closefile(fp);
}

// The sync variant leaves nothing in the stream's buffer; the plain one may.
TEST(MioStream, SyncWriteFlushesAfterASuccessfulWrite) {
    sdk::test::TempDir dir;
    std::string path = dir.path() + "/sync.bin";
    FILE *fp = mio_openwritefile(path.data());
    ASSERT_NE(fp, nullptr);
    Record a = {1, "one"};
    EXPECT_TRUE(mio_writestructtosd(fp, 0, sizeof(a), &a));
    EXPECT_EQ(on_disk(path).size(), 0u);  // still buffered
    Record b = {2, "two"};
    EXPECT_TRUE(mio_writestructtosd_sync(fp, sizeof(a), sizeof(b), &b));
    std::string seen = on_disk(path);
    ASSERT_EQ(seen.size(), 2 * sizeof(Record));
    EXPECT_EQ(memcmp(seen.data() + sizeof(a), &b, sizeof(b)), 0);
    mio_closefile(fp);

    fp = mio_openreadfile(path.data());
    ASSERT_NE(fp, nullptr);
    EXPECT_FALSE(mio_writestructtosd_sync(fp, 0, sizeof(a), &a));
    mio_closefile(fp);
}
