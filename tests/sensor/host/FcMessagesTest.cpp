// FPINs as the kernel sends them, and what is missing among its messages.
#include <gtest/gtest.h>

#include "FcMessages.h"
#include "KernelBytes.h"

namespace {

ZTSHostPorts hostPorts() {
    ZTSHostPorts lPorts;
    lPorts.mLocal.push_back({{{}, *ZTSWwn::fromText("1000000000000001")}, "host3", "", "", "", {}, "left"});
    lPorts.mLocal.push_back({{{}, *ZTSWwn::fromText("1000000000000002")}, "host4", "", "", "", {}, "right"});
    return lPorts;
}

std::vector<ZTSFpin> take(ZTCFcMessages& arMessages, const std::string& acrBytes) {
    const std::vector<unsigned char> lExact(acrBytes.begin(), acrBytes.end());
    std::vector<ZTSFpin> lFpins;
    arMessages.take(lExact, hostPorts(), 7, lFpins);
    return lFpins;
}

std::string textOf(const ZTSFpin& acrFpin) {
    return acrFpin.mInitiator.toText().substr(21) + " " + acrFpin.mFabric + " " + acrFpin.mDescriptor + " " +
           acrFpin.mEvent + ": " +
           toFpinText(acrFpin, [](const ZTSWwn& acrPort) { return acrPort.toText().substr(18); });
}

TEST(FcMessages, AnFpinSaysAllOfItsDescriptors) {
    ZTCFcMessages lMessages;
    std::string lAll;
    for (const std::string& lrOne : FcEach) {
        lAll += lrOne;
    }
    const std::string lSix = fcSent({{1, 8}, {2, 8}, {3, 8}, {4, 8}, {5, 8}, {6, 8}});
    const std::string lOthers =
        fcDescriptor(0x20003, FcBoth + fcSent({{77, 2}, {0, 2}, {0, 4}, {6, 4}}) + lSix) +
        fcDescriptor(0x20004, fcSent({{0, 2}, {0, 2}, {0, 4}, {0, 4}})) +
        fcDescriptor(0x20004, fcSent({{2, 2}, {0, 2}, {9, 4}, {0x55000000, 4}}));
    const auto lFpins = take(lMessages, fcMessage(4, 1, 0x501, fcEls(lAll)) + fcMessage(3, 2, 2) +
                                            fcMessage(3, 3, 0x502, fcEls(lOthers)) +
                                            fcMessage(9, 4, 0x501, fcEls(FcEach[4])));
    const char* const lExpected[] = {
        "02 right link_integrity loss_of_synchronization: link integrity, loss of synchronization: 5 errors, "
        "counted over 1000 ms, at 11:0c, found by 00:01, concerns 00:01, 00:02",
        "02 right delivery timeout: delivery, timeout: at 11:0c, found by 00:01",
        "02 right peer_congestion oversubscription: peer congestion, oversubscription: for 2000 ms, at 11:0c, "
        "found by 00:01, concerns 00:01",
        "02 right congestion lost_credit: congestion, lost credit (warning): for 3000 ms",
        "02 right 0x20007 : 0x20007",
        "01 left peer_congestion 77: peer congestion, 77: at 11:0c, found by 00:01, concerns 00:01, 00:02, 00:03, "
        "00:04 and 2 more",
        "01 left congestion clear: congestion, clear",
        "01 left congestion credit_stall: congestion, credit stall (85): for 9 ms",
        "00  0x20007 : 0x20007"};
    ASSERT_EQ(lFpins.size(), std::size(lExpected));
    for (std::size_t lAt = 0; lAt < lFpins.size(); ++lAt) {
        EXPECT_EQ(textOf(lFpins[lAt]), lExpected[lAt]);
        EXPECT_TRUE(lFpins[lAt].mFirst == 7 && lFpins[lAt].mLast == 7 && lFpins[lAt].mTimes == 1);
    }
    EXPECT_EQ(lFpins[0].mModifier, 7U);
    EXPECT_EQ(lMessages.countFpins(), 3U);
    EXPECT_EQ(lMessages.countMalformed() + lMessages.countLost(), 0U);
}

TEST(FcMessages, WhatIsWrongOrMissingIsCounted) {
    ZTCFcMessages lMessages;
    EXPECT_EQ(take(lMessages, fcMessage(3, 0xfffffffe, 0x501, fcEls(FcEach[1]) + "filler")).size(), 1U);
    EXPECT_EQ(lMessages.countMalformed(), 0U);
    EXPECT_EQ(take(lMessages, fcMessage(3, 0xffffffff, 0x501, fcEls(FcEach[1] + "bad"))).size(), 1U);
    EXPECT_TRUE(take(lMessages, fcMessage(3, 0, 0x501, "")).empty());
    EXPECT_TRUE(take(lMessages, std::string(20, 'x')).empty());
    EXPECT_EQ(lMessages.countMalformed(), 3U);
    EXPECT_EQ(lMessages.countFpins(), 3U);
    EXPECT_EQ(lMessages.countLost(), 0U);
    take(lMessages, fcMessage(3, 4, 2));  // 1 to 3 are missing
    EXPECT_EQ(lMessages.countLost(), 3U);
    take(lMessages, fcMessage(3, 2, 2) + fcMessage(3, 5, 2));  // one of them was late
    EXPECT_EQ(lMessages.countLost(), 2U);
    take(lMessages, fcMessage(3, 0x80000100, 2));  // the kernel counts anew
    take(lMessages, fcMessage(3, 0x80000101, 2));
    EXPECT_EQ(lMessages.countLost(), 2U);
}

}  // namespace
