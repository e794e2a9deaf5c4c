// Finds the disks that stand still.
#pragma once

#include <chrono>
#include <functional>
#include <unordered_map>

#include "DiskStats.h"
#include "Stall.h"
#include "Storage.h"

/// A disk stalls when it had commands at two looks five seconds apart, or more, and none has completed
/// between. One thread. Throws std::bad_alloc: the next look is as good.
class ZTCStalls {
  public:
    using Clock = std::chrono::steady_clock;

    /// Stalls that were under way when the history was last written: they go on, or are over.
    void setStart(std::vector<ZTSStall> aStalls);
    /// A look. Returns the stalls that have begun, have gone on for another minute, or are over: because
    /// something completed, nothing waits any more, or the disk has gone. A look that comes late, because the
    /// host slept, says nothing of the time between.
    std::vector<ZTSStall> look(const std::vector<ZTSDiskStats>& acrStats, const ZTSHostStorage& acrStorage,
                               ZTNanoseconds aTime, Clock::time_point aNow);
    std::size_t countStalled() const;

  private:
    struct Disk {
        std::uint64_t mCompleted = 0;
        Clock::time_point mSince;  // of the first look that saw it so
        ZTNanoseconds mFirst = 0;
        std::optional<ZTSStall> mStall;
        std::uint64_t mLook = 0;
    };
    std::unordered_map<std::string, Disk> mDisks;
    std::uint64_t mLook = 0;
    Clock::time_point mLast;
};
