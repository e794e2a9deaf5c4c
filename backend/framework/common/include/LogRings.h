// All rings of the log, made ahead: logging allocates nothing. See Log.h.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>

#include "LogRing.h"

/// Any thread, unless said otherwise.
class ZTCLogRings {
  public:
    static constexpr std::size_t Count = 64;

    /// A ring for the calling thread alone, until it is set Orphaned; null when all are taken.
    ZTCLogRing* takeFree();

    /// The ring for threads that get none of their own; its users hold a lock of theirs.
    ZTCLogRing& shared() { return mRings[0]; }

    /// The rings that may have something, or may have had.
    ZTCLogRing* begin() { return mRings; }
    ZTCLogRing* end() { return mRings + 1 + mTaken.load(std::memory_order_acquire); }

    /// Whether a record is in a ring, or is being put into one.
    bool isSomethingPending() {
        return std::any_of(begin(), end(), [](const ZTCLogRing& acrRing) {
            return acrRing.isBeingWritten() || !acrRing.isEmpty();
        });
    }

    /// After a fork: the rings of threads that are not there are free, and empty; apMine stays the caller's,
    /// with what it holds or without.
    void keepOnly(const ZTCLogRing* apMine, bool aWithRecords);

  private:
    // All of it starts as zeros, so that the rings take no room in the program's file.
    std::atomic<std::size_t> mTaken{0};  ///< the highest ring that was ever taken
    ZTCLogRing mRings[Count];
};
