#include <algorithm>
#include <tuple>

#include "CaseView.h"

namespace {

constexpr unsigned char sEndOfChain = 90;  // ranks from there on begin nothing

ZTNanoseconds sSeconds(unsigned int aSeconds) {
    return static_cast<ZTNanoseconds>(aSeconds) * ZTSecond;
}

// When the link of one was up again last; 0: it was not down, or never came up.
ZTNanoseconds sFindLinkUp(const ZTSCluster& acrCluster) {
    ZTNanoseconds lUp = 0;
    for (const ZTSSignSum& lrSum : acrCluster.mSums) {
        if (lrSum.mSign.mSign == ZTESign::LinkUp || lrSum.mSign.mSign == ZTESign::PortBack) {
            lUp = std::max(lUp, lrSum.mSign.mLast);
        }
    }
    return lUp;
}

// How long the state of a class has lasted, or did. An agent that was back in time is none that was gone.
ZTNanoseconds sLasted(const ZTSCase& acrCase, const ZTSCluster& acrCluster, ZTERestored aRestored,
                      ZTNanoseconds aNow) {
    ZTNanoseconds lLongest = 0;
    const auto lTake = [&](ZTNanoseconds aFirst, ZTNanoseconds aLast) {
        lLongest = std::max(lLongest, aLast - aFirst);
    };
    if (aRestored == ZTERestored::Paths) {
        // What a link that was down took comes back behind it: where nothing else did, the time begins then.
        const ZTNanoseconds lUp = acrCase.mClusters.size() == 1 ? sFindLinkUp(acrCluster) : 0;
        for (const auto& [lrName, lrMap] : acrCase.mMaps) {
            lTake(std::max(lrMap.mSince, lUp), lrMap.mBack != 0 ? lrMap.mBack : aNow);
        }
        return lLongest;
    }
    const bool lLasts = isLasting(acrCase, acrCluster, aRestored);
    for (const ZTSSignSum& lrSum : acrCluster.mSums) {
        if (isOfChain(lrSum.mSign.mSign) && isStrong(acrCase, lrSum.mSign.mSign)) {
            lTake(lrSum.mSign.mFirst, lLasts ? aNow : lrSum.mSign.mLast);
        }
    }
    return lLongest;
}

// Whether a cluster has enough of its sign, with what has to be there and without what must not.
bool sIsMet(const ZTSCase& acrCase, const ZTSCluster& acrCluster, ZTEIncidentClass aClass,
            const ZTSOpening& acrOpening) {
    const bool lIsEnough = acrOpening.mSign != ZTESign::Count && hasSign(acrCluster, acrOpening.mSign) &&
                           (rowOf(acrOpening.mSign).mWeight == ZTEWeight::State ||
                            acrCase.mReached.contains({aClass, acrOpening.mSign}));
    return lIsEnough && !(acrOpening.mIsOfFabric && isInFabrics(acrCase, acrCluster)) &&
           (acrOpening.mWith == ZTESign::Count || hasSign(acrCluster, acrOpening.mWith)) &&
           (acrOpening.mUnless == ZTESign::Count || !hasSign(acrCluster, acrOpening.mUnless));
}

// The opening of a class that a cluster meets; null: none.
const ZTSOpening* sFindOpening(const ZTSCase& acrCase, const ZTSCluster& acrCluster,
                               const ZTSClassRow& acrRow, ZTNanoseconds aNow) {
    const auto* const lpOpening = std::ranges::find_if(acrRow.mOpenings, [&](const ZTSOpening& acrOpening) {
        return sIsMet(acrCase, acrCluster, acrRow.mClass, acrOpening);
    });
    // A port that is up again is not down.
    const bool lIsOver =
        acrRow.mRestored == ZTERestored::Ports && !isLasting(acrCase, acrCluster, acrRow.mRestored);
    if (lpOpening == acrRow.mOpenings.end() || lIsOver ||
        (acrRow.mPatience != 0 &&
         sLasted(acrCase, acrCluster, acrRow.mRestored, aNow) < sSeconds(acrRow.mPatience))) {
        return nullptr;
    }
    return lpOpening;
}

std::optional<ZTSFit> sFindFit(const ZTSCase& acrCase, const ZTSClassRow& acrRow, ZTNanoseconds aNow) {
    for (const ZTSCluster& lrCluster : acrCase.mClusters) {
        if (const ZTSOpening* const lpOpening = sFindOpening(acrCase, lrCluster, acrRow, aNow)) {
            return ZTSFit{&acrRow, lpOpening, &lrCluster};
        }
    }
    return {};
}

}  // namespace

