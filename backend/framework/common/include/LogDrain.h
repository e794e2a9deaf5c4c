// Takes the records out of the rings, in order of time, and puts their lines into the file. Whoever holds the
// lock is the one that drains: the writer thread, a caller that must have its record in the file, or one
// whose ring stays full. See Log.h.
#pragma once

#include <pthread.h>

#include <climits>
#include <ctime>

#include "LogFile.h"
#include "LogLine.h"
#include "LogRings.h"
#include "ThreadAnnotations.h"

/// The log's own lock: the framework's mutex cannot be it, for that one logs.
class ZT_CAPABILITY("mutex") ZTCLogLock {
  public:
    void lock() ZT_ACQUIRE() { pthread_mutex_lock(&mMutex); }
    bool tryLock() ZT_TRY_ACQUIRE(true) { return pthread_mutex_trylock(&mMutex) == 0; }
    bool lockWithin(unsigned int aSeconds) ZT_TRY_ACQUIRE(true) {
        timespec lDeadline;  // not pthread_mutex_clocklock, which the thread sanitizer does not know
        clock_gettime(CLOCK_REALTIME, &lDeadline);
        lDeadline.tv_sec += aSeconds;
        return pthread_mutex_timedlock(&mMutex, &lDeadline) == 0;
    }
    void unlock() ZT_RELEASE() { pthread_mutex_unlock(&mMutex); }

  private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
};

class ZT_SCOPED_CAPABILITY ZTCLogGuard {
  public:
    explicit ZTCLogGuard(ZTCLogLock& arLock) ZT_ACQUIRE(arLock) : mrLock(arLock) { mrLock.lock(); }
    ~ZTCLogGuard() ZT_RELEASE() { mrLock.unlock(); }
    ZTCLogGuard(const ZTCLogGuard&) = delete;
    ZTCLogGuard& operator=(const ZTCLogGuard&) = delete;

  private:
    ZTCLogLock& mrLock;
};

class ZTCLogDrain {
  public:
    explicit constexpr ZTCLogDrain(ZTCLogRings& arRings) : mrRings(arRings) {}

    ZTCLogLock mLock;

    /// One look at every ring. Returns the bytes taken from them; of records that came during the look some
    /// stay for the next one.
    std::uint64_t drainOnce() ZT_REQUIRES(mLock);

    /// Everything that was put before the call.
    void drainAll() ZT_REQUIRES(mLock);

    /// Whether lines were lost and this could not be told yet, or one went out in part.
    bool hasLost() const ZT_REQUIRES(mLock) { return mFile.lost() != 0 || mFile.isTorn(); }

    ZTCLogFile mFile ZT_GUARDED_BY(mLock);
    ZTCLogLine mLine ZT_GUARDED_BY(mLock);
    char mPath[PATH_MAX] ZT_GUARDED_BY(mLock) = "";
    bool mEcho ZT_GUARDED_BY(mLock) = false;  ///< see setLogEcho

  private:
    // A ring with something to take.
    struct Source {
        ZTCLogRing* mpRing;
        std::uint64_t mAt;           // the next record
        std::uint64_t mEnd;          // behind the last one of this look
        std::uint64_t mSeen;         // behind the last one that the look before saw
        const ZTCLogRecord* mpNext;  // what stands at mAt; null: nothing more in this look
    };

    void findSources(std::uint64_t aStart) ZT_REQUIRES(mLock);
    static void advance(Source& arSource, std::uint64_t aStart);
    Source* earliest(std::uint64_t& arOthers) ZT_REQUIRES(mLock);
    void addLine(const ZTCLogRecord& acrRecord) ZT_REQUIRES(mLock);
    void put() ZT_REQUIRES(mLock);
    void tellLost() ZT_REQUIRES(mLock);

    ZTCLogRings& mrRings;
    std::size_t mSourceCount ZT_GUARDED_BY(mLock) = 0;
    Source mSources[ZTCLogRings::Count] ZT_GUARDED_BY(mLock){};
    std::size_t mUsed ZT_GUARDED_BY(mLock) = 0;
    char mLines[128 * 1024] ZT_GUARDED_BY(mLock){};  ///< formatted, on their way to the file
};
