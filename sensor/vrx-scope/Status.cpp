#include "Status.h"

#include "HostPorts.h"
#include "ProcessTable.h"
#include "SensorError.h"

namespace {

using Time = ZTSCollectorStatus::Time;

// Where vrx-sn shows its figures: in its own runtime directory, or in the agent's.
constexpr char sCollectorDirectory[] = "/run/vrx-sn";
constexpr char sCollectorFile[] = "/vrx-sn.stats";
constexpr char sCollectorName[] = "(vrx-sn)";

// Of the agent that runs.
std::optional<ZTSStatistics> sStatisticsOf(const ZTSAgentStatus& acrStatus, const std::string& acrDirectory) {
    try {
        const ZTCAgentStatistics lAgent(acrDirectory);
        const bool lIsIt = acrStatus.mProcess == 0 || acrStatus.mProcess == lAgent.getProcess();
        return acrStatus.mIsRunning && lIsIt ? std::optional(lAgent.read()) : std::nullopt;
    } catch (const ZTCSensorError&) {
        return {};
    }
}

std::optional<Time> sTimeIn(const ZTSStatistics& acrStatistics, const char* apName) {
    const auto lTime = acrStatistics.get(apName).value_or(0);
    return lTime == 0 ? std::nullopt
                      : std::optional(Time(std::chrono::duration_cast<Time::duration>(
                            std::chrono::nanoseconds(static_cast<std::int64_t>(lTime)))));
}

ZTSCollectorStatus sCollectorIn(const std::string& acrDirectory) {
    const ZTCAgentStatistics lFile(acrDirectory, sCollectorFile, ZTEStatisticsOf::Any);
    // One that was killed has left its file, and the number may be another's by now.
    if (describeProcess(lFile.getProcess()).find(sCollectorName) == std::string::npos) {
        return {};
    }
    const ZTSStatistics lNow = lFile.read();
    return {lFile.getProcess(), sTimeIn(lNow, "last_fetch_time_ns"), sTimeIn(lNow, "last_commit_time_ns"),
            sTimeIn(lNow, "store_stands_since_ns"), lNow.get("agent_up").value_or(0) != 0};
}

std::optional<ZTSCollectorStatus> sReadCollector(const std::string& acrDirectory) {
    bool lIsKnown = true;
    for (const std::string& lrDirectory : {acrDirectory, std::string(sCollectorDirectory)}) {
        try {
            const ZTSCollectorStatus lStatus = sCollectorIn(lrDirectory);
            if (lStatus.mProcess != 0) {
                return lStatus;
            }
        } catch (const ZTCNoAgentError&) {
            // there is none
        } catch (const ZTCSensorError&) {
            lIsKnown = false;
        }
    }
    return lIsKnown ? std::optional(ZTSCollectorStatus()) : std::nullopt;
}

std::optional<ZTSPortsStatus> sReadPorts() {
    ZTCHostPorts lHost("/");
    lHost.look();
    const auto& lrPorts = lHost.getPorts().mLocal;
    return lrPorts.empty() ? std::nullopt : std::optional(ZTSPortsStatus{"sysfs", lrPorts});
}

}  // namespace

ZTSScopeStatus readStatus(const std::string& acrDirectory) {
    ZTSScopeStatus lStatus;
    lStatus.mDirectory = acrDirectory;
    lStatus.mAgent = readAgentStatus(acrDirectory);
    lStatus.mStatistics = sStatisticsOf(lStatus.mAgent, acrDirectory);
    lStatus.mCollector = sReadCollector(acrDirectory);
    lStatus.mPorts = sReadPorts();
    return lStatus;
}

std::optional<bool> isCollecting(const ZTSScopeStatus& acrStatus) {
    const auto lRow = acrStatus.mStatistics ? acrStatus.mStatistics->get("collecting") : std::nullopt;
    return lRow ? std::optional(*lRow != 0) : std::nullopt;
}
