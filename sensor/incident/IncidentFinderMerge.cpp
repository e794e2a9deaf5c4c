#include <algorithm>

#include "IncidentFinderGroups.h"

namespace {

// The one that is told of longer, else the one that was made first.
bool sIsOlder(const ZTSOpenCase& acrOne, const ZTSOpenCase& acrOther) {
    if (acrOne.isIncident() != acrOther.isIncident()) {
        return acrOne.isIncident();
    }
    return acrOne.isIncident() ? acrOne.mIncident.mId < acrOther.mIncident.mId
                               : acrOne.mNumber < acrOther.mNumber;
}

}  // namespace

// ---- Two that are one ----

ZTSOpenCase& ZTCCaseGroups::merge(ZTSOpenCase& arOne, ZTSOpenCase& arOther) {
    ZTSOpenCase& lrOlder = sIsOlder(arOne, arOther) ? arOne : arOther;
    ZTSOpenCase& lrYounger = &lrOlder == &arOne ? arOther : arOne;
    ZTSCase& lrInto = lrOlder.mCase;
    ZTSCase& lrFrom = lrYounger.mCase;
    if (lrYounger.isIncident()) {
        mMerged.push_back({lrYounger.mIncident, lrYounger.mCase, lrOlder.mIncident.mId});
    }
    lrInto.mClusters.reserve(lrInto.mClusters.size() + lrFrom.mClusters.size());
    lrOlder.mClusters.reserve(lrInto.mClusters.capacity());
    leavePlaces(lrYounger);
    for (std::size_t lAt = 0; lAt < lrFrom.mClusters.size(); ++lAt) {
        lrInto.mClusters.push_back(std::move(lrFrom.mClusters[lAt]));
        lrOlder.mClusters.push_back(std::move(lrYounger.mClusters[lAt]));
    }
    lrFrom.mClusters.clear();
    lrYounger.mClusters.clear();
    lrInto.mReached.merge(lrFrom.mReached);
    for (auto& [lrName, lrMap] : lrFrom.mMaps) {
        const auto [lAt, lIsNew] = lrInto.mMaps.try_emplace(lrName, lrMap);
        if (!lIsNew) {
            ZTSCaseMap& lrMine = lAt->second;
            lrMine.mMissing.merge(lrMap.mMissing);
            lrMine.mLeast = std::min(lrMine.mLeast, lrMap.mLeast);
            lrMine.mSince = std::min(lrMine.mSince, lrMap.mSince);
            lrMine.mAllGone = lrMine.mAllGone == 0 ? lrMap.mAllGone : lrMine.mAllGone;
            lrMine.mBack = lrMine.mBack == 0 || lrMap.mBack == 0 ? 0 : std::max(lrMine.mBack, lrMap.mBack);
        }
    }
    lrInto.mDown.merge(lrFrom.mDown);
    lrInto.mLostTargets.merge(lrFrom.mLostTargets);
    lrInto.mStalled.merge(lrFrom.mStalled);
    lrInto.mAgentGone = lrInto.mAgentGone == 0 ? lrFrom.mAgentGone : lrInto.mAgentGone;
    lrInto.mLosses = std::max(lrInto.mLosses, lrFrom.mLosses);
    lrInto.mOpened = std::min(lrInto.mOpened, lrFrom.mOpened);
    goOn(lrOlder, lrFrom.mLast);
    lrOlder.mHasState = lrOlder.mHasState || lrYounger.mHasState;
    lrOlder.mRestored = std::max(lrOlder.mRestored, lrYounger.mRestored);
    if (lrYounger.mIsTold) {
        lrOlder.mToldHurt.unite(lrYounger.mToldHurt);
    }
    lrOlder.mIncident.mIsKept = lrOlder.mIncident.mIsKept || lrYounger.mIncident.mIsKept;
    sortClusters(lrOlder);
    setStale(lrOlder);
    lrOlder.mIsChanged = true;
    std::erase(mStale, &lrYounger);
    mCases.erase(lrYounger.mNumber);
    return lrOlder;
}

ZTSOpenCase& ZTCCaseGroups::merge(ZTSKnownSign& arOne, const Candidate& acrOther) {
    // By a sign of each they are found again.
    const ZTSKnownSign& lrOther = *acrOther.mpCase->mClusters[acrOther.mCluster].mSigns.front();
    ZTSOpenCase& lrCase = merge(*arOne.mpCase, *acrOther.mpCase);
    if (arOne.mpCase == &lrCase && lrOther.mpCase == &lrCase && arOne.mCluster != lrOther.mCluster) {
        mergeClusters(lrCase, arOne.mCluster, lrOther.mCluster);
    }
    return lrCase;
}

