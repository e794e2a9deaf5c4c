#include "Json.h"

#include <nlohmann/json.hpp>

#include "LossText.h"
#include "TimeText.h"

namespace {

using ZTJson = nlohmann::ordered_json;

ZTJson sTextOrNull(const std::string& acrText) {
    return acrText.empty() ? ZTJson() : ZTJson(acrText);
}

ZTJson sTimeOrNull(const std::optional<ZTSAgentStatus::Time>& acrTime) {
    return acrTime ? sTextOrNull(isoText(toSensorTime(*acrTime))) : ZTJson();
}

// On one line, and in ASCII, so that a terminal acts on nothing in it.
std::string sDump(const ZTJson& acrJson) {
    return acrJson.dump(-1, ' ', true, ZTJson::error_handler_t::replace) + "\n";
}

ZTJson sMakeDocument(const std::string& acrCommand) {
    return {{"schema", ZTScopeSchema}, {"command", acrCommand}};
}

// What a status says of the figures.
ZTJson sSummaryOf(const ZTSStatistics& acrStatistics) {
    const auto lValueOf = [&](const char* apName) {
        const auto lValue = acrStatistics.get(apName);
        return lValue ? ZTJson(*lValue) : ZTJson();
    };
    ZTJson lSummary{{"held_events", lValueOf("held_events")},
                    {"held_bytes", lValueOf("held_bytes")},
                    {"held_bytes_limit", lValueOf("held_bytes_limit")},
                    {"lost", ZTJson::object()},
                    {"library_call", ZTJson()}};
    for (const ZTSLabelled& lrLoss : labelledIn(acrStatistics, "lost_total")) {
        lSummary["lost"][lrLoss.mLabel] = lrLoss.mValue;
    }
    if (const auto lCall = findLibraryCall(acrStatistics)) {
        constexpr std::uint64_t lSecond = 1'000'000'000;
        lSummary["library_call"] = {
            {"function", lCall->mLabel},
            {"since", sTextOrNull(isoText(
                          {lCall->mValue / lSecond, static_cast<std::uint32_t>(lCall->mValue % lSecond)}))}};
    }
    return lSummary;
}

ZTJson sPidOrNull(pid_t aProcess) {
    return aProcess != 0 ? ZTJson(aProcess) : ZTJson();
}

ZTJson sCollectorOf(const ZTSCollectorStatus& acrCollector) {
    const bool lIsRunning = acrCollector.mProcess != 0;
    return {{"running", lIsRunning},
            {"pid", sPidOrNull(acrCollector.mProcess)},
            {"agent_up", lIsRunning ? ZTJson(acrCollector.mHasAgent) : ZTJson()},
            {"last_fetch", sTimeOrNull(acrCollector.mLastFetch)},
            {"last_write", sTimeOrNull(acrCollector.mLastWrite)},
            {"stands_since", sTimeOrNull(acrCollector.mStandsSince)}};
}

ZTJson sPortOf(const ZTSLocalPort& acrPort) {
    return {{"node_name", acrPort.mNames.mNode.toText()},
            {"port_name", acrPort.mNames.mPort.toText()},
            {"host", sTextOrNull(acrPort.mHost)},
            {"state", sTextOrNull(acrPort.mState)},
            {"speed", sTextOrNull(acrPort.mSpeed)},
            {"fabric", sTextOrNull(acrPort.mFabric)},
            {"port_id", acrPort.mPortId ? ZTJson(addressText(*acrPort.mPortId)) : ZTJson()}};
}

// An object's own way to add something looks through all that is there: a library may have thousands of rows.
template <class Value>
void sAppend(ZTJson& arTo, const std::string& acrName, Value aValue) {
    arTo.get_ref<ZTJson::object_t&>().emplace_back(acrName, aValue);
}

void sAddFigures(ZTJson& arTo, const ZTSStatisticsTaken& acrTaken) {
    arTo["since"] = sTimeOrNull(acrTaken.mStart);
    arTo["seconds"] = acrTaken.mSeconds ? ZTJson(*acrTaken.mSeconds) : ZTJson();
    ZTJson lValues = ZTJson::object();
    ZTJson lRates = acrTaken.mSeconds ? ZTJson::object() : ZTJson();
    for (std::size_t lRow = 0; lRow < acrTaken.mNow.mRows.size(); ++lRow) {
        const ZTSStatistic& lrRow = acrTaken.mNow.mRows[lRow];
        sAppend(lValues, lrRow.mName, lrRow.mValue);
        if (const auto lRate = acrTaken.rateOf(lRow)) {
            sAppend(lRates, lrRow.mName, *lRate);
        }
    }
    arTo["values"] = std::move(lValues);
    arTo["rates"] = std::move(lRates);
}

}  // namespace

