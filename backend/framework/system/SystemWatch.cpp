#include "SystemWatch.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <iterator>

#include "DetachedThread.h"
#include "Periods.h"
#include "StandardError.h"
#include "System.h"

namespace {

using std::chrono::milliseconds;

constexpr char sFile[] = "SystemWatch";

// How long a call has lasted.
milliseconds sTimeIn(const ZTSForeignCall& acrCall) {
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - acrCall.mBegun);
}

// The period in which the service manager wants to hear of this process; 0: it does not.
milliseconds sWatchdogPeriod() {
    const auto lNumberOf = [](const char* apVariable) {
        const char* const lpText = getenv(apVariable);
        long long lNumber = 0;
        if (lpText != nullptr) {
            std::from_chars(lpText, lpText + strlen(lpText), lNumber);
        }
        return std::max(lNumber, 0LL);
    };
    const bool lIsOurs = getenv("WATCHDOG_PID") == nullptr || lNumberOf("WATCHDOG_PID") == getpid();
    return milliseconds(lIsOurs ? lNumberOf("WATCHDOG_USEC") / 1000 : 0);
}

}  // namespace

ZTCSystemWatch::ZTCSystemWatch(ZTCSystem& arSystem) : mrSystem(arSystem) {}

void ZTCSystemWatch::start(int aStarter) {
    mNote = ZTPeriod(ZTP_ServiceNote);
    mStarter = ZTCDescriptor(fcntl(aStarter, F_DUPFD_CLOEXEC, 0));
    mStarted = Clock::now();
    mHasServiceManager = getenv("NOTIFY_SOCKET") != nullptr;
    const milliseconds lWatchdog = sWatchdogPeriod();
    mIsWatchdogSet = mHasServiceManager && lWatchdog.count() != 0;
    if (mIsWatchdogSet) {
        mNote = std::clamp<Clock::duration>(lWatchdog / 2, milliseconds(1), mNote);
    }
    mNextNote = mStarted + mNote;
    if (const int lErrno = startDetachedThread("watch", threadMain, this); lErrno != 0) {
        throwErrno<ZTCOsException>("pthread_create", "watch", lErrno);
    }
}

void* ZTCSystemWatch::threadMain(void* apWatch) {
    static_cast<ZTCSystemWatch*>(apWatch)->run();
}

void ZTCSystemWatch::run() {
    for (;;) {
        pollfd lPolls[] = {{mSignals.getDescriptor(), POLLIN, 0},
                           {mWake.getDescriptor(), POLLIN, 0},
                           {mStarter.get(), 0, 0}};
        if (poll(lPolls, std::size(lPolls), timeToWait()) < 0) {
            // For want of the kernel's memory: all is looked at, and in a moment again.
            lPolls[2].revents = 0;
            const timespec lMoment{0, 10000000};
            nanosleep(&lMoment, nullptr);
        }
        mWake.clear();
        lookAtStarter(lPolls[2].revents);
        takeSignals();
        lookAtStart();
        lookAtEnd();
        notifyServiceManager();
    }
}

// Until something is due, in milliseconds; -1: nothing is.
int ZTCSystemWatch::timeToWait() const {
    constexpr auto lNever = Clock::time_point::max();
    auto lDue = mHasServiceManager ? mNextNote : lNever;
    if (mrSystem.isEnding()) {
        const auto lThreads = mrSystem.getEndBegun() + ZTPeriod(ZTP_ThreadsEnd);
        lDue = std::min(
            lDue, Clock::now() < lThreads ? lThreads : mrSystem.getEndBegun() + ZTPeriod(ZTP_ProcessEnd));
    } else if (mrSystem.isStarting() && !mHasToldStart) {
        lDue = std::min(lDue, mStarted + ZTPeriod(ZTP_StartTold));
    }
    if (lDue == lNever) {
        return -1;
    }
    const auto lLeft = std::chrono::ceil<milliseconds>(lDue - Clock::now());
    return static_cast<int>(std::max(lLeft, milliseconds(0)).count());
}

void ZTCSystemWatch::takeSignals() {
    while (const int lSignal = mSignals.take()) {
        if (lSignal == SIGHUP) {
            reopenLog();
        } else if (!mrSystem.isSetForExit() && !mrSystem.isEnding()) {
            Log(ZTLL_Notice, sFile, "Ending on signal %d", lSignal);
            mrSystem.requestExit();
        }
    }
}

