#include "IncidentFinderGroups.h"

#include <algorithm>

namespace {

bool sIsMap(const ZTSKnownSign& acrSign) {
    const ZTESign lSign = acrSign.mSign.mSign;
    return (lSign == ZTESign::PathLost || lSign == ZTESign::PathBack) && !acrSign.hasPorts();
}

bool sHasNoPath(const ZTSOpenCase& acrCase, const std::string& acrMap) {
    const auto lAt = acrCase.mCase.mMaps.find(acrMap);
    return lAt != acrCase.mCase.mMaps.end() && lAt->second.mBack == 0 && lAt->second.mTotal != 0 &&
           lAt->second.mLeft == 0;
}

// A volume or the map itself waits.
bool sStandsStill(const ZTSOpenCase& acrCase, const ZTSPlace& acrMap) {
    return std::ranges::any_of(acrMap.mSigns, [&](const ZTSKnownSign* apSign) {
        return apSign->mSign.mSign == ZTESign::Stall && apSign->mpCase == &acrCase &&
               acrCase.mCase.mStalled.contains(apSign->mSign.mDisk);
    });
}

}  // namespace

ZTNanoseconds ZTCCaseGroups::patience() const {
    return mrRules[ZTEIncidentClass::RedundancyLost].mPatience * ZTSecond;
}

void ZTCCaseGroups::setStale(ZTSOpenCase& arCase) {
    if (!arCase.mIsStale) {
        mStale.push_back(&arCase);
        arCase.mIsStale = true;
    }
}

ZTSOpenCase* ZTCCaseGroups::nextStale() {
    const auto lAt = std::ranges::min_element(mStale, {}, &ZTSOpenCase::mNumber);
    if (lAt == mStale.end()) {
        return nullptr;
    }
    ZTSOpenCase* const lpCase = *lAt;
    mStale.erase(lAt);
    lpCase->mIsStale = false;
    return lpCase;
}

// ---- What comes ----

// What has come at that place before, and was the same case then.
bool ZTCCaseGroups::isKnownThere(const ZTSNewSign& acrNew, bool aIsActive) const {
    const ZTSKnownSign& lrSign = *acrNew.mpSign;
    if (lrSign.mpCase == nullptr || (lrSign.mpCase->isClosed() && (aIsActive || !lrSign.isWeak()))) {
        return false;
    }
    const ZTSSign& lrSum = lrSign.mpCase->mCase.mClusters[lrSign.mCluster].mSums[lrSign.mSum].mSign;
    return areNear(*lrSign.mpRow, acrNew.mFirst, acrNew.mLast, *lrSign.mpRow, lrSum.mFirst, lrSum.mLast,
                   mrRules.mTimes) ||
           (!lrSign.mpCase->isClosed() && isHeld(lrSign.mpCase->mCase, lrSign.mSign));
}

ZTSOpenCase* ZTCCaseGroups::take(const ZTSNewSign& acrNew, bool aIsActive) {
    ZTSKnownSign& lrSign = *acrNew.mpSign;
    if (sIsMap(lrSign)) {
        return takeMap(acrNew);
    }
    if (isKnownThere(acrNew, aIsActive)) {
        ZTSOpenCase& lrCase = *lrSign.mpCase;
        if (acrNew.mKey > lrCase.mKnownTo) {
            addSum(lrCase, lrSign.mCluster, acrNew, aIsActive);
        }
        return &lrCase;
    }
    if (lrSign.mSign.mSign == ZTESign::Stall) {
        return takeStall(acrNew);
    }
    const Candidates lCandidates = findCandidates(acrNew, aIsActive);
    if (lCandidates.empty()) {
        if (!aIsActive) {
            wait(acrNew);
            return nullptr;
        }
        ZTSOpenCase& lrCase = open(acrNew);
        tieDownLinks(acrNew);
        return lrSign.mpCase != nullptr ? lrSign.mpCase : &lrCase;
    }
    const Candidate& lrBest = lCandidates.front();
    join(*lrBest.mpCase, lrBest.mCluster, acrNew, aIsActive);
    const bool lIsExplained =
        lrBest.mRelation >= ZTERelation::Link && !blamesInitiator(lrSign) && !blamesRemote(lrSign);
    for (const Candidate& lrOther : aIsActive && !lIsExplained ? lCandidates : Candidates()) {
        if (lrSign.mpCase != nullptr && isThere(lrOther.mpCase) && lrOther.mpCase != lrSign.mpCase &&
            !lrOther.mpCase->isClosed() && acrNew.mKey > lrOther.mpCase->mKnownTo) {
            merge(lrSign, lrOther);
        }
    }
    tieDownLinks(acrNew);
    return lrSign.mpCase;
}