bool isStrong(const ZTSCase& acrCase, ZTESign aSign) {
    return rowOf(aSign).mWeight != ZTEWeight::Weak ||
           std::ranges::any_of(acrCase.mReached,
                               [&](const auto& acrReached) { return acrReached.second == aSign; });
}

bool isOfChain(ZTESign aSign) {
    return rowOf(aSign).mRank < sEndOfChain;
}

bool isOtherHalf(ZTESign aSign) {
    using enum ZTESign;
    constexpr ZTESign lHalves[] = {LinkUp, PortBack, TargetBack, PathBack, StallOver, AgentBack};
    return std::ranges::find(lHalves, aSign) != std::end(lHalves);
}

bool hasSign(const ZTSCluster& acrCluster, ZTESign aSign) {
    return std::ranges::any_of(acrCluster.mSums,
                               [&](const ZTSSignSum& acrSum) { return acrSum.mSign.mSign == aSign; });
}

bool isLasting(const ZTSCase& acrCase, const ZTSCluster& acrCluster, ZTERestored aRestored) {
    const auto lHas = [&](const auto& acrIsSo) {
        return std::ranges::any_of(acrCluster.mSums,
                                   [&](const ZTSSignSum& acrSum) { return acrIsSo(acrSum.mSign); });
    };
    const auto lMisses = [&](const ZTSSign& acrSign) {
        const auto lMap = acrCase.mMaps.find(acrSign.mDisk);
        return acrSign.mSign == ZTESign::PathLost && lMap != acrCase.mMaps.end() &&
               lMap->second.mLeft < lMap->second.mTotal;
    };
    switch (aRestored) {
        case ZTERestored::Silence:
            return false;
        case ZTERestored::Links:
        case ZTERestored::Ports:
            return lHas([&](const ZTSSign& acrSign) {
                return (acrSign.mSign == ZTESign::LinkDown || acrSign.mSign == ZTESign::PortGone) &&
                       acrCase.mDown.contains(acrSign.mInitiator);
            });
        case ZTERestored::Targets:
            // Where no target was seen to be lost its paths tell.
            return hasSign(acrCluster, ZTESign::TargetLost) ? lHas([&](const ZTSSign& acrSign) {
                return acrSign.mSign == ZTESign::TargetLost &&
                       acrCase.mLostTargets.contains({acrSign.mInitiator, acrSign.mRemote});
            })
                                                            : lHas(lMisses);
        case ZTERestored::Paths:
            return lHas(lMisses);
        case ZTERestored::Stalls:
            return lHas([&](const ZTSSign& acrSign) {
                return acrSign.mSign == ZTESign::Stall && acrCase.mStalled.contains(acrSign.mDisk);
            });
        case ZTERestored::Agent:
            return acrCase.mAgentGone != 0;
    }
    return false;
}

bool isInFabrics(const ZTSCase& acrCase, const ZTSCluster& acrCluster) {
    std::string_view lFabric;
    return std::ranges::any_of(acrCluster.mSums, [&](const ZTSSignSum& acrSum) {
        const ZTSSign& lrSign = acrSum.mSign;
        if (lrSign.mFabric.empty() || !isStrong(acrCase, lrSign.mSign)) {
            return false;
        }
        const bool lIsOther = !lFabric.empty() && lFabric != lrSign.mFabric;
        lFabric = lrSign.mFabric;
        return lIsOther;
    });
}

