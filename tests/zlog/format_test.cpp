// Format conversions: time, MDC, source position, width and precision, default format.
#include <pthread.h>
#include <unistd.h>

#include <ctime>
#include <thread>
#include <regex>

#include "zlog_fixture.h"

namespace {

using zlog_test::ZlogTest;

class FormatTest : public ZlogTest {
  protected:
    // Logs one INFO line with the given pattern and returns what was written.
    std::string render(const std::string &pattern, const char *msg = "hello") {
        std::string text = "[formats]\nf = \"" + pattern + "\"\n[rules]\nc.* \"@DIR@/f.log\"; f\n";
        EXPECT_EQ(zlog_init(config(text).c_str()), 0);
        zlog_category_t *c = zlog_get_category("c");
        EXPECT_NE(c, nullptr);
        zlog(c, "src/dir/unit.cpp", 16, "my_func", 7, 42, ZLOG_LEVEL_INFO, "%s", msg);
        zlog_fini();
        std::string out = read("f.log");
        std::remove(path("f.log").c_str());
        return out;
    }
};

TEST_F(FormatTest, SourcePositionAndLevel) {
    EXPECT_EQ(render("%c|%V|%v|%F|%f|%L|%U|%m|%%|%n"),
              "c|INFO|info|src/dir/unit.cpp|unit.cpp|42|my_func|hello|%|\n");
}

TEST_F(FormatTest, ProcessAndThread) {
    EXPECT_EQ(render("%p"), std::to_string(getpid()));
    char hex[32];
    std::snprintf(hex, sizeof(hex), "%lx", static_cast<unsigned long>(pthread_self()));
    EXPECT_EQ(render("%t"), hex);
    EXPECT_EQ(render("%T"), std::to_string(static_cast<unsigned long>(pthread_self())));
    EXPECT_EQ(render("%k"), std::to_string(gettid()));
}

TEST_F(FormatTest, Time) {
    time_t now = time(nullptr);
    struct tm tm {};
    localtime_r(&now, &tm);
    char year[8];
    strftime(year, sizeof(year), "%Y", &tm);
    std::string out = render("%d(%Y)");
    // The year can only differ across a New Year's midnight.
    EXPECT_TRUE(out == year || out == std::to_string(std::atoi(year) + 1)) << out;
    EXPECT_TRUE(std::regex_match(render("%d"), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")));
    EXPECT_TRUE(std::regex_match(render("%d()"), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")));
    EXPECT_TRUE(
        std::regex_match(render("%d(%H:%M:%S).%ms"), std::regex(R"(\d\d:\d\d:\d\d\.\d{3})")));
    EXPECT_TRUE(std::regex_match(render("%us"), std::regex(R"(\d{6})")));
}

TEST_F(FormatTest, WidthAndPrecision) {
    EXPECT_EQ(render("[%5V]"), "[ INFO]");
    EXPECT_EQ(render("[%-5V]"), "[INFO ]");
    EXPECT_EQ(render("[%.2V]"), "[IN]");
    EXPECT_EQ(render("[%-8.2v]"), "[in      ]");
    EXPECT_EQ(render("[%-20.30c]"), "[c                   ]");
    EXPECT_EQ(render("[%3.5m]", "abcdefgh"), "[abcde]");
    EXPECT_EQ(render("[%3m]", "a"), "[  a]");
    EXPECT_EQ(render("[%-6L]"), "[42    ]");
    EXPECT_EQ(render("[%8d(%Y)]").size(), 10U);
}

TEST_F(FormatTest, MdcRendering) {
    init("[formats]\nf = \"[%M(tag)][%M(other)] %m%n\"\n[rules]\nc.* \"@DIR@/f.log\"; f\n");
    zlog_category_t *c = zlog_get_category("c");
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(zlog_put_mdc("tag", "TRANSFER"), 0);
    zlog_info(c, "one");
    ASSERT_EQ(zlog_put_mdc("tag", "DEVICE"), 0);
    ASSERT_EQ(zlog_put_mdc("other", "x"), 0);
    zlog_info(c, "two");
    zlog_remove_mdc("tag");
    zlog_info(c, "three");
    zlog_clean_mdc();
    zlog_info(c, "four");
    EXPECT_EQ(read("f.log"), "[TRANSFER][] one\n[DEVICE][x] two\n[][x] three\n[][] four\n");
}

TEST_F(FormatTest, MdcIsPerThread) {
    init("[formats]\nf = \"[%M(tag)] %m%n\"\n[rules]\nc.* \"@DIR@/f.log\"; f\n");
    zlog_category_t *c = zlog_get_category("c");
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(zlog_put_mdc("tag", "MAIN"), 0);
    std::thread t([c] {
        EXPECT_EQ(zlog_get_mdc("tag"), nullptr);
        zlog_info(c, "other");
        zlog_put_mdc("tag", "OTHER");
    });
    t.join();
    EXPECT_STREQ(zlog_get_mdc("tag"), "MAIN");
    zlog_info(c, "main");
    EXPECT_EQ(read("f.log"), "[] other\n[MAIN] main\n");
}

TEST_F(FormatTest, MdcLimits) {
    init("");
    std::string max(1024, 'k');
    std::string over(1025, 'k');
    EXPECT_EQ(zlog_put_mdc(max.c_str(), max.c_str()), 0);
    EXPECT_EQ(std::string(zlog_get_mdc(max.c_str())), max);
    EXPECT_EQ(zlog_put_mdc(over.c_str(), "v"), -1);
    EXPECT_EQ(zlog_put_mdc("k", over.c_str()), -1);
    EXPECT_EQ(zlog_put_mdc(nullptr, "v"), -1);
    EXPECT_EQ(zlog_put_mdc("", "v"), -1);
    EXPECT_EQ(zlog_get_mdc("missing"), nullptr);
}

TEST_F(FormatTest, DefaultFormat) {
    init("[rules]\nc.* \"@DIR@/f.log\"\n");
    zlog_category_t *c = zlog_get_category("c");
    ASSERT_NE(c, nullptr);
    zlog(c, "src/unit.cpp", 12, "fn", 2, 7, ZLOG_LEVEL_WARN, "value %d", 5);
    std::string expected = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d WARN \\[" +
                           std::to_string(getpid()) + ":src/unit.cpp:7\\] value 5\n";
    EXPECT_TRUE(std::regex_match(read("f.log"), std::regex(expected))) << read("f.log");
}

TEST_F(FormatTest, GlobalDefaultFormat) {
    init("[global]\ndefault format = \"%V %m%n\"\n[rules]\nc.* \"@DIR@/f.log\"\n");
    zlog_error(zlog_get_category("c"), "boom");
    EXPECT_EQ(read("f.log"), "ERROR boom\n");
}

TEST_F(FormatTest, CustomLevelNames) {
    init(
        "[levels]\nTRACE = 10\n[formats]\nf = \"%V/%v %m%n\"\n[rules]\nc.trace \"@DIR@/f.log\"; "
        "f\n");
    zlog_category_t *c = zlog_get_category("c");
    ASSERT_NE(c, nullptr);
    zlog(c, "f", 1, "u", 1, 1, 10, "t");
    zlog(c, "f", 1, "u", 1, 1, 50, "undefined level");
    zlog_debug(c, "d");
    EXPECT_EQ(read("f.log"), "TRACE/trace t\nUNKNOWN/unknown undefined level\nDEBUG/debug d\n");
}

TEST_F(FormatTest, EnvironmentInPathAndFormat) {
    setenv("ZLOG_TEST_NAME", "fromenv", 1);
    init(
        "[formats]\nf = \"%E(ZLOG_TEST_NAME) %m%n\"\n[rules]\nc.* "
        "\"@DIR@/%E(ZLOG_TEST_NAME).log\"; f\n");
    zlog_info(zlog_get_category("c"), "x");
    EXPECT_EQ(read("fromenv.log"), "fromenv x\n");
}

TEST_F(FormatTest, DynamicFilePath) {
    init("[formats]\nf = \"%m%n\"\n[rules]\n*.* \"@DIR@/%c.log\"; f\n");
    zlog_info(zlog_get_category("alpha"), "a");
    zlog_info(zlog_get_category("beta"), "b");
    EXPECT_EQ(read("alpha.log"), "a\n");
    EXPECT_EQ(read("beta.log"), "b\n");
}

TEST_F(FormatTest, LongMessage) {
    std::string big(100000, 'x');
    EXPECT_EQ(render("%m", big.c_str()), big);
}

}  // namespace
