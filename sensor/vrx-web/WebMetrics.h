// The metrics for Prometheus (docs/metrics.md).
#pragma once

#include <prometheus/collectable.h>

#include <chrono>
#include <memory>
#include <mutex>

#include "StoreReader.h"
#include "WebFamilies.h"
#include "WebState.h"

struct ZTSWebAnswer;

/// What the history has counted, as it was last read, beside what vrx-sn and the programs that send it tell
/// of themselves now. Any thread.
class ZTCWebMetrics : public prometheus::Collectable {
  public:
    /// aSinks: the directory with the figures of those that send, "/run/vrx-ship".
    ZTCWebMetrics(ZTCWebHealth& arHealth, std::string aSinks);

    /// Reads the history anew, if that was not done just now. Throws ZTCStoreError: then all is as it was.
    void read(ZTCStoreReader& arReader);
    /// Waits for nothing: figures lie in memory.
    std::vector<prometheus::MetricFamily> Collect() const override;
    /// The same, as text.
    ZTSWebAnswer answer() const;

  private:
    using Clock = std::chrono::steady_clock;

    bool isDue();
    void addFigures(ZTCWebSamples& arSamples) const;

    ZTCWebHealth& mrHealth;
    const std::string mSinks;
    mutable std::mutex mMutex;  ///< of all below
    std::shared_ptr<const ZTCWebSamples> mpStored = std::make_shared<const ZTCWebSamples>();
    Clock::time_point mRead;
    std::size_t mDropped = 0;  ///< the most series that had to go
};

/// What a history has counted. aMost: series by target, and of FPINs. arDropped: how many had to go.
ZTCWebSamples readStoredSamples(ZTCStoreReader& arReader, std::size_t aMost, std::size_t& arDropped);
/// Adds what is told in a directory: nothing, if there is none.
void addSinkSamples(const std::string& acrDirectory, ZTCWebSamples& arSamples);
