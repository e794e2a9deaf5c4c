// How long the agent waits, and for what: every length after which something is given up, told or done again
// stands here and nowhere else, in milliseconds of the clock that nobody sets (CLOCK_MONOTONIC). Turns
// between two looks at one thing stand where they are made. Times that are told, such as those of the log,
// are of another clock and no business of this.
//
// A test makes a period short that it waits for; nothing in the product does. Messages tell the product's
// length (ZTSecondsOf), in tests too.
#pragma once

#include <atomic>
#include <chrono>

// clang-format off
#define ZT_PERIODS(ROW)                                                                                     \
    ROW(Second,           1000) /* of all waits that are counted in seconds: -b, the command thread's, queues */ \
    ROW(MessagePause,     5000) /* the longest pause inside a message that is read */                       \
    ROW(StartTold,       60000) /* a start that takes longer is told */                                     \
    ROW(ThreadsEnd,       5000) /* from the request to end: so long the threads are waited for */           \
    ROW(ProcessEnd,       8000) /* the same: then the process is left, whatever it does */                  \
    ROW(CleanUp,          1000) /* what a start had made is being removed, when it is left */               \
    ROW(CallTold,        10000) /* a call into the library that lasts longer is in the service's status */  \
    ROW(CallStarves,     60000) /* and one that lasts longer starves the service manager's watchdog */      \
    ROW(ServiceNote,     10000) /* the service manager hears at least so often */                           \
    ROW(CallbacksLeave,   1000) /* callbacks that are inside are waited for */                              \
    ROW(LibraryClose,     5000) /* the library's close is waited for */                                     \
    ROW(InstanceStart,   10000) /* another start is waited for, which holds the pid file's lock */          \
    ROW(InstanceEnd,     10000) /* -s waits for the end of the instance */                                  \
    ROW(StatisticsTurn,   1000) /* between two looks at what nobody counts, and two writings of the file */ \
    ROW(StatisticsEnd,    1000) /* the statistics' thread is waited for */                                  \
    ROW(LogOpen,          1000) /* a start waits no longer for the log's disk */                            \
    ROW(LogFlush,         1000) /* nor does who wants it written, such as an end */                         \
    ROW(LogRoom,           100) /* the one caller that waits for room in a full ring */                     \
    ROW(LogNap,             50) /* a record is in the file within two of these */                           \
    ROW(LogUnfenced,       100) /* the same, where the kernel offers no fence of all threads */             \
    ROW(LogTell,          1000) /* between two tries to tell of losses, or to open the file */              \
    ROW(LogShow,          1000) /* standard error is waited for, where there is no file */
// clang-format on

#define ZT_ROW(Name, Milliseconds) ZTP_##Name,
enum ZTEPeriod : unsigned char { ZT_PERIODS(ZT_ROW) ZTP_Count };
#undef ZT_ROW

/// Waits that are counted in seconds (ZTP_Second).
inline constexpr unsigned int ZTHbTimeoutDefault = 240;
inline constexpr unsigned int ZTCommandWaitSeconds = 3;

namespace ztperiods {
#define ZT_ROW(Name, Milliseconds) Milliseconds,
inline constexpr unsigned int Lengths[] = {ZT_PERIODS(ZT_ROW)};
inline constinit std::atomic<unsigned int> gLengths[] = {ZT_PERIODS(ZT_ROW)};
#undef ZT_ROW
}  // namespace ztperiods

inline std::chrono::milliseconds ZTPeriod(ZTEPeriod aPeriod) {
    return std::chrono::milliseconds(ztperiods::gLengths[aPeriod].load(std::memory_order_relaxed));
}

/// The product's, in whole seconds.
constexpr unsigned int ZTSecondsOf(ZTEPeriod aPeriod) {
    return ztperiods::Lengths[aPeriod] / 1000;
}

/// For tests alone, which link this as the product does not: nothing of the product calls it. Any thread; a
/// wait that has begun keeps its length.
inline void ZTSetPeriod(ZTEPeriod aPeriod, std::chrono::milliseconds aLength) {
    ztperiods::gLengths[aPeriod].store(static_cast<unsigned int>(aLength.count()), std::memory_order_relaxed);
}
