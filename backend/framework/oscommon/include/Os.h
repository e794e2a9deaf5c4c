// The operating system's locks and condition variables. Each wrapper throws ZTCOsException, with the
// operation's name and the errno's text, instead of returning an error, and returns 0 otherwise.
#pragma once

#include <pthread.h>

#include <chrono>
#include <ctime>

/// A plain, non-recursive mutex that spins a little before it sleeps: what it guards is short.
int OsInitMutex(pthread_mutex_t& arMutex);
/// Fails (EBUSY) on a mutex that is locked, and leaves it as it is.
int OsDestroyMutex(pthread_mutex_t& arMutex);
int OsLockMutex(pthread_mutex_t& arMutex);
int OsUnlockMutex(pthread_mutex_t& arMutex);

/// A condition variable whose deadlines are of CLOCK_MONOTONIC, so that setting the clock ends no wait.
int OsInitConditional(pthread_cond_t& arConditional);
int OsDestroyConditional(pthread_cond_t& arConditional);
int OsBroadcastConditional(pthread_cond_t& arConditional);

/// Waits, possibly waking for no reason. The caller holds the mutex.
int OsWaitConditional(pthread_cond_t& arConditional, pthread_mutex_t& arMutex);
/// The same until a deadline; throws ZTCTimeOutEx when it has passed.
int OsTimedWaitConditional(pthread_cond_t& arConditional, pthread_mutex_t& arMutex,
                           const timespec& acrDeadline);

/// From now on blocks of memory of 32 KiB and more go back to the system when they are freed, each by itself.
void OsReturnLargeBlocks();

/// The deadline so far from now, by CLOCK_MONOTONIC. Seconds are those of ZTP_Second.
timespec OsDeadlineIn(std::chrono::milliseconds aTime);
timespec OsDeadlineIn(unsigned int aSeconds);
/// Whether it has passed.
bool OsHasPassed(const timespec& acrDeadline);
