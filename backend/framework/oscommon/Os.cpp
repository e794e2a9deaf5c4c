#include "Os.h"

#include <malloc.h>

#include <cerrno>

#include "Exception.h"
#include "Periods.h"

namespace {

int sOrThrow(const char* apOperation, int aErrno) {
    if (aErrno != 0) {
        throwErrno<ZTCOsException>(apOperation, nullptr, aErrno);
    }
    return 0;
}

// Leaves the processor's other thread, and the memory, alone for a moment.
void sPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("isb");
#endif
}

}  // namespace

int OsInitMutex(pthread_mutex_t& arMutex) {
    return sOrThrow("pthread_mutex_init", pthread_mutex_init(&arMutex, nullptr));
}

int OsDestroyMutex(pthread_mutex_t& arMutex) {
    return sOrThrow("pthread_mutex_destroy", pthread_mutex_destroy(&arMutex));
}

// What a mutex guards here mostly takes less than a tenth of a microsecond, and to sleep and be woken takes
// ten: so a thread tries for some microseconds before it sleeps. Longer than the library's own adaptive
// mutex, which gives up after one.
int OsLockMutex(pthread_mutex_t& arMutex) {
    constexpr unsigned int lTries = 100;
    constexpr unsigned int lPauses = 3;  // between two tries: each takes the lock's memory from its holder
    for (unsigned int lTry = 0; lTry < lTries; ++lTry) {
        if (pthread_mutex_trylock(&arMutex) == 0) {
            return 0;
        }
        for (unsigned int lPause = 0; lPause < lPauses; ++lPause) {
            sPause();
        }
    }
    return sOrThrow("pthread_mutex_lock", pthread_mutex_lock(&arMutex));
}

int OsUnlockMutex(pthread_mutex_t& arMutex) {
    return sOrThrow("pthread_mutex_unlock", pthread_mutex_unlock(&arMutex));
}

int OsInitConditional(pthread_cond_t& arConditional) {
    pthread_condattr_t lAttributes;
    sOrThrow("pthread_condattr_init", pthread_condattr_init(&lAttributes));
    pthread_condattr_setclock(&lAttributes, CLOCK_MONOTONIC);
    const int lErrno = pthread_cond_init(&arConditional, &lAttributes);
    pthread_condattr_destroy(&lAttributes);
    return sOrThrow("pthread_cond_init", lErrno);
}

int OsDestroyConditional(pthread_cond_t& arConditional) {
    return sOrThrow("pthread_cond_destroy", pthread_cond_destroy(&arConditional));
}

int OsBroadcastConditional(pthread_cond_t& arConditional) {
    return sOrThrow("pthread_cond_broadcast", pthread_cond_broadcast(&arConditional));
}

int OsWaitConditional(pthread_cond_t& arConditional, pthread_mutex_t& arMutex) {
    return sOrThrow("pthread_cond_wait", pthread_cond_wait(&arConditional, &arMutex));
}

int OsTimedWaitConditional(pthread_cond_t& arConditional, pthread_mutex_t& arMutex,
                           const timespec& acrDeadline) {
    const int lErrno = pthread_cond_timedwait(&arConditional, &arMutex, &acrDeadline);
    if (lErrno == ETIMEDOUT) {
        throwErrno<ZTCTimeOutEx>("pthread_cond_timedwait", nullptr, lErrno);
    }
    return sOrThrow("pthread_cond_timedwait", lErrno);
}

void OsReturnLargeBlocks() {
    constexpr int lLarge = 32 * 1024;
    mallopt(M_MMAP_THRESHOLD, lLarge);
}

timespec OsDeadlineIn(std::chrono::milliseconds aTime) {
    constexpr long lNanosecondsPerSecond = 1000000000;
    timespec lDeadline;
    clock_gettime(CLOCK_MONOTONIC, &lDeadline);
    lDeadline.tv_sec += aTime.count() / 1000;
    lDeadline.tv_nsec += aTime.count() % 1000 * 1000000;
    if (lDeadline.tv_nsec >= lNanosecondsPerSecond) {
        lDeadline.tv_nsec -= lNanosecondsPerSecond;
        ++lDeadline.tv_sec;
    }
    return lDeadline;
}

timespec OsDeadlineIn(unsigned int aSeconds) {
    return OsDeadlineIn(aSeconds * ZTPeriod(ZTP_Second));
}

bool OsHasPassed(const timespec& acrDeadline) {
    timespec lNow;
    clock_gettime(CLOCK_MONOTONIC, &lNow);
    return lNow.tv_sec > acrDeadline.tv_sec ||
           (lNow.tv_sec == acrDeadline.tv_sec && lNow.tv_nsec >= acrDeadline.tv_nsec);
}
