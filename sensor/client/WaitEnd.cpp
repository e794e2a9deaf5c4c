#include "WaitEnd.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

namespace {

using Clock = ZTCWaitEnd::Clock;

timespec sTimeOf(std::chrono::nanoseconds aTime) {
    const auto lCount = std::max<std::int64_t>(aTime.count(), 0);
    return {static_cast<time_t>(lCount / 1'000'000'000), static_cast<long>(lCount % 1'000'000'000)};
}

// Waits at a word. False: a signal has come.
bool sWaitAt(const void* apWord, int aOperation, std::uint32_t aSeen, Clock::time_point aTime) {
    const timespec lTime = sTimeOf(aTime - Clock::now());
    return syscall(SYS_futex, apWord, aOperation, aSeen, &lTime, nullptr, 0) == 0 || errno != EINTR;
}

}  // namespace

void ZTCWaitEnd::end() noexcept {
    const int lErrno = errno;  // a handler leaves it as it was
    mEnded.store(1);
    syscall(SYS_futex, &mEnded, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
    errno = lErrno;
}

bool ZTCWaitEnd::waitUntil(Clock::time_point aTime) const {
    return sWaitAt(&mEnded, FUTEX_WAIT_PRIVATE, 0, aTime);
}

// Both words are compared and waited at in one call, so that nothing comes between.
bool ZTCWaitEnd::waitUntil(Clock::time_point aTime, const void* apWord, std::uint32_t aSeen) const {
    futex_waitv lWords[2]{};
    lWords[0] = {aSeen, reinterpret_cast<std::uintptr_t>(apWord), FUTEX_32, 0};
    lWords[1] = {0, reinterpret_cast<std::uintptr_t>(&mEnded), FUTEX_32 | FUTEX_PRIVATE_FLAG, 0};
    const timespec lTime = sTimeOf(aTime.time_since_epoch());
    if (syscall(SYS_futex_waitv, lWords, 2, 0, &lTime, CLOCK_MONOTONIC) >= 0 || errno == EAGAIN ||
        errno == ETIMEDOUT) {
        return true;
    }
    return errno != EINTR && (hasEnded() || sWaitAt(apWord, FUTEX_WAIT, aSeen, aTime));
}
