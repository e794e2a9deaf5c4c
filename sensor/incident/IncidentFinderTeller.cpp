#include "IncidentFinderTeller.h"

#include <algorithm>

#include "IncidentFinderMemory.h"

namespace {

constexpr std::size_t sMostChanges = 10000;
constexpr std::size_t sMostOld = 4096;  // a series that is older than so many incidents begins anew

using Why = ZTSIncidentTelling::Why;

ZTNanoseconds sSeconds(unsigned int aSeconds) {
    return aSeconds * ZTSecond;
}

}  // namespace

void ZTCCaseTeller::takeChange(const ZTSChange& acrChange) {
    const auto lAt = std::ranges::upper_bound(mChanges, acrChange.mTime, {}, &ZTSChange::mTime);
    mChanges.insert(lAt, acrChange);
    while (mChanges.size() > sMostChanges ||
           mChanges.front().mTime < mChanges.back().mTime - 2 * sSeconds(mrRules.mTimes.mChanges)) {
        mChanges.pop_front();
    }
}

// ---- What is new of a case ----

void ZTCCaseTeller::lookAtStale(ZTNanoseconds aNow) {
    takeMerged(aNow);
    while (ZTSOpenCase* const lpCase = mrGroups.nextStale()) {
        const std::uint64_t lNumber = lpCase->mNumber;
        try {
            look(*lpCase, aNow);
        } catch (...) {
            // There is room for it: it was there. But it may have become a part of another one.
            if (const auto lAt = mrGroups.getCases().find(lNumber); lAt != mrGroups.getCases().end()) {
                mrGroups.setStale(*lAt->second);
            }
            throw;
        }
        takeMerged(aNow);
    }
}

void ZTCCaseTeller::look(ZTSOpenCase& arCase, ZTNanoseconds aNow) {
    if (!arCase.isClosed()) {
        const auto lClass = classOf(arCase.mCase, frameAt(aNow));
        findHits(arCase);
        for (std::size_t lAt = 0; lAt < arCase.mClusters.size(); ++lAt) {
            ZTSCluster& lrCluster = arCase.mCase.mClusters[lAt];
            lrCluster.mFocus = findFocus(lrCluster, arCase.mClusters[lAt], mrLabels);
        }
        if (lClass && !arCase.isIncident()) {
            open(arCase, *lClass, aNow);
        } else if (lClass && arCase.mIncident.mClass != *lClass) {
            arCase.mIncident.mClass = *lClass;
            arCase.mClasses.insert(*lClass);
            arCase.mIsChanged = true;
        }
        if (arCase.isIncident()) {
            lookAtHurt(arCase, aNow);
        }
    }
    schedule(arCase, mForget);
    if (arCase.isIncident() && arCase.mIncident.mClass == ZTEIncidentClass::RedundancyLost &&
        !arCase.isClosed()) {
        mrGroups.tieLost(arCase);  // which may be its end
    }
}

// What stands above the ports that have signs, and above what misses paths or stands still, as it is now.
void ZTCCaseTeller::findHits(ZTSOpenCase& arCase) const {
    ZTSCase& lrCase = arCase.mCase;
    for (std::size_t lCluster = 0; lCluster < arCase.mClusters.size(); ++lCluster) {
        for (const ZTSKnownSign* const lpSign : arCase.mClusters[lCluster].mSigns) {
            const ZTSSign& lrSign = lpSign->mSign;
            const bool lCounts = !lpSign->isWeak() || arCase.hasReached(lrSign.mSign);
            const bool lIsNew = lCounts && lpSign->hasPorts() && lrSign.mDisk.empty() &&
                                arCase.mPortsOfHits.emplace(lrSign.mInitiator, lrSign.mRemote).second;
            for (const std::string& lrMap :
                 lIsNew ? mrMaps.findMaps(lrSign.mInitiator, lrSign.mRemote) : std::set<std::string>()) {
                mrMaps.addHits(lrMap, lrCase.mHits);
            }
        }
    }
    for (const auto& [lrName, lrMap] : lrCase.mMaps) {
        mrMaps.addHits(lrName, lrCase.mHits);
    }
    for (const auto& [lrDisk, lSince] : lrCase.mStalled) {
        mrMaps.addHits(lrDisk, lrCase.mHits);
    }
}

void ZTCCaseTeller::open(ZTSOpenCase& arCase, ZTEIncidentClass aClass, ZTNanoseconds aNow) {
    arCase.mIncident.mId = arCase.mCase.mId = mNextId++;
    arCase.mIncident.mClass = aClass;
    arCase.mIncident.mState = ZTEIncidentState::Open;
    arCase.mFocus = arCase.mCase.mClusters.front().mFocus;
    arCase.mIncident.mSeries = findSeries(arCase, aClass, aNow);
    arCase.mClasses.insert(aClass);
    arCase.mTellAt = std::max(soonAfter(aNow), firstTelling(arCase));
    arCase.mIsChanged = true;
}

