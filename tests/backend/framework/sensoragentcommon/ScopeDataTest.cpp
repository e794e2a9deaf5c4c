#include <gtest/gtest.h>

#include "ScopeData.h"

namespace {

ZTCPointer<ZTCScopeEvent> event() {
    return makePointer<ZTCScopeEvent>(static_cast<unsigned char>(1), static_cast<unsigned char>(2));
}

}  // namespace

TEST(ScopeDataTest, MayGrowWhileItStaysBelowTheCeiling) {
    const struct {
        unsigned int mCeiling, mLength, mCount;
        bool mMay;
    } lTable[] = {// No ceiling set, or nearly none.
                  {0, 0, 0, false},
                  {0, 20, 8, false},
                  {1, 0, 0, true},
                  // A usual one; the last sum has more than 32 bits.
                  {100, 92, 7, true},
                  {100, 92, 8, false},
                  {100, 92, 0xffffffff, false},
                  // The highest one.
                  {0xffffffff, 100, 8, true},
                  {0xffffffff, 100, 0xffffff9a, true},
                  {0xffffffff, 100, 0xffffff9b, false}};
    const unsigned char lBytes[100]{};
    for (const auto& [lCeiling, lLength, lCount, lMay] : lTable) {
        const ZTCScopeData lData(event(), lBytes, lLength, lCeiling);
        EXPECT_EQ(lData.mayGrowBy(lCount, lCeiling), lMay) << lCeiling << ", " << lLength << ", " << lCount;
    }
}
