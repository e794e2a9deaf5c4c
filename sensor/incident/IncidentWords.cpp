// Lists, times and what is hit, in words.
#include <fmt/format.h>

#include <algorithm>
#include <ranges>

#include "IncidentSentence.h"
#include "ShownText.h"
#include "TimeText.h"

namespace {

constexpr std::size_t sMostNamed = 4;  // in a sentence that somebody reads at night

// "2026-11-17 10:02".
std::string sMinute(ZTNanoseconds aTime) {
    constexpr std::size_t lSize = 16;
    return plainText(toSensorTime(aTime), true).substr(0, lSize);
}

const std::vector<std::string>& sNamesOf(const ZTSIncidentHits& acrHits) {
    for (const auto* const lpNames : {&acrHits.mMounts, &acrHits.mVolumes, &acrHits.mMaps, &acrHits.mDisks}) {
        if (!lpNames->empty()) {
            return *lpNames;
        }
    }
    return acrHits.mLuns;
}

bool sIsAsBad(const ZTSCaseMap& acrMap, const ZTSCaseMap& acrWorst) {
    return acrMap.mTotal == acrWorst.mTotal && acrMap.mLeft == acrWorst.mLeft &&
           acrMap.mLeast == acrWorst.mLeast;
}

std::string sPathsText(const ZTSCase& acrCase) {
    const ZTSCaseMap& lrWorst = findWorstMap(acrCase)->second;
    const std::vector<std::string> lWorst = listWorst(acrCase);
    const std::string lNames = listText(lWorst);
    const bool lIsBack = lrWorst.mLeft >= lrWorst.mTotal;
    const std::string lAbove =
        lWorst != listHits(acrCase) ? ", on the way to " + listText(listHits(acrCase)) : "";
    if (!lIsBack && lrWorst.mLeft == 0) {
        return fmt::format(": all paths of {} are gone{}", lNames, lAbove);
    }
    if (lIsBack && lrWorst.mLeast == 0) {
        return fmt::format(": {} had no path for a time{}", lNames, lAbove);
    }
    return fmt::format(": {} {} {} of {} paths {}{}", lNames, lIsBack ? "had" : hasOrHave(lWorst),
                       lIsBack ? lrWorst.mLeast : lrWorst.mLeft, lrWorst.mTotal,
                       lIsBack ? "for a time" : "left", lAbove);
}

}  // namespace

std::string listText(const std::vector<std::string>& acrNames) {
    std::string lText;
    const bool lAreTooMany = acrNames.size() > sMostNamed;
    const std::size_t lCount = lAreTooMany ? sMostNamed - 1 : acrNames.size();
    for (std::size_t lAt = 0; lAt < lCount; ++lAt) {
        const bool lIsLast = lAt + 1 == lCount && !lAreTooMany;
        lText.append(lAt == 0 ? "" : lIsLast ? " and " : ", ").append(toShownText(acrNames[lAt]));
    }
    return lAreTooMany ? fmt::format("{} and {} more", lText, acrNames.size() - lCount) : lText;
}

std::string minuteText(ZTNanoseconds aTime) {
    return sMinute(aTime) + " UTC";
}

std::string spanText(ZTNanoseconds aFirst, ZTNanoseconds aLast) {
    constexpr std::size_t lDay = 11;
    const std::string lFirst = sMinute(aFirst);
    const std::string lLast = sMinute(aLast);
    if (lFirst == lLast) {
        return fmt::format(" at {} UTC", lFirst);
    }
    const bool lIsSameDay = lFirst.substr(0, lDay) == lLast.substr(0, lDay);
    return fmt::format(" from {} to {} UTC", lFirst, lIsSameDay ? lLast.substr(lDay) : lLast);
}

std::vector<std::string> listHits(const ZTSCase& acrCase) {
    std::vector<std::string> lNames = sNamesOf(acrCase.mHits);
    if (lNames.empty()) {
        std::ranges::transform(acrCase.mMaps, std::back_inserter(lNames),
                               [](const auto& acrMap) { return acrMap.first; });
    }
    return lNames;
}

std::vector<std::string> listWorst(const ZTSCase& acrCase) {
    std::vector<std::string> lNames;
    const ZTSCaseMap& lrWorst = findWorstMap(acrCase)->second;
    for (const auto& [lrName, lrMap] : acrCase.mMaps) {
        if (sIsAsBad(lrMap, lrWorst)) {
            lNames.push_back(lrName);
        }
    }
    return lNames.size() == acrCase.mMaps.size() ? listHits(acrCase) : lNames;
}

const char* hasOrHave(const std::vector<std::string>& acrNames) {
    return acrNames.size() == 1 ? "has" : "have";
}

std::string leftText(const ZTSCase& acrCase) {
    return acrCase.mMaps.empty() ? "" : sPathsText(acrCase);
}

std::string hitsText(const ZTSCase& acrCase) {
    const std::vector<std::string> lHits = listHits(acrCase);
    const bool lIsOnWay = acrCase.mMaps.empty() && !lHits.empty();
    return (lIsOnWay ? ", on the way to " + listText(lHits) : leftText(acrCase)) + stallsText(acrCase);
}

std::string stallsText(const ZTSCase& acrCase) {
    const bool lHasStood = std::ranges::any_of(
        acrCase.mClusters, [](const ZTSCluster& acrCluster) { return hasSign(acrCluster, ZTESign::Stall); });
    return !acrCase.mStalled.empty() ? "; I/O stands still" : lHasStood ? "; I/O stood still for a time" : "";
}
