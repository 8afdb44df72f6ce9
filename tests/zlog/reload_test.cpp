// zlog_reload: switching configurations, keeping the old one on failure, and reloading
// while other threads log.
#include <atomic>
#include <thread>

#include "zlog_fixture.h"

namespace {

using zlog_test::ZlogTest;

class ReloadTest : public ZlogTest {};

TEST_F(ReloadTest, SwitchesCategories) {
    init("[formats]\nf = \"%c %m%n\"\n[rules]\nsdk.INFO \"@DIR@/sdk.log\"; f\n");
    zlog_category_t *sdk = zlog_get_category("sdk");
    ASSERT_NE(sdk, nullptr);
    EXPECT_EQ(zlog_get_category("picture"), nullptr);
    zlog_info(sdk, "before");

    std::string big = config(
        "[formats]\nf = \"%c %m%n\"\n[rules]\npicture.INFO \"@DIR@/pic.log\"; f\n", "big.conf");
    ASSERT_EQ(zlog_reload(big.c_str()), 0);
    zlog_category_t *picture = zlog_get_category("picture");
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(zlog_get_category("sdk"), nullptr);
    // The old category object stays valid; its lines stop.
    EXPECT_EQ(zlog_level_enabled(sdk, ZLOG_LEVEL_ERROR), 0);
    zlog_error(sdk, "after");
    zlog_info(picture, "new");
    EXPECT_EQ(read("sdk.log"), "sdk before\n");
    EXPECT_EQ(read("pic.log"), "picture new\n");
}

TEST_F(ReloadTest, CategoryPersistsAndTakesNewRules) {
    init("[formats]\nf = \"%m%n\"\n[rules]\na.ERROR \"@DIR@/a.log\"; f\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    zlog_info(a, "dropped");
    ASSERT_EQ(zlog_reload(config("[formats]\nf = \"[%m]%n\"\n[rules]\na.DEBUG \"@DIR@/a.log\"; f\n",
                                 "2.conf")
                              .c_str()),
              0);
    EXPECT_EQ(zlog_get_category("a"), a);
    zlog_info(a, "kept");
    EXPECT_EQ(read("a.log"), "[kept]\n");
}

TEST_F(ReloadTest, FailedReloadKeepsOldConfiguration) {
    init("[formats]\nf = \"%m%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(zlog_reload(config("[rules]\nb.* >stdout; nosuchformat\n", "bad.conf").c_str()), -1);
    EXPECT_EQ(
        zlog_reload(config("[formats]\nf = \"%Q\"\n[rules]\nb.* >stdout\n", "bad2.conf").c_str()),
        -1);
    EXPECT_EQ(zlog_reload(path("missing.conf").c_str()), -1);
    EXPECT_EQ(zlog_get_category("b"), nullptr);
    EXPECT_EQ(zlog_get_category("a"), a);
    zlog_info(a, "still here");
    EXPECT_EQ(read("a.log"), "still here\n");
    // NULL still means the last file that loaded.
    config("[formats]\nf = \"<%m>%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n");
    ASSERT_EQ(zlog_reload(nullptr), 0);
    zlog_info(a, "re-read");
    EXPECT_EQ(read("a.log"), "still here\n<re-read>\n");
}

TEST_F(ReloadTest, NullReloadsLastFile) {
    std::string first =
        config("[formats]\nf = \"1 %m%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n", "1.conf");
    std::string second =
        config("[formats]\nf = \"2 %m%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n", "2.conf");
    ASSERT_EQ(zlog_init(first.c_str()), 0);
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_EQ(zlog_reload(second.c_str()), 0);
    config("[formats]\nf = \"3 %m%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n", "2.conf");
    ASSERT_EQ(zlog_reload(nullptr), 0);
    zlog_info(a, "x");
    EXPECT_EQ(read("a.log"), "3 x\n");
}

TEST_F(ReloadTest, ReloadWhileLogging) {
    std::string one = config(
        "[formats]\nf = \"one %M(tag) %m%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n", "one.conf");
    std::string two = config(
        "[formats]\nf = \"two %M(tag) %m%n\"\n[rules]\na.INFO \"@DIR@/a.log\"; f\n"
        "a.ERROR >stdout; f\n",
        "two.conf");
    ASSERT_EQ(zlog_init(one.c_str()), 0);
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    std::atomic<bool> stop{false};
    std::atomic<long> logged{0};
    auto worker = [&](const char *tag) {
        zlog_put_mdc("tag", tag);
        for (int i = 0; !stop.load(); ++i) {
            if (zlog_level_enabled(a, ZLOG_LEVEL_INFO)) zlog_info(a, "line %d", i);
            zlog_debug(a, "debug %d", i);
            ++logged;
        }
    };
    auto wait_for_lines = [&](long count) {
        while (logged.load() < count)
            std::this_thread::yield();
    };
    std::thread t1(worker, "T1");
    std::thread t2(worker, "T2");
    wait_for_lines(100);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(zlog_reload(i % 2 == 0 ? two.c_str() : one.c_str()), 0);
        if (i % 20 == 0) wait_for_lines(logged.load() + 10);  // let the workers in
    }
    stop = true;
    t1.join();
    t2.join();
    zlog_fini();
    EXPECT_GT(lines("a.log").size(), 0U);
    for (const std::string &line : lines("a.log")) {
        ASSERT_TRUE(line.rfind("one T", 0) == 0 || line.rfind("two T", 0) == 0) << line;
    }
}

}  // namespace
