#include "AgentLoop.h"

#include <algorithm>
#include <new>
#include <utility>

#include "AgentCollection.h"
#include "AgentStatus.h"
#include "HostLook.h"
#include "SnBuffer.h"
#include "SnFigures.h"

namespace {

using namespace std::chrono_literals;

// A turn is a second at the most, and so is a part of waiting for a fetch's answer, which may come in a later
// one. What else is asked for is given up then; it is asked for anew.
constexpr std::chrono::milliseconds sTurn = 1s;
constexpr std::chrono::milliseconds sLookForAgent = 300ms;
constexpr std::chrono::milliseconds sAnswerTime = 1s;
constexpr std::chrono::milliseconds sOrderTime = 2s;
constexpr std::chrono::milliseconds sLastFetchTime = 2s;
// Who has the pipes in its place is looked for in all of /proc.
constexpr std::chrono::milliseconds sTroublePause = 3s;

// So long the store is waited for behind an answer, that a kill loses no second one; and so often it is
// looked whether the agent can wait.
constexpr std::chrono::milliseconds sStoreTime = 10ms;
constexpr std::chrono::milliseconds sStoreStep = 2ms;
// Behind a collection that could not be started, and one that somebody else has stopped.
constexpr std::chrono::milliseconds sStartAgain = 10s;
constexpr std::chrono::milliseconds sSightEvery = 5s;
// An agent whose file is on a disk makes it in a moment. Behind so many looks it has none.
constexpr unsigned int sLooksForFigures = 10;

constexpr std::uint64_t sHeldLimit = 256 * 1024;  // of an agent that shows none
}  // namespace

ZTCAgentLoop::ZTCAgentLoop(const ZTSSnOptions& acrOptions, ZTCSnBuffer& arBuffer, ZTCHostLook& arHost,
                           ZTCSnFigures& arFigures, ZTCServiceLog& arLog, Turn aTurn)
    : mrBuffer(arBuffer),
      mrHost(arHost),
      mrFigures(arFigures),
      mrLog(arLog),
      mTurn(std::move(aTurn)),
      mDirectory(acrOptions.mDirectory),
      mStore(acrOptions.mStore),
      mEvery(acrOptions.mEvery),
      mCeiling(acrOptions.mCeiling),
      mBook(arBuffer, arLog),
      mDirectoryTrouble(arLog, "the agent's directory cannot be used"),
      mNoAgent(arLog, "no agent is to be fetched from", ZTSL_Notice),
      mNoAnswer(arLog, "the agent does not answer"),
      mBadAnswer(arLog, "what the agent answers cannot be read") {
    mrFigures.set(ZTSN_Period, static_cast<std::uint64_t>(acrOptions.mEvery.count()));
}

void ZTCAgentLoop::setOptions(const ZTSSnOptions& acrOptions) {
    mEvery = acrOptions.mEvery;
    mCeiling = acrOptions.mCeiling;
    mrFigures.set(ZTSN_Period, static_cast<std::uint64_t>(acrOptions.mEvery.count()));
}

void ZTCAgentLoop::setStart(const ZTSStoreStart& acrStart) {
    mBook.setStart(acrStart);
}

// ---- Turns ----

void ZTCAgentLoop::run() {
    while (!mEnd.hasEnded()) {
        try {
            mTurn();
            tryTurn();
            mHasBegun = true;
            waitForWork();
        } catch (const std::bad_alloc&) {
            mrLog.note(ZTSL_Error, "there is no memory to collect with: trying again");
            mEnd.waitUntil(Clock::now() + 1s);
        }
    }
    for (const auto lpStep :
         {&ZTCAgentLoop::lastFetch, &ZTCAgentLoop::settle, &ZTCAgentLoop::leaveDirectory}) {
        try {
            (this->*lpStep)();
        } catch (const std::exception& lrError) {
            mrLog.note(ZTSL_Warning, "the last fetch failed: %s", lrError.what());
        }
    }
}

