#include "Log.h"

#include <fcntl.h>
#include <linux/membarrier.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>

#include "Exception.h"
#include "LogFile.h"
#include "LogLine.h"
#include "LogRing.h"
#include "ThreadAnnotations.h"

constinit std::atomic<unsigned int> ztlog::gCode{ZTLogCodeDefault};

namespace {

constexpr char sFile[] = "Log";

constexpr long sMillisecond = 1000000;  // nanoseconds

timespec monotonicIn(long aNanoseconds) {
    timespec lTime;
    clock_gettime(CLOCK_MONOTONIC, &lTime);
    const long long lTotal = static_cast<long long>(lTime.tv_nsec) + aNanoseconds;
    return {lTime.tv_sec + static_cast<time_t>(lTotal / 1000000000), static_cast<long>(lTotal % 1000000000)};
}

void nap(long aNanoseconds) {
    const timespec lTime{0, aNanoseconds};
    nanosleep(&lTime, nullptr);
}

// The log cannot use the framework's mutex: that one logs.
class ZT_CAPABILITY("mutex") LogLock {
  public:
    void lock() ZT_ACQUIRE() { pthread_mutex_lock(&mMutex); }
    bool tryLock() ZT_TRY_ACQUIRE(true) { return pthread_mutex_trylock(&mMutex) == 0; }
    bool lockWithin(unsigned int aSeconds) ZT_TRY_ACQUIRE(true) {
        const timespec lDeadline = monotonicIn(static_cast<long>(aSeconds) * 1000 * sMillisecond);
        return pthread_mutex_clocklock(&mMutex, CLOCK_MONOTONIC, &lDeadline) == 0;
    }
    void unlock() ZT_RELEASE() { pthread_mutex_unlock(&mMutex); }

  private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
};

class ZT_SCOPED_CAPABILITY LogGuard {
  public:
    explicit LogGuard(LogLock& arLock) ZT_ACQUIRE(arLock) : mrLock(arLock) { mrLock.lock(); }
    ~LogGuard() ZT_RELEASE() { mrLock.unlock(); }
    LogGuard(const LogGuard&) = delete;
    LogGuard& operator=(const LogGuard&) = delete;

  private:
    LogLock& mrLock;
};

// All rings, made ahead: logging allocates nothing. Ring 0 is shared, under a lock of its own, by the threads
// that come when all others are taken, and by a thread that logs while its own data is being destroyed.
constexpr std::size_t sRingCount = 64;
constinit ZTCLogRing sRings[sRingCount];
constinit std::atomic<std::size_t> sRingsUsed{1};  // rings at and above this were never taken
constinit LogLock sSharedLock;

// Whoever holds it is the one that drains.
constinit LogLock sDrainLock;
constinit ZTCLogLine sLine ZT_GUARDED_BY(sDrainLock);
constinit ZTCLogFile sLogFile ZT_GUARDED_BY(sDrainLock);
constinit char sPath[PATH_MAX] ZT_GUARDED_BY(sDrainLock) = "";
constinit bool sEcho ZT_GUARDED_BY(sDrainLock) = false;

// The writer thread. It sets sWriterIsIdle before it sleeps without a limit; whoever logs then wakes it.
constinit std::atomic<bool> sWriterRuns{false};
constinit std::atomic<bool> sWriterIsIdle{false};
sem_t sWakeWriter;

// What a thread knows of its ring.
struct ThreadState {
    ZTCLogRing* mpRing;
    std::uint32_t mThread;
    bool mEnds;  // its data is being destroyed
};
constinit thread_local ThreadState tState{};

// ---- Draining ----

// Formatted lines on their way to the file. A ring's tail moves only when its lines have been put, so a crash
// loses no more than what had not been put.
class Batch {
  public:
    char* reserve() ZT_REQUIRES(sDrainLock) {
        if (mUsed + ZTCLogLine::MaxLine > sizeof mBytes) {
            put();
        }
        return mBytes + mUsed;
    }
    void add(const char* apEnd) { mUsed = static_cast<std::size_t>(apEnd - mBytes); }
    void put() ZT_REQUIRES(sDrainLock);