std::string doneJson(const std::string& acrCommand) {
    ZTJson lDocument = sMakeDocument(acrCommand);
    lDocument["done"] = true;
    return sDump(lDocument);
}

std::string targetsJson(const ZTSHiddenTargets& acrHidden) {
    ZTJson lDocument = sMakeDocument("targets");
    lDocument["done"] = true;
    lDocument["same_address"] = ZTJson::array();
    for (const ZTSSameAddress& lrSame : acrHidden.mByAddress) {
        ZTJson lPorts = ZTJson::array();
        for (const ZTSWwn& lrPort : lrSame.mPorts) {
            lPorts.push_back(lrPort.toText());
        }
        lDocument["same_address"].push_back(
            {{"port_id", addressText(lrSame.mAddress)}, {"port_names", std::move(lPorts)}});
    }
    lDocument["same_port_name"] = ZTJson::array();
    for (const ZTSSamePort& lrSame : acrHidden.mByPort) {
        ZTJson lAddresses = ZTJson::array();
        for (const std::uint32_t lAddress : lrSame.mAddresses) {
            lAddresses.push_back(addressText(lAddress));
        }
        lDocument["same_port_name"].push_back(
            {{"port_name", lrSame.mPort.toText()}, {"port_ids", std::move(lAddresses)}});
    }
    return sDump(lDocument);
}

std::string statusJson(const ZTSScopeStatus& acrStatus) {
    const ZTSAgentStatus& lrAgent = acrStatus.mAgent;
    ZTJson lDocument = sMakeDocument("status");
    lDocument["directory"] = acrStatus.mDirectory;
    lDocument["running"] = lrAgent.mIsRunning;
    lDocument["pid"] = sPidOrNull(lrAgent.mProcess);
    lDocument["since"] = sTimeOrNull(lrAgent.mSince);
    lDocument["log"] = sTextOrNull(lrAgent.mLog);
    lDocument["heartbeat"] = sTimeOrNull(lrAgent.mHeartbeat);
    const auto lCollecting = isCollecting(acrStatus);
    lDocument["collecting"] = lCollecting ? ZTJson(*lCollecting) : ZTJson();
    lDocument["sensor"] = ZTJson();
    if (lrAgent.mSensorHeartbeat) {
        lDocument["sensor"] = {{"pid", sPidOrNull(lrAgent.mSensor)},
                               {"running", lrAgent.mIsSensorRunning},
                               {"heartbeat", sTimeOrNull(lrAgent.mSensorHeartbeat)}};
    }
    lDocument["statistics"] = acrStatus.mStatistics ? sSummaryOf(*acrStatus.mStatistics) : ZTJson();
    lDocument["losses"] = acrStatus.mStatistics ? ZTJson::array() : ZTJson();
    for (const ZTSLoss& lrLoss : lossesOf(acrStatus)) {
        lDocument["losses"].push_back({{"source", lrLoss.mSource},
                                       {"reason", lrLoss.mReason},
                                       {"events", lrLoss.mEvents.value_or(0)},
                                       {"text", lossText(lrLoss)}});
    }
    lDocument["vrx_sn"] = acrStatus.mCollector ? sCollectorOf(*acrStatus.mCollector) : ZTJson();
    lDocument["ports_from"] = acrStatus.mPorts ? ZTJson(acrStatus.mPorts->mpFrom) : ZTJson();
    lDocument["ports_seen"] = acrStatus.mPorts ? sTimeOrNull(acrStatus.mPorts->mSeen) : ZTJson();
    lDocument["ports"] = ZTJson::array();
    if (acrStatus.mPorts) {
        for (const ZTSLocalPort& lrPort : acrStatus.mPorts->mPorts) {
            lDocument["ports"].push_back(sPortOf(lrPort));
        }
    }
    return sDump(lDocument);
}

std::string statisticsJson(const ZTSStatisticsTaken& acrTaken,
                           const std::optional<ZTSStatisticsTaken>& acrOfLibrary) {
    ZTJson lDocument = sMakeDocument("stats");
    lDocument["pid"] = acrTaken.mProcess;
    sAddFigures(lDocument, acrTaken);
    lDocument["library"] = ZTJson();
    if (acrOfLibrary) {
        sAddFigures(lDocument["library"], *acrOfLibrary);
    }
    return sDump(lDocument);
}
