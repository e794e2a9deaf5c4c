#include <gtest/gtest.h>

#include "ZTMap.h"
#include "ZTString.h"

TEST(ZTMap, RefusesASecondValueForAKeyAndKeepsTheFirst) {
    ZTMap<ZTCString, int> lMap;
    lMap.insert("key", 1);
    try {
        lMap.insert("key", 2);
        FAIL() << "the key was inserted twice";
    } catch (const ZTCExistsEx& lrException) {
        EXPECT_STREQ(lrException.what(), "Element already exists in map.. can't insert");
        EXPECT_EQ(lrException.getCode(), 10U);
    }
    EXPECT_EQ(lMap.get("key"), 1);
}

TEST(ZTMap, SaysThatAKeyIsAbsent) {
    const ZTMap<ZTCString, int> lMap;
    try {
        lMap.get("key");
        FAIL() << "a value was found";
    } catch (const ZTCNotFoundEx& lrException) {
        EXPECT_STREQ(lrException.what(), "No element for the key exists in map");
        EXPECT_EQ(lrException.getCode(), 8U);
    }
}