bool ZTCCaseGroups::isThere(const ZTSOpenCase* apCase) const {
    return std::ranges::any_of(mCases, [&](const auto& acrCase) { return acrCase.second.get() == apCase; });
}

void ZTCCaseGroups::takeBack(const ZTSNewSign& acrNew) {
    const ZTSKnownSign& lrSign = *acrNew.mpSign;
    ZTSOpenCase* lpIts = nullptr;
    for (const ZTSPlace* const lpPlace : lrSign.mPlaces) {
        for (ZTSOpenCase* const lpCase : lpPlace->mCases) {
            if (!lpCase->isClosed() && acrNew.mKey > lpCase->mKnownTo && applyBack(*lpCase, acrNew)) {
                lpCase->mIsChanged = true;
                setStale(*lpCase);
                lpIts = lpIts == nullptr || lpCase->mNumber < lpIts->mNumber ? lpCase : lpIts;
            }
        }
    }
    if (lpIts == nullptr) {
        if (!sIsMap(lrSign)) {
            take(acrNew, false);
        }
        return;
    }
    join(*lpIts, findCluster(*lpIts, acrNew), acrNew, false);
}

// The one that has the state that this ends.
std::size_t ZTCCaseGroups::findCluster(const ZTSOpenCase& acrCase, const ZTSNewSign& acrNew) {
    const ZTSKnownSign& lrSign = *acrNew.mpSign;
    for (std::size_t lAt = 0; lAt < acrCase.mClusters.size(); ++lAt) {
        const bool lHasIt =
            std::ranges::any_of(acrCase.mClusters[lAt].mSigns, [&](const ZTSKnownSign* apState) {
                return apState->mSign.mSign == stateOf(lrSign.mSign.mSign) &&
                       apState->mpInitiator == lrSign.mpInitiator && apState->mpRemote == lrSign.mpRemote &&
                       apState->mSign.mDisk == lrSign.mSign.mDisk;
            });
        if (lHasIt) {
            return lAt;
        }
    }
    return acrCase.mClusters.size() - 1;
}

void ZTCCaseGroups::wait(const ZTSNewSign& acrNew) const {
    auto& lrWaiting = acrNew.mpSign->mWaiting;
    if (!lrWaiting.empty() && lrWaiting.back().mLast / ZTSecond == acrNew.mLast / ZTSecond) {
        ZTSWaiting& lrLast = lrWaiting.back();
        lrLast = {std::min(lrLast.mFirst, acrNew.mFirst), std::max(lrLast.mLast, acrNew.mLast),
                  lrLast.mEvents + acrNew.mEvents};
        return;
    }
    lrWaiting.push_back({acrNew.mFirst, acrNew.mLast, acrNew.mEvents});
}

void ZTCCaseGroups::forgetWaiting() {
    mrBook.each([this](ZTSKnownSign& arSign) {
        std::erase_if(arSign.mWaiting,
                      [this](const ZTSWaiting& acrWaiting) { return acrWaiting.mLast < mForgotten; });
    });
}

// ---- Where it belongs ----

bool ZTCCaseGroups::mayTake(const ZTSOpenCase& acrCase, const ZTSNewSign& acrNew, bool aIsActive) const {
    if (!acrCase.isClosed()) {
        return true;
    }
    const bool lMayReopen = acrCase.mIncident.mMerged == 0 &&
                            acrNew.mFirst <= acrCase.mIncident.mClosed + mrRules.mTimes.mReopen * ZTSecond;
    return aIsActive ? lMayReopen : acrNew.mpSign->isWeak();
}