// What the agent or the system does wrong is told, and tried again. Before the first claim it is the caller's
// to end for it, but for what may come yet.
void ZTCAgentLoop::tryTurn() {
    try {
        turn();
        mDirectoryTrouble.over();
    } catch (const ZTCNoAgentError& lrError) {
        mrFigures.set(ZTSN_AgentUp, 0);
        meet(mNoAgent, lrError, sLookForAgent);
    } catch (const ZTCTimedOutError& lrError) {
        mrFigures.set(ZTSN_AgentUp, 0);
        meet(mNoAnswer, lrError, mpClient != nullptr && mpClient->isFetchOpen() ? 0s : 1s);
    } catch (const ZTCMalformedAnswerError& lrError) {
        meet(mBadAnswer, lrError, 1s);
    } catch (const ZTCRefusedError& lrError) {
        meet(mBadAnswer, lrError, 1s);
    } catch (const ZTCSensorError& lrError) {
        if (!mHasBegun) {
            throw;
        }
        meet(mDirectoryTrouble, lrError, sTroublePause);
    }
}

void ZTCAgentLoop::turn() {
    noteLostAnswers();  // by the turn before, however that ended
    if (mpClient != nullptr && !mpClient->hasDirectory()) {
        leaveDirectory();
    }
    if (mpClient == nullptr) {
        claim();
    }
    beHere();
    if (!std::exchange(mIsBeginTold, true)) {
        mrLog.note(ZTSL_Notice, "collecting from %s into %s", mDirectory.c_str(), mStore.c_str());
    }
    if (mpSight != nullptr && mpSight->hasGone()) {
        detach();
    }
    if (mpSight == nullptr && !findAgent()) {
        return;
    }
    if (mpSight->hasGone()) {
        detach();  // what one has left that was killed
        return;
    }
    if (!mIsGreeted) {
        greet();
    }
    if (mIsMuch || mpClient->isFetchOpen() || Clock::now() >= mNextFetch) {
        fetch();
    }
    keepCollecting();
    registerTargets();
}

// At most a turn. What is due at once is not waited for.
void ZTCAgentLoop::waitForWork() {
    const auto lNow = Clock::now();
    if (mPausedTo > lNow || mpSight == nullptr || !mIsGreeted) {
        mEnd.waitUntil(std::max(mPausedTo, lNow + (mpSight == nullptr ? sLookForAgent : 0ms)));
        return;
    }
    if (mIsMuch || mpClient->isFetchOpen()) {
        return;
    }
    try {
        if (mpSight->waitUntil(std::min(mNextFetch, lNow + sTurn), mEnd)) {
            mNextFetch = lNow;
        }
    } catch (const ZTCSensorError&) {
        mEnd.waitUntil(std::min(mNextFetch, lNow + sTurn));  // somebody has cut the figures
    }
}

void ZTCAgentLoop::meet(ZTCServiceTrouble& arTrouble, const std::exception& acrError,
                        std::chrono::milliseconds aPause) {
    arTrouble.met(acrError.what());
    mPausedTo = Clock::now() + aPause;
}

// ---- The directory ----

void ZTCAgentLoop::claim() {
    mpClient = std::make_unique<ZTCSensorClient>(ZTSSensorOptions{mDirectory, sOrderTime, 0ms});
    mLostAnswers = 0;
}

// The agent sees by the file that it has a sensor.
void ZTCAgentLoop::beHere() {
    if (Clock::now() < mNextTouch) {
        return;
    }
    try {
        mpPidFile != nullptr ? mpPidFile->touch()
                             : void(mpPidFile = std::make_unique<ZTCSensorPidFile>(mDirectory));
    } catch (const ZTCSensorError&) {
        leaveDirectory();
        throw;
    }
    mNextTouch = Clock::now() + sTurn - 100ms;  // each turn, also where that comes a little early
}

void ZTCAgentLoop::leaveDirectory() {
    if (mpSight != nullptr && mpSight->hasGone()) {
        detach();
    }
    mpSight.reset();
    mpPidFile.reset();
    if (mpClient != nullptr) {
        mpClient->close();
        noteLostAnswers();
        mpClient.reset();
    }
    mIsGreeted = false;
    mrFigures.set(ZTSN_AgentUp, 0);
}