void ZTCCaseGroups::mergeClusters(ZTSOpenCase& arCase, std::size_t aInto, std::size_t aFrom) {
    ZTSOpenCase::Cluster& lrInto = arCase.mClusters[aInto];
    ZTSOpenCase::Cluster& lrFrom = arCase.mClusters[aFrom];
    auto& lrSums = arCase.mCase.mClusters[aInto].mSums;
    for (std::size_t lAt = 0; lAt < lrFrom.mSigns.size(); ++lAt) {
        lrSums.push_back(std::move(arCase.mCase.mClusters[aFrom].mSums[lAt]));
        lrInto.mSigns.push_back(lrFrom.mSigns[lAt]);
    }
    arCase.mClusters.erase(arCase.mClusters.begin() + static_cast<std::ptrdiff_t>(aFrom));
    arCase.mCase.mClusters.erase(arCase.mCase.mClusters.begin() + static_cast<std::ptrdiff_t>(aFrom));
    sortClusters(arCase);
}

// The oldest first, and each sign knows again where it is.
void ZTCCaseGroups::sortClusters(ZTSOpenCase& arCase) {
    std::vector<std::pair<ZTNanoseconds, std::size_t>> lOrder;
    for (std::size_t lAt = 0; lAt < arCase.mClusters.size(); ++lAt) {
        ZTNanoseconds lFirst = ZTNever;
        for (const ZTSSignSum& lrSum : arCase.mCase.mClusters[lAt].mSums) {
            lFirst = std::min(lFirst, lrSum.mSign.mFirst);
        }
        lOrder.emplace_back(lFirst, lAt);
    }
    std::ranges::sort(lOrder);
    std::vector<ZTSCluster> lClusters;
    std::vector<ZTSOpenCase::Cluster> lBeside;
    lClusters.reserve(lOrder.size());
    lBeside.reserve(lOrder.size());
    for (const auto& [lFirst, lAt] : lOrder) {
        lClusters.push_back(std::move(arCase.mCase.mClusters[lAt]));
        lBeside.push_back(std::move(arCase.mClusters[lAt]));
    }
    arCase.mCase.mClusters = std::move(lClusters);
    arCase.mClusters = std::move(lBeside);
    for (std::size_t lCluster = 0; lCluster < arCase.mClusters.size(); ++lCluster) {
        for (std::size_t lSum = 0; lSum < arCase.mClusters[lCluster].mSigns.size(); ++lSum) {
            ZTSKnownSign& lrSign = *arCase.mClusters[lCluster].mSigns[lSum];
            if (lrSign.mpCase == nullptr || lrSign.mpCase == &arCase) {
                lrSign.mpCase = &arCase;
                lrSign.mCluster = static_cast<std::uint32_t>(lCluster);
                lrSign.mSum = static_cast<std::uint32_t>(lSum);
            }
            const bool lIsReached = std::ranges::any_of(arCase.mCase.mReached, [&](const auto& acrReached) {
                return acrReached.second == lrSign.mSign.mSign;
            });
            addPlace(arCase, lCluster, lrSign, lIsReached);
        }
    }
}

void ZTCCaseGroups::tieLost(ZTSOpenCase& arCase) {
    ZTSOpenCase* lpCase = &arCase;
    const std::map<std::string, ZTSCaseMap> lMaps = arCase.mCase.mMaps;
    for (const auto& [lrName, lrMap] : lMaps) {
        const ZTSPlace* const lpPlace = mrBook.findPlace({ZTEFocus::Disk, {}, {}, lrName});
        const std::vector<ZTSOpenCase*> lOthers =
            lpPlace != nullptr ? lpPlace->mCases : std::vector<ZTSOpenCase*>();
        for (ZTSOpenCase* const lpOther : lOthers) {
            const bool lIsThere = std::ranges::any_of(
                mCases, [&](const auto& acrCase) { return acrCase.second.get() == lpOther; });
            if (lIsThere && lpOther != lpCase && !lpOther->isClosed() &&
                lpOther->mIncident.mClass == ZTEIncidentClass::RedundancyLost && lpOther->isIncident() &&
                missesPaths(*lpOther, lrName) && missesPaths(*lpCase, lrName)) {
                lpCase = &merge(*lpCase, *lpOther);
            }
        }
    }
}