ZTCCaseGroups::Candidates ZTCCaseGroups::findCandidates(const ZTSNewSign& acrNew, bool aIsActive) const {
    std::vector<ZTSOpenCase*> lCases;
    for (const ZTSPlace* const lpPlace : acrNew.mpSign->mPlaces) {
        for (ZTSOpenCase* const lpCase : lpPlace->mCases) {
            if (std::ranges::find(lCases, lpCase) == lCases.end() && mayTake(*lpCase, acrNew, aIsActive)) {
                lCases.push_back(lpCase);
            }
        }
    }
    Candidates lCandidates;
    for (ZTSOpenCase* const lpCase : lCases) {
        Candidate lBest{lpCase, 0, ZTERelation::None};
        for (std::size_t lAt = 0; lAt < lpCase->mClusters.size(); ++lAt) {
            const ZTERelation lRelation = relate(acrNew, aIsActive, *lpCase, lAt, mrRules.mTimes);
            if (lRelation > lBest.mRelation) {
                lBest = {lpCase, lAt, lRelation};
            }
        }
        if (lBest.mRelation != ZTERelation::None) {
            lCandidates.push_back(lBest);
        }
    }
    std::ranges::sort(lCandidates, [](const Candidate& acrOne, const Candidate& acrOther) {
        const auto lKey = [](const Candidate& acrOf) {
            return std::tuple(acrOf.mpCase->isClosed(), -static_cast<int>(acrOf.mRelation),
                              acrOf.mpCase->mCase.mOpened, acrOf.mpCase->mNumber);
        };
        return lKey(acrOne) < lKey(acrOther);
    });
    return lCandidates;
}

// Of a map as a whole: it counts for all that miss its paths, and is a sign of the one that was last to lose
// some.
ZTSOpenCase* ZTCCaseGroups::takeMap(const ZTSNewSign& acrNew) {
    const std::string& lrMap = acrNew.mpSign->mSign.mDisk;
    ZTSPlace* const lpPlace = acrNew.mpSign->mDisks.front();
    ZTSOpenCase* lpIts = nullptr;
    std::pair<ZTNanoseconds, std::uint64_t> lLatest;
    for (ZTSOpenCase* const lpCase : lpPlace->mCases) {
        if (lpCase->isClosed() || acrNew.mKey <= lpCase->mKnownTo || !missesPaths(*lpCase, lrMap)) {
            continue;
        }
        applyState(*lpCase, acrNew, patience());
        lpCase->mIsChanged = true;
        setStale(*lpCase);
        std::pair<ZTNanoseconds, std::uint64_t> lLost{0, lpCase->mNumber};
        for (const auto& [lrPorts, lSince] : lpCase->mCase.mMaps[lrMap].mMissing) {
            lLost.first = std::max(lLost.first, lSince);
        }
        if (lpIts == nullptr || lLost > lLatest) {
            lpIts = lpCase;
            lLatest = lLost;
        }
    }
    if (lpIts != nullptr) {
        join(*lpIts, lpIts->mClusters.size() - 1, acrNew, true);
    } else if (const Candidate lOver = findOverMap(acrNew, lrMap); lOver.mpCase != nullptr) {
        join(*lOver.mpCase, lOver.mCluster, acrNew, true);
    } else {
        open(acrNew);
    }
    if (acrNew.mTotal != 0 && acrNew.mLeft == 0) {
        std::vector<ZTSOpenCase*> lTied;
        for (ZTSOpenCase* const lpCase : lpPlace->mCases) {
            if (!lpCase->isClosed() && (missesPaths(*lpCase, lrMap) || sStandsStill(*lpCase, *lpPlace))) {
                lTied.push_back(lpCase);
            }
        }
        for (std::size_t lAt = 1; lAt < lTied.size(); ++lAt) {
            lTied[0] = &merge(*lTied[0], *lTied[lAt]);
        }
    }
    return acrNew.mpSign->mpCase;
}

ZTSOpenCase* ZTCCaseGroups::takeStall(const ZTSNewSign& acrNew) {
    for (const bool lHasNoPath : {true, false}) {
        for (const ZTSPlace* const lpMap : acrNew.mpSign->mDisks) {
            std::vector<ZTSOpenCase*> lCases = lpMap->mCases;
            std::ranges::sort(lCases, {}, &ZTSOpenCase::mNumber);
            for (ZTSOpenCase* const lpCase : lCases) {
                if (!lpCase->isClosed() && (lHasNoPath ? sHasNoPath(*lpCase, lpMap->mFocus.mName)
                                                       : missesPaths(*lpCase, lpMap->mFocus.mName))) {
                    join(*lpCase, lpCase->mClusters.size() - 1, acrNew, true);
                    return lpCase;
                }
            }
        }
    }
    Candidate lBest;
    if (const Candidates lCandidates = findCandidates(acrNew, true); !lCandidates.empty()) {
        lBest = lCandidates.front();
    }
    for (const ZTSPlace* const lpMap : acrNew.mpSign->mDisks) {
        const Candidate lOver = findOverMap(acrNew, lpMap->mFocus.mName);
        lBest = lOver.mRelation > lBest.mRelation ? lOver : lBest;
    }
    if (lBest.mpCase == nullptr) {
        return &open(acrNew);
    }
    join(*lBest.mpCase, lBest.mCluster, acrNew, true);
    return lBest.mpCase;
}

