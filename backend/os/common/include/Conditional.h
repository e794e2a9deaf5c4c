// A condition variable with the mutex that goes with it, and a count of its signals.
#pragma once

#include "Mutex.h"

inline constexpr char ZTConditionalFile[] = "backend/os/common/include/Conditional";

/// Any thread. Not destroyed while somebody waits.
class ZTCConditional {
  public:
    /// Throws ZTCOsException.
    ZTCConditional() {
        const ZTCTraceScope lTrace(ZTConditionalFile, 74, 76);
        OsInitConditional(mConditional);
    }

    /// Never throws: what fails is traced.
    virtual ~ZTCConditional() {
        const ZTCTraceScope lTrace(ZTConditionalFile, 82, 90);
        try {
            OsDestroyConditional(mConditional);
        } catch (const ZTCException&) {
            PrintLogMessageWithTimeStamp(ZTLL_Trace.mBit, ZTLL_Trace.mpTag, 87, __func__, ZTConditionalFile,
                                         "Ignoring exceptions while destructing ...");
        }
    }
    ZTCConditional(const ZTCConditional&) = delete;
    ZTCConditional& operator=(const ZTCConditional&) = delete;

    ZTCMutex& getMutex() ZT_RETURN_CAPABILITY(mMutex) { return mMutex; }

    /// Wakes all waiters.
    void signal() ZT_EXCLUDES(mMutex) {
        const ZTCScopedLock lLock(mMutex);
        ++mSignals;
        OsBroadcastConditional(mConditional);
    }

    /// Signals so far: who waits for one waits until this has changed.
    unsigned long getSignals() const ZT_REQUIRES(mMutex) { return mSignals; }

    /// Gives up the mutex until it is woken, possibly for no reason.
    void wait() ZT_REQUIRES(mMutex) { OsWaitConditional(mConditional, mMutex.getNative()); }

    /// The same until a deadline (OsDeadlineIn); throws ZTCTimeOutEx when it has passed.
    void waitUntil(const timespec& acrDeadline) ZT_REQUIRES(mMutex) {
        OsTimedWaitConditional(mConditional, mMutex.getNative(), acrDeadline);
    }

  private:
    ZTCMutex mMutex;
    pthread_cond_t mConditional;
    unsigned long mSignals ZT_GUARDED_BY(mMutex) = 0;
};
