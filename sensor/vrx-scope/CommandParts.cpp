#include "CommandParts.h"

#include <cmath>

#include "Failure.h"
#include "Json.h"
#include "Terminal.h"

std::chrono::milliseconds toDuration(double aSeconds) {
    if (!std::isfinite(aSeconds)) {
        throw ZTCScopeUsage("that is no number of seconds");
    }
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(aSeconds));
}

const std::string& directoryOf(const ZTSScopeOptions& acrOptions) {
    if (acrOptions.mDirectory.empty()) {
        throw ZTCScopeUsage("which agent? Name its runtime directory: --dir DIR, or ZT_VRX_SENSOR_DIR");
    }
    return acrOptions.mDirectory;
}

ZTSSensorOptions clientOptionsOf(const ZTSScopeOptions& acrOptions) {
    return {directoryOf(acrOptions), toDuration(acrOptions.mTimeout), toDuration(acrOptions.mWait)};
}

void putDone(const ZTSScopeOptions& acrOptions, const std::string& acrCommand, const std::string& acrText) {
    if (acrOptions.getForm() == ZTEScopeForm::Table) {
        put(acrText + "\n");
        return;
    }
    put(doneJson(acrCommand));
}

int refuse(const std::string& acrText, int aStatus) {
    complain(acrText + (aStatus == ZTScopeWrongUsage ? " (vrx-scope --help-all)" : ""));
    return aStatus;
}

void checkNothingOfList(const ZTSHistoryOptions& acrHistory, const ZTSIncidentOptions& acrOptions) {
    const bool lIsSecond = !acrOptions.mId.empty() && !acrOptions.mShown.empty();
    if (lIsSecond || !acrHistory.mSince.empty() || !acrHistory.mUntil.empty() || acrHistory.mLimit != 0 ||
        acrOptions.mIsAll || !acrOptions.mStates.empty() || !acrOptions.mClasses.empty()) {
        throw ZTCScopeUsage("one incident is named by its id, and nothing else chooses it");
    }
}