// The nearest trouble at the ports over which a map has its paths.
ZTCCaseGroups::Candidate ZTCCaseGroups::findOverMap(const ZTSNewSign& acrNew, const std::string& acrMap) {
    Candidate lBest;
    const auto* const lpPairs = mrMaps.findPairs(acrMap);
    for (const auto& [lrInitiator, lrRemote] :
         lpPairs != nullptr ? *lpPairs : std::set<ZTCFinderMaps::Pair>()) {
        ZTSSign lSign = acrNew.mpSign->mSign;
        lSign.mInitiator = lrInitiator;
        lSign.mRemote = lrRemote;
        ZTSNewSign lNew = acrNew;
        lNew.mpSign = &mrBook.find(lSign);
        lNew.mpSign->mUsed = acrNew.mKey;
        for (const Candidate& lrCandidate : findCandidates(lNew, false)) {
            if (lrCandidate.mRelation > lBest.mRelation && !lrCandidate.mpCase->isClosed()) {
                lBest = lrCandidate;
            }
        }
    }
    return lBest;
}

// ---- Into a case ----

ZTSOpenCase& ZTCCaseGroups::open(const ZTSNewSign& acrNew) {
    auto lpCase = std::make_unique<ZTSOpenCase>();
    lpCase->mNumber = mNextNumber++;
    lpCase->mCase.mClusters.emplace_back();
    lpCase->mClusters.emplace_back();
    lpCase->mCase.mOpened = acrNew.mFirst;
    lpCase->mChecked = acrNew.mKey;
    ZTSOpenCase& lrCase = *mCases.emplace(lpCase->mNumber, std::move(lpCase)).first->second;
    setStale(lrCase);
    join(lrCase, 0, acrNew, true);
    return lrCase;
}

void ZTCCaseGroups::join(ZTSOpenCase& arCase, std::size_t aCluster, const ZTSNewSign& acrNew,
                         bool aIsActive) {
    if (acrNew.mKey <= arCase.mKnownTo) {
        return;
    }
    addSum(arCase, aCluster, acrNew, aIsActive);
    if (aIsActive || !acrNew.mpSign->isWeak()) {
        adopt(arCase, aCluster, *acrNew.mpSign);
    }
}

void ZTCCaseGroups::addPlace(ZTSOpenCase& arCase, std::size_t aCluster, ZTSKnownSign& arSign,
                             bool aIsActive) {
    for (ZTSPlace* const lpPlace : arSign.mPlaces) {
        if (std::ranges::find(lpPlace->mCases, &arCase) == lpPlace->mCases.end()) {
            lpPlace->mCases.push_back(&arCase);
        }
    }
    ZTSOpenCase::Cluster& lrCluster = arCase.mClusters[aCluster];
    if (blamesInitiator(arSign)) {
        lrCluster.mInitiators.insert(arSign.mSign.mInitiator);
    }
    if (blamesRemote(arSign) && (aIsActive || !arSign.isWeak())) {
        for (ZTSPlace* const lpPlace : {arSign.mpRemote, arSign.mpController}) {
            if (lpPlace != nullptr &&
                std::ranges::find(lrCluster.mAnchors, lpPlace) == lrCluster.mAnchors.end()) {
                lrCluster.mAnchors.push_back(lpPlace);
            }
        }
    }
}

// What goes on is not quiet.
void ZTCCaseGroups::goOn(ZTSOpenCase& arCase, ZTNanoseconds aLast) {
    if (aLast > arCase.mCase.mLast) {
        arCase.mCase.mLast = aLast;
        if (arCase.mIncident.mState == ZTEIncidentState::Quiet) {
            arCase.mIncident.mState = ZTEIncidentState::Open;
            setStale(arCase);
        }
    }
}

