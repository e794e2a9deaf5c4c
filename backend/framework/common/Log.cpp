#include "Log.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "Exception.h"
#include "LogRings.h"
#include "LogWriter.h"
#include "Periods.h"

constinit std::atomic<unsigned int> ztlog::gCode{~0U};
constinit std::atomic<unsigned int> ztlog::gMask{ZTLogCodeDefault};

namespace {

using namespace std::chrono_literals;

constinit ZTCLogRings sRings;
constinit ZTCLogWriter sWriter(sRings);
constinit ZTCLogLock sSharedLock;  // held from begin to publish by who puts into the shared ring
constinit std::atomic<bool> sIsOpened{false};
constinit std::atomic<bool> sIsDiscarded{false};

// ---- A thread's ring ----

struct ThreadState {
    ZTCLogRing* mpRing;  // null: none yet, or the shared one
    std::uint32_t mThread;
    std::uint32_t mShared;  // records still to be put into the shared ring before another is looked for
};
constinit thread_local ThreadState tState{};

// Its destructor gives a ring back when its thread ends. Unlike a thread_local's, it takes no memory to
// register.
pthread_key_t sRingKey;

void sGiveRingBack(void* apRing) {
    tState.mpRing = nullptr;
    static_cast<ZTCLogRing*>(apRing)->mState.store(ZTCLogRing::State::Orphaned, std::memory_order_release);
}

void sBeforeFork() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sSharedLock.lock();
    sWriter.beforeFork();
}

void sAfterForkInParent() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sWriter.afterForkInParent();
    sSharedLock.unlock();
}

// What was logged before the file is known is the business of the process that goes on, which is the child:
// it has the child's number in the log, so it gets its thread's too. What comes later is written by the
// parent.
void sAfterForkInChild() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sRings.keepOnly(tState.mpRing, !sIsOpened.load());
    tState.mThread = static_cast<std::uint32_t>(gettid());
    if (tState.mpRing != nullptr) {
        tState.mpRing->setThread(tState.mThread);
    }
    sWriter.afterForkInChild();
    sSharedLock.unlock();
}

void sInitialiseOnce() {
    static pthread_once_t sOnce = PTHREAD_ONCE_INIT;
    pthread_once(&sOnce, [] {
        pthread_key_create(&sRingKey, sGiveRingBack);
        pthread_atfork(sBeforeFork, sAfterForkInParent, sAfterForkInChild);
        atexit(ztlog::finish);
    });
}

// The first record of a thread. Leaves mpRing null when the thread has to use the shared ring, for some time:
// the rings of threads that have ended become free when the writer comes by.
void sAttach() {
    constexpr std::uint32_t lSharedFor = 100;
    sInitialiseOnce();
    tState.mThread = static_cast<std::uint32_t>(gettid());
    ZTCLogRing* const lpRing = sRings.takeFree();
    if (lpRing == nullptr || pthread_setspecific(sRingKey, lpRing) != 0) {
        tState.mShared = lSharedFor;
        if (lpRing != nullptr) {
            lpRing->mState.store(ZTCLogRing::State::Free, std::memory_order_release);
        }
        return;
    }
    tState.mpRing = lpRing;
}

// A ring is full. Whoever logs at ZTLL_Warning or above waits for room, if nobody has done so in vain since
// the file has taken something. False: there is none, the record is lost.
template <class HasRoom>
bool sAwaitRoom(unsigned int aLevel, const HasRoom& acrHasRoom) {
    constexpr timespec lTurn{0, 1000000};
    if (aLevel > ZTLL_Warning.mBit || !sWriter.mayWait()) {
        return false;
    }
    sWriter.published(true);
    const auto lDeadline = std::chrono::steady_clock::now() + ZTPeriod(ZTP_LogRoom);
    while (std::chrono::steady_clock::now() < lDeadline) {
        nanosleep(&lTurn, nullptr);
        if (acrHasRoom()) {
            return true;
        }
    }
    return false;
}

ZTCLogRecord* sLose() {
    ZTStatistic(ZTS_LogLostFull).fetch_add(1, std::memory_order_relaxed);
    return nullptr;
}

