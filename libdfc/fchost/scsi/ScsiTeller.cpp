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

void ZTCScsiTeller::tell(const ZTSScsiFailure& acrFailure, Time aNow) {
    try {
        if (const auto lPlace = mrBoards.findHost(acrFailure.mKey.mHost)) {
            tellKnown(acrFailure, *lPlace, aNow);
        } else {
            mrStatistics.count(ZTFF_LostUnknownHost, mStrangers.take(acrFailure, aNow));
        }
    } catch (const std::bad_alloc&) {
        mrStatistics.count(ZTFF_LostNoMemory, acrFailure.mCount);
    }
}

// Only what comes first may throw.
void ZTCScsiTeller::tellKnown(const ZTSScsiFailure& acrFailure, const ZTSFcPlace& acrPlace, Time aNow) {
    const ZTSScsiKey& lrKey = acrFailure.mKey;
    const std::uint64_t lPort =
        mTargets.getPort({lrKey.mHost, lrKey.mChannel, lrKey.mTarget}, acrPlace.mIdentity, aNow);
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
    if (!lPlace) {
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
    const auto lTell = [&](const ZTSScsiFailure& acrFailure) { tell(acrFailure, aNow); };
    mrStatistics.count(ZTFF_LostUnknownHost,
                       mStrangers.settle(mrBoards, aIsLast ? Time::max() : aNow, lTell));
}
