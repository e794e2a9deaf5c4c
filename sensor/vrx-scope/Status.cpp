#include "Status.h"

#include <algorithm>

#include "HostPorts.h"
#include "ProcessTable.h"
#include "SensorError.h"
#include "StatisticsText.h"
#include "StoreReader.h"
#include "TimeText.h"

namespace {

using Time = ZTSCollectorStatus::Time;

// Where vrx-sn shows its figures: in its own runtime directory, or in the agent's.
constexpr char sCollectorDirectory[] = "/run/vrx-sn";
constexpr char sCollectorFile[] = "/vrx-sn.stats";
constexpr char sCollectorName[] = "(vrx-sn)";

// Of the agent that runs, or of the library in it.
std::optional<ZTSStatistics> sStatisticsOf(const ZTSAgentStatus& acrStatus, const std::string& acrDirectory,
                                           const char* apFile) {
    try {
        const ZTCAgentStatistics lFile(acrDirectory, apFile);
        const bool lIsIt = acrStatus.mProcess == 0 || acrStatus.mProcess == lFile.getProcess();
        return acrStatus.mIsRunning && lIsIt ? std::optional(lFile.read()) : std::nullopt;
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

bool sIsCollector(pid_t aProcess) {
    return describeProcess(aProcess).find(sCollectorName) != std::string::npos;
}

ZTSCollectorStatus sCollectorIn(const std::string& acrDirectory) {
    const ZTCAgentStatistics lFile(acrDirectory, sCollectorFile, ZTEStatisticsOf::Any);
    // One that was killed has left its file, and the number may be another's by now.
    if (!sIsCollector(lFile.getProcess())) {
        return {};
    }
    const ZTSStatistics lNow = lFile.read();
    return {lFile.getProcess(), sTimeIn(lNow, "last_fetch_time_ns"), sTimeIn(lNow, "last_commit_time_ns"),
            sTimeIn(lNow, "store_stands_since_ns"), lNow.get("agent_up").value_or(0) != 0};
}

std::optional<ZTSCollectorStatus> sReadCollector(const std::string& acrDirectory,
                                                 const ZTSAgentStatus& acrAgent) {
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
    // Off tmpfs it shows no figures, but the agent has it as its sensor.
    if (acrAgent.mIsSensorRunning && sIsCollector(acrAgent.mSensor)) {
        return ZTSCollectorStatus{acrAgent.mSensor, {}, {}, {}, true};
    }
    return lIsKnown ? std::optional(ZTSCollectorStatus()) : std::nullopt;
}

std::optional<ZTSPortsStatus> sReadHostPorts() {
    ZTCHostPorts lHost("/");
    lHost.look();
    const auto& lrPorts = lHost.getPorts().mLocal;
    return lrPorts.empty() ? std::nullopt : std::optional(ZTSPortsStatus{"sysfs", lrPorts, {}});
}

std::optional<ZTSPortsStatus> sReadStoredPorts(const std::string& acrStore, bool aIsNow) {
    try {
        ZTSPortsStatus lPorts{"store", {}, {}};
        ZTNanoseconds lSeen = 0;
        for (const ZTSStoredPort& lrStored : ZTCStoreReader(acrStore).readPorts()) {
            if (lrStored.mIsHere) {
                lPorts.mPorts.push_back(lrStored.mPort);
                lSeen = std::max(lSeen, lrStored.mSeen);
            }
        }
        if (!aIsNow) {
            lPorts.mSeen = fromSensorTime(toSensorTime(lSeen));
        }
        return lPorts.mPorts.empty() ? std::nullopt : std::optional(lPorts);
    } catch (const ZTCStoreError&) {
        return {};
    }
}

// What vrx-sn has stored is as of now while it runs, and knows more than the kernel: ports that only the
// agent tells of, and what fabrics are called.
std::optional<ZTSPortsStatus> sReadPorts(const std::string& acrStore, bool aIsCollectorThere) {
    auto lPorts = aIsCollectorThere ? sReadStoredPorts(acrStore, true) : sReadHostPorts();
    if (!lPorts) {
        lPorts = aIsCollectorThere ? sReadHostPorts() : sReadStoredPorts(acrStore, false);
    }
    return lPorts;
}

}  // namespace

ZTSScopeStatus readStatus(const std::string& acrDirectory, const std::string& acrStore) {
    ZTSScopeStatus lStatus;
    lStatus.mDirectory = acrDirectory;
    lStatus.mAgent = readAgentStatus(acrDirectory);
    lStatus.mStatistics = sStatisticsOf(lStatus.mAgent, acrDirectory, ZTWireStatistics);
    lStatus.mLibrary = sStatisticsOf(lStatus.mAgent, acrDirectory, ZTWireLibraryStatistics);
    lStatus.mCollector = sReadCollector(acrDirectory, lStatus.mAgent);
    lStatus.mPorts = sReadPorts(acrStore, lStatus.mCollector && lStatus.mCollector->mProcess != 0);
    return lStatus;
}

std::vector<ZTSLoss> lossesOf(const ZTSScopeStatus& acrStatus) {
    std::vector<ZTSLoss> lLosses;
    const auto lAdd = [&](const char* apSource, const std::optional<ZTSStatistics>& acrFigures) {
        for (const ZTSLabelled& lrLost :
             acrFigures ? labelledIn(*acrFigures, "lost_total") : std::vector<ZTSLabelled>()) {
            if (lrLost.mValue != 0) {
                lLosses.push_back({0, 0, apSource, lrLost.mLabel, lrLost.mValue, {}});
            }
        }
    };
    lAdd("agent", acrStatus.mStatistics);
    lAdd("library", acrStatus.mLibrary);
    return lLosses;
}

std::optional<bool> isCollecting(const ZTSScopeStatus& acrStatus) {
    const auto lRow = acrStatus.mStatistics ? acrStatus.mStatistics->get("collecting") : std::nullopt;
    return lRow ? std::optional(*lRow != 0) : std::nullopt;
}
