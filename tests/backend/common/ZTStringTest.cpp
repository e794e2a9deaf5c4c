#include <gtest/gtest.h>

#include "ZTString.h"

TEST(ZTStringTest, CopiesTheText) {
    ZTCString lOne("one");
    const ZTCString lCopy(lOne);
    ZTCString lAssigned("");
    lAssigned = lOne;
    EXPECT_NE(lCopy.get(), lOne.get());
    EXPECT_NE(lAssigned.get(), lOne.get());
    const ZTCString lSum = lOne + "/more";
    lOne = ZTCString("another");
    lOne = std::as_const(lOne);
    EXPECT_STREQ(lOne.get(), "another");
    EXPECT_STREQ(lCopy.get(), "one");
    EXPECT_STREQ(lAssigned.get(), "one");
    EXPECT_STREQ(lSum.get(), "one/more");
}

TEST(ZTStringTest, OrdersByBytes) {
    const char* const lpInOrder[] = {"", "A", "Z", "a", "a\x01", "ab", "b", "\xc3\xa4", "\xff"};
    for (const char* const& lrpOne : lpInOrder) {
        for (const char* const& lrpOther : lpInOrder) {
            EXPECT_EQ(ZTCString(lrpOne) == ZTCString(lrpOther), &lrpOne == &lrpOther) << lrpOne << lrpOther;
            EXPECT_EQ(ZTCString(lrpOne) < ZTCString(lrpOther), &lrpOne < &lrpOther) << lrpOne << lrpOther;
        }
    }
}
