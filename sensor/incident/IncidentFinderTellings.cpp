#include <algorithm>

#include "IncidentFinderMemory.h"
#include "IncidentFinderTeller.h"

namespace {

constexpr std::size_t sMostPlaces = 64;

using Why = ZTSIncidentTelling::Why;

ZTNanoseconds sSeconds(unsigned int aSeconds) {
    return aSeconds * ZTSecond;
}

}  // namespace

// ---- Who is told ----

void ZTCCaseTeller::tell(ZTSOpenCase& arCase, ZTNanoseconds aNow) {
    const ZTSHurt lHurt = arCase.findHurt();
    const bool lIsWorse = lHurt.isWorseThan(arCase.mToldHurt);
    if (!arCase.mIsTold || arCase.mIsReopened || lIsWorse) {
        if (const ZTSWindow* const lpWindow = findWindowOf(arCase, aNow)) {
            // What it leaves behind is told when it is over.
            arCase.mTellAt =
                std::max(lpWindow->mLast + 1, aNow + sSeconds(std::max(mrRules.mTimes.mQuiet, 1U)));
            return;
        }
        const ZTSIncident& lrIncident = arCase.mIncident;
        const bool lIsFirst = lrIncident.mSeries == 0 || lrIncident.mSeries == lrIncident.mId;
        const Why lWhy = !arCase.mIsTold ? Why::Opened : arCase.mIsReopened ? Why::Reopened : Why::Worse;
        const bool lIsForCommand = lWhy == Why::Opened ? lIsFirst : lIsWorse;
        addTelling(arCase, lWhy, lIsForCommand, aNow);  // where there is no memory for it, it is told later
        arCase.mIsTold = true;
        arCase.mIsReopened = false;
        arCase.mToldAt = aNow;
        arCase.mToldHurt.unite(lHurt);
        arCase.mIsChanged = true;
    }
    arCase.mTellAt = ZTNever;
}

void ZTCCaseTeller::addTelling(ZTSOpenCase& arCase, Why aWhy, bool aIsForCommand, ZTNanoseconds aNow) {
    fill(arCase, aNow);
    mTellings.push_back({aWhy, arCase.mIncident, aIsForCommand});
    mTellings.back().mIncident.mMemory.clear();
}

void ZTCCaseTeller::fill(ZTSOpenCase& arCase, ZTNanoseconds aNow) const {
    ZTSIncident& lrIncident = arCase.mIncident;
    if (arCase.mClusters.empty()) {
        return;  // of one whose memory said nothing there is no other story than the one that was told
    }
    tellStory(arCase.mCase, lrIncident.mClass, frameAt(aNow), lrIncident);
    lrIncident.mOpened = arCase.mCase.mOpened;
    lrIncident.mLast = arCase.mCase.mLast;
    const ZTSWindow* const lpWindow = findWindowOf(arCase, aNow);
    lrIncident.mWindow = lpWindow == nullptr       ? ""
                         : lpWindow->mText.empty() ? lpWindow->mWhat
                                                   : lpWindow->mText;
    lrIncident.mMemory = toMemory(arCase);
}

// The one that all of it is in: each strong sign from its begin to its end, and what is not as it was.
const ZTSWindow* ZTCCaseTeller::findWindowOf(const ZTSOpenCase& acrCase, ZTNanoseconds aNow) const {
    if (mWindows.empty()) {
        return nullptr;
    }
    const ZTSWindow* lpWindow = nullptr;
    for (std::size_t lCluster = 0; lCluster < acrCase.mClusters.size(); ++lCluster) {
        const auto& lrSums = acrCase.mCase.mClusters[lCluster].mSums;
        for (std::size_t lAt = 0; lAt < lrSums.size(); ++lAt) {
            const ZTSSign& lrSign = lrSums[lAt].mSign;
            if (acrCase.mClusters[lCluster].mSigns[lAt]->isWeak()) {
                continue;
            }
            const bool lLasts = !acrCase.isClosed() && isHeld(acrCase.mCase, lrSign);
            for (const ZTNanoseconds lTime : {lrSign.mFirst, lrSign.mLast, lLasts ? aNow : lrSign.mLast}) {
                const ZTSWindow* const lpFound = findWindow(
                    mWindows, mrLabels, lTime, lTime, lrSign.mInitiator, lrSign.mRemote, lrSign.mFabric);
                const bool lIsOfMap = lrSign.mInitiator == ZTSWwn() && lrSign.mRemote == ZTSWwn();
                if (lpFound == nullptr && !lIsOfMap) {
                    return nullptr;
                }
                lpWindow = lpFound != nullptr ? lpFound : lpWindow;
            }
        }
    }
    return lpWindow;
}

// ---- Series ----

ZTCCaseTeller::Old ZTCCaseTeller::oldOf(const ZTSOpenCase& acrCase) {
    Old lOld;
    lOld.mClasses = acrCase.mClasses;
    lOld.mSeries = acrCase.mIncident.mSeries != 0 ? acrCase.mIncident.mSeries : acrCase.mIncident.mId;
    lOld.mClosed = acrCase.mIncident.mClosed;
    lOld.mPlaces.insert(acrCase.mFocus);
    for (const ZTSCluster& lrCluster : acrCase.mCase.mClusters) {
        lOld.mPlaces.insert(lrCluster.mFocus);
        for (const ZTSSignSum& lrSum : lrCluster.mSums) {
            const ZTSSign& lrSign = lrSum.mSign;
            if (lOld.mPlaces.size() < sMostPlaces && rowOf(lrSign.mSign).mWeight != ZTEWeight::Weak) {
                lOld.mPlaces.insert({lrSign.mRemote == ZTSWwn() ? ZTEFocus::Initiator : ZTEFocus::Pair,
                                     lrSign.mInitiator, lrSign.mRemote, ""});
            }
        }
    }
    return lOld;
}

std::uint64_t ZTCCaseTeller::findSeries(const ZTSOpenCase& acrCase, ZTEIncidentClass aClass,
                                        ZTNanoseconds aNow) const {
    const auto lIsLike = [&](const Old& acrOld) {
        return acrOld.mClasses.contains(aClass) && acrOld.mPlaces.contains(acrCase.mFocus) &&
               acrOld.mClosed + sSeconds(mrRules.mTimes.mSeries) >= aNow;
    };
    std::pair<ZTNanoseconds, std::uint64_t> lNewest{0, acrCase.mIncident.mId};
    for (const auto& [lNumber, lrpCase] : mrGroups.getCases()) {
        if (lrpCase->isClosed() && lrpCase->isIncident()) {
            const Old lOld = oldOf(*lrpCase);
            lNewest = lIsLike(lOld) ? std::max(lNewest, {lOld.mClosed, lOld.mSeries}) : lNewest;
        }
    }
    for (const Old& lrOld : mOld) {
        lNewest = lIsLike(lrOld) ? std::max(lNewest, {lrOld.mClosed, lrOld.mSeries}) : lNewest;
    }
    return lNewest.second == acrCase.mIncident.mId ? 0 : lNewest.second;
}
