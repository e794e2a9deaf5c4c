#include "Sensor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <new>
#include <system_error>

#include "ServiceThread.h"
#include "StoreFile.h"
#include "TimeText.h"

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds sOpenTime = 2s;
constexpr std::chrono::seconds sStatusEvery = 5s;
constexpr char sJournal[] = "/run/systemd/journal/socket";
constexpr int sPriority = -5;  // of the thread that fetches, as nice has it

// An end takes ten seconds at most. Of them the agent has its part first, which may keep an answer back.
constexpr std::chrono::milliseconds sEndTime = 9500ms;
constexpr std::chrono::milliseconds sLastFetchTime = 5000ms;
constexpr std::chrono::milliseconds sIncidentTime = 1000ms;
constexpr std::chrono::milliseconds sStoreTime = 9000ms;

ZTCSensorDescriptor sMakeEvent() {
    ZTCSensorDescriptor lEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!lEvent.isOpen()) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return lEvent;
}

void sSet(const ZTCSensorDescriptor& acrEvent) {
    eventfd_write(acrEvent.get(), 1);
}

bool sWaitFor(const ZTCSensorDescriptor& acrEvent, std::chrono::steady_clock::time_point aDeadline) {
    pollfd lPoll{acrEvent.get(), POLLIN, 0};
    const auto lLeft =
        std::chrono::ceil<std::chrono::milliseconds>(aDeadline - std::chrono::steady_clock::now());
    return poll(&lPoll, 1, static_cast<int>(std::max<std::int64_t>(lLeft.count(), 0))) == 1;
}

// Held back from every thread that is made behind this.
ZTCSensorDescriptor sTakeSignals() {
    sigset_t lSignals;
    sigemptyset(&lSignals);
    for (const int lSignal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&lSignals, lSignal);
    }
    pthread_sigmask(SIG_BLOCK, &lSignals, nullptr);
    ZTCSensorDescriptor lDescriptor(signalfd(-1, &lSignals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!lDescriptor.isOpen()) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    return lDescriptor;
}

std::string sRuntimeDirectory() {
    const char* const lpDirectory = getenv("RUNTIME_DIRECTORY");
    const std::string lAll = lpDirectory != nullptr ? lpDirectory : "";
    return lAll.substr(0, lAll.find(':'));
}

ZTSFoldOptions sFoldOf(const ZTSSnOptions& acrOptions) {
    return {acrOptions.mFold, acrOptions.mCeiling};
}

ZTSStoreOptions sStoreOf(const ZTSSnOptions& acrOptions) {
    ZTSStoreOptions lOptions;
    lOptions.mPath = acrOptions.mStore;
    lOptions.mHostName = acrOptions.mHostName;
    lOptions.mKeepDays = acrOptions.mKeepDays;
    lOptions.mKeepBytes = acrOptions.mKeepBytes;
    return lOptions;
}

std::uint64_t sEventsSince(const std::string& acrStore, std::time_t aTime) {
    SQLite::Database lStore = openStoreToRead(acrStore);
    SQLite::Statement lSum(lStore,
                           "SELECT coalesce(sum(events), 0) FROM minutes WHERE axis = 1 AND time >= ?");
    lSum.bind(1, static_cast<std::int64_t>(aTime));
    lSum.executeStep();
    return static_cast<std::uint64_t>(lSum.getColumn(0).getInt64());
}

}  // namespace

ZTCSensor::ZTCSensor(const ZTSSnOptions& acrOptions, const std::vector<std::string>& acrWords,
                     ZTCServiceLog& arLog)
    : mOptions(acrOptions),
      mrLog(arLog),
      mSignals(sTakeSignals()),
      mBroken(sMakeEvent()),
      mReload("vrx-sn-options", [acrWords] { return readSnOptions(acrWords); }),
      mFigures(sRuntimeDirectory()),
      mStatus(mFigures),
      mBuffer({.mFold = sFoldOf(mOptions), .mpFeed = &mFeed}),
      mHost(mOptions.mRoot, mOptions.mNames, mBuffer, mrLog),
      mIncidents({.mHost = mOptions.mHostName,
                  .mRules = mOptions.mRules,
                  .mCommand = mOptions.mOnIncident,
                  .mJournal = arLog.isJournal() ? sJournal : ""},
                 mFeed, mBuffer, mFigures, mrLog,
                 [this](const std::vector<std::string>& acrMaps) { mHost.acceptPaths(acrMaps); }),
      mLoop(mOptions, mBuffer, mHost, mFigures, mrLog, [this] { turn(); }),
      mStore(
          sStoreOf(mOptions), mBuffer, mFigures, mrLog,
          [this](const ZTSStoreStart& acrStart) { takeStart(acrStart); }, [this] { sSet(mBroken); },
          [this](const ZTSStoreRequest& acrRequest, bool aIsMarked) {
              return mIncidents.ask(acrRequest, aIsMarked);
          }),
      mCollected(sMakeEvent()) {
    mHost.setWindows(mOptions.mWindows);
    if (!mFigures.getTrouble().empty()) {
        mrLog.note(ZTSL_Warning, "the figures are in no file: %s", mFigures.getTrouble().c_str());
    }
}