// Who started a daemon goes when that is ready, or before, because somebody wants no daemon any more.
void ZTCSystemWatch::lookAtStarter(short aEvents) {
    if (!mrSystem.isStarting()) {
        ZTCDescriptor lClosed(std::move(mStarter));
    } else if (aEvents != 0) {
        ZTCDescriptor lClosed(std::move(mStarter));
        Log(ZTLL_Notice, sFile, "Ending: the process that waited for the start has gone");
        mrSystem.requestExit();
    }
}

void ZTCSystemWatch::lookAtStart() {
    if (!mrSystem.isStarting() || mrSystem.isEnding() || mHasToldStart ||
        Clock::now() - mStarted < ZTPeriod(ZTP_StartTold)) {
        return;
    }
    mHasToldStart = true;
    const unsigned int lSeconds = ZTSecondsOf(ZTP_StartTold);
    const ZTSForeignCall lCall = mrSystem.getLongestCall();
    char lText[256];
    if (lCall.mpFunction != nullptr) {
        Log(ZTLL_Warning, sFile,
            "Not ready after %u s: the vendor library's %s does not return; still waiting", lSeconds,
            lCall.mpFunction);
        snprintf(lText, sizeof lText,
                 "not ready after %u s: the vendor library's %s does not return; still waiting", lSeconds,
                 lCall.mpFunction);
    } else {
        Log(ZTLL_Warning, sFile, "Not ready after %u s; still waiting", lSeconds);
        snprintf(lText, sizeof lText, "not ready after %u s; still waiting", lSeconds);
    }
    tellOnStandardError(mrSystem.getName().get(), lText);
}

void ZTCSystemWatch::lookAtEnd() {
    if (!mrSystem.isEnding()) {
        return;
    }
    const auto lTime = Clock::now() - mrSystem.getEndBegun();
    // A start that is inside the library has nothing yet that could be waited for.
    if (mrSystem.isStarting() && lTime >= ZTPeriod(ZTP_ThreadsEnd) && mrSystem.leaveForeignCode()) {
        cleanUp();
        leave();
    }
    if (lTime >= ZTPeriod(ZTP_ProcessEnd)) {
        Log(ZTLL_Highest, sFile,
            "The end takes longer than %u s, and it is not the vendor library that holds it up: leaving",
            ZTSecondsOf(ZTP_ProcessEnd));
        leave();
    }
}

// Removes what the start had made, on a thread of its own: its disk may stand still, and is not waited for
// long.
void ZTCSystemWatch::cleanUp() {
    const auto lWork = [](void* apWatch) -> void* {
        auto& lrWatch = *static_cast<ZTCSystemWatch*>(apWatch);
        lrWatch.mrSystem.abandonStart();
        lrWatch.mHasCleanedUp.store(true);
        return nullptr;
    };
    if (startDetachedThread("clean-up", lWork, this) != 0) {
        return;
    }
    constexpr timespec lMoment{0, 1000000};
    const auto lEnd = Clock::now() + ZTPeriod(ZTP_CleanUp);
    while (!mHasCleanedUp.load() && Clock::now() < lEnd) {
        nanosleep(&lMoment, nullptr);
    }
}

// What the main thread holds, such as the locks of standard streams, is not to be waited for.
void ZTCSystemWatch::leave() {
    ZTCDaemon::tellEnd(mStarter);
    ztlog::finish();
    _exit(0);
}

void ZTCSystemWatch::notifyServiceManager() {
    if (!mHasServiceManager || Clock::now() < mNextNote) {
        return;
    }
    mNextNote = Clock::now() + mNote;
    const ZTSForeignCall lCall = mrSystem.getLongestCall();
    const milliseconds lTime = lCall.mpFunction != nullptr ? sTimeIn(lCall) : milliseconds(0);
    char lText[256];
    if (lTime >= ZTPeriod(ZTP_CallTold)) {
        snprintf(lText, sizeof lText, "STATUS=Inside the vendor library's %s for %lld s", lCall.mpFunction,
                 static_cast<long long>(lTime.count() / 1000));
        OsNotifyServiceManager(lText);
        mHasToldCall = true;
    } else if (mHasToldCall) {
        OsNotifyServiceManager("STATUS=");
        mHasToldCall = false;
    }
    if (mrSystem.isStarting()) {
        snprintf(lText, sizeof lText, "EXTEND_TIMEOUT_USEC=%lld",
                 3000LL * static_cast<long long>(std::chrono::duration_cast<milliseconds>(mNote).count()));
        OsNotifyServiceManager(lText);
    } else if (mIsWatchdogSet && lTime < ZTPeriod(ZTP_CallStarves)) {
        const unsigned int lTurns = mrSystem.getTurns();
        if (lTurns != mTurns) {
            OsNotifyServiceManager("WATCHDOG=1");
        }
        mTurns = lTurns;
        mrSystem.turn();
    }
}
