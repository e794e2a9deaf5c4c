// What is shown of an agent without a word to it.
#include <fmt/format.h>

#include "AgentStatus.h"
#include "CommandParts.h"
#include "Failure.h"
#include "Figures.h"
#include "Json.h"
#include "ProcessTable.h"
#include "ShownText.h"
#include "Terminal.h"
#include "TimeText.h"
#include "Waiting.h"

namespace {

// The moment, and how long ago it was.
std::string sAgoText(const std::optional<ZTSAgentStatus::Time>& acrTime, bool aInUtc) {
    if (!acrTime) {
        return "unknown";
    }
    const ZTSSensorTime lTime = toSensorTime(*acrTime);
    const auto lAgo =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - *acrTime).count();
    return fmt::format("{}, {} s ago", plainText(lTime, aInUtc), std::max(lAgo, 0L));
}

// The figures of the agent that runs. Nothing if they cannot be read: a status is one all the same.
std::optional<ZTSStatistics> sStatisticsOf(const ZTSAgentStatus& acrStatus, const std::string& acrDirectory) {
    try {
        const ZTCAgentStatistics lAgent(acrDirectory);
        const bool lIsIt = acrStatus.mProcess == 0 || acrStatus.mProcess == lAgent.getProcess();
        return acrStatus.mIsRunning && lIsIt ? std::optional(lAgent.read()) : std::nullopt;
    } catch (const ZTCSensorError&) {
        return {};
    }
}

std::string sTextOf(const ZTSAgentStatus& acrStatus, const std::optional<ZTSStatistics>& acrStatistics,
                    const ZTSScopeOptions& acrOptions) {
    const bool lInUtc = acrOptions.mInUtc;
    std::string lText = fmt::format("directory  {}\n", toShownText(acrOptions.mDirectory));
    if (acrStatus.mIsRunning) {
        lText += fmt::format("agent      running, {}\nsince      {}\nlog        {}\nheartbeat  {}\n",
                             describeProcess(acrStatus.mProcess), sAgoText(acrStatus.mSince, lInUtc),
                             acrStatus.mLog.empty() ? "unknown" : toShownText(acrStatus.mLog),
                             sAgoText(acrStatus.mHeartbeat, lInUtc));
        lText += fmt::format("data       {}\n", acrStatistics ? heldText(*acrStatistics) : "unknown");
        const std::string lLibrary = acrStatistics ? libraryText(*acrStatistics) : "";
        lText += lLibrary.empty() ? "" : fmt::format("library    {}\n", lLibrary);
    } else {
        lText += "agent      not running\n";
    }
    if (acrStatus.mSensorHeartbeat) {
        lText +=
            fmt::format("sensor     {}process {}, heartbeat {}\n", acrStatus.mIsSensorRunning ? "" : "gone, ",
                        acrStatus.mSensor, sAgoText(acrStatus.mSensorHeartbeat, lInUtc));
    } else {
        lText += "sensor     none\n";
    }
    return lText;
}

}  // namespace

int runShowStatus(const ZTSScopeOptions& acrOptions) {
    const ZTSAgentStatus lStatus = readAgentStatus(directoryOf(acrOptions));
    const auto lStatistics = sStatisticsOf(lStatus, acrOptions.mDirectory);
    put(acrOptions.getForm() == ZTEScopeForm::Table
            ? sTextOf(lStatus, lStatistics, acrOptions)
            : statusJson(acrOptions.mDirectory, lStatus, lStatistics));
    return lStatus.mIsRunning ? 0 : ZTScopeFailed;
}

int runShowStatistics(const ZTSScopeOptions& acrOptions) {
    if (acrOptions.mFor > 0 && acrOptions.mEvery <= 0) {
        throw ZTCScopeUsage("--for goes with --every");
    }
    ZTCFigures lFigures(acrOptions);
    lFigures.show();
    if (acrOptions.mEvery <= 0) {
        return 0;
    }
    ZTCWaiting lWaiting;
    const auto lBegin = ZTCWaiting::Clock::now();
    const auto lEnd =
        acrOptions.mFor > 0 ? lBegin + toDuration(acrOptions.mFor) : ZTCWaiting::Clock::time_point::max();
    auto lNext = lBegin + toDuration(acrOptions.mEvery);
    while (lNext <= lEnd) {
        const ZTCWaiting::Reason lReason = lWaiting.until(lNext);
        if (lReason == ZTCWaiting::Reason::End) {
            return 0;
        }
        if (lReason == ZTCWaiting::Reason::Time) {
            lFigures.show();
            // After a long wait for who reads the output, none is made up for.
            lNext = std::max(lNext + toDuration(acrOptions.mEvery), ZTCWaiting::Clock::now());
        }
    }
    return 0;
}
