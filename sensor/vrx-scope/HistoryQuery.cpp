#include "HistoryQuery.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "EventBlock.h"
#include "Failure.h"
#include "PortText.h"
#include "WhenText.h"

namespace {

ZTNanoseconds sReadTime(const char* apOption, const std::string& acrText, ZTNanoseconds aNow, bool aInUtc) {
    if (const auto lWhen = readWhen(acrText, aNow, aInUtc ? zoneOfUtc : zoneOfProcess)) {
        return *lWhen;
    }
    throw ZTCScopeUsage(fmt::format("{} '{}' is no time: write {}", apOption, acrText, ZTWhenForms));
}

// "16,127".
std::optional<std::pair<std::uint8_t, std::uint8_t>> sReadNumbers(const std::string& acrText) {
    std::uint8_t lNumbers[2]{};
    const char* const lpEnd = acrText.data() + acrText.size();
    const auto lFirst = std::from_chars(acrText.data(), lpEnd, lNumbers[0]);
    if (lFirst.ec != std::errc() || lFirst.ptr == lpEnd || *lFirst.ptr != ',') {
        return {};
    }
    const auto lSecond = std::from_chars(lFirst.ptr + 1, lpEnd, lNumbers[1]);
    const bool lIsWhole = lSecond.ec == std::errc() && lSecond.ptr == lpEnd;
    return lIsWhole ? std::optional(std::pair(lNumbers[0], lNumbers[1])) : std::nullopt;
}

std::pair<std::uint8_t, std::uint8_t> sReadKind(const std::string& acrText) {
    if (const auto lNumbers = sReadNumbers(acrText)) {
        return *lNumbers;
    }
    std::string lAll;
    for (const ZTSEventKindName& lrKind : listEventKinds()) {
        if (acrText == lrKind.mpName) {
            return {lrKind.mCategory, lrKind.mSubcategory};
        }
        lAll += std::string(lrKind.mpName) + ", ";
    }
    throw ZTCScopeUsage(fmt::format("there is no kind '{}', but {}fpin, stall", acrText, lAll));
}

// The paths, maps and volumes by which a stall concerns ports or a fabric, by the names that a stall may
// have.
std::vector<std::string> sListDisks(const ZTSHistoryFilter& acrFilter, const ZTSStoredStorage& acrStorage) {
    ZTSSeries lPath;
    std::set<std::string> lDisks;
    for (const ZTSStoredLun& lrStored : acrStorage.mLuns) {
        lPath.mInitiator.mPort = lrStored.mLun.mInitiator;
        lPath.mRemote = lrStored.mLun.mTarget;
        lPath.mFabric = lrStored.mLun.mFabric;
        if (acrFilter.takes(lPath)) {
            lDisks.insert({lrStored.mLun.getName(), lrStored.mLun.mDisk});
        }
    }
    const ZTSHostStorage lHere = acrStorage.listHere();
    for (const std::string& lrDisk : std::set(lDisks)) {
        const ZTSHit lHit = lHere.hitBy(lrDisk);
        lDisks.insert(lHit.mMaps.begin(), lHit.mMaps.end());
        lDisks.insert(lHit.mVolumes.begin(), lHit.mVolumes.end());
    }
    lDisks.erase("");
    return {lDisks.begin(), lDisks.end()};
}

// Kinds of the history's that are none of the agent's.
struct HostKind {
    const char* mpName;
    bool ZTSHistoryQuery::*mpTakes;
};
constexpr HostKind sHostKinds[] = {{"fpin", &ZTSHistoryQuery::mTakesFpins},
                                   {"stall", &ZTSHistoryQuery::mTakesStalls}};

void sReadKinds(const std::vector<std::string>& acrKinds, ZTSHistoryQuery& arQuery) {
    const bool lTakesAll = acrKinds.empty();
    for (const HostKind& lrKind : sHostKinds) {
        arQuery.*lrKind.mpTakes =
            lTakesAll || std::find(acrKinds.begin(), acrKinds.end(), lrKind.mpName) != acrKinds.end();
    }
    for (const std::string& lrKind : acrKinds) {
        const bool lIsHosts = std::any_of(std::begin(sHostKinds), std::end(sHostKinds),
                                          [&](const HostKind& acrKind) { return lrKind == acrKind.mpName; });
        if (!lIsHosts) {
            arQuery.mFilter.mKinds.push_back(sReadKind(lrKind));
        }
    }
    arQuery.mTakesRecords = lTakesAll || !arQuery.mFilter.mKinds.empty();
}

}  // namespace