// A thread without a ring of its own holds the shared ring's lock from here to its publication, but not while
// it waits for room.
ZTCLogRecord* sBeginShared(std::size_t aSize, unsigned int aLevel) ZT_NO_THREAD_SAFETY_ANALYSIS {
    --tState.mShared;
    const auto lHasRoom = [=]() ZT_NO_THREAD_SAFETY_ANALYSIS {
        sSharedLock.lock();
        if (sRings.shared().hasRoom(aSize)) {
            return true;  // and the lock is held
        }
        sSharedLock.unlock();
        return false;
    };
    if (!lHasRoom() && !sAwaitRoom(aLevel, lHasRoom)) {
        return sLose();
    }
    return &sRings.shared().begin(aSize, tState.mThread);
}

}  // namespace

// ---- What others call ----

ZTCLogRecord* ztlog::begin(std::size_t aSize, unsigned int aLevel) {
    if (tState.mpRing == nullptr) [[unlikely]] {
        if (tState.mShared == 0) {
            sAttach();
        }
        if (tState.mpRing == nullptr) {
            return sBeginShared(aSize, aLevel);
        }
    }
    ZTCLogRing& lrRing = *tState.mpRing;
    if (!lrRing.hasRoom(aSize) && !sAwaitRoom(aLevel, [&] { return lrRing.hasRoom(aSize); })) [[unlikely]] {
        return sLose();
    }
    return &lrRing.begin(aSize, tState.mThread);
}

void ztlog::publish(unsigned int aLevel) ZT_NO_THREAD_SAFETY_ANALYSIS {
    const bool lIsShared = tState.mpRing == nullptr;
    ZTCLogRing& lrRing = lIsShared ? sRings.shared() : *tState.mpRing;
    lrRing.publish();
    const bool lIsUrgent = (aLevel & ZTLL_Urgent) != 0 || lrRing.isFilling();
    if (lIsShared) [[unlikely]] {
        sSharedLock.unlock();
    }
    sWriter.published(lIsUrgent);
}

void ztlog::finish() {
    static constinit std::atomic<bool> sIsSpilled{false};
    if (sWriter.isRunning()) {
        sWriter.ask(ZTCLogWriter::ZTLW_Stop, ZTPeriod(ZTP_LogFlush));
    } else if (!sIsOpened.load() && !sIsDiscarded.load() && !sIsSpilled.exchange(true)) {
        sWriter.getDrain().drainAll();
    }
}

void setLogCode(unsigned int aCode) {
    ztlog::gMask.store(aCode, std::memory_order_relaxed);
    if (sIsOpened.load()) {
        ztlog::gCode.store(aCode, std::memory_order_relaxed);
    }
}

void getLogCode(unsigned int& arCode) {
    arCode = ztlog::gMask.load(std::memory_order_relaxed);
}

void setLogFilePath(const char* apPath) {
    sWriter.setPath(apPath);
}

const char* getLogFilePath() {
    return sWriter.getPath();
}

void setLogLimit(unsigned int aMebibytes) {
    sWriter.getDrain().setLimit(aMebibytes);
}

bool openLog() {
    sInitialiseOnce();
    sIsOpened.store(true);
    ztlog::gCode.store(ztlog::gMask.load());
    sWriter.start();
    if (!sWriter.ask(ZTCLogWriter::ZTLW_Open, ZTPeriod(ZTP_LogOpen))) {
        sWriter.openWhenItCan();
        return false;
    }
    if (const int lErrno = sWriter.getOpenErrno(); lErrno != 0) {
        throwErrno<ZTCOsException>("cannot open the log file", getLogFilePath(), lErrno);
    }
    return true;
}

void reopenLog() {
    sWriter.ask(ZTCLogWriter::ZTLW_Open, 0s);
}

void discardLog() {
    ztlog::gCode.store(0);
    sIsDiscarded.store(true);
}

void setLogEcho(bool aOn) {
    sWriter.getDrain().setEcho(aOn);
}

bool flushLog() {
    return sWriter.ask(ZTCLogWriter::ZTLW_Write, ZTPeriod(ZTP_LogFlush)) && sWriter.hasFile();
}
