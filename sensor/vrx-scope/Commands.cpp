#include "Commands.h"

#include <fmt/format.h>

#include "AgentStatus.h"
#include "Collector.h"
#include "CommandParts.h"
#include "Failure.h"
#include "ProcessTable.h"
#include "RecordText.h"
#include "Targets.h"

namespace {

int sRegisterTargets(const ZTSScopeOptions& acrOptions, const std::vector<ZTSSensorTarget>& acrTargets) {
    ZTCSensorClient(clientOptionsOf(acrOptions)).registerTargets(acrTargets);
    putDone(acrOptions, "targets", countText(acrTargets.size(), "target") + " registered");
    return 0;
}

}  // namespace

int runStart(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient lClient(clientOptionsOf(acrOptions));
    startCollection(lClient, acrOptions.mCeiling);
    putDone(acrOptions, "start",
            fmt::format("started, up to {} bytes of data a record", acrOptions.mCeiling));
    return 0;
}

int runStop(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient(clientOptionsOf(acrOptions)).stop();
    putDone(acrOptions, "stop", "stopped");
    return 0;
}

int runAddTargets(const ZTSScopeOptions& acrOptions) {
    return sRegisterTargets(acrOptions, readTargets(acrOptions.mTargets));
}

int runAddLoadedTargets(const ZTSScopeOptions& acrOptions) {
    return sRegisterTargets(acrOptions, loadTargets(acrOptions.mFile));
}

int runSetPeriod(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient(clientOptionsOf(acrOptions)).setCollectionPeriod(acrOptions.mPeriod);
    putDone(acrOptions, "period", fmt::format("a period of {} s", acrOptions.mPeriod));
    return 0;
}

int runShutDown(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient lClient(clientOptionsOf(acrOptions));
    const pid_t lAgent = readAgentStatus(acrOptions.mDirectory).mProcess;
    lClient.shutDown();
    if (lAgent == 0) {
        putDone(acrOptions, "shutdown", "the agent ends");
        return 0;
    }
    if (!waitForEnd(lAgent, toDuration(acrOptions.mTimeout))) {
        throw ZTCScopeFailure(
            fmt::format("{} has promised to end, and has not: look at its log", describeProcess(lAgent)));
    }
    putDone(acrOptions, "shutdown", "the agent has ended");
    return 0;
}
