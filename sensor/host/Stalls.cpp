#include "Stalls.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "StorageIndex.h"

namespace {

using Clock = ZTCStalls::Clock;

constexpr Clock::duration sTellAgain = std::chrono::minutes(1);
constexpr Clock::duration sLate = 3 * ZTCStalls::Every;
// The steady clock stands while a host sleeps, the other one does not.
constexpr Clock::duration sSlept = std::chrono::seconds(3);
// A stall of an earlier run that was told so long ago may be another one by now.
constexpr Clock::duration sForgotten = std::chrono::minutes(3);

ZTNanoseconds sNanoseconds(Clock::duration aTime) {
    return std::chrono::nanoseconds(aTime).count();
}
Clock::duration sBetween(ZTNanoseconds aFirst, ZTNanoseconds aLast) {
    return std::chrono::nanoseconds(aLast - aFirst);
}

void sDescribe(ZTSStall& arStall, const ZTCStorageIndex& acrIndex) {
    const std::string& lrDisk = arStall.mDisk;
    const ZTSMap* const lpMap = acrIndex.findMap(lrDisk);
    const ZTSVolume* const lpVolume = acrIndex.findVolume(lrDisk);
    const ZTSLun* const lpLun = acrIndex.findDisk(lrDisk);
    const bool lIsMap = lpMap != nullptr && lpMap->mDisk == lrDisk;
    arStall.mHits = acrIndex.hitBy(lrDisk).toText();
    arStall.mName = lIsMap                ? lpMap->mName
                    : lpVolume != nullptr ? lpVolume->mName
                    : lpLun != nullptr    ? lpLun->getName()
                                          : lrDisk;
    arStall.mKind = lIsMap ? "map" : lpVolume != nullptr ? "volume" : lpMap != nullptr ? "path" : "disk";
}

}  // namespace

void ZTCStalls::setStart(std::vector<ZTSStall> aStalls) {
    mStart = std::move(aStalls);
}

std::vector<ZTSStall> ZTCStalls::look(const std::vector<ZTSDiskStats>& acrStats,
                                      const ZTSHostStorage& acrStorage, ZTNanoseconds aTime,
                                      Clock::time_point aNow) {
    const Clock::duration lSteady = aNow - mLast;
    const bool lIsLate = mLook != 0 && (lSteady > sLate || sBetween(mLastTime, aTime) - lSteady > sSlept);
    ++mLook;
    for (const ZTSDiskStats& lrStats : acrStats) {
        if (lrStats.mInFlight != 0) {
            see(lrStats, lIsLate, aTime, aNow);
        }
    }
    for (auto lAt = mWaiting.begin(); lAt != mWaiting.end();) {
        if (lAt->second.mLook == mLook) {
            ++lAt;
        } else {
            end(lAt->first, lIsLate, aNow);
            lAt = mWaiting.erase(lAt);
        }
    }
    takeStart(aTime, aNow);
    mLast = aNow;
    mLastTime = aTime;
    return tell(acrStorage, aNow);
}

void ZTCStalls::see(const ZTSDiskStats& acrStats, bool aIsLate, ZTNanoseconds aTime, Clock::time_point aNow) {
    const auto [lAt, lIsNew] = mWaiting.try_emplace(acrStats.mDisk);
    Waiting& lrWaiting = lAt->second;
    if (lIsNew || lrWaiting.mCompleted != acrStats.mCompleted) {
        if (!lIsNew) {
            end(acrStats.mDisk, aIsLate, aNow);
        }
        lrWaiting = {acrStats.mCompleted, aNow, acrStats.mInFlight, mLook};
        return;
    }
    lrWaiting.mLook = mLook;
    lrWaiting.mMost = std::max(lrWaiting.mMost, acrStats.mInFlight);
    if (aIsLate && !mStalls.contains(acrStats.mDisk)) {
        lrWaiting.mSince = aNow;
    } else if (aNow - lrWaiting.mSince >= LongEnough) {
        goOn(acrStats.mDisk, lrWaiting, aTime, aNow);
    }
}

