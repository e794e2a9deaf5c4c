// How collector and history are, as everybody who asks is told.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "SensorTime.h"

/// Empty texts: all is well.
struct ZTSWebState {
    std::string mCollector;    ///< why the collector counts as silent
    std::string mHistory;      ///< why the history cannot be read
    ZTNanoseconds mSince = 0;  ///< since when one of them is so; 0: all is well
    ZTNanoseconds mLastFetch = 0;
    std::uint64_t mPeriodMs = 0;  ///< of the collector, from fetch to fetch; 0: not known
    bool mHasAgent = false;

    bool isWell() const { return mCollector.empty() && mHistory.empty(); }
};

/// Any thread. The thread that follows the history says how that is; vrx-sn's figures are read when they are
/// asked for: they lie in memory.
class ZTCWebHealth {
  public:
    /// acrFigures: the directory of vrx-sn's figures, "/run/vrx-sn".
    explicit ZTCWebHealth(std::string aFigures);

    void noteHistory(const std::string& acrWhy);  ///< empty: it can be read
    ZTSWebState getState(ZTNanoseconds aNow);
    /// vrx-sn's figures by name; nothing: it does not run, or they cannot be read.
    std::optional<std::uint64_t> getFigure(std::string_view aName);

  private:
    const std::string mFigures;
    std::mutex mMutex;
    std::string mHistory;
    ZTNanoseconds mSince = 0;
};

/// 200, or 503 with the reason.
struct ZTSWebAnswer;
ZTSWebAnswer answerHealth(const ZTSWebState& acrState);
