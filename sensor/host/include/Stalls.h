// Finds the disks that stand still.
#pragma once

#include <chrono>
#include <string>
#include <unordered_map>
#include <vector>

#include "DiskStats.h"
#include "Stall.h"
#include "Storage.h"

/// A disk stalls when it had commands at two looks, and none has completed between. One thread. Throws
/// std::bad_alloc: the next look is as good, and tells what this one did not.
class ZTCStalls {
  public:
    using Clock = std::chrono::steady_clock;
    /// How often to look: twice that is within ten seconds, also for a thread that wakes late.
    static constexpr std::chrono::milliseconds Every{4800};
    /// Looks that are nearer to each other say nothing.
    static constexpr std::chrono::milliseconds LongEnough{4500};

    /// Stalls that were under way when the history was last written: they go on, or are over.
    void setStart(std::vector<ZTSStall> aStalls);
    /// A look. Returns the stalls that have begun, have gone on for another minute, or are over: because
    /// something completed, nothing waits any more, or the disk has gone. A look that comes late, because the
    /// host slept, says nothing of the time between. How long a stall is, is told by the steady clock.
    std::vector<ZTSStall> look(const std::vector<ZTSDiskStats>& acrStats, const ZTSHostStorage& acrStorage,
                               ZTNanoseconds aTime, Clock::time_point aNow);
    /// As of the last look.
    std::size_t countStalled() const { return mStalls.size(); }

  private:
    // A disk that had commands at the last look.
    struct Waiting {
        std::uint64_t mCompleted = 0;
        Clock::time_point mSince;  // of the first look that saw it so
        std::uint64_t mMost = 0;
        std::uint64_t mLook = 0;
    };
    struct Stalled {
        ZTSStall mStall;
        Clock::time_point mSince;
        Clock::time_point mTold;
        bool mIsUntold = true;
        bool mIsSeen = true;  // since this began to look
    };

    void see(const ZTSDiskStats& acrStats, bool aIsLate, ZTNanoseconds aTime, Clock::time_point aNow);
    void goOn(const std::string& acrDisk, const Waiting& acrWaiting, ZTNanoseconds aTime,
              Clock::time_point aNow);
    void end(const std::string& acrDisk, bool aIsLate, Clock::time_point aNow);
    void takeStart(ZTNanoseconds aTime, Clock::time_point aNow);
    std::vector<ZTSStall> tell(const ZTSHostStorage& acrStorage, Clock::time_point aNow);

    std::unordered_map<std::string, Waiting> mWaiting;
    std::unordered_map<std::string, Stalled> mStalls;
    std::vector<ZTSStall> mOver;  // untold
    std::vector<ZTSStall> mStart;
    std::uint64_t mLook = 0;
    Clock::time_point mLast;  // look, by both clocks
    ZTNanoseconds mLastTime = 0;
};