ZTCSensor::~ZTCSensor() {
    mLoop.end();
    mCollecting.joinable() ? mCollecting.join() : void();
}

// In the store's thread, so that nobody else waits for its disk.
void ZTCSensor::takeStart(const ZTSStoreStart& acrStart) {
    try {
        mHost.setStart(acrStart);
    } catch (const std::bad_alloc&) {
        // Then it is not told what became of the ports meanwhile.
    }
    mIncidents.setStart(mOptions.mStore, acrStart);
    mLoop.setStart(acrStart);
    // Behind what may fail for want of memory: all of this is done again then.
    if (acrStart.mWasInUse && !mIsOtherTold) {
        noteSelf(acrStart.mWriter, "went", "unknown", isoText(toSensorTime(acrStart.mLastWrite)));
        mIsOtherTold = true;
    }
    noteSelf(std::to_string(getpid()), "came", "version " ZT_SENSOR_VERSION);
    try {
        mStatus.takeToday(
            sEventsSince(mOptions.mStore, ZTCSnStatus::beginOfDay(std::chrono::system_clock::now())));
    } catch (const std::exception&) {
        // Then the day begins now.
    }
}

// What this one, or the one before it, did. One that was killed is told of by the next one, with when it was
// last seen.
void ZTCSensor::noteSelf(const std::string& acrProcess, const char* apEvent, const char* apHow,
                         const std::string& acrSeen) {
    const auto lNow = std::chrono::system_clock::now().time_since_epoch();
    const std::string lName = "vrx-sn" + (acrProcess.empty() ? "" : ", process " + acrProcess);
    mBuffer.takeChange(
        {std::chrono::nanoseconds(lNow).count(), "sensor", lName, apEvent, "", acrSeen, apHow});
}

int ZTCSensor::run() {
    mStore.waitUntilOpen(sOpenTime);
    mCollecting = startServiceThread("vrx-sn-agent", [this] { collect(); });
    mNotify.tellReady();
    for (Event lEvent = waitForEvent(); lEvent != Event::End; lEvent = waitForEvent()) {
        if (lEvent == Event::Broken) {
            takeFailure();
            break;
        }
        lEvent == Event::Reload ? beginReload() : reload();
    }
    end();
    return mResult;
}

// A store that stood still for long may have turned out to be of no use at last.
void ZTCSensor::takeFailure() {
    try {
        mStore.waitUntilOpen(0ms);
    } catch (const ZTCStoreError& lrError) {
        mResult = 1;
        mrLog.note(ZTSL_Error, "%s", lrError.what());
    }
}

ZTCSensor::Event ZTCSensor::waitForEvent() {
    pollfd lPolls[] = {
        {mSignals.get(), POLLIN, 0}, {mBroken.get(), POLLIN, 0}, {mReload.getDescriptor(), POLLIN, 0}};
    while (true) {
        signalfd_siginfo lSignal{};
        if (read(mSignals.get(), &lSignal, sizeof lSignal) == sizeof lSignal) {
            if (lSignal.ssi_signo == SIGHUP) {
                return Event::Reload;
            }
            mrLog.note(ZTSL_Notice, "ending on signal %u", lSignal.ssi_signo);
            return Event::End;
        }
        if (lPolls[1].revents != 0) {
            return Event::Broken;
        }
        if (lPolls[2].revents != 0) {
            return Event::HasRead;
        }
        poll(lPolls, 3, -1);
    }
}

// ---- The collecting thread ----

void ZTCSensor::collect() {
    // The agent's room is full in 40 ms of a storm: who empties it comes before who stores. Not everybody
    // may.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), sPriority);
    try {
        mLoop.run();
    } catch (const std::exception& lrError) {
        mResult = 1;
        mrLog.note(ZTSL_Error, "%s", lrError.what());
    }
    sSet(mCollected);
    sSet(mBroken);
}

void ZTCSensor::turn() {
    const auto lNow = Clock::now();
    mNotify.feed(lNow);
    mBuffer.closeDue(lNow);
    mFigures.set(ZTSN_UncommittedBytes, mBuffer.getBytes());
    mFigures.set(ZTSN_LogLost, mrLog.getLost());
    mHost.seeAgentHere(mFigures.get(ZTSN_AgentUp) != 0);
    showHost();
    mStore.tellTrouble();
    mHost.tellTrouble(lNow);
    tellStatus(lNow);
}

