#include "PortsText.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "HostText.h"
#include "LossText.h"
#include "Measures.h"
#include "PortText.h"
#include "ShownText.h"
#include "Table.h"
#include "Terminal.h"
#include "TimeText.h"

namespace {

std::string sShown(const std::string& acrText) {
    return acrText.empty() ? "-" : toShownText(acrText);
}

// The state, or that it has gone and when it was there last.
std::string sStateText(const std::string& acrState, bool aIsHere, ZTNanoseconds aSeen, bool aInUtc) {
    if (!aIsHere) {
        return "gone, last seen " + plainText(toSensorTime(aSeen), aInUtc);
    }
    return acrState.empty() ? "state not known" : toShownText(acrState);
}

// "array1/A"; empty if it is of none.
std::string sArrayText(const ZTSPortLabel& acrLabel) {
    return acrLabel.mController.empty() ? acrLabel.mArray : acrLabel.mArray + "/" + acrLabel.mController;
}

// What is known of the adapter, and where it is plugged in.
std::string sAdapterText(const ZTSLocalPort& acrPort, const ZTSPortLabel& acrLabel) {
    const std::pair<const char*, const std::string&> lFacts[] = {{"", acrPort.mModel},
                                                                 {"firmware ", acrPort.mFirmware},
                                                                 {"driver ", acrPort.mDriver},
                                                                 {"switch port ", acrLabel.mSwitchPort}};
    std::string lText;
    for (const auto& [lpName, lrFact] : lFacts) {
        lText += lrFact.empty() ? "" : (lText.empty() ? "  " : ", ") + (lpName + toShownText(lrFact));
    }
    return lText.empty() ? "" : lText + "\n";
}

std::string sErrorsText(const ZTSPortsView::Errors& acrErrors) {
    std::string lText;
    for (const auto& [lrName, lErrors] : acrErrors) {
        const ZTSMeasureFacts* const lpFacts = findMeasure(lrName);
        lText += fmt::format(
            "  in the last hour {} {}\n", groupedText(lErrors),
            lpFacts != nullptr ? fmt::format("{} ({})", lpFacts->mpText, lrName) : toShownText(lrName));
    }
    return lText;
}

std::uint64_t sSumOf(const ZTSPortsView::Errors& acrErrors) {
    std::uint64_t lSum = 0;
    for (const auto& [lrName, lErrors] : acrErrors) {
        lSum += lErrors;
    }
    return lSum;
}

std::string sHeadOf(const ZTSStoredPort& acrStored, const ZTPortLabels& acrLabels, bool aInUtc) {
    const ZTSLocalPort& lrPort = acrStored.mPort;
    const ZTSPortLabel& lrLabel = labelOf(acrLabels, lrPort.mNames.mPort);
    std::string lText =
        fmt::format("{}{}, {}, id {}, fabric {}: {}{}", bold(lrPort.mNames.mPort.toText()),
                    lrLabel.mName.empty() ? "" : " " + toShownText(lrLabel.mName),
                    lrPort.mHost.empty() ? "known from the agent alone" : toShownText(lrPort.mHost),
                    sShown(portIdText(lrPort.mPortId)), sShown(lrPort.mFabric),
                    sStateText(lrPort.mState, acrStored.mIsHere, acrStored.mSeen, aInUtc),
                    acrStored.mIsHere && !lrPort.mSpeed.empty() ? ", " + toShownText(lrPort.mSpeed) : "");
    if (acrStored.mIsHere && acrStored.mSince != 0 && !lrPort.mState.empty()) {
        lText += ", since " + plainText(toSensorTime(acrStored.mSince), aInUtc);
    }
    return lText + "\n" + sAdapterText(lrPort, lrLabel);
}

// What a port sees. Columns for which nobody has anything are left out.
std::string sRemoteTable(const ZTSPortsView& acrPorts, const ZTSWwn& acrInitiator, bool aInUtc) {
    std::vector<ZTCTable::Row> lRows;
    for (const ZTSStoredRemotePort& lrRemote : acrPorts.mRemote) {
        const ZTSRemotePort& lrIt = lrRemote.mPort;
        if (lrIt.mInitiator == acrInitiator) {
            const ZTSPortLabel& lrLabel = labelOf(acrPorts.mLabels, lrIt.mNames.mPort);
            const std::uint64_t lErrors = sSumOf(acrPorts.errorsOf(acrInitiator, lrIt.mNames.mPort));
            lRows.push_back({lrIt.mNames.mPort.toText(), sShown(lrLabel.mName), sShown(sArrayText(lrLabel)),
                             sShown(lrLabel.mSwitchPort), sShown(portIdText(lrIt.mPortId)),
                             sShown(lrIt.mRoles), lErrors != 0 ? groupedText(lErrors) : "-",
                             sStateText(lrIt.mState, lrRemote.mIsHere, lrRemote.mSeen, aInUtc)});
        }
    }
    if (lRows.empty()) {
        return "";
    }
    const std::pair<ZTSColumn, bool> lColumns[] = {
        {{"remote port"}, true},        {{"name"}, true}, {{"array"}, false},
        {{"switch port"}, false},       {{"id"}, true},   {{"roles"}, true},
        {{"errors, 1 h", true}, false}, {{"state"}, true}};
    std::vector<ZTSColumn> lShown;
    std::vector<std::size_t> lTaken;
    for (std::size_t lAt = 0; lAt < std::size(lColumns); ++lAt) {
        const auto lHas = [&](const ZTCTable::Row& acrRow) { return acrRow[lAt] != "-"; };
        if (lColumns[lAt].second || std::any_of(lRows.begin(), lRows.end(), lHas)) {
            lShown.push_back(lColumns[lAt].first);
            lTaken.push_back(lAt);
        }
    }
    ZTCTable lTable(lShown);
    for (const ZTCTable::Row& lrRow : lRows) {
        ZTCTable::Row lCells;
        std::transform(lTaken.begin(), lTaken.end(), std::back_inserter(lCells),
                       [&](std::size_t aAt) { return lrRow[aAt]; });
        lTable.add(std::move(lCells));
    }
    return lTable.toText();
}

}  // namespace

std::string portsText(const ZTSPortsView& acrPorts, bool aInUtc) {
    std::string lText = acrPorts.mLocal.empty() && acrPorts.mRemote.empty() ? "no ports\n" : "";
    for (const ZTSStoredPort& lrStored : acrPorts.mLocal) {
        const ZTSWwn& lrPort = lrStored.mPort.mNames.mPort;
        lText += (lText.empty() ? "" : "\n") + sHeadOf(lrStored, acrPorts.mLabels, aInUtc) +
                 sErrorsText(acrPorts.errorsOf(lrPort)) + sRemoteTable(acrPorts, lrPort, aInUtc);
    }
    const std::string lBlind = blindSpotsText(acrPorts.mBlindSpots, acrPorts.mLabels);
    return lText + (lBlind.empty() ? "" : "\n" + lBlind);
}
