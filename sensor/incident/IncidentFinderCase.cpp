#include "IncidentFinderCase.h"

#include <algorithm>

namespace {

ZTNanoseconds sSeconds(unsigned int aSeconds) {
    return aSeconds * ZTSecond;
}

void sLosePath(ZTSCaseMap& arMap, const ZTSNewSign& acrNew, ZTNanoseconds aPatience) {
    if (arMap.mSince == 0) {
        arMap.mSince = acrNew.mFirst;
    } else if (arMap.mBack != 0) {
        // What was a symptom before does not make it older; what was more than that stays so.
        if (arMap.mBack - arMap.mSince < aPatience) {
            arMap.mSince = acrNew.mFirst;
        }
    } else {
        arMap.mSince = std::min(arMap.mSince, acrNew.mFirst);
    }
    arMap.mBack = 0;
}

void sCountPaths(ZTSCaseMap& arMap, const ZTSNewSign& acrNew) {
    if (acrNew.mTotal == 0) {
        return;
    }
    arMap.mLeast = arMap.mTotal == 0 ? acrNew.mLeft : std::min(arMap.mLeast, acrNew.mLeft);
    arMap.mLeft = acrNew.mLeft;
    arMap.mTotal = acrNew.mTotal;
    if (acrNew.mLeft == 0 && arMap.mAllGone == 0) {
        arMap.mAllGone = acrNew.mFirst;
    }
}

bool sPathIsBack(ZTSCaseMap& arMap, const ZTSNewSign& acrNew) {
    const ZTSSign& lrSign = acrNew.mpSign->mSign;
    sCountPaths(arMap, acrNew);
    if (arMap.mBack != 0 || acrNew.mLeft < acrNew.mTotal) {
        return acrNew.mTotal != 0;
    }
    if (acrNew.mTotal != 0) {
        arMap.mMissing.clear();
    } else if (!acrNew.mpSign->hasPorts()) {
        // The map itself is no more: nothing of it is missing.
        arMap.mMissing.clear();
        arMap.mLeft = arMap.mTotal;
    } else if (arMap.mMissing.erase({lrSign.mInitiator, lrSign.mRemote}) == 0) {
        return false;
    }
    if (arMap.mMissing.empty()) {
        arMap.mBack = acrNew.mLast;
    }
    return true;
}

template <class Since>
void sAddPatience(ZTNanoseconds& arNext, const ZTSOpenCase& acrCase, const ZTSIncidentRules& acrRules,
                  const Since& acrSince) {
    for (const ZTSClassRow& lrRow : acrRules.mClasses) {
        const ZTNanoseconds lAt = acrSince + sSeconds(lrRow.mPatience);
        if (lrRow.mPatience != 0 && acrSince != 0 && lAt > acrCase.mChecked) {
            arNext = std::min(arNext, lAt);
        }
    }
}

ZTNanoseconds sNextPatience(const ZTSOpenCase& acrCase, const ZTSIncidentRules& acrRules) {
    ZTNanoseconds lNext = ZTNever;
    sAddPatience(lNext, acrCase, acrRules, acrCase.mCase.mAgentGone);
    for (const auto& [lrName, lrMap] : acrCase.mCase.mMaps) {
        sAddPatience(lNext, acrCase, acrRules, lrMap.mBack == 0 ? lrMap.mSince : 0);
    }
    // Paths that a link took are lost when it has been back for as long.
    for (const ZTSCluster& lrCluster : acrCase.mCase.mClusters) {
        for (const ZTSSignSum& lrSum : lrCluster.mSums) {
            const bool lIsBack =
                lrSum.mSign.mSign == ZTESign::LinkUp || lrSum.mSign.mSign == ZTESign::PortBack;
            sAddPatience(lNext, acrCase, acrRules, lIsBack ? lrSum.mSign.mLast : 0);
        }
    }
    for (const auto& [lrPort, lSince] : acrCase.mCase.mDown) {
        sAddPatience(lNext, acrCase, acrRules, lSince);
    }
    for (const auto& [lrPorts, lSince] : acrCase.mCase.mLostTargets) {
        sAddPatience(lNext, acrCase, acrRules, lSince);
    }
    for (const auto& [lrDisk, lSince] : acrCase.mCase.mStalled) {
        sAddPatience(lNext, acrCase, acrRules, lSince);
    }
    return lNext;
}

}  // namespace

