// zlog_init, zlog_reload and zlog_fini: what a configuration must look like, and the
// calls made outside an initialised library.
#include "zlog_fixture.h"

namespace {

using zlog_test::ZlogTest;

class InitTest : public ZlogTest {
  protected:
    // init must refuse the text, and leave the library uninitialised.
    void expect_refused(const std::string &text) {
        SCOPED_TRACE(text);
        EXPECT_EQ(zlog_init(config(text).c_str()), -1);
        EXPECT_EQ(zlog_get_category("a"), nullptr);
        EXPECT_EQ(zlog_put_mdc("k", "v"), -1);
    }
};

TEST_F(InitTest, AcceptsAllSectionsInOrder) {
    init(R"(# a comment line
[global]
strict init = true
buffer min = 1024
buffer max = 2MB
rotate lock file = /tmp/zlog.lock
some unknown key = whatever
file perms = 644

[levels]
TRACE = 10
AUDIT = 130, LOG_NOTICE

[formats]
simple = "%d(%F %T).%ms %-5V [%M(tag)] %f:%L %U: %m%n"   # trailing comment

[rules]
a.TRACE   "@DIR@/a.log"; simple
b.*       >stdout
)");
    EXPECT_NE(zlog_get_category("a"), nullptr);
}

TEST_F(InitTest, EverySectionIsOptional) {
    init("");
    EXPECT_EQ(zlog_get_category("a"), nullptr);
    zlog_fini();
    init("[formats]\nf = \"%m%n\"\n");
    zlog_fini();
    init("[rules]\na.* \"@DIR@/a.log\"\n");
    EXPECT_NE(zlog_get_category("a"), nullptr);
}

TEST_F(InitTest, MissingFileFails) {
    EXPECT_EQ(zlog_init(path("absent.conf").c_str()), -1);
    EXPECT_EQ(zlog_init(dir_.c_str()), -1);  // a folder
    EXPECT_EQ(zlog_init(""), -1);
}

TEST_F(InitTest, UnknownOrOutOfOrderSectionFails) {
    expect_refused("[rules]\n[formats]\n");
    expect_refused("[formats]\n[global]\n");
    expect_refused("[rules]\n[rules]\n");
    expect_refused("[outputs]\n");
    expect_refused("[rules\n");
}

TEST_F(InitTest, MalformedLinesFail) {
    expect_refused("a.* >stdout\n");                      // outside a section
    expect_refused("[global]\nstrict init\n");            // no '='
    expect_refused("[global]\ndefault format = %m%n\n");  // not quoted
    expect_refused("[levels]\nTRACE = abc\n");
    expect_refused("[levels]\nTRACE = 300\n");
    expect_refused("[levels]\nTRACE = 10, LOG_NOPE\n");
    expect_refused("[formats]\nf = %m\n");                  // not quoted
    expect_refused("[formats]\nf = \"%m\"\nf = \"%m\"\n");  // defined twice
    expect_refused("[rules]\na >stdout\n");                 // no level
    expect_refused("[rules]\na.* \n");                      // no output
    expect_refused("[rules]\na.NOPE >stdout\n");            // unknown level
    expect_refused("[rules]\na.* >stdnowhere\n");
    expect_refused("[rules]\na.* \"@DIR@/a.log\"; nosuchformat\n");
    expect_refused("[rules]\na.* \"@DIR@/a.log\n");                // unclosed quote
    expect_refused("[rules]\na.* \"@DIR@/a.log\", 10XB\n");        // bad size
    expect_refused("[rules]\na.* \"@DIR@/no/such/dir/a.log\"\n");  // cannot open
    expect_refused("[rules]\na-b.* >stdout\n");                    // bad category name
}

TEST_F(InitTest, UnknownConversionFails) {
    expect_refused("[formats]\nf = \"%d %Q %m%n\"\n");
    expect_refused("[formats]\nf = \"%m%\"\n");
    expect_refused("[formats]\nf = \"%M %m\"\n");     // %M without (key)
    expect_refused("[formats]\nf = \"%d(%F %m\"\n");  // unclosed %d(
    expect_refused("[formats]\nf = \"%-.c\"\n");      // precision without digits
    expect_refused("[global]\ndefault format = \"%y\"\n");
    expect_refused("[rules]\na.* \"@DIR@/%Z.log\"\n");  // in a file path too
}

TEST_F(InitTest, SecondInitWithoutFiniFails) {
    init("[rules]\na.* >stdout\n");
    EXPECT_EQ(zlog_init(config("[rules]\nb.* >stdout\n", "b.conf").c_str()), -1);
    EXPECT_NE(zlog_get_category("a"), nullptr);  // the first configuration stays
    EXPECT_EQ(zlog_get_category("b"), nullptr);
    zlog_fini();
    zlog_fini();  // harmless
    EXPECT_EQ(zlog_init(path("b.conf").c_str()), 0);
    EXPECT_NE(zlog_get_category("b"), nullptr);
}

TEST_F(InitTest, CallsBeforeInitAreHarmless) {
    EXPECT_EQ(zlog_reload(nullptr), -1);
    EXPECT_EQ(zlog_get_category("a"), nullptr);
    EXPECT_EQ(zlog_put_mdc("tag", "x"), -1);
    EXPECT_EQ(zlog_get_mdc("tag"), nullptr);
    zlog_remove_mdc("tag");
    zlog_clean_mdc();
    EXPECT_EQ(zlog_level_enabled(nullptr, ZLOG_LEVEL_ERROR), 0);
    zlog_info(nullptr, "dropped %d", 1);
    zlog_fini();
}

TEST_F(InitTest, StaleCategoryAfterFiniIsDropped) {
    init("[rules]\na.* \"@DIR@/a.log\"\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    zlog_fini();
    // The facade may keep a category pointer across a failed initialiser.
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_ERROR), 0);
    zlog_error(a, "dropped");
    EXPECT_EQ(read("a.log"), "");
}

