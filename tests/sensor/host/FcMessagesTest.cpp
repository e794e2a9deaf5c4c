// FPINs as the kernel sends them, and what is missing among its messages.
#include <gtest/gtest.h>

#include <numeric>

#include "FailingAllocator.h"
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

std::string textOf(const ZTSFpin& acrOne) {
    std::string lText = acrOne.mInitiator.toText().substr(21) + " " + acrOne.mFabric + " " +
                        acrOne.mDescriptor + " " + acrOne.mEvent + " " + acrOne.mSeverity;
    for (const std::uint64_t lNumber : {std::uint64_t{acrOne.mModifier}, std::uint64_t{acrOne.mThreshold},
                                        std::uint64_t{acrOne.mPeriod}, acrOne.mCount}) {
        lText += " " + std::to_string(lNumber);
    }
    for (const auto& lrPort : {acrOne.mDetecting, acrOne.mAttached}) {
        lText += lrPort ? " " + lrPort->toText().substr(18) : " -";
    }
    for (const ZTSWwn& lrPort : acrOne.mPorts) {
        lText += " " + lrPort.toText().substr(21);
    }
    return lText;
}

TEST(FcMessages, AnFpinSaysAllOfItsDescriptors) {
    ZTCFcMessages lMessages;
    const std::string lAll = std::accumulate(FcEach.begin(), FcEach.end(), std::string());
    const std::string lOthers = fcDescriptor(0x20003, FcBoth + fcSent({{77, 2}, {0, 2}, {0, 4}, {0, 4}})) +
                                fcDescriptor(0x20004, fcSent({{0, 2}, {0, 2}, {0, 4}, {0, 4}})) +
                                fcDescriptor(0x20004, fcSent({{2, 2}, {0, 2}, {9, 4}, {0x55000000, 4}}));
    const auto lFpins = take(lMessages, fcMessage(4, 1, 0x501, fcEls(lAll)) + fcMessage(3, 2, 2) +
                                            fcMessage(3, 3, 0x502, fcEls(lOthers)) +
                                            fcMessage(9, 4, 0x501, fcEls(FcEach[4])));
    const std::vector<std::string> lExpected{
        "02 right link_integrity loss_of_synchronization  7 1000 0 5 00:01 11:0c 01 02",
        "02 right delivery timeout  0 0 0 0 00:01 11:0c",
        "02 right peer_congestion oversubscription  8 0 2000 0 00:01 11:0c 01",
        "02 right congestion lost_credit warning 9 0 3000 0 - -",
        "02 right 0x20007   0 0 0 0 - -",
        "01 left peer_congestion 77  0 0 0 0 00:01 11:0c",
        "01 left congestion clear  0 0 0 0 - -",
        "01 left congestion credit_stall 85 0 0 9 0 - -",
        "00  0x20007   0 0 0 0 - -"};
    ASSERT_EQ(lFpins.size(), lExpected.size());
    for (std::size_t lAt = 0; lAt < lFpins.size(); ++lAt) {
        EXPECT_EQ(textOf(lFpins[lAt]), lExpected[lAt]);
        EXPECT_TRUE(lFpins[lAt].mFirst == 7 && lFpins[lAt].mLast == 7 && lFpins[lAt].mTimes == 1);
    }
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
    const auto lLostBy = [&](std::uint32_t aNumber) {
        take(lMessages, fcMessage(3, aNumber, 2));
        return lMessages.countLost();
    };
    EXPECT_EQ(lLostBy(1), 0U);
    EXPECT_EQ(lLostBy(4), 2U);
    EXPECT_EQ(lLostBy(3), 2U);  // one of the two was late: so one more may be missing
    EXPECT_EQ(lLostBy(6), 2U);
    EXPECT_EQ(lLostBy(8), 3U);
    EXPECT_EQ(lLostBy(0x80000100), 3U);  // the kernel counts anew
    EXPECT_EQ(lLostBy(0x80000101), 3U);
}

TEST(FcMessages, ALossThatNoNumberTellsOfIsCountedOnce) {
    ZTCFcMessages lMessages;
    const auto lLostBy = [&](std::uint32_t aNumber) {
        take(lMessages, fcMessage(3, aNumber, 2));
        return lMessages.countLost();
    };
    const auto lLostAt = [&](ZTNanoseconds aSeconds) {
        lMessages.step(aSeconds * ZTSecond);
        return lMessages.countLost();
    };
    lMessages.noteLoss(0);
    EXPECT_EQ(lLostBy(7), 1U);  // what was before the first one has no number
    lMessages.noteLoss(ZTSecond);
    EXPECT_EQ(lLostBy(8), 1U);  // it waited while the one behind it was lost
    EXPECT_EQ(lLostAt(10), 1U);
    EXPECT_EQ(lLostAt(11), 2U);
    EXPECT_EQ(lLostAt(30), 2U);
    EXPECT_EQ(lLostBy(11), 3U);  // there were two
    lMessages.noteLoss(30 * ZTSecond);
    EXPECT_EQ(lLostBy(15), 6U);
    EXPECT_EQ(lLostAt(50), 6U);
}

TEST(FcMessages, WithoutMemoryAMessageIsToldOrLost) {
    const std::string lOne = fcMessage(3, 1, 0x501, fcEls(FcEach[0] + FcEach[2]));
    const std::vector<unsigned char> lBytes(lOne.begin(), lOne.end());
    const ZTSHostPorts lPorts = hostPorts();
    for (unsigned int lFailing = 1, lTold = 0; lTold == 0; ++lFailing) {
        ZTCFcMessages lMessages;
        std::vector<ZTSFpin> lFpins;
        take(lMessages, fcMessage(3, 0, 2));
        FailingAllocator lAllocator(lFailing);
        try {
            lMessages.take(lBytes, lPorts, 7, lFpins);
            ++lTold;
        } catch (const std::bad_alloc&) {
        }
        lAllocator.stop();
        take(lMessages, fcMessage(3, 2, 2));
        EXPECT_EQ(lFpins.size() / 2 + lMessages.countLost(), 1U) << lFailing;
    }
}

}  // namespace
