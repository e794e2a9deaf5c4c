#include "System.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "Periods.h"

namespace {
constexpr char sFile[] = "System";
}

ZTCSystem::ZTCSystem(const ZTCString& acrName)
    : mName(acrName),
      mProtocolHelper(makePointer<ZTCProtocolHelper>()),
      mAddress(makePointer<ZTCIpAddress>(ZTCString(""))) {
    const ZTCTraceScope lTrace(sFile);
    orNoMemory([this] { mArgDescs.reserve(MaxArgDescs); });
}

ZTCSystem::~ZTCSystem() = default;

void ZTCSystem::generateNumericId(unsigned int& arId) {
    const ZTCScopedLock lLock(mMutex);
    unsigned int lFree = 0;
    for (const unsigned int lUsed : mIds) {
        if (lUsed != lFree) {
            break;
        }
        ++lFree;
    }
    try {
        mIds.insert(lFree);
    } catch (const std::bad_alloc&) {
        throwNoMemory();
    }
    arId = lFree;
}

void ZTCSystem::returnNumericId(const unsigned int& acrId) {
    const ZTCScopedLock lLock(mMutex);
    if (mIds.erase(acrId) == 0) {
        throwInvalidValue();
    }
}

// ---- Life ----

void ZTCSystem::preInit() {
    const ZTCTraceScope lTrace(sFile);
}

void ZTCSystem::init() {
    const ZTCTraceScope lTrace(sFile);
}

void ZTCSystem::destroy() {
    const ZTCTraceScope lTrace(sFile);
}

void ZTCSystem::postDestroy() {
    const ZTCTraceScope lTrace(sFile);
    if (mInstanceManager != 0) {
        exitInstanceManagement();
    }
}

void ZTCSystem::systemDaemonize(ZTCString aDirectory, ZTCString aInput, ZTCString aOutput, ZTCString aError) {
    orNoMemory([&] { mDaemonStreams = {aInput, aOutput, aError}; });
    mDaemon.detach(aDirectory, mName);
}

void ZTCSystem::reportReady() {
    mIsStarting.store(false);  // before anybody who waits for it goes
    if (mDaemon.isDetached()) {
        mDaemon.ready(mDaemonStreams[0], mDaemonStreams[1], mDaemonStreams[2]);
        setLogEcho(false);
    } else {
        OsNotifyServiceManager("READY=1");
    }
    wakeWatch();
    createStartUpEvent();
}

// ---- Threads ----

void ZTCSystem::createThreads() {
    const ZTCTraceScope lTrace(sFile);
    for (ZTCPointer<ZTCThreadComponent>& lrThread : mThreadComponents) {
        lrThread->create(mThreadEnded);
    }
}

void ZTCSystem::startThreads() {
    const ZTCTraceScope lTrace(sFile);
    for (unsigned int lThread = 0; lThread < mThreadComponents.numberOfElements(); ++lThread) {
        startThread(lThread);
    }
}

void ZTCSystem::startThread(unsigned int aThreadId) {
    mThreadComponents[aThreadId]->start();
}

bool ZTCSystem::isInited(unsigned int aThreadId) const {
    return mThreadComponents[aThreadId]->isStarted();
}

void ZTCSystem::waitForThreads() {
    const ZTCTraceScope lTrace(sFile);
    pollfd lPoll{mThreadEnded.getDescriptor(), POLLIN, 0};
    using Thread = ZTCPointer<ZTCThreadComponent>;
    const auto lIsRunning = [](const Thread& acrThread) { return !acrThread->hasEnded(); };
    const auto lHasFailed = [](const Thread& acrThread) { return acrThread->hasFailed(); };
    for (;;) {
        mThreadEnded.clear();
        mTurns.fetch_add(1);
        if (std::none_of(mThreadComponents.begin(), mThreadComponents.end(), lIsRunning)) {
            break;
        }
        if (!isSetForExit() && std::any_of(mThreadComponents.begin(), mThreadComponents.end(), lHasFailed)) {
            makeThreadsToExit();
        }
        const int lLeft = timeForThreads();
        if (lLeft == 0) {
            leaveThreads();
            break;
        }
        if (poll(&lPoll, 1, lLeft) < 0 && errno != EINTR) {
            throwErrno<ZTCOsException>("poll", nullptr, errno);
        }
    }
    for (ZTCPointer<ZTCThreadComponent>& lrThread : mThreadComponents) {
        if (lrThread->hasEnded()) {
            lrThread->join();
        }
    }
}

// How long the threads may still take to end, in milliseconds; -1: they are not to end.
int ZTCSystem::timeForThreads() const {
    if (!isEnding()) {
        return -1;
    }
    const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(getEndBegun() + ZTPeriod(ZTP_ThreadsEnd) -
                                                                    std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long>(lLeft.count(), 0));
}

// The threads that still run stay behind, with all that they use.
void ZTCSystem::leaveThreads() {
    mHasLeftThreads = true;
    if (leaveForeignCode()) {
        return;
    }
    for (const ZTCPointer<ZTCThreadComponent>& lrThread : mThreadComponents) {
        if (!lrThread->hasEnded()) {
            Log(ZTLL_Highest, sFile, "Thread %s does not end: ending without it", lrThread->getName().get());
        }
    }
}