    struct Source {
        ZTCLogRing* mpRing;
        std::uint64_t mAt;   // the next record
        std::uint64_t mEnd;  // behind the last one of this pass
        const ZTCLogRecord* mpNext;
    };
    Source mSources[sRingCount]{};
    std::size_t mSourceCount = 0;

  private:
    std::size_t mUsed = 0;
    char mBytes[128 * 1024]{};
};
constinit Batch sBatch ZT_GUARDED_BY(sDrainLock);

void Batch::put() {
    if (mUsed != 0) {
        sLogFile.put(mBytes, mUsed);
        mUsed = 0;
    }
    for (std::size_t lAt = 0; lAt < mSourceCount; ++lAt) {
        mSources[lAt].mpRing->setTail(mSources[lAt].mAt);
    }
}

// A record of the drainer's own.
void addOwnRecord(const ZTCLogLevel& acrLevel, const char* apFormat, unsigned int aLine,
                  const ztlog::Argument* apArguments, unsigned int aCount) ZT_REQUIRES(sDrainLock) {
    static constinit ZTCLogRing sOwn;
    sOwn.put(ZTCLogRing::sizeOf(apArguments, aCount), static_cast<std::uint32_t>(gettid()),
             {acrLevel.mpTag, "drain", sFile, apFormat, acrLevel.mBit, aLine}, apArguments, aCount);
    std::uint64_t lAt = sOwn.tail();
    const ZTCLogRecord* const lpRecord = sOwn.at(lAt);
    char lLine[ZTCLogLine::MaxLine];
    char* const lpEnd = sLine.format(*lpRecord, lLine);
    sLogFile.put(lLine, static_cast<std::size_t>(lpEnd - lLine));
    sOwn.setTail(sOwn.head());
}

// Tells how many records were lost, once the file takes lines again.
void tellLost() ZT_REQUIRES(sDrainLock) {
    const std::uint64_t lLost = sLogFile.lost();
    if (lLost == 0 || !sLogFile.completeLine()) {
        return;
    }
    sLogFile.forgetLost();
    const ztlog::Argument lArguments[] = {ztlog::argument(lLost),
                                          ztlog::argument(strerrordesc_np(sLogFile.lastError()))};
    addOwnRecord(ZTLL_Warning, "%lu log records were lost: %s", __LINE__, lArguments, 2);
}

// The head of a ring once no record with an earlier time than now is half written. A thread that was stopped
// in the middle of one is waited for only so long: its record may then stand behind a later one.
std::uint64_t settledHead(const ZTCLogRing& acrRing) {
    for (int lTry = 0; acrRing.isBeingWritten() && lTry < 200; ++lTry) {
        if (lTry >= 100) {
            sched_yield();
        }
    }
    return acrRing.head();
}

// Moves a source to its next record of this pass. Of the records not seen at the pass before, those made
// while the rings are being looked at wait for the next pass: an earlier one may have come to a ring that had
// been looked at already. (A time far ahead is a clock that was set back, and waits for nothing.)
void advance(Batch::Source& arSource, std::uint64_t aSeen, std::uint64_t aStart) {
    constexpr std::uint64_t lFarAhead = 1000000000;
    arSource.mpNext = nullptr;
    if (arSource.mAt == arSource.mEnd) {
        return;
    }
    const ZTCLogRecord* const lpRecord = arSource.mpRing->at(arSource.mAt);
    const bool lIsNew = arSource.mAt >= aSeen && lpRecord->mStamp > aStart;
    if (!lIsNew || lpRecord->mStamp - aStart > lFarAhead) {
        arSource.mpNext = lpRecord;
    }
}

void addLine(const ZTCLogRecord& acrRecord) ZT_REQUIRES(sDrainLock) {
    char* const lpLine = sBatch.reserve();
    char* const lpEnd = sLine.format(acrRecord, lpLine);
    sBatch.add(lpEnd);
    if (sEcho && sLogFile.isOpen() && (acrRecord.mSite.mLevel & (ZTLL_Highest.mBit | ZTLL_Error.mBit)) != 0) {
        if (write(STDERR_FILENO, lpLine, static_cast<std::size_t>(lpEnd - lpLine)) < 0) {
            return;  // nobody reads standard error: the file has the line
        }
    }
}

// One look at every ring: writes what is there in order of time. Returns the bytes taken from the rings.
std::uint64_t drainOnce() ZT_REQUIRES(sDrainLock) {
    tellLost();
    std::uint64_t lTaken = 0;
    std::uint64_t lSeen[sRingCount];
    const std::uint64_t lStart = ztlog::now();
    const std::size_t lRings = sRingsUsed.load(std::memory_order_acquire);
    sBatch.mSourceCount = 0;
    for (std::size_t lAt = 0; lAt < lRings; ++lAt) {
        ZTCLogRing& lrRing = sRings[lAt];
        const bool lIsOrphan = lrRing.mState.load(std::memory_order_acquire) == ZTCLogRing::State::Orphaned;
        const std::uint64_t lHead = settledHead(lrRing);
        if (lHead == lrRing.tail()) {
            lrRing.mSeen = lHead;
            if (lIsOrphan) {
                lrRing.mState.store(ZTCLogRing::State::Free, std::memory_order_release);
            }
            continue;
        }
        lSeen[sBatch.mSourceCount] = lrRing.mSeen;
        lrRing.mSeen = lHead;
        sBatch.mSources[sBatch.mSourceCount] = {&lrRing, lrRing.tail(), lHead, nullptr};
        lTaken -= lrRing.tail();
        advance(sBatch.mSources[sBatch.mSourceCount], lSeen[sBatch.mSourceCount], lStart);
        ++sBatch.mSourceCount;
    }
    for (;;) {
        // The source with the earliest record goes on until another has an earlier one.
        Batch::Source* lpFirst = nullptr;
        std::size_t lFirst = 0;
        std::uint64_t lOthers = ~std::uint64_t{0};
        for (std::size_t lAt = 0; lAt < sBatch.mSourceCount; ++lAt) {
            Batch::Source& lrSource = sBatch.mSources[lAt];
            if (lrSource.mpNext == nullptr) {
                continue;
            }
            if (lpFirst == nullptr || lrSource.mpNext->mStamp < lpFirst->mpNext->mStamp) {
                lOthers = lpFirst != nullptr ? lpFirst->mpNext->mStamp : lOthers;
                lpFirst = &lrSource;
                lFirst = lAt;
            } else {
                lOthers = std::min(lOthers, lrSource.mpNext->mStamp);
            }
        }
        if (lpFirst == nullptr) {
            break;
        }
        do {
            addLine(*lpFirst->mpNext);
            lpFirst->mAt += lpFirst->mpNext->mSize;
            advance(*lpFirst, lSeen[lFirst], lStart);
        } while (lpFirst->mpNext != nullptr && lpFirst->mpNext->mStamp <= lOthers);
    }
    sBatch.put();
    for (std::size_t lAt = 0; lAt < sBatch.mSourceCount; ++lAt) {
        lTaken += sBatch.mSources[lAt].mAt;
    }
    sBatch.mSourceCount = 0;
    return lTaken;
}

// Everything published before the call: what one pass has seen, the next one writes.
void drainAll() ZT_REQUIRES(sDrainLock) {
    drainOnce();
    drainOnce();
}

// ---- Rings and threads ----

// Gives the ring back when its thread ends.
struct Detacher {
    ~Detacher() {
        if (tState.mpRing != nullptr) {
            tState.mpRing->mState.store(ZTCLogRing::State::Orphaned, std::memory_order_release);
        }
        tState.mpRing = nullptr;
        tState.mEnds = true;
    }
    void touch() {}
};
thread_local Detacher tDetacher;

void beforeFork() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sSharedLock.lock();  // first: who holds it may have to drain
    sDrainLock.lock();
    drainAll();
}

