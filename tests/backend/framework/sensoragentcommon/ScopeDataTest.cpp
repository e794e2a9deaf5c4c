#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "EncodableStream.h"
#include "ScopeData.h"

namespace {

const unsigned char sName[ZTCWorldWideName::Size] = {1, 2, 3, 4, 5, 6, 7, 8};

ZTCPointer<ZTCScopeEvent> event() {
    return makePointer<ZTCScopeEvent>(static_cast<unsigned char>(1), static_cast<unsigned char>(2));
}

std::string encoded(const ZTCScopeData& acrData) {
    ZTCBufferExpOutStream lOut(0);
    acrData.encode(lOut);
    const ZTCBuffer& lrBuffer = *lOut.getBuffer();
    return {lrBuffer.getBytes(), lrBuffer.getBytes() + lrBuffer.getLength()};
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

TEST(ScopeDataTest, EncodesWhatIsAppendedAndChangedInPlace) {
    unsigned char lBytes[256];
    std::iota(std::begin(lBytes), std::end(lBytes), static_cast<unsigned char>(0));
    const auto lName = makePointer<ZTCWorldWideName>(sName);
    for (const unsigned int lStart : {0U, 1U, 23U, 24U, 25U, 200U}) {
        for (const unsigned int lStep : {1U, 8U, 24U, 25U, 49U}) {
            ZTCScopeData lPlain(event(), lBytes, lStart, 0);
            ZTCScopeData lNamed(event(), lBytes, lStart, 0, lName, lName);
            for (ZTCScopeData* const lpData : {&lPlain, &lNamed}) {
                unsigned int lLength = lStart;
                for (; lLength + lStep <= sizeof lBytes; lLength += lStep) {
                    lpData->appendEventData(lBytes + lLength, lStep);
                }
                lpData->getEventData()[lLength - 1] = 'x';
                const std::string lEncoded = encoded(*lpData);
                EXPECT_EQ(lpData->getLength(), lLength);
                EXPECT_EQ(lpData->getSize(), lEncoded.size());
                EXPECT_TRUE(lEncoded.ends_with(std::string(lBytes, lBytes + lLength - 1) + 'x'));
            }
        }
    }
}

TEST(ScopeDataTest, KeepsTheNamesItWasMadeWith) {
    const auto lName = makePointer<ZTCWorldWideName>(sName);
    const ZTCScopeData lData(event(), sName, 0, 0, lName, lName);
    const std::string lBefore = encoded(lData);
    *lName = ZTCWorldWideName();
    EXPECT_EQ(encoded(lData), lBefore);
}
