#include <gtest/gtest.h>

#include <cstring>

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

TEST(ZTStringDeathTest, EndsTheProcessWhenItHasNoText) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    alignas(ZTCString) static unsigned char sNoText[sizeof(ZTCString)]{};
    auto& lrNone = *reinterpret_cast<ZTCString*>(sNoText);
    ZTCString lText("text");
    const auto lFails = [](auto aUse, const std::string& acrPlace, const std::string& acrText) {
        EXPECT_EXIT(aUse(), ::testing::ExitedWithCode(1),
                    "^[^\n]* -H- backend/common/include/" + acrPlace + ": Assertion \\[ " + acrText +
                        " \\] failed\n$");
    };
    lFails([&] { ZTCString{lrNone}; }, "ZTString:101 ZTCString", "acrCopy\\.mString != 0");
    lFails([&] { lText = lrNone; }, "Pointer:395 operator\\*", "0 != mPointer");
    lFails([&] { lText = lrNone == lText ? "" : "a"; }, "ZTString:124 operator==", "mString != 0");
    lFails([&] { lText = lText == lrNone ? "" : "a"; },
           "ZTString:125 operator==", "acrString\\.mString != 0");
    lFails([&] { lText = lrNone < lText ? "" : "a"; }, "ZTString:142 operator<", "mString != 0");
    lFails([&] { lText = lrNone + "a"; }, "ZTString:170 operator\\+", "mString != 0");
    lFails([&] { lrNone.get(); }, "ZTString:240 get", "mString != 0");
    lFails([&] { std::as_const(lrNone).get(); }, "ZTString:240 get", "mString != 0");
}
