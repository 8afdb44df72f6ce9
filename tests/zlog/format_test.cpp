// Format conversions: time, MDC, source position, width and precision, default format.
#include <pthread.h>
#include <unistd.h>

#include <ctime>
#include <regex>
#include <thread>

#include "zlog_fixture.h"

namespace {

using zlog_test::ZlogTest;

class FormatTest : public ZlogTest {
  protected:
    // Logs one INFO line with the given pattern and returns what was written.
    std::string render(const std::string &pattern, const char *msg = "hello") {
        init("[formats]\nf = \"" + pattern + "\"\n[rules]\nc.* \"@DIR@/f.log\"; f\n");
        zlog(zlog_get_category("c"), "src/dir/unit.cpp", 16, "my_func", 7, 42, ZLOG_LEVEL_INFO,
             "%s", msg);
        zlog_fini();
        std::string out = read("f.log");
        std::remove(path("f.log").c_str());
        return out;
    }
};

TEST_F(FormatTest, Conversions) {
    char hex[32];
    std::snprintf(hex, sizeof(hex), "%lx", static_cast<unsigned long>(pthread_self()));
    const std::string big(100000, 'x');
    const struct {
        const char *pattern, *msg;
        std::string expected;
    } cases[] = {
        {"%c|%V|%v|%F|%f|%L|%U|%m|%%|%n", "hello",
         "c|INFO|info|src/dir/unit.cpp|unit.cpp|42|my_func|hello|%|\n"},
        {"%p", "hello", std::to_string(getpid())},
        {"%t", "hello", hex},
        {"%T", "hello", std::to_string(static_cast<unsigned long>(pthread_self()))},
        {"%k", "hello", std::to_string(gettid())},
        {"[%5V]", "hello", "[ INFO]"},
        {"[%-5V]", "hello", "[INFO ]"},
        {"[%.2V]", "hello", "[IN]"},
        {"[%-8.2v]", "hello", "[in      ]"},
        {"[%-20.30c]", "hello", "[c                   ]"},
        {"[%3.5m]", "abcdefgh", "[abcde]"},
        {"[%3m]", "a", "[  a]"},
        {"[%-6L]", "hello", "[42    ]"},
        {"%m", big.c_str(), big},
    };
    for (const auto &c : cases)
        EXPECT_EQ(render(c.pattern, c.msg), c.expected) << c.pattern;
    EXPECT_EQ(render("[%8d(%Y)]").size(), 10U);
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
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)";
    for (auto [pattern, shape] : {std::pair<const char *, std::string>{"%d", stamp},
                                  {"%d()", stamp},
                                  {"%d(%H:%M:%S).%ms", R"(\d\d:\d\d:\d\d\.\d{3})"},
                                  {"%us", R"(\d{6})"}}) {
        EXPECT_TRUE(std::regex_match(render(pattern), std::regex(shape))) << pattern;
    }
}

TEST_F(FormatTest, MdcRenderingIsPerThread) {
    init("[formats]\nf = \"[%M(tag)][%M(other)] %m%n\"\n[rules]\nc.* \"@DIR@/f.log\"; f\n");
    zlog_category_t *c = zlog_get_category("c");
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(zlog_put_mdc("tag", "TRANSFER"), 0);
    zlog_info(c, "one");
    ASSERT_EQ(zlog_put_mdc("tag", "DEVICE"), 0);
    ASSERT_EQ(zlog_put_mdc("other", "x"), 0);
    zlog_info(c, "two");
    std::thread t([c] {
        EXPECT_EQ(zlog_get_mdc("tag"), nullptr);
        zlog_info(c, "thread");
        zlog_put_mdc("tag", "OTHER");
    });
    t.join();
    EXPECT_STREQ(zlog_get_mdc("tag"), "DEVICE");
    zlog_remove_mdc("tag");
    zlog_info(c, "three");
    zlog_clean_mdc();
    zlog_info(c, "four");
    EXPECT_EQ(read("f.log"),
              "[TRANSFER][] one\n[DEVICE][x] two\n[][] thread\n[][x] three\n[][] four\n");
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

TEST_F(FormatTest, DefaultFormatsAndCustomLevels) {
    init(
        "[global]\ndefault format = \"%V %m%n\"\n[levels]\nTRACE = 10\n[formats]\n"
        "f = \"%V/%v %m%n\"\n[rules]\nc.trace \"@DIR@/f.log\"; f\nd.* \"@DIR@/g.log\"\n");
    zlog_category_t *c = zlog_get_category("c");
    zlog(c, "f", 1, "u", 1, 1, 10, "t");
    zlog(c, "f", 1, "u", 1, 1, 50, "undefined level");
    zlog_debug(c, "d");
    zlog_error(zlog_get_category("d"), "boom");
    EXPECT_EQ(read("f.log"), "TRACE/trace t\nUNKNOWN/unknown undefined level\nDEBUG/debug d\n");
    EXPECT_EQ(read("g.log"), "ERROR boom\n");
    zlog_fini();
    init("[rules]\nc.* \"@DIR@/h.log\"\n");
    zlog(zlog_get_category("c"), "src/unit.cpp", 12, "fn", 2, 7, ZLOG_LEVEL_WARN, "value %d", 5);
    EXPECT_TRUE(std::regex_match(
        read("h.log"), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d WARN \[)" +
                                  std::to_string(getpid()) + R"(:src/unit.cpp:7\] value 5\n)")))
        << read("h.log");
}

TEST_F(FormatTest, EnvironmentAndCategoryInFilePath) {
    setenv("ZLOG_TEST_NAME", "fromenv", 1);
    init(
        "[formats]\nf = \"%E(ZLOG_TEST_NAME) %m%n\"\n[rules]\n"
        "c.* \"@DIR@/%E(ZLOG_TEST_NAME).log\"; f\n*.* \"@DIR@/%c.log\"; f\n");
    zlog_info(zlog_get_category("c"), "x");
    zlog_info(zlog_get_category("beta"), "b");
    EXPECT_EQ(read("fromenv.log"), "fromenv x\n");
    EXPECT_EQ(read("c.log"), "fromenv x\n");
    EXPECT_EQ(read("beta.log"), "fromenv b\n");
}

}  // namespace
