// What the history has counted, and what those tell that send it.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "AgentStatistics.h"
#include "EventBlock.h"
#include "EventNames.h"
#include "LossText.h"
#include "WebMetrics.h"

namespace {

using Family = ZTEWebFamily;

constexpr std::size_t sMostSinks = 16;
constexpr char sOnline[] = "Online";

// As the kernel's transport for Fibre Channel calls them.
constexpr const char* sStates[] = {sOnline,       "Linkdown", "Offline",  "Unknown",
                                   "Not Present", "Blocked",  "Bypassed", "Error",
                                   "Diagnostics", "Loopback", "Deleted",  "Marginal"};

// 16 hex digits: as other programs' metrics have ports. Empty for none.
std::string sPort(const ZTSWwn& acrPort) {
    std::string lDigits = acrPort == ZTSWwn{} ? "" : acrPort.toText();
    std::erase(lDigits, ':');
    return lDigits;
}
std::string sPort(const std::optional<ZTSWwn>& acrPort) {
    return sPort(acrPort.value_or(ZTSWwn{}));
}

std::string sKindOf(const ZTSSeries& acrSeries) {
    const char* const lpName = findEventKind(acrSeries.mCategory, acrSeries.mSubcategory);
    return lpName != nullptr ? lpName : fmt::format("{}/{}", acrSeries.mCategory, acrSeries.mSubcategory);
}

// "not_ready".
std::string sSenseKey(const std::optional<std::uint32_t>& acrKey) {
    if (!acrKey) {
        return "none";
    }
    const char* const lpName = nameSenseKey(*acrKey);
    std::string lName = lpName != nullptr ? lpName : std::to_string(*acrKey);
    std::ranges::replace(lName, ' ', '_');
    return lName;
}

void sAddEvents(ZTCStoreReader& arReader, ZTCWebSamples& arSamples) {
    for (const ZTSStoredSeries& lrSeries : arReader.readSeries()) {
        if (lrSeries.mEvents == 0) {
            continue;
        }
        const std::string lInitiator = sPort(lrSeries.mSeries.mInitiator.mPort);
        const std::string lKind = sKindOf(lrSeries.mSeries);
        arSamples.add(Family::Events, {lInitiator, lKind}, lrSeries.mEvents);
        if (lrSeries.mSeries.mRemote) {
            arSamples.add(Family::TargetEvents, {lInitiator, sPort(lrSeries.mSeries.mRemote), lKind},
                          lrSeries.mEvents);
        }
    }
}

void sAddTotals(ZTCStoreReader& arReader, ZTCWebSamples& arSamples) {
    for (const ZTSSenseTotal& lrTotal : arReader.readSenseTotals()) {
        arSamples.add(Family::CheckConditions, {sPort(lrTotal.mInitiator), sSenseKey(lrTotal.mSenseKey)},
                      lrTotal.mEvents);
    }
    for (const ZTSFpinTotal& lrTotal : arReader.readFpinTotals()) {
        arSamples.add(
            Family::Fpins,
            {sPort(lrTotal.mInitiator), sPort(lrTotal.mTarget), lrTotal.mDescriptor, lrTotal.mEvent},
            lrTotal.mTimes);
    }
    // Of what was not counted yet there is a zero: a first one is an increase.
    for (const ZTSLossReason& lrReason : listLossReasons()) {
        arSamples.add(Family::LostEvents, {lrReason.mpReason}, 0);
        arSamples.add(Family::LossesUnnumbered, {lrReason.mpReason}, 0);
    }
    for (const ZTSLossTotal& lrTotal : arReader.readLossTotals()) {
        arSamples.add(Family::LostEvents, {lrTotal.mReason}, lrTotal.mEvents);
        arSamples.add(Family::LossesUnnumbered, {lrTotal.mReason}, lrTotal.mUnknown);
    }
}

void sAddIncidents(ZTCStoreReader& arReader, ZTCWebSamples& arSamples) {
    for (std::size_t lAt = 0; lAt < static_cast<std::size_t>(ZTEIncidentClass::Count); ++lAt) {
        const std::string lClass = nameOf(static_cast<ZTEIncidentClass>(lAt));
        arSamples.add(Family::Incidents, {lClass}, 0);
        arSamples.add(Family::IncidentsOpen, {lClass}, 0);
    }
    for (const ZTSIncidentTotal& lrTotal : arReader.readIncidentTotals()) {
        arSamples.add(Family::Incidents, {lrTotal.mClass}, lrTotal.mIncidents);
    }
    for (const ZTSIncident& lrIncident : arReader.readIncidents(std::numeric_limits<ZTNanoseconds>::max())) {
        arSamples.add(Family::IncidentsOpen, {nameOf(lrIncident.mClass)}, 1);
    }
}

// A port that has gone is none; a state that the kernel does not tell is not known.
void sAddPorts(ZTCStoreReader& arReader, ZTCWebSamples& arSamples) {
    for (const ZTSStoredPort& lrStored : arReader.readPorts()) {
        if (!lrStored.mIsHere) {
            continue;
        }
        const ZTSLocalPort& lrPort = lrStored.mPort;
        const std::string lName = sPort(lrPort.mNames.mPort);
        for (const char* const lpState : sStates) {
            arSamples.set(Family::PortState, {lName, lpState}, 0);
        }
        arSamples.set(Family::PortState, {lName, lrPort.mState.empty() ? "Unknown" : lrPort.mState}, 1);
        arSamples.set(Family::PortInfo, {lName, sPort(lrPort.mNames.mNode), lrPort.mFabric, lrPort.mHost}, 1);
    }
}

void sAddStorage(ZTCStoreReader& arReader, ZTCWebSamples& arSamples) {
    for (const ZTSStoredMap& lrMap : arReader.readStorage().mMaps) {
        if (lrMap.mIsHere) {
            arSamples.set(Family::Paths, {lrMap.mMap.mName}, lrMap.mMap.mTotal);
            arSamples.set(Family::PathsUsable, {lrMap.mMap.mName}, lrMap.mMap.countUsable());
        }
    }
    arSamples.set(Family::StalledDisks, {}, static_cast<double>(arReader.readOpenStalls().size()));
}

// FAILURES{reason="..."}: the reason.
std::optional<std::string> sReasonIn(const std::string& acrName) {
    constexpr std::string_view lHead = "failures_total{reason=\"";
    constexpr std::string_view lTail = "\"}";
    if (!acrName.starts_with(lHead) || !acrName.ends_with(lTail) ||
        acrName.size() < lHead.size() + lTail.size()) {
        return {};
    }
    return acrName.substr(lHead.size(), acrName.size() - lHead.size() - lTail.size());
}

void sAddSink(const std::string& acrDirectory, const std::string& acrFile, const std::string& acrSink,
              ZTCWebSamples& arSamples) {
    const ZTCAgentStatistics lFile(acrDirectory, ("/" + acrFile).c_str(), ZTEStatisticsOf::Anybody);
    for (const ZTSStatistic& lrRow : lFile.read().mRows) {
        if (lrRow.mName == "pending_records") {
            arSamples.add(Family::SinkPending, {acrSink}, lrRow.mValue);
        } else if (lrRow.mName == "sent_records_total") {
            arSamples.add(Family::SinkSent, {acrSink}, lrRow.mValue);
        } else if (const auto lReason = sReasonIn(lrRow.mName)) {
            arSamples.add(Family::SinkFailures, {acrSink, *lReason}, lrRow.mValue);
        }
    }
}

}  // namespace

ZTCWebSamples readStoredSamples(ZTCStoreReader& arReader, std::size_t aMost, std::size_t& arDropped) {
    ZTCWebSamples lSamples;
    sAddEvents(arReader, lSamples);
    sAddTotals(arReader, lSamples);
    sAddIncidents(arReader, lSamples);
    sAddPorts(arReader, lSamples);
    sAddStorage(arReader, lSamples);
    arDropped =
        lSamples.keepLargest(Family::TargetEvents, aMost) + lSamples.keepLargest(Family::Fpins, aMost);
    return lSamples;
}

void addSinkSamples(const std::string& acrDirectory, ZTCWebSamples& arSamples) {
    std::error_code lError;
    std::filesystem::directory_iterator lAt(acrDirectory, lError);
    for (std::size_t lSinks = 0;
         !lError && lAt != std::filesystem::directory_iterator() && lSinks < sMostSinks;
         lAt.increment(lError)) {
        const std::filesystem::path lFile = lAt->path().filename();
        if (lFile.extension() != ".stats") {
            continue;
        }
        ++lSinks;
        try {
            sAddSink(acrDirectory, lFile, lFile.stem(), arSamples);
        } catch (const ZTCSensorError&) {
            // It has just ended, or is none.
        }
    }
}
