// What of the history is to go, and its going.
#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

#include "HostRetention.h"
#include "KeptRecords.h"
#include "SensorTime.h"
#include "Statement.h"

/// Whether the wall clock says how old something is: only when it has kept step with the steady one for a
/// while. One thread.
class ZTCClockTrust {
  public:
    explicit ZTCClockTrust(std::chrono::nanoseconds aTime) : mTime(aTime) {}

    /// Both clocks, read at the same moment.
    bool look(ZTNanoseconds aNow, std::chrono::steady_clock::time_point aSteady);

  private:
    const std::chrono::nanoseconds mTime;
    std::optional<std::chrono::steady_clock::time_point> mSince;
    ZTNanoseconds mOffset = 0;  ///< of the wall clock to the steady one
};

struct ZTSKeep {
    unsigned int mDays = 90;
    std::uint64_t mBytes = std::uint64_t{8} << 30;
};

struct ZTSRetentionFacts {
    ZTSKeep mKeep;
    std::uint64_t mPageSize = 0;
    std::uint64_t mPages = 0;      ///< of the file
    std::uint64_t mFreePages = 0;  ///< of them
    ZTNanoseconds mNow = 0;
    bool mIsClockTrusted = false;
};

struct ZTSRetentionPlan {
    std::optional<ZTNanoseconds> mOlderThan;  ///< what began before that goes
    bool mIsFull = false;                     ///< the oldest go, whenever they were
    bool mShrinks = false;                    ///< free pages go back to the disk
};
/// What is to be done while nothing is written: a little room is left for what comes.
ZTSRetentionPlan planRetention(const ZTSRetentionFacts& acrFacts);
/// Whether the store has as many bytes as it may.
bool isAtLimit(const ZTSRetentionFacts& acrFacts);

/// Removes rows, in the transaction of its caller. Rows that are kept, that may change yet, and the newest
/// one stay. What goes is counted.
class ZTCRetention {
  public:
    explicit ZTCRetention(SQLite::Database& arDatabase);

    /// The facts of the file; the rest is the caller's.
    ZTSRetentionFacts look();
    /// So many rows at most, the first that came first. Returns how many have gone.
    unsigned int removeFirst(unsigned int aRows);
    /// A round: some rows of those that began before that moment; how many is added to a count. False: there
    /// are no more.
    bool removeOlder(ZTNanoseconds aTime, unsigned int aRows, std::uint64_t& arGone);
    /// A round: sums, losses, changes, runs of agents and what the host told of before that moment. False:
    /// there are no more.
    bool removeSums(ZTNanoseconds aTime);
    /// A round: of some series those that have no rows any more become one for each kind, initiator and
    /// fabric, whose remote is "*". How many have gone is added to a count. False: it has been at all of
    /// them.
    bool joinSeries(std::uint64_t& arGone);
    /// A round, where no record can go: the oldest hour of all that but sums. False: there is nothing.
    bool removeOldestTold();
    ZTCHostRetention& getHost() { return mHost; }
    /// The first time of a row that is not kept: before it nothing is needed.
    std::optional<ZTNanoseconds> findBegin();
    /// A row has come.
    void noteRow(ZTNanoseconds aFirst) { mBeginFrom = std::min(mBeginFrom, aFirst); }
    /// The transaction has failed.
    void forget() { mBeginFrom = INT64_MIN; }

  private:
    bool removeTold(ZTNanoseconds aTime);
    std::int64_t findLast();
    std::optional<std::int64_t> findFirst();
    void count(std::uint64_t aRecords, std::uint64_t aEvents);

    ZTCStatement mPageSize, mPages, mFreePages, mLast, mNextId, mSome, mRemoveSome, mOlder, mRemove, mCount,
        mBegin, mOldMinutes, mOldHours, mOldSeriesHours, mOldLosses, mOldChanges, mOldAgents, mLastSeries,
        mJoinSeries, mRemoveSeries;
    ZTCKeptRecords mKept;
    ZTCHostRetention mHost;
    // Where a sweep by time has come to: what stands before it is kept, or may change yet.
    ZTNanoseconds mSweepTime = INT64_MIN;
    std::int64_t mSweepId = 0;
    ZTNanoseconds mBeginFrom = INT64_MIN;  ///< what came before it is kept
    std::int64_t mJoinedTo = 0;            ///< of the series
};