void afterForkInParent() ZT_NO_THREAD_SAFETY_ANALYSIS {
    sDrainLock.unlock();
    sSharedLock.unlock();
}

void afterForkInChild() ZT_NO_THREAD_SAFETY_ANALYSIS {
    for (ZTCLogRing& lrRing : sRings) {
        const bool lIsMine = &lrRing == tState.mpRing;
        lrRing.clear();
        if (lIsMine) {
            lrRing.mState.store(ZTCLogRing::State::Owned, std::memory_order_relaxed);
        }
    }
    tState.mThread = static_cast<std::uint32_t>(gettid());
    sLine.forgetProcess();
    sWriterRuns.store(false);
    sWriterIsIdle.store(false);
    afterForkInParent();
}

void initialiseOnce() {
    static pthread_once_t sOnce = PTHREAD_ONCE_INIT;
    pthread_once(&sOnce, [] {
        sem_init(&sWakeWriter, 0, 0);
        pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
        atexit(ztlog::finish);
    });
}

ZTCLogRing* takeFreeRing() {
    for (std::size_t lAt = 1; lAt < sRingCount; ++lAt) {
        auto lState = ZTCLogRing::State::Free;
        if (sRings[lAt].mState.compare_exchange_strong(lState, ZTCLogRing::State::Owned,
                                                       std::memory_order_acquire)) {
            std::size_t lUsed = sRingsUsed.load(std::memory_order_relaxed);
            while (lUsed <= lAt &&
                   !sRingsUsed.compare_exchange_weak(lUsed, lAt + 1, std::memory_order_release)) {
            }
            return &sRings[lAt];
        }
    }
    return nullptr;
}