bool ZTCSystem::leaveForeignCode() {
    keepForeignCallers(true);
    const ZTSForeignCall lCall = getLongestCall();
    if (lCall.mpFunction == nullptr) {
        keepForeignCallers(false);
        return false;
    }
    Log(ZTLL_Highest, sFile, "The vendor library's %s does not return: ending without it", lCall.mpFunction);
    return true;
}

void ZTCSystem::startWatch() {
    mWatch.emplace(*this);
    mWatch->start(mDaemon.getStarter());
}

void ZTCSystem::wakeWatch() {
    if (mWatch) {
        mWatch->wake();
    }
}

void ZTCSystem::beginEnd() {
    long lNone = 0;
    mEndBegun.compare_exchange_strong(lNone, std::chrono::steady_clock::now().time_since_epoch().count());
    turn();
    wakeWatch();
}

void ZTCSystem::letExit(bool aOn) {
    {
        const ZTCScopedLock lLock(mExitMutex);
        mMayExit = aOn;
    }
    if (aOn && isEnding()) {
        makeThreadsToExit();
    }
}

void ZTCSystem::requestExit() {
    beginEnd();
    const ZTCScopedLock lLock(mExitMutex);
    if (mMayExit) {
        makeThreadsToExit();
    }
}

void ZTCSystem::makeThreadsToExit() {
    const ZTCTraceScope lTrace(sFile);
    // Every thread is marked before the system is: one that finds its wait at an end finds its own mark too.
    for (ZTCPointer<ZTCThreadComponent>& lrThread : mThreadComponents) {
        lrThread->setForExit();
    }
    setForExit();
    beginEnd();
    for (ZTCPointer<ZTCThreadComponent>& lrThread : mThreadComponents) {
        lrThread->finish();
    }
    for (ZTCPointer<ZTCReader>& lrReader : mReaders) {
        lrReader->cancel();
    }
    for (ZTCPointer<ZTCWriter>& lrWriter : mWriters) {
        lrWriter->cancel();
    }
    for (ZTCPointer<ZTCConditional>& lrConditional : mConditionals) {
        lrConditional->signal();
    }
    mQueues.wake();
    mLists.wake();
}

void ZTCSystem::destroyThreads() {
    if (!mHasLeftThreads) {
        mThreadComponents.clear();
    }
}

// ---- Conditionals ----

void ZTCSystem::signal(unsigned int aConditionalId) {
    mConditionals[aConditionalId]->signal();
}

void ZTCSystem::wait(unsigned int aConditionalId) {
    waitForSignal(aConditionalId, nullptr);
}

void ZTCSystem::timedWait(unsigned int aConditionalId, unsigned int aSeconds) {
    const timespec lDeadline = OsDeadlineIn(aSeconds);
    waitForSignal(aConditionalId, &lDeadline);
}

void ZTCSystem::waitForSignal(unsigned int aConditionalId, const timespec* apDeadline) {
    ZTCConditional& lrConditional = *mConditionals[aConditionalId];
    const ZTCScopedLock lLock(lrConditional.getMutex());
    const unsigned long lBefore = lrConditional.getSignals();
    // makeThreadsToExit sets its mark before it signals, and signalling takes the lock that is held here.
    while (lrConditional.getSignals() == lBefore && !isSetForExit()) {
        if (apDeadline != nullptr) {
            lrConditional.waitUntil(*apDeadline);
        } else {
            lrConditional.wait();
        }
    }
}

// ---- Readers and writers ----

void ZTCSystem::send(unsigned int aWriterId, const ZTCPointer<ZTCBuffer>& acrBuffer, unsigned int& arSent) {
    const iovec lPiece{acrBuffer->getBytes(), acrBuffer->getLength()};
    getWriter(aWriterId)->write(&lPiece, 1);
    arSent = acrBuffer->getLength();
}

void ZTCSystem::receive(unsigned int aReaderId, ZTCPointer<ZTCBuffer>& arBuffer, unsigned int& arReceived) {
    getReader(aReaderId)->read(arBuffer->getBytes(), arBuffer->getLength());
    arReceived = arBuffer->getLength();
}

void ZTCSystem::waitForActivity(unsigned int aReaderId, unsigned int aSeconds) {
    ZTCPointer<ZTCReader>& lrReader = getReader(aReaderId);
    const timespec lDeadline = OsDeadlineIn(aSeconds);
    while (!isSetForExit() && !lrReader->waitForActivity({lDeadline, settleWriters()})) {
    }
}

// Returns what to watch for the next time that this is to be done. There is one writer to watch at the most.
int ZTCSystem::settleWriters() {
    int lWatched = -1;
    for (ZTCPointer<ZTCWriter>& lrWriter : mWriters) {
        lrWriter->settle();
        lWatched = std::max(lWatched, lrWriter->getChangeDescriptor());
    }
    return lWatched;
}
