// The JSON helper layer as the configuration loader relies on it.
#include <gtest/gtest.h>

#include "mio_json.h"
#include "support/log_capture.h"

namespace {

TEST(MioJson, HelpersTreatAbsentAndMistypedAlike) {
    mio_json *root = mio_json_fromstring(
        R"({"n": 7, "neg": -3, "s": "12", "f": 2.5, "big": 5000000000, "arr": [1, 2, 3], "str": "x"})");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(mio_json_getobjectitemint(root, "n"), 7);
    EXPECT_EQ(mio_json_getobjectitemint(root, "neg"), -3);
    EXPECT_LT(mio_json_getobjectitemint(root, "missing"), 0);
    EXPECT_LT(mio_json_getobjectitemint(root, "s"), 0);
    EXPECT_LT(mio_json_getobjectitemint(root, "f"), 0);
    EXPECT_LT(mio_json_getobjectitemint(root, "big"), 0);
    EXPECT_EQ(mio_json_getobjectitem(root, "missing"), nullptr);
    EXPECT_STREQ(mio_json_getobjectitemstr(root, "str"), "x");
    EXPECT_EQ(mio_json_getobjectitemstr(root, "n"), nullptr);
    mio_json *arr = mio_json_getobjectitem(root, "arr");
    EXPECT_EQ(mio_json_getarraysize(arr), 3u);
    EXPECT_NE(mio_json_getarrayitem(arr, 2), nullptr);
    EXPECT_EQ(mio_json_getarrayitem(arr, 3), nullptr);
    EXPECT_EQ(mio_json_getarraysize(root), 0u);            // not an array
    EXPECT_EQ(mio_json_getobjectitem(arr, "n"), nullptr);  // not an object
    mio_json_delete(root);

    EXPECT_EQ(mio_json_fromfile("/nonexistent/transfer.json"), nullptr);
    EXPECT_EQ(mio_json_fromstring("{\"device\": "), nullptr);
}

TEST(MioJson, FromFileReadsWhatItCanParse) {
    sdk::test::TempDir dir;
    mio_json *root = mio_json_fromfile(dir.write("ok.json", R"({"a": [1]})").c_str());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(mio_json_getarraysize(mio_json_getobjectitem(root, "a")), 1u);
    mio_json_delete(root);
    EXPECT_EQ(mio_json_fromfile(dir.write("bad.json", "{ not json").c_str()), nullptr);
    EXPECT_EQ(mio_json_fromfile(dir.path().c_str()), nullptr);  // a folder
    EXPECT_EQ(mio_json_fromfile(nullptr), nullptr);
}

}  // namespace