// The first record of a thread. Leaves mpRing null when the thread has to share ring 0.
void attach() {
    initialiseOnce();
    tState.mThread = static_cast<std::uint32_t>(gettid());
    if (tState.mEnds) {
        return;
    }
    tDetacher.touch();
    tState.mpRing = takeFreeRing();
    if (tState.mpRing == nullptr) {
        LogGuard lGuard(sDrainLock);  // the rings of threads that have ended become free
        drainAll();
        drainOnce();  // finds them empty
        tState.mpRing = takeFreeRing();
    }
}

// The ring is full: drains, or waits for the one who does.
void makeRoom(ZTCLogRing& arRing, std::size_t aSize) {
    for (int lTry = 0; !arRing.hasRoom(aSize); ++lTry) {
        if (sDrainLock.tryLock()) {
            drainAll();
            sDrainLock.unlock();
        } else if (lTry < 20) {
            sched_yield();
        } else {
            nap(sMillisecond / 10);
        }
    }
}

void putInto(ZTCLogRing& arRing, const ztlog::Site& acrSite, const ztlog::Argument* apArguments,
             unsigned int aCount) {
    const std::size_t lSize = ZTCLogRing::sizeOf(apArguments, aCount);
    if (!arRing.hasRoom(lSize)) [[unlikely]] {
        makeRoom(arRing, lSize);
    }
    arRing.put(lSize, tState.mThread, acrSite, apArguments, aCount);
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

bool somethingIsPending() {
    const std::size_t lRings = sRingsUsed.load(std::memory_order_acquire);
    return std::any_of(sRings, sRings + lRings, [](const ZTCLogRing& acrRing) {
        return acrRing.isBeingWritten() || !acrRing.isEmpty();
    });
}

// Sleeps until somebody logs. While records wait to be told as lost, or without the fence, only a while.
void idle(bool aLost) {
    sWriterIsIdle.store(true);
    const bool lFenced = fenceAllThreads();
    if (somethingIsPending()) {
        sWriterIsIdle.store(false);
        return;
    }
    if (lFenced && !aLost) {
        sem_wait(&sWakeWriter);
    } else {
        const timespec lDeadline = monotonicIn((lFenced ? 1000 : 100) * sMillisecond);
        sem_clockwait(&sWakeWriter, CLOCK_MONOTONIC, &lDeadline);
    }
    sWriterIsIdle.store(false);
}

void* writerThread(void*) {
    constexpr std::uint64_t lPlenty = ZTCLogRing::Capacity / 16;  // go on at once: more has come meanwhile
    constexpr int lQuietRounds = 20;                              // of a millisecond, before it is idle
    int lQuiet = 0;
    for (;;) {
        sDrainLock.lock();
        const std::uint64_t lTaken = drainOnce();
        const bool lLost = sLogFile.lost() != 0;
        sDrainLock.unlock();
        if (lTaken >= lPlenty) {
            continue;
        }
        lQuiet = lTaken == 0 && !somethingIsPending() ? lQuiet + 1 : 0;
        if (lQuiet < lQuietRounds) {
            nap(sMillisecond);
        } else {
            idle(lLost);
        }
    }
    return nullptr;
}

}  // namespace