TEST_F(InitTest, NullCategoryLinesAreDropped) {
    init("[rules]\n*.* \"@DIR@/all.log\"\n");
    zlog_info(nullptr, "dropped");
    EXPECT_EQ(zlog_level_enabled(nullptr, ZLOG_LEVEL_INFO), 0);
    EXPECT_EQ(read("all.log"), "");
}

TEST_F(InitTest, NonStrictInitSkipsBadRules) {
    init(
        "[global]\nstrict init = false\n[rules]\na.NOPE >stdout\nb.* \"@DIR@/b.log\"\n"
        "c.* \"@DIR@/no/dir/c.log\"\n");
    EXPECT_EQ(zlog_get_category("a"), nullptr);
    EXPECT_NE(zlog_get_category("b"), nullptr);
    EXPECT_EQ(zlog_get_category("c"), nullptr);
}

TEST_F(InitTest, OptionalOutputsParse) {
    init(R"([rules]
a.*  >syslog, LOG_LOCAL0
a.*  | cat > /dev/null
a.*  $myrecord, "record %d"
a.*  "@DIR@/r.log", 10MB * 3 ~ "@DIR@/r.#r.log"
a.*  "@DIR@/s.log", 1GB
a.*  -"@DIR@/sync.log", 100KB * 5
a.*  >stderr
)");
    EXPECT_NE(zlog_get_category("a"), nullptr);
}

TEST_F(InitTest, ContinuationLines) {
    init("[formats]\nf = \"<%m>%n\"\n[rules]\na.INFO \\\n   \"@DIR@/a.log\"; \\\n f\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    zlog_info(a, "x");
    EXPECT_EQ(read("a.log"), "<x>\n");
}

TEST_F(InitTest, ErrorsGoToProfileErrorFile) {
    setenv("ZLOG_PROFILE_ERROR", path("errors.txt").c_str(), 1);
    EXPECT_EQ(zlog_init(config("[formats]\n\nf = \"%m %Q\"\n").c_str()), -1);
    unsetenv("ZLOG_PROFILE_ERROR");
    std::string errors = read("errors.txt");
    EXPECT_NE(errors.find("line 3"), std::string::npos) << errors;
    EXPECT_NE(errors.find("%Q"), std::string::npos) << errors;
}

TEST_F(InitTest, NullConfigUsesBuiltInStdoutRule) {
    unsetenv("ZLOG_CONF_PATH");
    ASSERT_EQ(zlog_init(nullptr), 0);
    EXPECT_NE(zlog_get_category("anything"), nullptr);
}

}  // namespace
