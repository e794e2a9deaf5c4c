// What was collected and was not looked at for incidents yet.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "Folding.h"
#include "HostBacklog.h"
#include "IncidentFinder.h"
#include "SensorMessages.h"

/// What somebody asks for.
struct ZTSIncidentAsked {
    ZTSIncidentAsk mAsk;
    bool mIsMarked = false;  ///< the history has it and has done its part: it may be long over
};

/// What came since the last time. A plain value: any thread.
struct ZTSIncidentInput {
    std::deque<ZTSFoldedRow> mRows;  ///< what has been added, not what they are in the history
    std::vector<ZTSChange> mChanges;
    std::vector<ZTSLoss> mLosses;
    ZTSHostNews mHost;
    std::optional<ZTSHostPorts> mPorts;
    std::optional<ZTPortLabels> mLabels;
    std::vector<ZTSIncidentAsked> mAsks;
    std::uint64_t mLost = 0;  ///< events and rows that found no room

    bool isEmpty() const;
};

/// Between the buffer, which hands on all that it takes, and the thread that finds incidents. It does not
/// wait for the store, so neither do incidents. Any thread; its lock is held for moments. What finds no room
/// or no memory is counted, and nobody is told but by that.
class ZTCIncidentFeed {
  public:
    using Clock = std::chrono::steady_clock;

    /// aLimit: in bytes, about, of what waits.
    explicit ZTCIncidentFeed(std::size_t aLimit = std::size_t{8} << 20);

    // ---- Who learns of something ----

    /// What says the same is one row until it is looked at. The namer is that of the history's rows.
    void takeRecords(const ZTSensorScopeData& acrData, const ZTCFolding::Namer& acrName,
                     Clock::time_point aNow) noexcept;
    void takeChange(const ZTSChange& acrChange) noexcept;
    void takeLoss(const ZTSLoss& acrLoss) noexcept;
    void takePorts(const ZTSHostPorts& acrPorts) noexcept;
    void takeLabels(const ZTPortLabels& acrLabels) noexcept;
    void takeHost(const ZTSHostNews& acrNews) noexcept;
    void ask(ZTSIncidentAsked aAsk) noexcept;

    // ---- Who looks at it ----

    /// Until something is there, but not before the first time; until wake(), or the second time at the
    /// latest.
    void wait(Clock::time_point aNotBefore, Clock::time_point aUntil);
    void wake();
    /// All of it. Throws std::bad_alloc: nothing was detached.
    ZTSIncidentInput detach();

  private:
    ZTCFolding makeFolding() const;
    template <class Take>
    void take(std::uint64_t aEvents, const Take& acrTake) noexcept;
    void checkRoom(std::size_t aBytes);

    const std::size_t mLimit;
    mutable std::mutex mLock;
    std::condition_variable mCame;
    bool mHasNews = false;
    bool mIsWoken = false;
    ZTCFolding mFolding;
    ZTCHostBacklog mHost;
    std::size_t mBytes = 0;  // of changes and losses
    ZTSIncidentInput mInput;
};
