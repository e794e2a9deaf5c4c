// What is shown of an agent without a word to it.
#include <algorithm>

#include "CommandParts.h"
#include "Failure.h"
#include "Figures.h"
#include "Json.h"
#include "StatusText.h"
#include "Terminal.h"
#include "Waiting.h"

int runShowStatus(const ZTSScopeOptions& acrOptions) {
    const ZTSScopeStatus lStatus = readStatus(directoryOf(acrOptions), acrOptions.mHistory.mStore);
    put(acrOptions.getForm() == ZTEScopeForm::Table ? statusText(lStatus, acrOptions.mInUtc)
                                                    : statusJson(lStatus));
    return lStatus.mAgent.mIsRunning ? 0 : ZTScopeFailed;
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
