// A plain, non-recursive lock, and the guard that holds one for a scope.
#pragma once

#include "Log.h"
#include "Os.h"
#include "Pointer.h"
#include "ThreadAnnotations.h"

inline constexpr char ZTMutexFile[] = "backend/os/common/include/Mutex";

/// Locked and unlocked by the same thread. Not destroyed while it is locked.
class ZT_CAPABILITY("mutex") ZTCMutex {
  public:
    /// Throws ZTCOsException.
    ZTCMutex() { OsInitMutex(mMutex); }

    /// Never throws: what fails is traced.
    virtual ~ZTCMutex() {
        const ZTCTraceScope lTrace(ZTMutexFile, 83, 91);
        try {
            OsDestroyMutex(mMutex);
        } catch (const ZTCException&) {
            PrintLogMessageWithTimeStamp(ZTLL_Trace.mBit, ZTLL_Trace.mpTag, 88, __func__, ZTMutexFile,
                                         "Ignoring exception in Mutex destruction ...");
        }
    }
    ZTCMutex(const ZTCMutex&) = delete;
    ZTCMutex& operator=(const ZTCMutex&) = delete;

    int lock() ZT_ACQUIRE() { return OsLockMutex(mMutex); }
    int unlock() ZT_RELEASE() { return OsUnlockMutex(mMutex); }

    /// For waits on a condition variable.
    pthread_mutex_t& getNative() { return mMutex; }

  private:
    pthread_mutex_t mMutex;
};

/// Holds a mutex for a scope.
class ZT_SCOPED_CAPABILITY ZTCScopedLock {
  public:
    explicit ZTCScopedLock(ZTCMutex& arMutex) ZT_ACQUIRE(arMutex) : mrMutex(arMutex) { mrMutex.lock(); }
    ~ZTCScopedLock() ZT_RELEASE() { mrMutex.unlock(); }
    ZTCScopedLock(const ZTCScopedLock&) = delete;
    ZTCScopedLock& operator=(const ZTCScopedLock&) = delete;

  private:
    ZTCMutex& mrMutex;
};