// ---- An agent ----

bool ZTCAgentLoop::findAgent() {
    std::unique_ptr<ZTCAgentSight> lpSight = ZTCAgentSight::ofFigures(mDirectory);
    const bool lHasGone = lpSight == nullptr || lpSight->hasGone();
    if (lHasGone && lpSight != nullptr && mBook.isAwaited(*lpSight)) {
        attach(std::move(lpSight));
        return true;
    }
    if (lHasGone) {
        lpSight = ZTCAgentSight::ofLock(mDirectory);
        mLooksWithoutFigures = lpSight != nullptr ? mLooksWithoutFigures + 1 : 0;
    }
    if (lpSight != nullptr && (!lHasGone || mLooksWithoutFigures > sLooksForFigures)) {
        attach(std::move(lpSight));
        return true;
    }
    if (lpSight == nullptr) {
        mBook.seeNone();
    }
    mNoAgent.met("none runs in " + mDirectory);
    return false;
}

void ZTCAgentLoop::attach(std::unique_ptr<ZTCAgentSight> apSight) {
    const ZTSBookFigures* const lpSeen = apSight->look();
    mBook.begin(*apSight, lpSeen);
    mpSight = std::move(apSight);
    mpSeen = lpSeen;
    mLooksWithoutFigures = 0;
    mIsGreeted = mIsMuch = false;
    mTargets = {};
    mNextFetch = mNextStart = {};
}

// It has gone. An answer that it gave before may be in the pipe yet.
void ZTCAgentLoop::detach() {
    if (mpClient->isFetchOpen()) {
        try {
            take(mpClient->fetch());
        } catch (const std::exception&) {
            // It is among what the figures tell as lost.
        }
    }
    mpClient->close();
    noteLostAnswers();
    mpSeen = mpSight->look();
    const ZTSAgentRun lRun = mBook.end(mpSeen);
    mrLog.note(lRun.mEnd == "ended" ? ZTSL_Notice : ZTSL_Warning, "vrx-sca, process %lld, has gone: %s",
               static_cast<long long>(lRun.mProcess), lRun.mEnd.c_str());
    mpSight.reset();
    mpSeen = nullptr;
    mIsGreeted = mIsMuch = false;
    mrFigures.set(ZTSN_AgentUp, 0);
}

void ZTCAgentLoop::greet() {
    mpClient->setTimeout(sOrderTime);
    const auto lSeconds = std::chrono::ceil<std::chrono::seconds>(mEvery.load()).count();
    mpClient->setCollectionPeriod(static_cast<std::uint32_t>(std::clamp<std::int64_t>(lSeconds, 1, 86400)));
    registerTargets();
    look();
    const bool lIsCollecting = mpSeen != nullptr && mpSeen->mAgent.get("collecting").value_or(0) != 0;
    if (!lIsCollecting) {
        startCollection();
    }
    mIsGreeted = true;
    mNoAgent.over();
    mrLog.note(ZTSL_Notice, "fetching from vrx-sca, process %lld: its collection %s",
               static_cast<long long>(mpSight->getProcess()), lIsCollecting ? "was under way" : "is started");
}

void ZTCAgentLoop::startCollection() {
    mNextStart = Clock::now() + sStartAgain;
    mpClient->setTimeout(sOrderTime);
    ::startCollection(*mpClient, mpSeen, mCeiling);
}

// Somebody may have stopped it. Figures that are some seconds old say nothing of that.
void ZTCAgentLoop::keepCollecting() {
    if (isIdle(mpSeen) && Clock::now() >= mNextStart) {
        startCollection();
        mrLog.note(ZTSL_Warning, "somebody has stopped the collection: it is started again");
    }
}

