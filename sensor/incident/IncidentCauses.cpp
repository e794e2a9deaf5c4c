// Where a case began: the chain of the rules' ranks says it, and time agrees or does not.
#include <algorithm>
#include <set>

#include "CaseView.h"

namespace {

// From there on a sign is what somebody sees who knows nothing of the cause.
constexpr unsigned char sMereEffect = 65;

ZTNanoseconds sSeconds(unsigned int aSeconds) {
    return static_cast<ZTNanoseconds>(aSeconds) * ZTSecond;
}

// So much later than what it did a sign may come and still have been first.
ZTNanoseconds sLateness(ZTESign aSign, const ZTSIncidentTimes& acrTimes) {
    return sSeconds(std::max(acrTimes.mSkew, rowOf(aSign).mBefore));
}

bool sIsFpin(ZTESign aSign) {
    return aSign == ZTESign::FpinLink || aSign == ZTESign::FpinCongestion || aSign == ZTESign::FpinDelivery;
}

// That the fabric tells of it is explained by a target that says that it is not ready, as it goes, and by one
// that goes from two fabrics.
bool sIsExplained(const ZTSSign& acrSign, const ZTSCase& acrCase, const ZTSCluster& acrCluster) {
    return acrSign.mSign == ZTESign::Rscn &&
           (hasSign(acrCluster, ZTESign::NotReady) || isInFabrics(acrCase, acrCluster));
}

// Those that a cluster began with, sorted by time, and when that was: what came when it was long under way is
// not its cause, and least of all what comes and goes anyway.
std::vector<const ZTSSign*> sListFirst(const ZTSCase& acrCase, const ZTSCluster& acrCluster,
                                       const ZTSIncidentTimes& acrTimes, ZTNanoseconds& arBegin) {
    std::vector<const ZTSSign*> lSigns;
    for (const ZTSSignSum& lrSum : acrCluster.mSums) {
        if (isOfChain(lrSum.mSign.mSign) && !sIsExplained(lrSum.mSign, acrCase, acrCluster)) {
            lSigns.push_back(&lrSum.mSign);
        }
    }
    std::ranges::sort(lSigns, {}, &ZTSSign::mFirst);
    const auto lIsStrong = [&](const ZTSSign* apSign) { return isStrong(acrCase, apSign->mSign); };
    const auto lBegin = std::ranges::find_if(lSigns, lIsStrong);
    if (lBegin == lSigns.end()) {
        arBegin = lSigns.empty() ? 0 : lSigns.front()->mFirst;
    } else {
        arBegin = (*lBegin)->mFirst;
    }
    std::erase_if(lSigns, [&](const ZTSSign* apSign) {
        const ZTNanoseconds lMost =
            lIsStrong(apSign) ? sSeconds(acrTimes.mJoin) : sLateness(apSign->mSign, acrTimes);
        return apSign->mFirst > arBegin + lMost;
    });
    return lSigns;
}

// What they have in common; zeros: nothing.
template <class Value>
Value sCommon(const std::vector<const ZTSSign*>& acrSigns, Value ZTSSign::*apMember) {
    std::set<Value> lValues;
    for (const ZTSSign* const lpSign : acrSigns) {
        if (lpSign->*apMember != Value()) {
            lValues.insert(lpSign->*apMember);
        }
    }
    return lValues.size() == 1 ? *lValues.begin() : Value();
}

unsigned char sRankOf(const ZTSIncidentCause& acrCause) {
    return rowOf(*findSign(acrCause.mKind)).mRank;
}

// Of two that began at once at different places nobody can say which began.
void sDoubt(std::vector<ZTSIncidentCause>& arCauses, ZTNanoseconds aSkew) {
    for (ZTSIncidentCause& lrCause : arCauses) {
        const bool lIsOne = std::ranges::all_of(arCauses, [&](const ZTSIncidentCause& acrOther) {
            return &acrOther == &lrCause || sRankOf(acrOther) != sRankOf(lrCause) ||
                   std::abs(acrOther.mTime - lrCause.mTime) > aSkew;
        });
        lrCause.mIsLikely = lrCause.mIsLikely && lIsOne;
    }
}

}  // namespace

ZTSIncidentCause causeOf(const ZTSCase& acrCase, const ZTSCluster& acrCluster,
                         const ZTSStoryFrame& acrFrame) {
    const ZTSIncidentTimes& lrTimes = acrFrame.mrRules.mTimes;
    ZTNanoseconds lBegin = 0;
    std::vector<const ZTSSign*> lSigns = sListFirst(acrCase, acrCluster, lrTimes, lBegin);
    if (lSigns.empty()) {
        return {};
    }
    const auto lRank = [](const ZTSSign* apSign) {
        return std::pair(rowOf(apSign->mSign).mRank, apSign->mSign);
    };
    const ZTESign lKind = (*std::ranges::min_element(lSigns, {}, lRank))->mSign;
    std::erase_if(lSigns, [&](const ZTSSign* apSign) { return apSign->mSign != lKind; });

    const ZTSSignRow& lrRow = rowOf(lKind);
    ZTSIncidentCause lCause{lrRow.mpName,           {},   {}, sCommon(lSigns, &ZTSSign::mFabric),
                            lSigns.front()->mFirst, false};
    lCause.mInitiator = sCommon(lSigns, &ZTSSign::mInitiator);
    lCause.mTarget = sCommon(lSigns, &ZTSSign::mRemote);
    if (lCause.mInitiator == ZTSWwn() && lCause.mTarget == ZTSWwn()) {
        // All ports of a controller, at more than one of the host's: the one with the lowest number stands
        // for them, for which one was first is chance.
        for (const ZTSSign* const lpSign : lSigns) {
            const bool lIsLower = lCause.mTarget == ZTSWwn() || lpSign->mRemote < lCause.mTarget;
            lCause.mTarget = lIsLower ? lpSign->mRemote : lCause.mTarget;
        }
    }
    const bool lIsLate = lCause.mTime > lBegin + sLateness(lKind, lrTimes);
    const bool lNamesPort = sIsFpin(lKind) && (lCause.mTarget != ZTSWwn() || lCause.mInitiator != ZTSWwn());
    lCause.mIsLikely = lNamesPort || (!lIsLate && lrRow.mRank < sMereEffect);
    return lCause;
}

std::vector<ZTSIncidentCause> findCauses(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame) {
    std::vector<ZTSIncidentCause> lCauses;
    for (const ZTSCluster& lrCluster : acrCase.mClusters) {
        ZTSIncidentCause lCause = causeOf(acrCase, lrCluster, acrFrame);
        if (!lCause.mKind.empty()) {
            lCauses.push_back(std::move(lCause));
        }
    }
    if (lCauses.empty()) {
        return lCauses;
    }
    const auto lKey = [](const ZTSIncidentCause& acrCause) {
        return std::tie(acrCause.mTime, acrCause.mKind, acrCause.mInitiator, acrCause.mTarget,
                        acrCause.mFabric);
    };
    std::ranges::sort(lCauses, {}, lKey);
    const ZTNanoseconds lSkew = sSeconds(acrFrame.mrRules.mTimes.mSkew);
    // Of those that began at once the one that comes first in the chain.
    const auto lLater = std::ranges::find_if(lCauses, [&](const ZTSIncidentCause& acrCause) {
        return acrCause.mTime > lCauses.front().mTime + lSkew;
    });
    const auto lFirst = std::ranges::min_element(lCauses.begin(), lLater, {}, sRankOf);
    std::rotate(lCauses.begin(), lFirst, std::next(lFirst));
    sDoubt(lCauses, lSkew);
    return lCauses;
}
