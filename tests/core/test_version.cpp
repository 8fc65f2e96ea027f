// Version texts and their order, used to pick the newest part pack.

#include "libcommon/core/version.h"

#include <gtest/gtest.h>

TEST(Version, ParsesAndOrders) {
    EXPECT_EQ(Version(1, 2, 3), Version("1.2.3"));
    EXPECT_EQ(Version(4, 0, 0), Version("4"));
    EXPECT_EQ("2.10.0.beta.1", Version("2.10.0.beta.1").toString());
    EXPECT_LT(Version("1.9.9"), Version("1.10.0")) << "numbers, not text";
    EXPECT_LT(Version("1.2.3"), Version("1.2.3.rc1"));
    EXPECT_FALSE(Version("2.0") < Version("2.0.0"));
}

TEST(Version, RejectsMalformedTexts) {
    for (const char* bad : {"", "a.b", "1..2", "1.2.", "1.2.3.", "-1", "1.2x", "99999999999"}) {
        EXPECT_THROW(Version{bad}, BundleResolveException) << bad;
    }
}