bool isMissing(const ZTSCaseMap& acrMap, const ZTSCluster& acrCluster) {
    return std::ranges::any_of(acrMap.mMissing, [&](const auto& acrMissing) {
        return std::ranges::any_of(acrCluster.mSums, [&](const ZTSSignSum& acrSum) {
            const auto& [lrInitiator, lrRemote] = acrMissing.first;
            const ZTSSign& lrSign = acrSum.mSign;
            return rowOf(lrSign.mSign).mWeight == ZTEWeight::State && lrSign.mInitiator == lrInitiator &&
                   (lrSign.mRemote == lrRemote || lrSign.mRemote == ZTSWwn());
        });
    });
}

const std::pair<const std::string, ZTSCaseMap>* findWorstMap(const ZTSCase& acrCase) {
    const auto lFewest = [](const auto& acrMap) {
        const ZTSCaseMap& lrMap = acrMap.second;
        const auto lTotal = static_cast<double>(std::max(lrMap.mTotal, 1U));
        return std::tuple(lrMap.mLeft / lTotal, lrMap.mLeast / lTotal);
    };
    const auto lAt = std::ranges::min_element(acrCase.mMaps, {}, lFewest);
    return lAt != acrCase.mMaps.end() ? &*lAt : nullptr;
}

std::optional<ZTSFit> findFit(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame) {
    // Where several things took the paths of a map, one port that is down is not the whole of it.
    const ZTSClassRow& lrPaths = acrFrame.mrRules[ZTEIncidentClass::RedundancyLost];
    if (acrCase.mClusters.size() > 1) {
        if (const auto lFit = sFindFit(acrCase, lrPaths, acrFrame.mNow)) {
            return lFit;
        }
    }
    for (const ZTSClassRow& lrRow : acrFrame.mrRules.mClasses) {
        if (const auto lFit = sFindFit(acrCase, lrRow, acrFrame.mNow)) {
            return lFit;
        }
    }
    return {};
}

ZTSFit fitOf(const ZTSCase& acrCase, ZTEIncidentClass aClass, const ZTSStoryFrame& acrFrame) {
    static const ZTSCluster sNothing;
    const ZTSClassRow& lrRow = acrFrame.mrRules[aClass];
    if (const auto lFit = sFindFit(acrCase, lrRow, acrFrame.mNow)) {
        return *lFit;
    }
    for (const ZTSCluster& lrCluster : acrCase.mClusters) {
        for (const ZTSOpening& lrOpening : lrRow.mOpenings) {
            if (lrOpening.mSign != ZTESign::Count && hasSign(lrCluster, lrOpening.mSign)) {
                return {&lrRow, &lrOpening, &lrCluster};
            }
        }
    }
    return {&lrRow, &lrRow.mOpenings[0], acrCase.mClusters.empty() ? &sNothing : &acrCase.mClusters.front()};
}

ZTSFit findDeed(const ZTSCase& acrCase, const ZTSCluster& acrCluster, const ZTSStoryFrame& acrFrame) {
    for (const ZTSClassRow& lrRow : acrFrame.mrRules.mClasses) {
        if (lrRow.mRestored == ZTERestored::Paths) {
            continue;
        }
        if (const ZTSOpening* const lpOpening = sFindOpening(acrCase, acrCluster, lrRow, acrFrame.mNow)) {
            return {&lrRow, lpOpening, &acrCluster};
        }
    }
    return {nullptr, nullptr, &acrCluster};
}

std::optional<ZTEIncidentClass> classOf(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame) {
    const auto lFit = findFit(acrCase, acrFrame);
    return lFit && lFit->mpClass->mIsOn ? std::optional(lFit->mpClass->mClass) : std::nullopt;
}
