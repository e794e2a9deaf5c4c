// The sentence of lost paths: how many, since when, and by what.
#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "IncidentSentence.h"

namespace {

// What took paths of the worst map at one place.
struct Loss {
    ZTNanoseconds mTime = 0;
    std::uint32_t mPaths = 0;
    std::string mBy;  ///< " by a change in fabric B"; empty: nothing is known
    bool mLasts = false;
};

// A path is an initiator and a target; where they are not known the map has said how many were left.
std::uint32_t sCountPaths(const ZTSCluster& acrCluster, const std::string& acrMap) {
    std::set<std::pair<ZTSWwn, ZTSWwn>> lPaths;
    std::uint32_t lMost = 0;
    for (const ZTSSignSum& lrSum : acrCluster.mSums) {
        const ZTSSign& lrSign = lrSum.mSign;
        if (lrSign.mSign == ZTESign::PathLost && lrSign.mDisk == acrMap) {
            if (lrSign.mRemote != ZTSWwn()) {
                lPaths.emplace(lrSign.mInitiator, lrSign.mRemote);
            }
            lMost = std::max(lMost, lrSign.mTotal - std::min(lrSign.mLeft, lrSign.mTotal));
        }
    }
    return lPaths.empty() ? lMost : static_cast<std::uint32_t>(lPaths.size());
}

std::string sByText(const ZTSCase& acrCase, const ZTSCluster& acrCluster, const ZTSIncidentCause& acrCause,
                    const ZTSStoryFrame& acrFrame) {
    const ZTSFit lDeed = findDeed(acrCase, acrCluster, acrFrame);
    if (lDeed.mpOpening == nullptr || *lDeed.mpOpening->mpBy == '\0') {
        return "";
    }
    return fmt::format(" {} {}", acrCause.mIsLikely ? "by" : "possibly by",
                       fillSentence(lDeed.mpOpening->mpBy, acrCase, lDeed, acrFrame, false));
}

// Whether it is sure which of several began is known of all of them together.
bool sIsLikely(const ZTSIncidentCause& acrCause, const std::vector<ZTSIncidentCause>& acrAll) {
    return std::ranges::find(acrAll, acrCause) != acrAll.end();
}

// When the first of a map's paths went that are missing because of a cluster: long behind its begin, if they
// were back meanwhile.
ZTNanoseconds sLostAt(const ZTSCaseMap& acrMap, const ZTSCluster& acrCluster, ZTNanoseconds aBegin,
                      ZTNanoseconds aJoin) {
    ZTNanoseconds lSince = 0;
    for (const ZTSSignSum& lrSum : acrCluster.mSums) {
        const auto lAt = acrMap.mMissing.find({lrSum.mSign.mInitiator, lrSum.mSign.mRemote});
        if (lrSum.mSign.mSign == ZTESign::PathLost && lAt != acrMap.mMissing.end()) {
            lSince = lSince == 0 ? lAt->second : std::min(lSince, lAt->second);
        }
    }
    return lSince > aBegin + aJoin ? lSince : aBegin;
}

std::vector<Loss> sListLosses(const ZTSCase& acrCase, const std::string& acrMap,
                              const ZTSStoryFrame& acrFrame) {
    const std::vector<ZTSIncidentCause> lCauses = findCauses(acrCase, acrFrame);
    std::vector<Loss> lLosses;
    for (const ZTSCluster& lrCluster : acrCase.mClusters) {
        if (const std::uint32_t lPaths = sCountPaths(lrCluster, acrMap); lPaths != 0) {
            ZTSIncidentCause lCause = causeOf(acrCase, lrCluster, acrFrame);
            lCause.mIsLikely = lCause.mIsLikely && sIsLikely(lCause, lCauses);
            const ZTNanoseconds lJoin = acrFrame.mrRules.mTimes.mJoin * ZTSecond;
            const ZTNanoseconds lSince = sLostAt(acrCase.mMaps.at(acrMap), lrCluster, lCause.mTime, lJoin);
            lLosses.push_back({lSince, lPaths, sByText(acrCase, lrCluster, lCause, acrFrame),
                               isMissing(acrCase.mMaps.at(acrMap), lrCluster)});
        }
    }
    std::ranges::stable_sort(lLosses, {}, &Loss::mTime);
    return lLosses;
}

// "2 have been gone since ... by ..., 2 since ... by ...".
std::string sLossesText(const std::vector<Loss>& acrLosses) {
    std::string lText;
    for (const Loss& lrLoss : acrLosses) {
        lText += lText.empty()
                     ? fmt::format("{} {} been gone", lrLoss.mPaths, lrLoss.mPaths == 1 ? "has" : "have")
                     : fmt::format(", {}", lrLoss.mPaths);
        lText += fmt::format(" since {}{}", minuteText(lrLoss.mTime), lrLoss.mBy);
    }
    return lText;
}

// "4 of 8 since ... by ..., the rest since ...".
std::string sAllLossesText(const std::vector<Loss>& acrLosses, std::uint32_t aTotal) {
    std::string lText;
    for (const Loss& lrLoss : acrLosses) {
        lText += lText.empty()                  ? fmt::format("{} of {}", lrLoss.mPaths, aTotal)
                 : &lrLoss == &acrLosses.back() ? std::string(", the rest")
                                                : fmt::format(", {}", lrLoss.mPaths);
        lText += fmt::format(" since {}{}", minuteText(lrLoss.mTime), lrLoss.mBy);
    }
    return lText;
}

// "; none was left at ... by ...", for a map that has some again.
std::string sNoneText(const ZTSCaseMap& acrMap, const std::vector<Loss>& acrLosses) {
    if (acrMap.mLeast != 0 || acrMap.mAllGone == 0) {
        return "";
    }
    const std::string lBy = acrLosses.size() > 1 ? acrLosses.back().mBy : "";
    return fmt::format("; none was left at {}{}", minuteText(acrMap.mAllGone), lBy);
}

std::string sGoneText(const std::string& acrNames, const ZTSCaseMap& acrMap,
                      const std::vector<Loss>& acrLosses) {
    if (acrLosses.size() > 1) {
        return fmt::format("All paths of {} are gone: {}", acrNames,
                           sAllLossesText(acrLosses, acrMap.mTotal));
    }
    return fmt::format("All paths of {} have been gone since {}{}", acrNames, minuteText(acrMap.mAllGone),
                       acrLosses.empty() ? "" : acrLosses.front().mBy);
}

std::string sSomeText(const ZTSCase& acrCase, const ZTSCaseMap& acrMap, const std::vector<Loss>& acrLosses) {
    const std::vector<std::string> lNames = listWorst(acrCase);
    std::vector<Loss> lLasting;
    std::ranges::copy_if(acrLosses, std::back_inserter(lLasting), &Loss::mLasts);
    if (lLasting.size() > 1) {
        return fmt::format("{} {} {} of {} paths left: {}", listText(lNames), hasOrHave(lNames), acrMap.mLeft,
                           acrMap.mTotal, sLossesText(lLasting));
    }
    const Loss lLoss = !lLasting.empty()    ? lLasting.front()
                       : !acrLosses.empty() ? acrLosses.front()
                                            : Loss{acrMap.mSince, 0, "", true};
    return fmt::format("{} {} had {} of {} paths since {}{}{}", listText(lNames), hasOrHave(lNames),
                       acrMap.mLeft, acrMap.mTotal, minuteText(lLoss.mTime), lLoss.mBy,
                       sNoneText(acrMap, acrLosses));
}

std::string sBackText(const std::string& acrNames, const ZTSCaseMap& acrMap,
                      const std::vector<Loss>& acrLosses) {
    const std::string lBy = acrLosses.empty() ? "" : acrLosses.front().mBy;
    if (acrMap.mLeast == 0 && acrLosses.size() < 2) {
        return fmt::format("{} lost all paths at {}{}, and had them back at {}", acrNames,
                           minuteText(acrMap.mAllGone), lBy, minuteText(acrMap.mBack));
    }
    if (acrMap.mLeast >= acrMap.mTotal) {
        return fmt::format("{} lacked {} paths{}{}; the {} that are left are accepted", acrNames,
                           acrLosses.empty() ? 0 : acrLosses.front().mPaths,
                           spanText(acrMap.mSince, acrMap.mBack), lBy, acrMap.mTotal);
    }
    const std::uint32_t lLeft = acrMap.mLeast == 0
                                    ? acrMap.mTotal - std::min(acrLosses.front().mPaths, acrMap.mTotal)
                                    : acrMap.mLeast;
    return fmt::format("{} had {} of {} paths{}{}{}", acrNames, lLeft, acrMap.mTotal,
                       spanText(acrMap.mSince, acrMap.mBack), lBy, sNoneText(acrMap, acrLosses));
}

}  // namespace

std::string pathsText(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame) {
    const auto* const lpWorst = findWorstMap(acrCase);
    if (lpWorst == nullptr) {
        return "Paths were lost";
    }
    const ZTSCaseMap& lrMap = lpWorst->second;
    const std::vector<Loss> lLosses = sListLosses(acrCase, lpWorst->first, acrFrame);
    const std::string lNames = listText(listWorst(acrCase));
    const std::string lText = lrMap.mLeft >= lrMap.mTotal ? sBackText(lNames, lrMap, lLosses)
                              : lrMap.mLeft == 0          ? sGoneText(lNames, lrMap, lLosses)
                                                          : sSomeText(acrCase, lrMap, lLosses);
    return lText + stallsText(acrCase);
}
