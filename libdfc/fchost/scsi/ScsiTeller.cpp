#include "ScsiTeller.h"

#include <algorithm>
#include <new>

#include "Delivery.h"

namespace {

// A host that has come is found by the next look, or the one behind it.
std::chrono::milliseconds sPatienceOf(const ZTSFcSettings& acrSettings) {
    return std::max<std::chrono::milliseconds>(4 * acrSettings.mPeriod, std::chrono::seconds(2));
}

}  // namespace

ZTCScsiTeller::ZTCScsiTeller(const ZTSFcSettings& acrSettings, const ZTCFcBoards& acrBoards,
                             ZTCFcRegistrations& arRegistrations, ZTCFcStatistics& arStatistics)
    : mrBoards(acrBoards),
      mrRegistrations(arRegistrations),
      mrStatistics(arStatistics),
      mTargets(acrSettings.mSysfs),
      mStrangers(acrSettings.mSysfs, sPatienceOf(acrSettings)),
      mRate(acrSettings.mRate) {}

// The kernel gives numbers anew. Of a host that goes and another that gets its number, both between two
// looks, what fails meanwhile is told as the first one's: each failure would have to ask sysfs else.
void ZTCScsiTeller::tell(const ZTSScsiFailure& acrFailure, Time aNow) {
    const auto lPlace = mrBoards.findHost(acrFailure.mKey.mHost);
    if (lPlace && lPlace->mIsThere) {
        tellKnown(acrFailure, *lPlace, aNow);
    } else {
        tellStranger(acrFailure, lPlace, aNow);
    }
}

// acrPlace: where the host of that number stood that the looks have known.
void ZTCScsiTeller::tellStranger(const ZTSScsiFailure& acrFailure, const std::optional<ZTSFcPlace>& acrPlace,
                                 Time aNow) try {
    const auto lFate = mStrangers.take(acrFailure, aNow);
    if (lFate == ZTCScsiStrangers::Gone && acrPlace) {
        tellKnown(acrFailure, *acrPlace, aNow);
    } else if (lFate == ZTCScsiStrangers::Gone || lFate == ZTCScsiStrangers::NoRoom) {
        mrStatistics.count(ZTFF_LostUnknownHost, acrFailure.mCount);
    }
} catch (const std::bad_alloc&) {
    mrStatistics.count(ZTFF_LostNoMemory, acrFailure.mCount);
}

void ZTCScsiTeller::tellKnown(const ZTSScsiFailure& acrFailure, const ZTSFcPlace& acrPlace, Time aNow) {
    const ZTSScsiKey& lrKey = acrFailure.mKey;
    std::uint64_t lPort = 0;
    try {
        lPort = mTargets.getPort({lrKey.mHost, lrKey.mChannel, lrKey.mTarget}, acrPlace.mIdentity, aNow);
    } catch (const std::bad_alloc&) {
        mrStatistics.count(ZTFF_LostNoMemory, acrFailure.mCount);
        return;
    }
    const ZTSScsiMeaning lMeaning = getScsiMeaning(lrKey);
    std::uint64_t lLeft = acrFailure.mCount;
    if (lMeaning.mKind) {
        lLeft = callBack(*lMeaning.mKind, {*lMeaning.mKind, acrFailure, lPort}, acrPlace.mBoard, lLeft, aNow);
    }
    if (lLeft != 0) {
        mrStatistics.count(lMeaning.mTotal, lLeft);
        mrStatistics.countFor(lMeaning.mByLun, lrKey.mHost, lPort, lrKey.mLun, lLeft);
    }
}

void ZTCScsiTeller::tell(const ZTSScsiDepthChange& acrChange, Time aNow) {
    const auto lPlace = mrBoards.findHost(acrChange.mHost);
    if (!lPlace || !lPlace->mIsThere) {
        mrStatistics.count(ZTFF_LostUnknownHost);
        return;
    }
    try {
        const std::uint64_t lPort = mTargets.getPort({acrChange.mHost, acrChange.mChannel, acrChange.mTarget},
                                                     lPlace->mIdentity, aNow);
        if (callBack(ZTSK_QueueDepthChange, {lPort, acrChange.mLun, acrChange.mOld, acrChange.mNow},
                     lPlace->mBoard, 1, aNow) != 0) {
            mrStatistics.count(ZTFF_BeyondQueueDepthChange);
            mrStatistics.countFor(ZTFL_Beyond, acrChange.mHost, lPort, acrChange.mLun, 1);
        }
    } catch (const std::bad_alloc&) {
        mrStatistics.count(ZTFF_LostNoMemory);
    }
}

// Returns how many are beyond the rate.
std::uint64_t ZTCScsiTeller::callBack(ZTEScsiKind aKind, const ZTCScsiEvent& acrEvent, std::uint32_t aBoard,
                                      std::uint64_t aCount, Time aNow) {
    const auto lIsWanted = mrRegistrations.each(aBoard, acrEvent.getId(), [](const auto& /*acrTo*/) {});
    HBA_wwn lNode{};
    HBA_wwn lPort{};
    if (lIsWanted == 0 || !mrBoards.getNames(aBoard, lNode, lPort)) {
        return 0;
    }
    const std::uint64_t lMost = mRate.take(aKind, aCount, aNow);
    std::uint64_t lTold = 0;
    while (lTold < lMost &&
           deliverFcEvent(mrRegistrations, aBoard, acrEvent.getId(), lPort, acrEvent.getPayload())) {
        ++lTold;
    }
    mrStatistics.count(toFcFigure(ZTFF_ToldQueueFull, aKind), lTold);
    return aCount - lMost;
}

void ZTCScsiTeller::settle(Time aNow, bool aIsLast) {
    const auto lTell = [&](const ZTSScsiFailure& acrFailure, const ZTSFcPlace& acrPlace) {
        tellKnown(acrFailure, acrPlace, aNow);
    };
    mrStatistics.count(ZTFF_LostUnknownHost,
                       mStrangers.settle(mrBoards, aIsLast ? Time::max() : aNow, lTell));
}
