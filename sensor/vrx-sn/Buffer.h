// What was collected and is not in the store yet.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Folding.h"
#include "SensorMessages.h"
#include "StoreBatch.h"

struct ZTSBufferOptions {
    ZTSFoldOptions mFold;
    std::size_t mLimit = std::size_t{64} << 20;  ///< bytes, of rows and of a batch that is not stored yet
};

/// Between those who learn of something and the store's thread. Any thread; its lock is held for moments.
/// Where the limit is reached rows are folded more coarsely, and what finds no room then is counted as a
/// loss, with its time span ("sensor", "buffer").
class ZTCBuffer {
  public:
    using Clock = std::chrono::steady_clock;

    explicit ZTCBuffer(ZTSBufferOptions aOptions);
    ~ZTCBuffer();
    ZTCBuffer(const ZTCBuffer&) = delete;
    ZTCBuffer& operator=(const ZTCBuffer&) = delete;

    void setFold(ZTSFoldOptions aOptions);

    // ---- Who learns of something ----

    /// A fetch's answer and, of the same moment, what is known of the agent's run behind it: both are stored
    /// together. Never throws for want of memory: what cannot be had is counted as lost.
    void takeRecords(const ZTSensorScopeData& acrData, const ZTSHostPorts& acrPorts,
                     const ZTSAgentRun& acrRun, Clock::time_point aNow);
    void takeRun(const ZTSAgentRun& acrRun);
    void takeLoss(const ZTSLoss& acrLoss);
    void takeChange(const ZTSChange& acrChange);
    void takePorts(const ZTSHostPorts& acrPorts);
    void takeLabels(const ZTPortLabels& acrLabels);
    /// Closes the rows whose time is over, so that this is stored too.
    void closeDue(Clock::time_point aNow);
    /// All rows: nothing more comes.
    void closeAll();
    /// Whether all that was taken is stored, within the time.
    bool waitUntilStored(std::chrono::milliseconds aTime);

    // ---- The store's thread ----

    /// Waits for something to store, or for stop or wake. False: there is nothing.
    bool waitForWork(std::chrono::milliseconds aTime);
    /// What there is to store; new rows get ids from this one on. It counts as the buffer's until stored().
    ZTSStoreBatch detach(std::uint64_t aNextId);
    /// The batch that was detached last is in the store.
    void stored();
    /// Ends a wait.
    void wake();

    std::size_t getBytes() const;

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
