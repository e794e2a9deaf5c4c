#include "Log.h"

#include <linux/membarrier.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "Exception.h"
#include "LogDrain.h"
#include "LogRings.h"

constinit std::atomic<unsigned int> ztlog::gCode{ZTLogCodeDefault};

namespace {

constexpr char sFile[] = "Log";

constexpr long sMillisecond = 1000000;  // nanoseconds

constinit ZTCLogRings sRings;
constinit ZTCLogDrain sDrain(sRings);
constinit ZTCLogLock sSharedLock;  // who puts into the shared ring holds it, and may drain meanwhile

// The writer thread. It sets sWriterIsIdle before it sleeps without a limit; whoever logs then wakes it.
constinit std::atomic<bool> sWriterRuns{false};
constinit std::atomic<bool> sWriterIsIdle{false};
sem_t sWakeWriter;

void nap(long aNanoseconds) {
    const timespec lTime{0, aNanoseconds};
    nanosleep(&lTime, nullptr);
}

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

void giveRingBack(void* apRing) {
    tState.mpRing = nullptr;
    static_cast<ZTCLogRing*>(apRing)->mState.store(ZTCLogRing::State::Orphaned, std::memory_order_release);
}

void beforeFork() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sSharedLock.lock();  // first: who holds it may have to drain
    sDrain.mLock.lock();
    sDrain.drainAll();
}

void afterForkInParent() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sDrain.mLock.unlock();
    sSharedLock.unlock();
}

void afterForkInChild() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sRings.keepOnly(tState.mpRing);
    tState.mThread = static_cast<std::uint32_t>(gettid());
    sWriterRuns.store(false);
    sWriterIsIdle.store(false);
    afterForkInParent();
}

void initialiseOnce() {
    static pthread_once_t sOnce = PTHREAD_ONCE_INIT;
    pthread_once(&sOnce, [] {
        sem_init(&sWakeWriter, 0, 0);
        pthread_key_create(&sRingKey, giveRingBack);
        pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
        atexit(ztlog::finish);
    });
}

// The first record of a thread. Leaves mpRing null when the thread has to use the shared ring, for some time.
void attach() {
    constexpr std::uint32_t lSharedFor = 1000;
    initialiseOnce();
    tState.mThread = static_cast<std::uint32_t>(gettid());
    ZTCLogRing* lpRing = sRings.takeFree();
    if (lpRing == nullptr) {
        const ZTCLogGuard lGuard(sDrain.mLock);  // the rings of threads that have ended become free
        sDrain.drainAll();
        sDrain.drainOnce();  // finds them empty
        lpRing = sRings.takeFree();
    }
    if (lpRing == nullptr || pthread_setspecific(sRingKey, lpRing) != 0) {
        tState.mShared = lSharedFor;
        if (lpRing != nullptr) {
            lpRing->mState.store(ZTCLogRing::State::Free, std::memory_order_release);
        }
        return;
    }
    tState.mpRing = lpRing;
}

// The ring is full: waits for the writer, or drains when there is none or it does not get to it.
void makeRoom(ZTCLogRing& arRing, std::size_t aSize) {
    constexpr int lYields = 20;
    constexpr int lNaps = 50;
    sem_post(&sWakeWriter);
    for (int lTry = 0; !arRing.hasRoom(aSize); ++lTry) {
        const bool lHelps = !sWriterRuns.load(std::memory_order_relaxed) || lTry > lYields + lNaps;
        if (lHelps && sDrain.mLock.tryLock()) {
            sDrain.drainAll();
            sDrain.mLock.unlock();
        } else if (lTry < lYields) {
            sched_yield();
        } else {
            nap(sMillisecond / 20);
        }
    }
}

// ---- The writer ----

// Makes every store that another thread of this process has made visible here, and the other way round,
// without a fence on the side of those that log. False where the kernel does not offer it.
bool fenceAllThreads() {
    return syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
}

void wakeWriter() {
    if (sWriterIsIdle.exchange(false)) {
        sem_post(&sWakeWriter);
    }
}

// Sleeps until somebody wakes the writer, but not for longer than that.
void doze(long aNanoseconds) {
    timespec lDeadline;
    clock_gettime(CLOCK_MONOTONIC, &lDeadline);
    lDeadline.tv_nsec += aNanoseconds;
    lDeadline.tv_sec += lDeadline.tv_nsec / (1000 * sMillisecond);
    lDeadline.tv_nsec %= 1000 * sMillisecond;
    sem_clockwait(&sWakeWriter, CLOCK_MONOTONIC, &lDeadline);
}

// Sleeps until somebody logs. While lost records wait to be told, or without the fence, only a while.
void idle(bool aLost) {
    sWriterIsIdle.store(true);
    const bool lFenced = fenceAllThreads();
    if (sRings.isSomethingPending()) {
        sWriterIsIdle.store(false);
        return;
    }
    if (lFenced && !aLost) {
        sem_wait(&sWakeWriter);
    } else {
        doze((lFenced ? 1000 : 100) * sMillisecond);
    }
    sWriterIsIdle.store(false);
}

