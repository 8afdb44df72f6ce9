// The JSON helper layer as the configuration loader relies on it: a member that is absent
// and one of the wrong type read alike.
#include <gtest/gtest.h>

#include <map>

#include "mio_json.h"
#include "support/log_capture.h"

TEST(MioJson, AbsentAndMistypedMembersReadAlike) {
    sdk::test::TempDir dir;
    mio_json *root = mio_json_fromfile(
        dir.write("ok.json", R"({"n": 7, "neg": -3, "s": "12", "f": 2.5, "big": 5000000000,
                                "arr": [1, 2, 3]})")
            .c_str());
    ASSERT_NE(root, nullptr);
    for (auto [key, value] : std::map<std::string, int>{
             {"n", 7}, {"neg", -3}, {"missing", -1}, {"s", -1}, {"f", -1}, {"big", -1}})
        EXPECT_EQ(mio_json_getobjectitemint(root, key.c_str()), value) << key;
    EXPECT_STREQ(mio_json_getobjectitemstr(root, "s"), "12");
    EXPECT_EQ(mio_json_getobjectitemstr(root, "n"), nullptr);
    mio_json *arr = mio_json_getobjectitem(root, "arr");
    EXPECT_EQ(mio_json_getarraysize(arr), 3u);
    EXPECT_TRUE(mio_json_getarrayitem(arr, 2) && !mio_json_getarrayitem(arr, 3));
    EXPECT_EQ(mio_json_getarraysize(root), 0u);  // not an array
    EXPECT_FALSE(mio_json_getobjectitem(arr, "n") || mio_json_getobjectitem(root, "missing"));
    mio_json_delete(root);
    for (std::string bad : {dir.write("bad.json", "{ not json"), dir.path(), dir.path() + "/no"})
        EXPECT_EQ(mio_json_fromfile(bad.c_str()), nullptr) << bad;
    EXPECT_EQ(mio_json_fromfile(nullptr), nullptr);
    EXPECT_EQ(mio_json_fromstring("{\"device\": "), nullptr);
}
