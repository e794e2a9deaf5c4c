#include "TestSupport.h"
#include "ZTMap.h"
#include "ZTString.h"

TEST(ZTMap, KeepsTheFirstValueOfAKeyAndSaysThatOneIsAbsent) {
    ZTMap<ZTCString, int> lMap;
    lMap.insert("key", 1);
    expectThrown<ZTCExistsEx>([&] { lMap.insert("key", 2); }, "Element already exists in map.. can't insert",
                              10);
    EXPECT_EQ(lMap.get("key"), 1);
    expectThrown<ZTCNotFoundEx>([&] { lMap.get("other"); }, "No element for the key exists in map", 8);
}