void* writerThread(void*) {
    constexpr std::uint64_t lPlenty = ZTCLogRing::Capacity / 16;  // go on at once: more has come meanwhile
    constexpr int lQuietRounds = 20;                              // of a millisecond, before it is idle
    int lQuiet = 0;
    for (;;) {
        sDrain.mLock.lock();
        if (!sWriterRuns.load()) {
            sDrain.mLock.unlock();
            return nullptr;
        }
        const std::uint64_t lTaken = sDrain.drainOnce();
        const bool lLost = sDrain.hasLost();
        sDrain.mLock.unlock();
        if (lTaken >= lPlenty) {
            continue;
        }
        lQuiet = lTaken == 0 && !sRings.isSomethingPending() ? lQuiet + 1 : 0;
        if (lQuiet < lQuietRounds) {
            doze(sMillisecond);
        } else {
            idle(lLost);
        }
    }
    return nullptr;
}

}  // namespace

// ---- What others call ----

// A thread without a ring of its own holds the shared ring's lock from begin to publish.
ZTCLogRecord& ztlog::begin(std::size_t aSize) ZT_NO_THREAD_SAFETY_ANALYSIS {
    if (tState.mpRing == nullptr) [[unlikely]] {
        if (tState.mShared == 0) {
            attach();
        }
        if (tState.mpRing == nullptr) {
            --tState.mShared;
            sSharedLock.lock();
        }
    }
    ZTCLogRing& lrRing = tState.mpRing != nullptr ? *tState.mpRing : sRings.shared();
    if (!lrRing.hasRoom(aSize)) [[unlikely]] {
        makeRoom(lrRing, aSize);
    }
    return lrRing.begin(aSize, tState.mThread);
}

void ztlog::publish() ZT_NO_THREAD_SAFETY_ANALYSIS {
    if (tState.mpRing != nullptr) [[likely]] {
        tState.mpRing->publish();
    } else {
        sRings.shared().publish();
        sSharedLock.unlock();
    }
    std::atomic_signal_fence(std::memory_order_seq_cst);  // with fenceAllThreads: published, then looked
    if (sWriterIsIdle.load(std::memory_order_relaxed)) [[unlikely]] {
        wakeWriter();
    }
}

void ztlog::finish() {
    constexpr unsigned int lSeconds = 5;
    if (sDrain.mLock.lockWithin(lSeconds)) {
        sDrain.drainAll();
        sDrain.mFile.spill();
        // The end of the process would cut what the writer writes now. A thread whose ring is full still may.
        sWriterRuns.store(false);
        sDrain.mLock.unlock();
    }
}

void setLogCode(unsigned int aCode) {
    ztlog::gCode.store(aCode, std::memory_order_relaxed);
}

void getLogCode(unsigned int& arCode) {
    arCode = ztlog::gCode.load(std::memory_order_relaxed);
}

void setLogFilePath(const char* apPath) {
    if (strlen(apPath) >= sizeof sDrain.mPath) {
        throw ZTCInvalidEx("The name of the log file is too long", ENAMETOOLONG);
    }
    const ZTCLogGuard lGuard(sDrain.mLock);
    strcpy(sDrain.mPath, apPath);
}

const char* getLogFilePath() {
    const ZTCLogGuard lGuard(sDrain.mLock);
    return sDrain.mPath;
}

void openLog() {
    initialiseOnce();
    const ZTCLogGuard lGuard(sDrain.mLock);
    sDrain.drainAll();
    const int lErrno = sDrain.mFile.open(sDrain.mPath);
    if (lErrno != 0) {
        throwErrno<ZTCOsException>("cannot open the log file", sDrain.mPath, lErrno);
    }
}

void startLogWriter() {
    initialiseOnce();
    if (sWriterRuns.exchange(true)) {
        return;
    }
    syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0);
    sigset_t lAll;
    sigset_t lBefore;
    sigfillset(&lAll);
    pthread_sigmask(SIG_SETMASK, &lAll, &lBefore);
    pthread_t lThread;
    const int lErrno = pthread_create(&lThread, nullptr, writerThread, nullptr);
    pthread_sigmask(SIG_SETMASK, &lBefore, nullptr);
    if (lErrno != 0) {
        sWriterRuns.store(false);
        throwErrno<ZTCOsException>("pthread_create", "log writer", lErrno);
    }
    pthread_setname_np(lThread, "log-writer");
    pthread_detach(lThread);
}

void reopenLog() {
    int lErrno = 0;
    {
        const ZTCLogGuard lGuard(sDrain.mLock);
        sDrain.drainAll();
        lErrno = sDrain.mFile.open(sDrain.mPath);
    }
    if (lErrno != 0) {
        Log(ZTLL_Error, sFile, "The log file could not be opened anew, the old one stays in use: %s",
            strerrordesc_np(lErrno));
    }
}

void discardLog() {
    const ZTCLogGuard lGuard(sDrain.mLock);
    sDrain.drainAll();
    sDrain.mFile.discard();
}

void setLogEcho(bool aOn) {
    const ZTCLogGuard lGuard(sDrain.mLock);
    sDrain.mEcho = aOn;
}

void flushLog() {
    const ZTCLogGuard lGuard(sDrain.mLock);
    sDrain.drainAll();
}
