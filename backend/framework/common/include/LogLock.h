// The log's own lock: the framework's mutex cannot be it, for that one logs.
#pragma once

#include <pthread.h>

#include "ThreadAnnotations.h"

class ZT_CAPABILITY("mutex") ZTCLogLock {
  public:
    void lock() ZT_ACQUIRE() { pthread_mutex_lock(&mMutex); }
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