// The begin is reckoned back from now, so that a clock that was set since has no part in it.
void ZTCStalls::goOn(const std::string& acrDisk, const Waiting& acrWaiting, ZTNanoseconds aTime,
                     Clock::time_point aNow) {
    auto lAt = mStalls.find(acrDisk);
    if (lAt == mStalls.end()) {
        Stalled lStalled;
        lStalled.mStall.mDisk = acrDisk;
        lStalled.mStall.mFirst = aTime - sNanoseconds(aNow - acrWaiting.mSince);
        lStalled.mSince = acrWaiting.mSince;
        lAt = mStalls.emplace(acrDisk, std::move(lStalled)).first;
    }
    Stalled& lrStalled = lAt->second;
    lrStalled.mIsSeen = true;
    lrStalled.mStall.mLast = lrStalled.mStall.mFirst + sNanoseconds(aNow - lrStalled.mSince);
    lrStalled.mStall.mInFlight = std::max(lrStalled.mStall.mInFlight, acrWaiting.mMost);
}

void ZTCStalls::end(const std::string& acrDisk, bool aIsLate, Clock::time_point aNow) {
    const auto lAt = mStalls.find(acrDisk);
    if (lAt == mStalls.end()) {
        return;
    }
    const Stalled& lrStalled = lAt->second;
    mOver.push_back(lrStalled.mStall);
    mOver.back().mIsOver = true;
    if (lrStalled.mIsSeen && !aIsLate) {
        mOver.back().mLast = mOver.back().mFirst + sNanoseconds(aNow - lrStalled.mSince);
    }
    mStalls.erase(lAt);
}

void ZTCStalls::takeStart(ZTNanoseconds aTime, Clock::time_point aNow) {
    for (; !mStart.empty(); mStart.pop_back()) {
        const ZTSStall& lrStall = mStart.back();
        const Clock::duration lSilent = sBetween(lrStall.mLast, aTime);
        const bool lMayGoOn = mWaiting.contains(lrStall.mDisk) && !mStalls.contains(lrStall.mDisk) &&
                              lSilent >= Clock::duration::zero() && lSilent < sForgotten;
        if (lrStall.mIsOver) {
            continue;
        }
        if (lMayGoOn) {
            mStalls.emplace(lrStall.mDisk,
                            Stalled{lrStall, aNow - sBetween(lrStall.mFirst, aTime), aNow, false, false});
        } else {
            mOver.push_back(lrStall);
            mOver.back().mIsOver = true;
        }
    }
}

// What cannot be told for want of memory stays untold.
std::vector<ZTSStall> ZTCStalls::tell(const ZTSHostStorage& acrStorage, Clock::time_point aNow) {
    std::optional<ZTCStorageIndex> lIndex;  // costs something, and is seldom needed
    const auto lAdd = [&](ZTSStall& arStall, std::vector<ZTSStall>& arTold) {
        // The storage may not have been looked at yet when it was told first.
        if (arStall.mKind.empty() || (!arStall.mIsOver && arStall.mHits.empty())) {
            sDescribe(arStall, lIndex ? *lIndex : lIndex.emplace(acrStorage));
        }
        arTold.push_back(arStall);
    };
    const auto lIsDue = [=](const Stalled& acrStalled) {
        return acrStalled.mIsUntold || aNow - acrStalled.mTold >= sTellAgain;
    };
    std::vector<ZTSStall> lTold;
    for (ZTSStall& lrOver : mOver) {
        lAdd(lrOver, lTold);
    }
    for (auto& [lrDisk, lrStalled] : mStalls) {
        if (lIsDue(lrStalled)) {
            lAdd(lrStalled.mStall, lTold);
        }
    }
    mOver.clear();
    for (auto& [lrDisk, lrStalled] : mStalls) {
        if (lIsDue(lrStalled)) {
            lrStalled.mTold = aNow;
            lrStalled.mIsUntold = false;
        }
    }
    return lTold;
}
