// What the thread of SCSI errors works on: boards, who has registered, figures; and failed commands.
#pragma once

#include "../FcTest.h"
#include "FailingAllocator.h"
#include "ProviderCalls.h"
#include "ScsiTeller.h"

/// aSense: key, ASC and ASCQ, a byte each; below 0: none.
inline ZTSScsiFailure scsiFailure(std::uint32_t aResult, int aSense = -1, std::uint32_t aHost = 3) {
    ZTSScsiFailure lFailure{.mTag = 7};
    lFailure.mKey.mHost = aHost;
    lFailure.mKey.mTarget = 1;
    lFailure.mKey.mLun = 5;
    lFailure.mKey.mResult = aResult;
    lFailure.mKey.mOperationCode = 0x2a;
    if (aSense >= 0) {
        lFailure.mKey.mHasSense = 1;
        lFailure.mKey.mSenseKey = static_cast<std::uint8_t>(aSense >> 16);
        lFailure.mKey.mAsc = static_cast<std::uint8_t>(aSense >> 8);
        lFailure.mKey.mAscq = static_cast<std::uint8_t>(aSense);
    }
    return lFailure;
}
constexpr std::uint32_t ZTTestQueueFull = 0x28;
constexpr std::uint64_t ZTTestPort = 0x50060160bb20110c;

/// Hosts 3 and 7, of which each kind is registered for, and target 3:0:1.
struct ZTSScsiTestStand {
    explicit ZTSScsiTestStand(std::uint32_t aRate = 10000, ZT_generic_callback apCallback = onTestEvent) {
        mSettings.mSysfs = mTree.getPath();
        mSettings.mLog = mTree.getPath() + "/log";
        mSettings.mPeriod = std::chrono::milliseconds(20);
        mSettings.mRate = aRate;
        mTree.addHost(3);
        mTree.addHost(7);
        mTree.add("fc_transport/target3:0:1", {{"port_name", fcDigits(ZTTestPort)}});
        look();
        for (const ZTSFcEventId& lrId :
             {ZTSFcEventId{0, 2, 4}, {0, 4, 1}, {0, 4, 2}, {0, 4, 4}, {0, 4, 8}, {0, 4, 16}, {0, 4, 64}}) {
            for (const std::uint32_t lBoard : {0U, 1U, 2U}) {
                mRegistrations.add({.mBoard = lBoard,
                                    .mId = lrId,
                                    .mpGeneric = apCallback,
                                    .mpContext = const_cast<char*>("board")});
            }
        }
        takeCalls();
        ZTTestCalls.mCount = 0;
    }
    void look() {
        const auto lHosts = ZTCFcSysfs(mTree.getPath()).look();
        ZTFcEvents lEvents;
        mWatcher ? mWatcher->look(*lHosts, {}, lEvents) : void(mWatcher.emplace(*lHosts, mSettings.mPeriod));
        mBoards.update(*mWatcher);
    }
    std::string getLog() const { return readFile(mSettings.mLog); }
    std::vector<std::uint64_t> getFigures() {
        std::vector<std::uint64_t> lFigures;
        for (unsigned int lAt = 0; lAt < ZTFF_Count; ++lAt) {
            lFigures.push_back(mStatistics.get(static_cast<ZTEFcFigure>(lAt)));
        }
        return lFigures;
    }
    // Of LUN 5 behind the port.
    std::uint64_t getOfLun(ZTEFcLunFigure aFigure) {
        return mStatistics.countFor(aFigure, 3, ZTTestPort, 5, 0);
    }

    ZTCFcTestTree mTree;
    ZTSFcSettings mSettings;
    std::optional<ZTCFcWatcher> mWatcher;
    ZTCFcBoards mBoards;
    ZTCFcRegistrations mRegistrations;
    ZTCFcStatistics mStatistics{"", mTree.getPath() + "/log"};
};