// A sign is looked at later than it was by what the clocks of others may be behind; what time alone does is
// not.
ZTNanoseconds ZTCCaseTeller::soonAfter(ZTNanoseconds aNow) const {
    return aNow + sSeconds(mrRules.mTimes.mSettle) - sSeconds(mrRules.mTimes.mSkew);
}

ZTNanoseconds ZTCCaseTeller::firstTelling(const ZTSOpenCase& acrCase) const {
    return acrCase.mCase.mOpened + sSeconds(mrRules.mTimes.mTell);
}

// What comes at once is told at once: in one, when it has settled. What goes on to get worse, once a minute.
void ZTCCaseTeller::lookAtHurt(ZTSOpenCase& arCase, ZTNanoseconds aNow) const {
    const ZTNanoseconds lSoon = soonAfter(aNow);
    if (arCase.mIsReopened) {
        arCase.mTellAt = std::min(arCase.mTellAt, lSoon);
    }
    const ZTSHurt lHurt = arCase.findHurt();
    if (arCase.mIncident.mClass == ZTEIncidentClass::PortDown) {
        // Who knows that the port is down knows that its paths are gone, and for how long.
        arCase.mToldHurt.mIsLost = true;
        arCase.mToldHurt.mTenths = std::min(arCase.mToldHurt.mTenths, lHurt.mTenths);
    }
    if (arCase.mIsTold && lHurt.isWorseThan(arCase.mToldHurt)) {
        const bool lIsNew = lHurt.mIsLost > arCase.mToldHurt.mIsLost ||
                            (arCase.mToldHurt.mStandsStill.empty() && !lHurt.mStandsStill.empty());
        const ZTNanoseconds lLater = arCase.mToldAt + sSeconds(mrRules.mTimes.mQuiet);
        arCase.mTellAt = std::min(arCase.mTellAt, lIsNew ? lSoon : std::max(lSoon, lLater));
    }
}

// ---- What time alone changes ----

void ZTCCaseTeller::schedule(ZTSOpenCase& arCase, ZTNanoseconds aForget) {
    mForget = aForget;
    mDeadlines.erase({arCase.mDeadline, arCase.mNumber});
    arCase.mDeadline = findDeadline(arCase, mrRules, aForget);
    if (arCase.mDeadline != ZTNever) {
        mDeadlines.emplace(arCase.mDeadline, arCase.mNumber);
    }
}

void ZTCCaseTeller::lookAtDeadline(ZTNanoseconds aForget) {
    mForget = aForget;
    const auto [lNow, lNumber] = *mDeadlines.begin();
    const auto lAt = mrGroups.getCases().find(lNumber);
    if (lAt == mrGroups.getCases().end()) {
        mDeadlines.erase(mDeadlines.begin());
        return;
    }
    ZTSOpenCase& lrCase = *lAt->second;
    mrGroups.setStale(lrCase);  // from here on it has a new deadline in any case
    mDeadlines.erase(mDeadlines.begin());
    lrCase.mDeadline = ZTNever;
    lrCase.mChecked = std::max(lrCase.mChecked, lNow);
    const ZTNanoseconds lClose = findClose(lrCase, mrRules.mTimes);
    if (lrCase.isClosed() ? lNow >= lrCase.mIncident.mClosed + aForget
                          : !lrCase.isIncident() && lClose != ZTNever && lNow >= lClose + aForget) {
        remove(lrCase, lNow);
        return;
    }
    if (lrCase.mTellAt <= lNow) {
        lrCase.mTellAt = ZTNever;
        tell(lrCase, lNow);
    }
    if (lrCase.isIncident() && !lrCase.isClosed()) {
        if (lClose <= lNow) {
            close(lrCase, lClose);
        } else if (lClose == ZTNever && lrCase.mIncident.mState == ZTEIncidentState::Open &&
                   lNow >= lrCase.mCase.mLast + sSeconds(mrRules.mTimes.mQuiet)) {
            lrCase.mIncident.mState = ZTEIncidentState::Quiet;
            lrCase.mIsChanged = true;
        }
    }
    lookAtStale(lNow);
}

void ZTCCaseTeller::close(ZTSOpenCase& arCase, ZTNanoseconds aTime) {
    if (arCase.mTellAt <= std::max(aTime, firstTelling(arCase))) {
        arCase.mTellAt = ZTNever;
        tell(arCase, aTime);
    }
    // What it was about to the end is what it was.
    if (const auto lClass = classOf(arCase.mCase, frameAt(aTime))) {
        arCase.mIncident.mClass = *lClass;
        arCase.mClasses.insert(*lClass);
    }
    arCase.mIncident.mState = ZTEIncidentState::Closed;
    arCase.mIncident.mClosed = aTime;
    arCase.mIsChanged = true;
    if (arCase.mIsTold && !arCase.mIsReopened && findWindowOf(arCase, aTime) == nullptr) {
        addTelling(arCase, Why::Closed, false, aTime);
    }
    arCase.mToldHurt = {};
    arCase.mIsReopened = false;
    arCase.mTellAt = ZTNever;
}

