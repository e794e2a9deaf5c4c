#include "Commands.h"

#include <fmt/format.h>

#include <algorithm>

#include "AgentStatus.h"
#include "Collector.h"
#include "CommandParts.h"
#include "Failure.h"
#include "Json.h"
#include "ProcessTable.h"
#include "RecordText.h"
#include "Targets.h"
#include "Terminal.h"

namespace {

constexpr std::size_t sMaxHidden = 8;

int sRegisterTargets(const ZTSScopeOptions& acrOptions, const std::vector<ZTSSensorTarget>& acrTargets) {
    ZTCSensorClient(clientOptionsOf(acrOptions)).registerTargets(acrTargets);
    const ZTSHiddenTargets lHidden = findHiddenTargets(acrTargets);
    const auto lLines = hiddenTargetsText(lHidden);
    for (std::size_t lAt = 0; lAt < std::min(lLines.size(), sMaxHidden); ++lAt) {
        complain(lLines[lAt]);
    }
    if (lLines.size() > sMaxHidden) {
        complain(fmt::format("and {} more like these", lLines.size() - sMaxHidden));
    }
    put(acrOptions.getForm() == ZTEScopeForm::Table ? countText(acrTargets.size(), "target") + " registered\n"
                                                    : targetsJson(lHidden));
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