// Links of all the host's ports on a fabric that go down at once are the fabric's.
void ZTCCaseGroups::tieDownLinks(const ZTSNewSign& acrNew) {
    const ZTSSign& lrSign = acrNew.mpSign->mSign;
    if ((lrSign.mSign != ZTESign::LinkDown && lrSign.mSign != ZTESign::PortGone) || lrSign.mFabric.empty()) {
        return;
    }
    const ZTNanoseconds lAtOnce = (mrRules.mTimes.mSettle + mrRules.mTimes.mSkew) * ZTSecond;
    std::vector<ZTSKnownSign*> lTied;
    for (const ZTSWwn& lrPort : mrMaps.findInitiators(lrSign.mFabric)) {
        ZTSKnownSign* const lpDown = findDownLink(lrPort, acrNew.mFirst, lAtOnce);
        if (lpDown == nullptr) {
            return;
        }
        lTied.push_back(lpDown);
    }
    for (ZTSKnownSign* const lpOther : lTied) {
        ZTSKnownSign& lrFirst = *lTied.front();
        if (lpOther->mpCase != lrFirst.mpCase) {
            merge(lrFirst, {lpOther->mpCase, lpOther->mCluster, ZTERelation::Link});
        }
    }
}

// What says so of a port, if it went down at about that time and still is.
ZTSKnownSign* ZTCCaseGroups::findDownLink(const ZTSWwn& acrPort, ZTNanoseconds aTime, ZTNanoseconds aAtOnce) {
    const ZTSPlace* const lpPlace = mrBook.findPlace({ZTEFocus::Initiator, acrPort, {}, ""});
    for (ZTSKnownSign* const lpSign : lpPlace != nullptr ? lpPlace->mSigns : std::vector<ZTSKnownSign*>()) {
        const ZTESign lSign = lpSign->mSign.mSign;
        if ((lSign == ZTESign::LinkDown || lSign == ZTESign::PortGone) && lpSign->mpCase != nullptr &&
            !lpSign->mpCase->isClosed()) {
            const auto lDown = lpSign->mpCase->mCase.mDown.find(acrPort);
            if (lDown != lpSign->mpCase->mCase.mDown.end() && std::abs(lDown->second - aTime) <= aAtOnce) {
                return lpSign;
            }
        }
    }
    return nullptr;
}

// ---- Keeping the index ----

void ZTCCaseGroups::leavePlaces(ZTSOpenCase& arCase) {
    for (const ZTSOpenCase::Cluster& lrCluster : arCase.mClusters) {
        for (ZTSKnownSign* const lpSign : lrCluster.mSigns) {
            lpSign->mpCase = lpSign->mpCase == &arCase ? nullptr : lpSign->mpCase;
            for (ZTSPlace* const lpPlace : lpSign->mPlaces) {
                std::erase(lpPlace->mCases, &arCase);
            }
        }
    }
}

ZTSOpenCase& ZTCCaseGroups::restore(std::unique_ptr<ZTSOpenCase> apCase) {
    apCase->mNumber = mNextNumber++;
    ZTSOpenCase& lrCase = *mCases.emplace(apCase->mNumber, std::move(apCase)).first->second;
    lrCase.mClusters.resize(lrCase.mCase.mClusters.size());
    for (std::size_t lAt = 0; lAt < lrCase.mClusters.size(); ++lAt) {
        for (const ZTSSignSum& lrSum : lrCase.mCase.mClusters[lAt].mSums) {
            ZTSKnownSign& lrSign = mrBook.find(lrSum.mSign);
            lrCase.mClusters[lAt].mSigns.push_back(&lrSign);
            ++lrSign.mHolders;
            lrSign.mpCase = nullptr;
        }
    }
    sortClusters(lrCase);
    return lrCase;
}

void ZTCCaseGroups::remove(ZTSOpenCase& arCase) {
    leavePlaces(arCase);
    for (const ZTSOpenCase::Cluster& lrCluster : arCase.mClusters) {
        for (ZTSKnownSign* const lpSign : lrCluster.mSigns) {
            --lpSign->mHolders;
        }
    }
    std::erase(mStale, &arCase);
    mCases.erase(arCase.mNumber);
}

void ZTCCaseGroups::index() {
    for (auto& [lNumber, lrpCase] : mCases) {
        for (ZTSOpenCase::Cluster& lrCluster : lrpCase->mClusters) {
            lrCluster.mAnchors.clear();
        }
        sortClusters(*lrpCase);
    }
}
