// What was collected and is not in the store yet.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "Folding.h"
#include "HostBacklog.h"
#include "IncidentBacklog.h"
#include "SensorMessages.h"
#include "StoreBatch.h"

class ZTCIncidentFeed;

struct ZTSBufferOptions {
    ZTSFoldOptions mFold;
    std::size_t mLimit = std::size_t{64} << 20;  ///< bytes, of rows and of a batch that is not stored yet
    ZTCIncidentFeed* mpFeed = nullptr;           ///< is given all that is taken; null: nobody is
};

/// Between those who learn of something and the store's thread. Any thread; its lock is held for moments.
/// Where the limit is reached rows are folded more coarsely, and what finds no room then is counted as a
/// loss, with its time span ("sensor", "buffer"). What is taken is given as a value: where memory is short,
/// that is the caller's to make.
class ZTCSnBuffer {
  public:
    using Clock = std::chrono::steady_clock;

    explicit ZTCSnBuffer(ZTSBufferOptions aOptions);

    void setFold(ZTSFoldOptions aOptions);

    // ---- Who learns of something ----

    /// A fetch's answer and, of the same moment, what is known of the agent's run behind it, and what the run
    /// says is told as lost: all of it is stored together. A run that has nothing new but when it was seen,
    /// and its figures, waits for something else to be stored with. Never throws for want of memory: what
    /// cannot be had is counted as lost.
    void takeRecords(const ZTSensorScopeData& acrData, const ZTSHostPorts& acrPorts, ZTSAgentRun aRun,
                     Clock::time_point aNow, std::vector<ZTSLoss> aLosses = {});
    /// Stored soon in any case.
    void takeRun(ZTSAgentRun aRun, std::vector<ZTSLoss> aLosses = {});
    /// Losses of one source and reason are one as long as they wait.
    void takeLoss(ZTSLoss aLoss);
    void takeChange(ZTSChange aChange);
    void takePorts(ZTSHostPorts aPorts);
    void takeLabels(ZTPortLabels aLabels);
    /// What the host has told: joined with what waits. Where there is no room sums become coarser, then the
    /// rest is counted, and told in rows of changes ("sensor", "buffer", "lost_fpins").
    void takeHost(ZTSHostNews aNews);
    void takeFacts(ZTSHostFacts aFacts);
    /// What has become of incidents: of each the newest waits. What finds no room is counted, and told in a
    /// row of changes ("lost_incidents"); from when on is to be looked at again stays as it was then. How far
    /// was looked waits for something else to be stored with.
    void takeIncidents(ZTSIncidentNews aNews);
    /// Closes the rows whose time is over, so that this is stored too.
    void closeDue(Clock::time_point aNow);
    /// All rows: nothing more comes.
    void closeAll();
    /// Whether all that was taken is stored, within the time.
    bool waitUntilStored(std::chrono::milliseconds aTime);

    // ---- The store's thread ----

    /// Waits for something to store, or for stop or wake. False: there is nothing.
    bool waitForWork(std::chrono::milliseconds aTime);
    /// What there is to store; new rows get ids from this one on. It counts as the buffer's until stored():
    /// one batch at a time. Of very many rows it has the first ones, and its run has taken what these account
    /// for. Throws std::bad_alloc: nothing was detached.
    ZTSStoreBatch detach(std::uint64_t aNextId);
    /// The batch that was detached last is in the store.
    void stored();
    /// Ends a wait for work.
    void wake();

    std::size_t getBytes() const;

  private:
    // The last that was taken of a run: whether another one has news.
    struct Run {
        ZTNanoseconds mStart = 0;
        std::int64_t mProcess = 0;
        ZTNanoseconds mWent = 0;
        std::uint64_t mTaken = 0;

        bool operator==(const Run&) const = default;
    };

    void takeRecord(const ZTSCollected& acrCollected, const ZTCFolding::Namer& acrName,
                    Clock::time_point aNow);
    bool makeRoom();
    void count(const ZTSLoss& acrLoss);
    bool setRun(ZTSAgentRun&& arRun);
    void addLosses(std::vector<ZTSLoss>&& arLosses);
    void addLoss(ZTSLoss&& arLoss);
    void hasWork();
    std::uint64_t copyRows(std::vector<ZTSStoreRow>& arRows, std::uint64_t aNextId);
    static std::size_t limitRuns(std::vector<ZTSAgentRun>& arRuns, std::uint64_t aLeft);
    std::vector<ZTSChange> copyChanges() const;
    std::vector<ZTSChange> listLost() const;
    std::size_t countOthers() const { return mChangeBytes + mHost.getBytes() + mIncidents.getBytes(); }
    void noteDetached(ZTSStoreBatch& arBatch, std::uint64_t aNextId);
    std::uint64_t getClosedTo();

    mutable std::mutex mMutex;
    std::condition_variable mWorkCame;
    std::condition_variable mAllIsStored;
    ZTCFolding mFolding;
    std::size_t mLimit;
    ZTCIncidentFeed* const mpFeed;
    std::vector<ZTSAgentRun> mRuns;  // never more than there was room for at the begin
    Run mKnown;
    std::vector<ZTSLoss> mLosses;
    ZTSLoss mLost;  // what was lost here
    std::vector<ZTSChange> mChanges;
    std::size_t mChangeBytes = 0;
    std::uint64_t mLostChanges = 0;
    std::optional<ZTSHostPorts> mPorts;
    std::optional<ZTPortLabels> mLabels;
    ZTCHostBacklog mHost;
    std::optional<ZTSHostFacts> mFacts;
    ZTCIncidentBacklog mIncidents;
    bool mHasWork = false;
    bool mIsWoken = false;
    bool mIsDetached = false;  // a batch is on its way into the store
    std::size_t mBatchBytes = 0;
    std::uint64_t mLastId = 0;    // that was given
    std::uint64_t mClosedTo = 0;  // as it was last told
};
