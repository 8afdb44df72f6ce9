// The logging facade over zlog: initialisers, reloads, tags and the cost of a filtered
// line. The tests run in order in one process and each leaves zlog finalised.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "common/log.h"
#include "sdk_log.h"
#include "support/log_capture.h"

namespace {

using sdk::test::TempDir;

std::string slurp(const std::string &path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

int8_t *conf(std::string &path) {
    return reinterpret_cast<int8_t *>(path.data());
}

// A configuration with the given rules; every format shows level, tag, file base name,
// function and line.
std::string write_conf(const TempDir &dir, const std::string &rules) {
    return dir.write("zlog.conf",
                     "[formats]\n"
                     "f = \"%V [%M(tag)] %f:%L %U %m%n\"\n"
                     "[rules]\n" +
                         rules);
}

TEST(SdkLog, LinesBeforeInitAreDroppedAndNothingBreaks) {
    EXPECT_EQ(sdk_log_rules, nullptr);
    EXPECT_EQ(sdk_printf_rules, nullptr);
    TLOGE("dropped %d", 1);
    SDK_PRINTF(LOG_DEVICE, ZLOG_LEVEL_DEBUG, "dropped too");
}

TEST(SdkLog, InitTagsEveryLineWithItsModuleFileFunctionAndLine) {
    TempDir dir;
    std::string log = dir.path() + "/sdk.log";
    std::string dbg = dir.path() + "/debug.log";
    std::string path = write_conf(dir, "sdk.*  \"" + log + "\"; f\ndebug.* \"" + dbg + "\"; f\n");
    ASSERT_EQ(sdk_log_init(conf(path)), 0);
    ASSERT_NE(sdk_log_rules, nullptr);
    ASSERT_NE(sdk_printf_rules, nullptr);
    EXPECT_STREQ(zlog_get_mdc("tag"), "OTHER");

    TLOGI("hello %d", 42);
    const int line = __LINE__ - 1;
    LOGE(LOG_REPORT, "from the report path");
    LOGD(LOG_TCP, "socket line");
    SDK_PRINTF(LOG_DEVICE, ZLOG_LEVEL_DEBUG, "raw bytes");

    std::string text = slurp(log);
    EXPECT_NE(text.find("INFO [TRANSFER] sdk_log_test.cpp:" + std::to_string(line) +
                        " TestBody hello 42"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("ERROR [REPORT]"), std::string::npos);
    EXPECT_NE(text.find("DEBUG [SOCKET]"), std::string::npos);  // LOG_TCP's text
    EXPECT_EQ(text.find("raw bytes"), std::string::npos);
    EXPECT_NE(slurp(dbg).find("DEBUG [DEVICE]"), std::string::npos);
    zlog_fini();
}

TEST(SdkLog, FilteredLineNeitherFormatsNorTouchesTheTag) {
    TempDir dir;
    std::string log = dir.path() + "/sdk.log";
    std::string path = write_conf(dir, "sdk.ERROR \"" + log + "\"; f\ndebug.* >stdout\n");
    ASSERT_EQ(sdk_log_init(conf(path)), 0);
    zlog_put_mdc("tag", "KEEP");
    int evaluated = 0;
    auto count = [&evaluated] { return ++evaluated; };
    LOGD(LOG_REPORT, "not written %d", count());
    TLOGI("not written %d", count());
    EXPECT_EQ(evaluated, 0);  // arguments not even evaluated
    EXPECT_STREQ(zlog_get_mdc("tag"), "KEEP");
    TLOGE("written %d", count());
    EXPECT_EQ(evaluated, 1);
    EXPECT_STREQ(zlog_get_mdc("tag"), "TRANSFER");
    EXPECT_EQ(slurp(log).find("not written"), std::string::npos);
    zlog_fini();
}

TEST(SdkLog, FailuresPrintTheirMessagesAndReturn2000) {
    TempDir dir;
    std::string missing = dir.path() + "/none.conf";
    testing::internal::CaptureStdout();
    EXPECT_EQ(sdk_log_init(conf(missing)), -2000);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "log_init error;\n");

    std::string path = write_conf(dir, "sdk.* >stderr\ndebug.* >stderr\n");
    std::string cat = "nosuch";
    testing::internal::CaptureStdout();
    EXPECT_EQ(pack_sdk_log_init(cat.data(), path.data()), -2000);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "get cat fail\n");

    // Without a "debug" category: refused, zlog finalised, the log category kept.
    std::string no_debug = dir.write("nodebug.conf", "[rules]\nsdk.* >stderr\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(sdk_log_init(conf(no_debug)), -2000);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "get cat fail\n");
    EXPECT_NE(sdk_log_rules, nullptr);
    EXPECT_EQ(sdk_printf_rules, nullptr);
    TLOGE("after a failed init the line is dropped, not a crash");

    // zlog was finalised, so a proper initialisation works again.
    std::string own = "mine";
    std::string good = dir.write("good.conf", "[rules]\nmine.* >stderr\ndebug.* >stderr\n");
    EXPECT_EQ(pack_sdk_log_init(own.data(), good.data()), 0);
    zlog_fini();
}

// The example configuration given to hosts loads on a fresh system: zlog refuses a file
// whose log files cannot be opened, so they must lie in folders that exist.
TEST(SdkLog, ExampleConfigurationLoads) {
    const char *src = getenv("TRANSFER_SOURCE_DIR");
    if (src == nullptr) GTEST_SKIP() << "TRANSFER_SOURCE_DIR not set (run through ctest)";
    std::string path = std::string(src) + "/config/example_zlog.conf";
    const std::string logs[] = {"/tmp/transfer_example.sdk.log", "/tmp/transfer_example.debug.log"};
    bool existed[2];
    for (int i = 0; i < 2; ++i)
        existed[i] = access(logs[i].c_str(), F_OK) == 0;
    EXPECT_EQ(sdk_log_init(conf(path)), 0);
    zlog_fini();
    for (int i = 0; i < 2; ++i) {
        if (!existed[i]) unlink(logs[i].c_str());
    }
}

TEST(SdkLog, ReloadsSwitchCategories) {
    TempDir dir;
    std::string normal = dir.path() + "/normal.log";
    std::string picture = dir.path() + "/picture.log";
    std::string both =
        write_conf(dir, "sdk.* \"" + normal + "\"; f\ndebug.* \"" + normal + "\"; f\npicture.* \"" +
                            picture + "\"; f\npicture_debug.* \"" + picture + "\"; f\n");
    ASSERT_EQ(sdk_log_init(conf(both)), 0);
    TLOGI("line one");
    ASSERT_EQ(sdk_log_reload_bigfile(conf(both)), 0);
    TLOGI("line two");
    ASSERT_EQ(sdk_log_reload_normal(conf(both)), 0);
    TLOGI("line three");
    std::string n = slurp(normal), p = slurp(picture);
    EXPECT_NE(n.find("line one"), std::string::npos);
    EXPECT_EQ(n.find("line two"), std::string::npos);
    EXPECT_NE(p.find("line two"), std::string::npos);
    EXPECT_NE(n.find("line three"), std::string::npos);

    // A reload to a file without the big-file categories leaves the log off.
    std::string plain = dir.write("plain.conf", "[rules]\nsdk.* >stderr\ndebug.* >stderr\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(sdk_log_reload_bigfile(conf(plain)), -2000);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "get cat fail\n");
    TLOGI("dropped");
    testing::internal::CaptureStdout();
    EXPECT_EQ(sdk_log_reload_normal(conf(plain)), -2000);  // zlog is off: reload refused
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "log_init error;\n");
}

TEST(SdkLog, ProcessNameIsTheProgramsBaseName) {
    char name[2048] = {};
    ASSERT_EQ(get_processname(name), 0);
    EXPECT_STREQ(name, "sdk_log_sdk_log_test");
}

TEST(SdkLog, TagTableTexts) {
    EXPECT_STREQ(tag_tab[LOG_OTHER], "OTHER");
    EXPECT_STREQ(tag_tab[LOG_TRANSFER], "TRANSFER");
    EXPECT_STREQ(tag_tab[LOG_UNIX], "SOCKET");
    EXPECT_STREQ(tag_tab[LOG_PLAYBACK], "LAYBACK");
    EXPECT_STREQ(tag_tab[LOG_ETH_CAPACITY], "LOG_ETH_CAPACITY");
}

}  // namespace