void ZTCCaseGroups::addSum(ZTSOpenCase& arCase, std::size_t aCluster, const ZTSNewSign& acrNew,
                           bool aIsActive) {
    ZTSKnownSign& lrSign = *acrNew.mpSign;
    auto& lrSums = arCase.mCase.mClusters[aCluster].mSums;
    auto& lrSigns = arCase.mClusters[aCluster].mSigns;
    // A stall is told again and again as long as it lasts.
    const bool lIsSame = lrSign.mSign.mSign == ZTESign::Stall && isHeld(arCase.mCase, lrSign.mSign);
    std::size_t lAt = lrSign.mSum;
    if (lrSign.mpCase != &arCase || lrSign.mCluster != aCluster) {
        lAt = static_cast<std::size_t>(std::ranges::find(lrSigns, &lrSign) - lrSigns.begin());
    }
    if (lAt == lrSigns.size()) {
        lrSigns.push_back(&lrSign);
        try {
            lrSums.push_back({lrSign.mSign, false});
        } catch (...) {
            lrSigns.pop_back();
            throw;
        }
        ++lrSign.mHolders;
        lrSums[lAt].mSign.mFirst = acrNew.mFirst;
        lrSums[lAt].mSign.mLast = acrNew.mLast;
        lrSums[lAt].mSign.mEvents = acrNew.mEvents;
        setStale(arCase);
    } else {
        ZTSSign& lrSum = lrSums[lAt].mSign;
        lrSum.mFirst = std::min(lrSum.mFirst, acrNew.mFirst);
        lrSum.mLast = std::max(lrSum.mLast, acrNew.mLast);
        lrSum.mEvents += lIsSame ? 0 : acrNew.mEvents;
    }
    if (lrSign.mpCase != &arCase || lrSign.mCluster != aCluster) {
        lrSign.mpCase = &arCase;
        lrSign.mCluster = static_cast<std::uint32_t>(aCluster);
        addPlace(arCase, aCluster, lrSign, aIsActive);
    }
    lrSign.mSum = static_cast<std::uint32_t>(lAt);
    ZTSSign& lrSum = lrSums[lAt].mSign;
    if (acrNew.mTotal != 0) {
        lrSum.mLeft = acrNew.mLeft;
        lrSum.mTotal = acrNew.mTotal;
    }
    arCase.mCase.mOpened = std::min(arCase.mCase.mOpened, acrNew.mFirst);
    arCase.mIsChanged = true;
    if (aIsActive || !lrSign.isWeak()) {
        goOn(arCase, acrNew.mLast);
    }
    if (lrSign.isState()) {
        applyState(arCase, acrNew, patience());
        setStale(arCase);
    }
    if (arCase.isClosed() && aIsActive) {
        arCase.mIncident.mState = ZTEIncidentState::Open;
        arCase.mIncident.mClosed = 0;
        arCase.mIsReopened = true;
        setStale(arCase);
    }
}

void ZTCCaseGroups::adopt(ZTSOpenCase& arCase, std::size_t aCluster, const ZTSKnownSign& acrSign) {
    for (ZTSPlace* const lpPlace : acrSign.mPlaces) {
        for (std::size_t lAt = 0; lAt < lpPlace->mSigns.size(); ++lAt) {
            if (!lpPlace->mSigns[lAt]->mWaiting.empty()) {
                adoptWaiting(arCase, aCluster, *lpPlace->mSigns[lAt]);
            }
        }
    }
}

void ZTCCaseGroups::adoptWaiting(ZTSOpenCase& arCase, std::size_t aCluster, ZTSKnownSign& arSign) {
    std::vector<ZTSWaiting> lWaiting;
    lWaiting.swap(arSign.mWaiting);
    for (const ZTSWaiting& lrWaiting : lWaiting) {
        if (lrWaiting.mLast < mForgotten) {
            continue;
        }
        const ZTSNewSign lNew{
            lrWaiting.mLast, &arSign, lrWaiting.mFirst, lrWaiting.mLast, lrWaiting.mEvents, 0, 0};
        if (relate(lNew, false, arCase, aCluster, mrRules.mTimes) != ZTERelation::None) {
            addSum(arCase, aCluster, lNew, false);
        } else {
            arSign.mWaiting.push_back(lrWaiting);
        }
    }
}