void ZTCSensor::showHost() {
    const ZTSHostSummary lHost = mHost.getSummary();
    const std::pair<ZTESnFigure, std::uint64_t> lFigures[] = {
        {ZTSN_Ports, lHost.mPorts},
        {ZTSN_Luns, lHost.mLuns},
        {ZTSN_Maps, lHost.mMaps},
        {ZTSN_WholeMaps, lHost.mWholeMaps},
        {ZTSN_Paths, lHost.mPaths},
        {ZTSN_UsablePaths, lHost.mUsablePaths},
        {ZTSN_StalledDisks, lHost.mStalled},
        {ZTSN_Stalls, lHost.mStalls},
        {ZTSN_Fpins, lHost.mFpins},
        {ZTSN_LostMessages, lHost.mLostMessages},
        {ZTSN_LongestSlice, static_cast<std::uint64_t>(lHost.mLongestSlice.count())}};
    for (const auto& [lFigure, lValue] : lFigures) {
        mFigures.set(lFigure, lValue);
    }
}

void ZTCSensor::tellStatus(Clock::time_point aNow) {
    const std::pair lState(mFigures.get(ZTSN_AgentUp) != 0, mFigures.get(ZTSN_StoreStandsSince) != 0);
    if (aNow - mStatusTold >= sStatusEvery || lState != mStateTold) {
        mStatusTold = aNow;
        mStateTold = lState;
        mNotify.tellStatus(mStatus.getText(std::chrono::system_clock::now(), mStore.getTrouble()));
    }
}

// ---- Reading anew, and the end ----

void ZTCSensor::beginReload() {
    mNotify.tellReloading();
    try {
        mReload.begin();
    } catch (const std::exception& lrError) {
        mrLog.note(ZTSL_Error, "the configuration stays as it was: %s", lrError.what());
        mNotify.tellReady();
    }
}

void ZTCSensor::reload() {
    try {
        ZTSSnOptions lNew = mReload.take();
        const std::string lFixed = listFixedChanges(mOptions, lNew);
        if (!lFixed.empty()) {
            mrLog.note(ZTSL_Warning, "only a new start changes %s", lFixed.c_str());
        }
        keepFixed(mOptions, lNew);
        mOptions = lNew;
        mLoop.setOptions(mOptions);
        mBuffer.setFold(sFoldOf(mOptions));
        mStore.setKeep(mOptions.mKeepDays, mOptions.mKeepBytes);
        mHost.setWindows(mOptions.mWindows);
        mIncidents.setOptions(mOptions.mRules, mOptions.mOnIncident);
        mHost.reload(mOptions.mNames);
        mrLog.note(ZTSL_Notice, "configuration and names are read anew");
    } catch (const std::exception& lrError) {
        mrLog.note(ZTSL_Error, "the configuration stays as it was: %s", lrError.what());
    }
    mNotify.tellReady();
}

void ZTCSensor::end() {
    const auto lBegin = Clock::now();
    mNotify.tellStopping();
    // Whatever stands still from here on, also in a destructor: the process is left in time.
    startServiceThread("vrx-sn-end", [this, lBegin] {
        std::this_thread::sleep_until(lBegin + sEndTime);
        mrLog.note(ZTSL_Error, "the end takes too long: leaving");
        leave(mResult);
    }).detach();
    mLoop.end();
    const bool lHasCollected = sWaitFor(mCollected, lBegin + sLastFetchTime);
    if (!lHasCollected) {
        mrLog.note(ZTSL_Warning, "the agent does not answer: ending without its last events");
    }
    mHost.settle();
    mBuffer.closeAll();
    noteSelf(std::to_string(getpid()), "went", "ended");
    mIncidents.settle(sIncidentTime);
    const bool lHasToldAll = mIncidents.finish(sIncidentTime);
    const auto lLeft =
        std::chrono::duration_cast<std::chrono::milliseconds>(lBegin + sStoreTime - Clock::now());
    if (!mStore.finish(lLeft)) {
        mrLog.note(ZTSL_Error, "ending with %zu KiB that are not in the history: %s",
                   (mBuffer.getBytes() + 1023) / 1024, mStore.getTrouble().c_str());
        leave(mResult);
    }
    if (!lHasCollected || !lHasToldAll) {
        leave(mResult);
    }
}

// Threads that stand still cannot be waited for.
void ZTCSensor::leave(int aStatus) {
    mFigures.withdraw();
    _exit(aStatus);
}
