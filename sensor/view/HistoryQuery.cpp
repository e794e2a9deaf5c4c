#include "HistoryQuery.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <set>

#include "EventBlock.h"
#include "PortText.h"
#include "WhenText.h"

namespace {

ZTNanoseconds sReadTime(const std::string& acrOption, const std::string& acrText, ZTNanoseconds aNow,
                        bool aInUtc) {
    if (const auto lWhen = readWhen(acrText, aNow, aInUtc ? zoneOfUtc : zoneOfProcess)) {
        return *lWhen;
    }
    throw ZTCViewUsage(fmt::format("{} '{}' is no time: write {}", acrOption, acrText, ZTWhenForms));
}

// "16,127", or as the history names it: "16/127".
std::optional<std::pair<std::uint8_t, std::uint8_t>> sReadNumbers(const std::string& acrText) {
    std::uint8_t lNumbers[2]{};
    const char* const lpEnd = acrText.data() + acrText.size();
    const auto lFirst = std::from_chars(acrText.data(), lpEnd, lNumbers[0]);
    if (lFirst.ec != std::errc() || lFirst.ptr == lpEnd || (*lFirst.ptr != ',' && *lFirst.ptr != '/')) {
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
    throw ZTCViewUsage(fmt::format("there is no kind '{}', but {}fpin, stall", acrText, lAll));
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
    if (!mTakesStalls || acrStall.mFirst > mFilter.mUntil ||
        (acrStall.mIsOver && !mFilter.takes(acrStall.mFirst, acrStall.mLast))) {
        return false;
    }
    if (!asksForPorts()) {
        return true;
    }
    ZTSHistoryFilter lPorts = mFilter;
    lPorts.mKinds.clear();
    const std::vector<ZTSSeries> lPaths = mpBelow->listPaths(acrStall.mName);
    return std::any_of(lPaths.begin(), lPaths.end(),
                       [&](const ZTSSeries& acrPath) { return lPorts.takes(acrPath); });
}

bool ZTSHistoryQuery::takes(const ZTSChange& acrChange) const {
    const auto lIsIn = [](const std::vector<ZTSWwn>& acrPorts, const ZTSWwn& acrPort) {
        return std::find(acrPorts.begin(), acrPorts.end(), acrPort) != acrPorts.end();
    };
    const auto lIsMeant = [&](const ZTSSeries& acrPath) {
        return lIsIn(mFilter.mInitiators, acrPath.mInitiator.mPort) ||
               (acrPath.mRemote && lIsIn(mFilter.mTargets, *acrPath.mRemote));
    };
    if (!asksForPorts()) {
        return true;
    }
    const std::vector<ZTSSeries> lPaths = mpBelow->listPaths(acrChange);
    return std::any_of(lPaths.begin(), lPaths.end(), lIsMeant);
}

void checkWhats(const std::vector<std::string>& acrWhats) {
    static constexpr const char* sWhats[] = {"agent", "sensor", "store", "port", "remote_port", "lun",
                                             "map",   "volume", "mount", "host", "note"};
    for (const std::string& lrWhat : acrWhats) {
        if (std::find(std::begin(sWhats), std::end(sWhats), lrWhat) == std::end(sWhats)) {
            throw ZTCViewUsage(
                fmt::format("nothing is told of '{}', but of {}", lrWhat, fmt::join(sWhats, ", ")));
        }
    }
}

std::vector<ZTSWwn> readPortsOf(const std::vector<std::string>& acrTexts, const ZTPortLabels& acrLabels) {
    std::vector<ZTSWwn> lAll;
    for (const std::string& lrText : acrTexts) {
        const std::vector<ZTSWwn> lPorts = findPorts(acrLabels, lrText);
        if (lPorts.empty()) {
            throw ZTCViewUsage(
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
    throw ZTCViewUsage(
        fmt::format("there is no fabric '{}', but {}", acrText, lAll.empty() ? "none is known" : lAll));
}

ZTSHistoryQuery makeRecordQuery(const ZTSHistoryAsk& acrAsk, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                                bool aInUtc) {
    ZTSHistoryQuery lQuery;
    ZTSHistoryFilter& lrFilter = lQuery.mFilter;
    const std::string lDash = acrAsk.mpDash;
    if (!acrAsk.mSince.empty()) {
        lrFilter.mSince = sReadTime(lDash + "since", acrAsk.mSince, aNow, aInUtc);
    }
    if (!acrAsk.mUntil.empty()) {
        lrFilter.mUntil = sReadTime(lDash + "until", acrAsk.mUntil, aNow, aInUtc);
    }
    if (lrFilter.mSince > lrFilter.mUntil) {
        throw ZTCViewUsage(
            fmt::format("{0}since is after {0}until: nothing lies between them", acrAsk.mpDash));
    }
    sReadKinds(acrAsk.mKinds, lQuery);
    const ZTPortLabels lLabels = arReader.readLabels();
    lrFilter.mInitiators = readPortsOf(acrAsk.mInitiators, lLabels);
    lrFilter.mTargets = readPortsOf(acrAsk.mTargets, lLabels);
    lrFilter.mFabric = readFabric(acrAsk.mFabric, arReader);
    if (!acrAsk.mHost.empty() && acrAsk.mHost != arReader.getHost()) {
        throw ZTCViewUsage(
            fmt::format("the store is that of host '{}', not of '{}'", arReader.getHost(), acrAsk.mHost));
    }
    return lQuery;
}

ZTSHistoryQuery makeQuery(const ZTSHistoryAsk& acrAsk, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                          bool aInUtc) {
    ZTSHistoryQuery lQuery = makeRecordQuery(acrAsk, arReader, aNow, aInUtc);
    if (lQuery.asksForPorts() || !arReader.readWindows().empty()) {
        lQuery.mpBelow->read(arReader);
    }
    return lQuery;
}
