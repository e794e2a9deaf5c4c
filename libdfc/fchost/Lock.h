// The library's lock, and what guards what: checked by clang (-Wthread-safety), empty for other compilers.
// The agent has the same of its own; the library knows nothing of it.
#pragma once

#include <mutex>

#if defined(__clang__)
#define ZT_FC_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZT_FC_THREAD_ATTRIBUTE(x)
#endif

#define ZT_FC_GUARDED_BY(lock) ZT_FC_THREAD_ATTRIBUTE(guarded_by(lock))

class ZT_FC_THREAD_ATTRIBUTE(capability("mutex")) ZTCFcLock {
  public:
    void lock() ZT_FC_THREAD_ATTRIBUTE(acquire_capability()) { mMutex.lock(); }
    void unlock() ZT_FC_THREAD_ATTRIBUTE(release_capability()) { mMutex.unlock(); }

  private:
    std::mutex mMutex;
};

class ZT_FC_THREAD_ATTRIBUTE(scoped_lockable) ZTCFcGuard {
  public:
    explicit ZTCFcGuard(ZTCFcLock& arLock) ZT_FC_THREAD_ATTRIBUTE(acquire_capability(arLock))
        : mrLock(arLock) {
        mrLock.lock();
    }
    ~ZTCFcGuard() ZT_FC_THREAD_ATTRIBUTE(release_capability()) { mrLock.unlock(); }
    ZTCFcGuard(const ZTCFcGuard&) = delete;
    ZTCFcGuard& operator=(const ZTCFcGuard&) = delete;

  private:
    ZTCFcLock& mrLock;
};