// One message a turn.
void ZTCAgentLoop::registerTargets() {
    mTargets.see(mrHost.getPorts());
    if (const auto lNext = mTargets.getNext(); !lNext.empty()) {
        mpClient->setTimeout(sOrderTime);
        mpClient->registerTargets(lNext);
        mTargets.haveRegistered(lNext.size());
    }
}

// ---- Fetches ----

void ZTCAgentLoop::fetch() {
    mIsMuch = false;
    mNextFetch = Clock::now() + mEvery.load();
    if (!mpClient->isFetchOpen()) {
        mpSight->noteWake();
    }
    mpClient->setTimeout(sAnswerTime);
    take(mpClient->fetch());
}

void ZTCAgentLoop::take(const ZTSensorBytes& acrMessage) {
    const auto lNow = ZTSMoment::now();
    std::shared_ptr<const ZTSHostPorts> lpPorts;
    ZTSensorScopeData lData;
    ZTSAgentRun lRun;
    try {
        lData = decodeScopeData(std::span(acrMessage).subspan(ZTSSensorHeader::Size));
        mrHost.seeAgent(listInitiators(lData));
        if (!mHasScsiAnswers && hasScsiAnswers(lData)) {
            mHasScsiAnswers = true;
            mrHost.see([](ZTSSight& arSight) { arSight.mHasCheckConditions = true; });
        }
        lpPorts = mrHost.getPorts();
        lRun = mBook.getRun();
    } catch (const ZTCRefusedError&) {
        throw;  // nothing was taken out
    } catch (...) {
        mBook.loseAnswer();
        throw;
    }
    const std::uint64_t lRecords = countRecords(lData);
    mBook.take(lData, *lpPorts, std::move(lRun), lNow);
    mNoAnswer.over();
    mBadAnswer.over();
    mrFigures.count(ZTSN_Fetches);
    mrFigures.set(ZTSN_LastFetch, static_cast<std::uint64_t>(lNow.mTime));
    mrFigures.count(ZTSN_Events, countEvents(lData));
    mrFigures.count(ZTSN_Records, lRecords);
    mrFigures.set(ZTSN_AgentUp, 1);
    look();
    const std::uint64_t lLimit =
        mpSeen != nullptr ? mpSeen->mAgent.get("held_bytes_limit").value_or(sHeldLimit) : sHeldLimit;
    mIsMuch = acrMessage.size() > lLimit / 8;
    if (lRecords != 0 && acrMessage.size() < lLimit / 4) {
        waitForStore();
    }
}

// Not where the agent runs full meanwhile.
void ZTCAgentLoop::waitForStore() {
    const auto lEnd = Clock::now() + sStoreTime;
    while (!mrBuffer.waitUntilStored(sStoreStep) && !mpSight->hasWoken() && Clock::now() < lEnd) {
    }
}

void ZTCAgentLoop::noteLostAnswers() {
    if (mpClient != nullptr && mpClient->getLostAnswers() != mLostAnswers) {
        mLostAnswers = mpClient->getLostAnswers();
        mBook.loseAnswer();
    }
}

// Once, however much comes.
void ZTCAgentLoop::lastFetch() {
    noteLostAnswers();
    if (mpSight != nullptr && mIsGreeted && !mpSight->hasGone()) {
        mpClient->setTimeout(sLastFetchTime);
        take(mpClient->fetch());
    }
}

void ZTCAgentLoop::settle() {
    noteLostAnswers();
    mBook.settle(mpClient != nullptr && mpClient->isFetchOpen());
}

// ---- The figures ----

void ZTCAgentLoop::look() {
    mpSeen = mpSight->look();
    mBook.look(mpSeen, mpClient->isFetchOpen());
    seeLibrary(Clock::now());
}

// What the agent's library can tell of, for what the host cannot see.
void ZTCAgentLoop::seeLibrary(Clock::time_point aNow) {
    if (aNow < mNextSight) {
        return;
    }
    mNextSight = aNow + sSightEvery;
    mrHost.see([lLibrary = libraryOf(mpSeen)](ZTSSight& arSight) { arSight.mLibrary = lLibrary; });
}