// ---- What others call ----

void ztlog::publish(const Site& acrSite, const Argument* apArguments, unsigned int aCount) {
    if (tState.mpRing == nullptr) [[unlikely]] {
        attach();
    }
    if (tState.mpRing != nullptr) [[likely]] {
        putInto(*tState.mpRing, acrSite, apArguments, aCount);
    } else {
        LogGuard lGuard(sSharedLock);
        putInto(sRings[0], acrSite, apArguments, aCount);
    }
    std::atomic_signal_fence(std::memory_order_seq_cst);  // with fenceAllThreads: published, then looked
    if (sWriterIsIdle.load(std::memory_order_relaxed)) [[unlikely]] {
        wakeWriter();
    }
}

void ztlog::write(const Site& acrSite, const Argument* apArguments, unsigned int aCount) {
    publish(acrSite, apArguments, aCount);
    if ((acrSite.mLevel & ZTLL_WrittenAtOnce) != 0) [[unlikely]] {
        flushLog();
    }
}

void ztlog::finish() {
    constexpr unsigned int lSeconds = 5;
    if (sDrainLock.lockWithin(lSeconds)) {
        drainAll();
        sLogFile.spill();
        sDrainLock.unlock();
    }
}

void setLogCode(unsigned int aCode) {
    ztlog::gCode.store(aCode, std::memory_order_relaxed);
}

void getLogCode(unsigned int& arCode) {
    arCode = ztlog::gCode.load(std::memory_order_relaxed);
}

void setLogFilePath(const char* apPath) {
    if (strlen(apPath) >= sizeof sPath) {
        throw ZTCInvalidEx("The name of the log file is too long", ENAMETOOLONG);
    }
    LogGuard lGuard(sDrainLock);
    strcpy(sPath, apPath);
}

const char* getLogFilePath() {
    LogGuard lGuard(sDrainLock);
    return sPath;
}

void openLog() {
    initialiseOnce();
    LogGuard lGuard(sDrainLock);
    drainAll();
    const int lErrno = sLogFile.open(sPath);
    if (lErrno != 0) {
        throwErrno<ZTCOsException>("cannot open the log file", sPath, lErrno);
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
        LogGuard lGuard(sDrainLock);
        drainAll();
        lErrno = sLogFile.open(sPath);
    }
    if (lErrno != 0) {
        Log(ZTLL_Error, sFile, "The log file could not be opened anew, the old one stays in use: %s",
            strerrordesc_np(lErrno));
    }
}

void discardLog() {
    LogGuard lGuard(sDrainLock);
    drainAll();
    sLogFile.discard();
}

void setLogEcho(bool aOn) {
    LogGuard lGuard(sDrainLock);
    sEcho = aOn;
}

void flushLog() {
    LogGuard lGuard(sDrainLock);
    drainAll();
}