bool ZTSHistoryQuery::takes(const ZTSFpin& acrFpin) const {
    const auto lIsMeant = [&](const std::optional<ZTSWwn>& acrPort) {
        return acrPort && std::find(mFilter.mTargets.begin(), mFilter.mTargets.end(), *acrPort) !=
                              mFilter.mTargets.end();
    };
    ZTSSeries lSeries;
    lSeries.mInitiator.mPort = acrFpin.mInitiator;
    lSeries.mFabric = acrFpin.mFabric;
    ZTSHistoryFilter lHere = mFilter;
    lHere.mKinds.clear();
    lHere.mTargets.clear();
    return mTakesFpins && lHere.takes(lSeries) && lHere.takes(acrFpin.mFirst, acrFpin.mLast) &&
           (mFilter.mTargets.empty() || lIsMeant(acrFpin.mDetecting) || lIsMeant(acrFpin.mAttached) ||
            std::any_of(acrFpin.mPorts.begin(), acrFpin.mPorts.end(), lIsMeant));
}

bool ZTSHistoryQuery::takes(const ZTSStall& acrStall) const {
    const auto lIsIn = [&](const std::string& acrName) {
        return std::find(mDisks->begin(), mDisks->end(), acrName) != mDisks->end();
    };
    return mTakesStalls && (!acrStall.mIsOver || mFilter.takes(acrStall.mFirst, acrStall.mLast)) &&
           acrStall.mFirst <= mFilter.mUntil && (!mDisks || lIsIn(acrStall.mName));
}

std::vector<ZTSWwn> readPortsOf(const std::vector<std::string>& acrTexts, const ZTPortLabels& acrLabels) {
    std::vector<ZTSWwn> lAll;
    for (const std::string& lrText : acrTexts) {
        const std::vector<ZTSWwn> lPorts = findPorts(acrLabels, lrText);
        if (lPorts.empty()) {
            throw ZTCScopeUsage(
                fmt::format("'{}' is neither a world wide name nor a port, an array or ARRAY/CONTROLLER of "
                            "the names file{}",
                            lrText, acrLabels.empty() ? ", which has none" : ""));
        }
        lAll.insert(lAll.end(), lPorts.begin(), lPorts.end());
    }
    return lAll;
}

std::string readFabric(const std::string& acrText, ZTCStoreReader& arReader) {
    if (acrText.empty()) {
        return {};
    }
    std::set<std::string> lKnown;
    for (const ZTSStoredSeries& lrSeries : arReader.readSeries()) {
        lKnown.insert(lrSeries.mSeries.mFabric);
    }
    for (const ZTSStoredPort& lrPort : arReader.readPorts()) {
        lKnown.insert(lrPort.mPort.mFabric);
    }
    lKnown.erase("");
    const auto lName = ZTSWwn::fromText(acrText);
    if (lName || lKnown.count(acrText) != 0) {
        return lName ? lName->toText() : acrText;
    }
    std::string lAll;
    for (const std::string& lrFabric : lKnown) {
        lAll += (lAll.empty() ? "" : ", ") + lrFabric;
    }
    throw ZTCScopeUsage(
        fmt::format("there is no fabric '{}', but {}", acrText, lAll.empty() ? "none is known" : lAll));
}

ZTSHistoryQuery makeQuery(const ZTSHistoryOptions& acrOptions, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                          bool aInUtc) {
    ZTSHistoryQuery lQuery;
    ZTSHistoryFilter& lrFilter = lQuery.mFilter;
    if (!acrOptions.mSince.empty()) {
        lrFilter.mSince = sReadTime("--since", acrOptions.mSince, aNow, aInUtc);
    }
    if (!acrOptions.mUntil.empty()) {
        lrFilter.mUntil = sReadTime("--until", acrOptions.mUntil, aNow, aInUtc);
    }
    if (lrFilter.mSince > lrFilter.mUntil) {
        throw ZTCScopeUsage("--since is after --until: nothing lies between them");
    }
    sReadKinds(acrOptions.mKinds, lQuery);
    const ZTPortLabels lLabels = arReader.readLabels();
    lrFilter.mInitiators = readPortsOf(acrOptions.mInitiators, lLabels);
    lrFilter.mTargets = readPortsOf(acrOptions.mTargets, lLabels);
    lrFilter.mFabric = readFabric(acrOptions.mFabric, arReader);
    if (!lrFilter.mInitiators.empty() || !lrFilter.mTargets.empty() || !lrFilter.mFabric.empty()) {
        ZTSHistoryFilter lPorts = lrFilter;
        lPorts.mKinds.clear();
        lQuery.mDisks = sListDisks(lPorts, arReader.readStorage());
    }
    if (!acrOptions.mHost.empty() && acrOptions.mHost != arReader.getHost()) {
        throw ZTCScopeUsage(
            fmt::format("the store is that of host '{}', not of '{}'", arReader.getHost(), acrOptions.mHost));
    }
    return lQuery;
}