bool ZTSHurt::isWorseThan(const ZTSHurt& acrOther) const {
    return (mIsLost && (!acrOther.mIsLost || mTenths < acrOther.mTenths)) ||
           !std::ranges::includes(acrOther.mStandsStill, mStandsStill);
}

void ZTSHurt::unite(const ZTSHurt& acrOther) {
    mTenths = std::min(mTenths, acrOther.mTenths);
    mIsNoneLeft = mIsNoneLeft || acrOther.mIsNoneLeft;
    mIsLost = mIsLost || acrOther.mIsLost;
    mStandsStill.insert(acrOther.mStandsStill.begin(), acrOther.mStandsStill.end());
}

bool ZTSOpenCase::isAmiss() const {
    return !mCase.mDown.empty() || !mCase.mLostTargets.empty() || !mCase.mStalled.empty() ||
           mCase.mAgentGone != 0 ||
           std::ranges::any_of(mCase.mMaps, [](const auto& acrMap) { return acrMap.second.mBack == 0; });
}

bool ZTSOpenCase::hasReached(ZTESign aSign) const {
    return std::ranges::any_of(mCase.mReached,
                               [&](const auto& acrReached) { return acrReached.second == aSign; });
}

ZTSHurt ZTSOpenCase::findHurt() const {
    ZTSHurt lHurt;
    lHurt.mIsLost = mIncident.mClass == ZTEIncidentClass::RedundancyLost;
    for (const auto& [lrName, lrMap] : mCase.mMaps) {
        if (lrMap.mTotal != 0 && lrMap.mBack == 0) {
            lHurt.mTenths = std::min(lHurt.mTenths, lrMap.mLeft * 10 / lrMap.mTotal);
            if (lrMap.mLeft == 0) {
                lHurt.mIsNoneLeft = true;
                lHurt.mStandsStill.insert(lrName);
            }
        }
    }
    for (const auto& [lrDisk, lSince] : mCase.mStalled) {
        lHurt.mStandsStill.insert(lrDisk);
    }
    return lHurt;
}

void applyState(ZTSOpenCase& arCase, const ZTSNewSign& acrNew, ZTNanoseconds aPatience) {
    const ZTSSign& lrSign = acrNew.mpSign->mSign;
    ZTSCase& lrCase = arCase.mCase;
    arCase.mHasState = true;
    switch (lrSign.mSign) {
        case ZTESign::LinkDown:
        case ZTESign::PortGone:
            lrCase.mDown.try_emplace(lrSign.mInitiator, acrNew.mFirst);
            break;
        case ZTESign::TargetLost:
            lrCase.mLostTargets.try_emplace({lrSign.mInitiator, lrSign.mRemote}, acrNew.mFirst);
            break;
        case ZTESign::PathLost: {
            ZTSCaseMap& lrMap = lrCase.mMaps[lrSign.mDisk];
            sLosePath(lrMap, acrNew, aPatience);
            sCountPaths(lrMap, acrNew);
            if (acrNew.mpSign->hasPorts()) {
                lrMap.mMissing.try_emplace({lrSign.mInitiator, lrSign.mRemote}, acrNew.mFirst);
            }
            break;
        }
        case ZTESign::Stall:
            lrCase.mStalled.try_emplace(lrSign.mDisk, acrNew.mFirst);
            break;
        case ZTESign::AgentGone:
            lrCase.mAgentGone = lrCase.mAgentGone != 0 ? lrCase.mAgentGone : acrNew.mFirst;
            break;
        default:
            break;
    }
}

bool applyBack(ZTSOpenCase& arCase, const ZTSNewSign& acrNew) {
    const ZTSSign& lrSign = acrNew.mpSign->mSign;
    ZTSCase& lrCase = arCase.mCase;
    bool lIsIts = false;
    switch (lrSign.mSign) {
        case ZTESign::LinkUp:
        case ZTESign::PortBack:
            lIsIts = lrCase.mDown.erase(lrSign.mInitiator) != 0;
            break;
        case ZTESign::TargetBack:
            lIsIts = lrCase.mLostTargets.erase({lrSign.mInitiator, lrSign.mRemote}) != 0;
            break;
        case ZTESign::PathBack: {
            const auto lMap = lrCase.mMaps.find(lrSign.mDisk);
            lIsIts = lMap != lrCase.mMaps.end() && sPathIsBack(lMap->second, acrNew);
            break;
        }
        case ZTESign::StallOver:
            lIsIts = lrCase.mStalled.erase(lrSign.mDisk) != 0;
            break;
        case ZTESign::AgentBack:
            lIsIts = lrCase.mAgentGone != 0;
            lrCase.mAgentGone = 0;
            break;
        default:
            break;
    }
    if (lIsIts && !arCase.isAmiss()) {
        arCase.mRestored = std::max(arCase.mRestored, acrNew.mLast);
    }
    return lIsIts;
}