void ZTCCaseTeller::remove(ZTSOpenCase& arCase, ZTNanoseconds aNow) {
    if (arCase.isIncident()) {
        mOld.push_back(oldOf(arCase));
        while (mOld.size() > sMostOld || mOld.front().mClosed + sSeconds(mrRules.mTimes.mSeries) < aNow) {
            mOld.pop_front();
        }
        if (arCase.mIsChanged) {
            fill(arCase, aNow);
            mGone[arCase.mIncident.mId] = arCase.mIncident;
        }
    }
    mrGroups.remove(arCase);
}

void ZTCCaseTeller::takeMerged(ZTNanoseconds aNow) {
    for (ZTSMerged& lrMerged : mrGroups.takeMerged()) {
        ZTSIncident& lrYounger = lrMerged.mYounger;
        tellStory(lrMerged.mCase, lrYounger.mClass, frameAt(aNow), lrYounger);
        lrYounger.mOpened = lrMerged.mCase.mOpened;
        lrYounger.mLast = lrMerged.mCase.mLast;
        lrYounger.mState = ZTEIncidentState::Closed;
        lrYounger.mClosed = aNow;
        lrYounger.mMerged = lrMerged.mInto;
        lrYounger.mMemory.clear();
        for (auto& [lId, lrGone] : mGone) {
            lrGone.mMerged = lrGone.mMerged == lrYounger.mId ? lrMerged.mInto : lrGone.mMerged;
        }
        mGone[lrYounger.mId] = std::move(lrYounger);
    }
}

// ---- From outside ----

void ZTCCaseTeller::restore(const ZTSIncident& acrIncident, ZTNanoseconds aKnownTo, ZTNanoseconds aForget) {
    if (acrIncident.mMerged != 0) {
        return;
    }
    ZTSOpenCase& lrCase = mrGroups.restore(fromMemory(acrIncident));
    lrCase.mKnownTo = aKnownTo;
    if (lrCase.isClosed() && acrIncident.mClosed + aForget < aKnownTo) {
        lrCase.mIsChanged = false;
        remove(lrCase, aKnownTo);
        return;
    }
    schedule(lrCase, aForget);
}

bool ZTCCaseTeller::ask(const ZTSIncidentAsk& acrAsk, ZTNanoseconds aNow) {
    const auto lAt = std::ranges::find_if(mrGroups.getCases(), [&](const auto& acrCase) {
        return acrCase.second->isIncident() && acrCase.second->mIncident.mId == acrAsk.mId;
    });
    if (lAt == mrGroups.getCases().end()) {
        return false;
    }
    ZTSOpenCase& lrCase = *lAt->second;
    lrCase.mIsChanged = true;
    switch (acrAsk.mWhat) {
        case ZTSIncidentAsk::What::Acknowledge:
            lrCase.mIncident.mAcknowledged = {acrAsk.mWho, acrAsk.mTime, acrAsk.mNote};
            break;
        case ZTSIncidentAsk::What::Keep:
            lrCase.mIncident.mIsKept = true;
            break;
        case ZTSIncidentAsk::What::Accept:
            if (!lrCase.isClosed()) {
                acceptPaths(lrCase, acrAsk.mTime);
                if (!lrCase.isAmiss()) {
                    close(lrCase, acrAsk.mTime);
                }
                mrGroups.setStale(lrCase);
                lookAtStale(aNow);
            }
            break;
    }
    return true;
}

void ZTCCaseTeller::lookAtAll(ZTNanoseconds aNow, ZTNanoseconds aForget) {
    mForget = aForget;
    for (auto& [lNumber, lrpCase] : mrGroups.getCases()) {
        mrGroups.setStale(*lrpCase);
    }
    lookAtStale(aNow);
}

std::vector<ZTSIncident> ZTCCaseTeller::takeIncidents(ZTNanoseconds aNow) {
    for (auto& [lNumber, lrpCase] : mrGroups.getCases()) {
        if (lrpCase->isIncident() && lrpCase->mIsChanged) {
            fill(*lrpCase, aNow);
            mGone[lrpCase->mIncident.mId] = lrpCase->mIncident;
            lrpCase->mIsChanged = false;
        }
    }
    std::vector<ZTSIncident> lIncidents;
    for (auto& [lId, lrIncident] : mGone) {
        lIncidents.push_back(std::move(lrIncident));
    }
    mGone.clear();
    return lIncidents;
}

std::size_t ZTCCaseTeller::getBytes() const {
    std::size_t lBytes = mChanges.size() * (sizeof(ZTSChange) + 64) + mOld.size() * 1024;
    for (const auto& [lNumber, lrpCase] : mrGroups.getCases()) {
        lBytes += sizeof(ZTSOpenCase) + 256;
        for (const ZTSCluster& lrCluster : lrpCase->mCase.mClusters) {
            lBytes += lrCluster.mSums.size() * (sizeof(ZTSSignSum) + 128);
        }
    }
    return lBytes;
}
