#include "StatusText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "LossText.h"
#include "ProcessTable.h"
#include "ShownText.h"
#include "StatisticsText.h"
#include "TimeText.h"

namespace {

using Clock = std::chrono::system_clock;
using Time = ZTSAgentStatus::Time;

constexpr char sUnknown[] = "unknown";

// A line, and those behind it that belong to it.
std::string sLine(const char* apName, const std::string& acrText) {
    return fmt::format("{:<10} {}\n", apName, acrText);
}

// How long a moment is over. The clock may have been set back since.
double sSecondsSince(Time aTime) {
    return std::max(0.0, std::chrono::duration<double>(Clock::now() - aTime).count());
}

std::string sAgoText(const std::optional<Time>& acrTime, bool aInUtc) {
    return acrTime ? fmt::format("{}, {:.0f} s ago", plainText(toSensorTime(*acrTime), aInUtc),
                                 std::floor(sSecondsSince(*acrTime)))
                   : sUnknown;
}

std::string sLossesText(const ZTSScopeStatus& acrStatus) {
    std::string lText;
    for (const ZTSLoss& lrLoss : lossesOf(acrStatus)) {
        lText += sLine(lText.empty() ? "losses" : "", toShownText(lossText(lrLoss)));
    }
    return lText.empty() ? sLine("losses", "none") : lText;
}

std::string sAgentText(const ZTSScopeStatus& acrStatus, bool aInUtc) {
    const ZTSAgentStatus& lrAgent = acrStatus.mAgent;
    if (!lrAgent.mIsRunning) {
        return sLine("agent", "not running");
    }
    const auto& lrFigures = acrStatus.mStatistics;
    const auto lCollecting = isCollecting(acrStatus);
    const std::string lLibrary = lrFigures ? libraryText(*lrFigures) : "";
    return sLine("agent", "running, " + describeProcess(lrAgent.mProcess)) +
           sLine("since", sAgoText(lrAgent.mSince, aInUtc)) +
           sLine("log", lrAgent.mLog.empty() ? sUnknown : toShownText(lrAgent.mLog)) +
           sLine("heartbeat", sAgoText(lrAgent.mHeartbeat, aInUtc)) +
           sLine("collecting", !lCollecting   ? sUnknown
                               : *lCollecting ? "yes"
                                              : "no") +
           sLine("data", lrFigures ? heldText(*lrFigures) : sUnknown) +
           (lrFigures ? sLossesText(acrStatus) : sLine("losses", sUnknown)) +
           (lLibrary.empty() ? "" : sLine("library", lLibrary));
}

std::string sSensorText(const ZTSAgentStatus& acrAgent, bool aInUtc) {
    return acrAgent.mSensorHeartbeat
               ? fmt::format("{}process {}, heartbeat {}", acrAgent.mIsSensorRunning ? "" : "gone, ",
                             acrAgent.mSensor, sAgoText(acrAgent.mSensorHeartbeat, aInUtc))
               : "none";
}

std::string sCollectorText(const std::optional<ZTSCollectorStatus>& acrCollector) {
    if (!acrCollector) {
        return sUnknown;
    }
    if (acrCollector->mProcess == 0) {
        return "not running";
    }
    const auto lAgo = [](const char* apWhat, const std::optional<Time>& acrTime) {
        return acrTime ? fmt::format(", {} {:.1f} s ago", apWhat, sSecondsSince(*acrTime)) : "";
    };
    return fmt::format("running, process {}", acrCollector->mProcess) +
           (acrCollector->mHasAgent ? "" : ", no agent answers it") +
           lAgo("last fetch", acrCollector->mLastFetch) + lAgo("history written", acrCollector->mLastWrite) +
           (acrCollector->mStandsSince ? fmt::format(", cannot write for {:.0f} s",
                                                     std::floor(sSecondsSince(*acrCollector->mStandsSince)))
                                       : "");
}

// What is known of a port, in the order in which people ask for it.
std::string sPortText(const ZTSLocalPort& acrPort) {
    std::string lText =
        acrPort.mNames.mPort.toText() + (acrPort.mHost.empty() ? ", known from the agent alone" : "");
    for (const std::string& lrPart : {acrPort.mHost, acrPort.mState, acrPort.mSpeed}) {
        lText += lrPart.empty() ? "" : ", " + toShownText(lrPart);
    }
    return lText + (acrPort.mFabric.empty() ? "" : ", fabric " + toShownText(acrPort.mFabric));
}

std::string sPortsText(const std::optional<ZTSPortsStatus>& acrPorts, bool aInUtc) {
    if (!acrPorts) {
        return sLine("ports", sUnknown);
    }
    std::string lText;
    for (const ZTSLocalPort& lrPort : acrPorts->mPorts) {
        lText += sLine(lText.empty() ? "ports" : "", sPortText(lrPort));
    }
    if (acrPorts->mSeen) {
        lText += sLine("", "as vrx-sn last saw them, " + sAgoText(acrPorts->mSeen, aInUtc));
    }
    return lText;
}

}  // namespace

std::string statusText(const ZTSScopeStatus& acrStatus, bool aInUtc) {
    return sLine("directory", toShownText(acrStatus.mDirectory)) + sAgentText(acrStatus, aInUtc) +
           sLine("sensor", sSensorText(acrStatus.mAgent, aInUtc)) +
           sLine("vrx-sn", sCollectorText(acrStatus.mCollector)) + sPortsText(acrStatus.mPorts, aInUtc);
}