bool missesPaths(const ZTSOpenCase& acrCase, const std::string& acrMap) {
    const auto lAt = acrCase.mCase.mMaps.find(acrMap);
    return lAt != acrCase.mCase.mMaps.end() && lAt->second.mBack == 0;
}

bool isHeld(const ZTSCase& acrCase, const ZTSSign& acrSign) {
    switch (acrSign.mSign) {
        case ZTESign::LinkDown:
        case ZTESign::PortGone:
            return acrCase.mDown.contains(acrSign.mInitiator);
        case ZTESign::TargetLost:
            return acrCase.mLostTargets.contains({acrSign.mInitiator, acrSign.mRemote});
        case ZTESign::PathLost: {
            const auto lMap = acrCase.mMaps.find(acrSign.mDisk);
            return lMap != acrCase.mMaps.end() && lMap->second.mBack == 0 &&
                   (acrSign.mRemote == ZTSWwn() ||
                    lMap->second.mMissing.contains({acrSign.mInitiator, acrSign.mRemote}));
        }
        case ZTESign::Stall:
            return acrCase.mStalled.contains(acrSign.mDisk);
        case ZTESign::AgentGone:
            return acrCase.mAgentGone != 0;
        default:
            return false;
    }
}

ZTESign stateOf(ZTESign aSign) {
    switch (aSign) {
        case ZTESign::LinkUp:
            return ZTESign::LinkDown;
        case ZTESign::PortBack:
            return ZTESign::PortGone;
        case ZTESign::TargetBack:
            return ZTESign::TargetLost;
        case ZTESign::PathBack:
            return ZTESign::PathLost;
        case ZTESign::StallOver:
            return ZTESign::Stall;
        case ZTESign::AgentBack:
            return ZTESign::AgentGone;
        default:
            return aSign;
    }
}

void acceptPaths(ZTSOpenCase& arCase, ZTNanoseconds aTime) {
    for (auto& [lrName, lrMap] : arCase.mCase.mMaps) {
        if (lrMap.mBack == 0) {
            lrMap.mTotal = lrMap.mLeft;
            lrMap.mMissing.clear();
            lrMap.mBack = aTime;
        }
    }
    arCase.mCase.mLostTargets.clear();
    if (!arCase.isAmiss()) {
        arCase.mRestored = std::max(arCase.mRestored, aTime);
    }
}

ZTNanoseconds findClose(const ZTSOpenCase& acrCase, const ZTSIncidentTimes& acrTimes) {
    if (acrCase.isAmiss()) {
        return ZTNever;
    }
    const ZTNanoseconds lLast = acrCase.mCase.mLast;
    return acrCase.mHasState ? std::max(acrCase.mRestored, lLast + sSeconds(acrTimes.mQuiet))
                             : lLast + sSeconds(acrTimes.mClose);
}

ZTNanoseconds findDeadline(const ZTSOpenCase& acrCase, const ZTSIncidentRules& acrRules,
                           ZTNanoseconds aForget) {
    if (acrCase.isClosed()) {
        return std::min(acrCase.mTellAt, acrCase.mIncident.mClosed + aForget);
    }
    const ZTNanoseconds lClose = findClose(acrCase, acrRules.mTimes);
    if (!acrCase.isIncident()) {
        const ZTNanoseconds lEnd = lClose != ZTNever ? lClose + aForget : ZTNever;
        return std::min(lEnd, sNextPatience(acrCase, acrRules));
    }
    ZTNanoseconds lNext = std::min({lClose, acrCase.mTellAt, sNextPatience(acrCase, acrRules)});
    if (lClose == ZTNever && acrCase.mIncident.mState == ZTEIncidentState::Open) {
        lNext = std::min(lNext, acrCase.mCase.mLast + sSeconds(acrRules.mTimes.mQuiet));
    }
    return lNext;
}
