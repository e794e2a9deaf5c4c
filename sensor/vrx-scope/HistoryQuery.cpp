#include "HistoryQuery.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "EventBlock.h"
#include "Failure.h"
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
        lAll += (lAll.empty() ? "" : ", ") + std::string(lrKind.mpName);
    }
    throw ZTCScopeUsage(fmt::format("there is no kind '{}', but {}", acrText, lAll));
}

// The port of a number, or all that have the name.
void sAddPorts(const std::string& acrText, const ZTPortLabels& acrLabels, std::vector<ZTSWwn>& arPorts) {
    if (const auto lPort = ZTSWwn::fromText(acrText)) {
        arPorts.push_back(*lPort);
        return;
    }
    const std::size_t lBefore = arPorts.size();
    for (const auto& [lrPort, lrLabel] : acrLabels) {
        if (lrLabel.mName == acrText) {
            arPorts.push_back(lrPort);
        }
    }
    if (arPorts.size() == lBefore) {
        throw ZTCScopeUsage(fmt::format("'{}' is neither a world wide name nor a name of the names file{}",
                                        acrText, acrLabels.empty() ? ", which has none" : ""));
    }
}

std::string sReadFabric(const std::string& acrText, ZTCStoreReader& arReader) {
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

}  // namespace

ZTSHistoryFilter makeFilter(const ZTSHistoryOptions& acrOptions, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                            bool aInUtc) {
    ZTSHistoryFilter lFilter;
    if (!acrOptions.mSince.empty()) {
        lFilter.mSince = sReadTime("--since", acrOptions.mSince, aNow, aInUtc);
    }
    if (!acrOptions.mUntil.empty()) {
        lFilter.mUntil = sReadTime("--until", acrOptions.mUntil, aNow, aInUtc);
    }
    if (lFilter.mSince > lFilter.mUntil) {
        throw ZTCScopeUsage("--since is after --until: nothing lies between them");
    }
    for (const std::string& lrKind : acrOptions.mKinds) {
        lFilter.mKinds.push_back(sReadKind(lrKind));
    }
    const ZTPortLabels lLabels = arReader.readLabels();
    for (const std::string& lrPort : acrOptions.mInitiators) {
        sAddPorts(lrPort, lLabels, lFilter.mInitiators);
    }
    for (const std::string& lrPort : acrOptions.mTargets) {
        sAddPorts(lrPort, lLabels, lFilter.mTargets);
    }
    lFilter.mFabric = sReadFabric(acrOptions.mFabric, arReader);
    if (!acrOptions.mHost.empty() && acrOptions.mHost != arReader.getHost()) {
        throw ZTCScopeUsage(
            fmt::format("the store is that of host '{}', not of '{}'", arReader.getHost(), acrOptions.mHost));
    }
    return lFilter;
}
