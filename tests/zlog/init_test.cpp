// zlog_init, zlog_reload and zlog_fini: what a configuration must look like, and the
// calls made outside an initialised library.
#include "zlog_fixture.h"

namespace {

using zlog_test::ZlogTest;

class InitTest : public ZlogTest {};

TEST_F(InitTest, AcceptsAllSectionsOutputsAndContinuations) {
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
f = "<%m>%n"

[rules]
a.TRACE   "@DIR@/a.log"; simple
b.*       >stdout
b.*  >syslog, LOG_LOCAL0
b.*  | cat > /dev/null
b.*  $myrecord, "record %d"
b.*  "@DIR@/r.log", 10MB * 3 ~ "@DIR@/r.#r.log"
b.*  "@DIR@/s.log", 1GB
b.*  -"@DIR@/sync.log", 100KB * 5
b.*  >stderr
c.INFO \
   "@DIR@/c.log"; \
 f
)");
    EXPECT_NE(zlog_get_category("a"), nullptr);
    EXPECT_NE(zlog_get_category("b"), nullptr);
    zlog_info(zlog_get_category("c"), "x");
    EXPECT_EQ(read("c.log"), "<x>\n");
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

// A refused text leaves the library uninitialised.
TEST_F(InitTest, RefusedConfigurations) {
    EXPECT_EQ(zlog_init(path("absent.conf").c_str()), -1);
    EXPECT_EQ(zlog_init(dir_.c_str()), -1);  // a folder
    EXPECT_EQ(zlog_init(""), -1);
    for (const char *text : {
             "[rules]\n[formats]\n",
             "[formats]\n[global]\n",
             "[rules]\n[rules]\n",
             "[outputs]\n",
             "[rules\n",
             "a.* >stdout\n",                      // outside a section
             "[global]\nstrict init\n",            // no '='
             "[global]\ndefault format = %m%n\n",  // not quoted
             "[levels]\nTRACE = abc\n",
             "[levels]\nTRACE = 300\n",
             "[levels]\nTRACE = 10, LOG_NOPE\n",
             "[formats]\nf = %m\n",                  // not quoted
             "[formats]\nf = \"%m\"\nf = \"%m\"\n",  // defined twice
             "[rules]\na >stdout\n",                 // no level
             "[rules]\na.* \n",                      // no output
             "[rules]\na.NOPE >stdout\n",            // unknown level
             "[rules]\na.* >stdnowhere\n",
             "[rules]\na.* \"@DIR@/a.log\"; nosuchformat\n",
             "[rules]\na.* \"@DIR@/a.log\n",                // unclosed quote
             "[rules]\na.* \"@DIR@/a.log\", 10XB\n",        // bad size
             "[rules]\na.* \"@DIR@/no/such/dir/a.log\"\n",  // cannot open
             "[rules]\na-b.* >stdout\n",                    // bad category name
             "[formats]\nf = \"%d %Q %m%n\"\n",
             "[formats]\nf = \"%m%\"\n",
             "[formats]\nf = \"%M %m\"\n",     // %M without (key)
             "[formats]\nf = \"%d(%F %m\"\n",  // unclosed %d(
             "[formats]\nf = \"%-.c\"\n",      // precision without digits
             "[global]\ndefault format = \"%y\"\n",
             "[rules]\na.* \"@DIR@/%Z.log\"\n",  // in a file path too
         }) {
        SCOPED_TRACE(text);
        EXPECT_EQ(zlog_init(config(text).c_str()), -1);
        EXPECT_EQ(zlog_get_category("a"), nullptr);
        EXPECT_EQ(zlog_put_mdc("k", "v"), -1);
    }
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

// Calls before init, on a null category, or on a category kept across zlog_fini (the
// facade may keep one across a failed initialiser) are dropped.
TEST_F(InitTest, CallsOutsideAnInitialisedLibraryAreDropped) {
    EXPECT_EQ(zlog_reload(nullptr), -1);
    EXPECT_EQ(zlog_get_category("a"), nullptr);
    EXPECT_EQ(zlog_put_mdc("tag", "x"), -1);
    EXPECT_EQ(zlog_get_mdc("tag"), nullptr);
    zlog_remove_mdc("tag");
    zlog_clean_mdc();
    EXPECT_EQ(zlog_level_enabled(nullptr, ZLOG_LEVEL_ERROR), 0);
    zlog_info(nullptr, "dropped %d", 1);
    zlog_fini();

    init("[rules]\n*.* \"@DIR@/a.log\"\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    zlog_info(nullptr, "dropped");
    EXPECT_EQ(zlog_level_enabled(nullptr, ZLOG_LEVEL_INFO), 0);
    zlog_fini();
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_ERROR), 0);
    zlog_error(a, "dropped");
    EXPECT_EQ(read("a.log"), "");
}

TEST_F(InitTest, NonStrictInitSkipsBadRules) {
    init(
        "[global]\nstrict init = false\n[rules]\na.NOPE >stdout\nb.* \"@DIR@/b.log\"\n"
        "c.* \"@DIR@/no/dir/c.log\"\n");
    EXPECT_EQ(zlog_get_category("a"), nullptr);
    EXPECT_NE(zlog_get_category("b"), nullptr);
    EXPECT_EQ(zlog_get_category("c"), nullptr);
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
