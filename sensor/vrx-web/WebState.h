// How collector and history are, as everybody who asks is told.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "AgentStatistics.h"
#include "SensorTime.h"

/// Empty texts: all is well.
struct ZTSWebState {
    std::string mHistory;      ///< why the history cannot be read
    std::string mCollector;    ///< why the collector counts as silent
    std::string mWriting;      ///< why vrx-sn does not write it, while it can be read
    ZTNanoseconds mSince = 0;  ///< since when the first of these that is there is so; 0: all is well
    ZTNanoseconds mLastFetch = 0;
    std::uint64_t mPeriodMs = 0;  ///< of the collector, from fetch to fetch; 0: not known
    bool mHasSensor = false;      ///< vrx-sn runs
    bool mHasAgent = false;

    bool isWell() const { return mCollector.empty() && mHistory.empty() && mWriting.empty(); }
};

/// vrx-sn's figures of a moment.
struct ZTSWebFigures {
    ZTSStatistics mRows;  ///< none: it has not run since this program was started, or they cannot be read
    ZTNanoseconds mStart = 0;  ///< of vrx-sn
    bool mIsRunning = false;   ///< it does: else these are the last ones that were seen
    std::string mWhy;          ///< why they are not of now
};

/// Any thread. The thread that follows the history says how that is; vrx-sn's figures are read when they are
/// asked for: they lie in memory.
class ZTCWebHealth {
  public:
    using Clock = std::chrono::steady_clock;

    /// acrFigures: the directory of vrx-sn's figures, "/run/vrx-sn". aStands: when the history was not heard
    /// of for so long, its disk stands still.
    explicit ZTCWebHealth(std::string aFigures, Clock::duration aStands = std::chrono::seconds(5));

    void noteHistory(const std::string& acrWhy);  ///< empty: it can be read
    ZTSWebState getState(ZTNanoseconds aNow);
    ZTSWebFigures getFigures();

  private:
    void look(ZTSWebFigures& arFigures) const;
    void seeCollector(const ZTSWebFigures& acrFigures, ZTNanoseconds aNow, ZTSWebState& arState);
    void seeHistory(ZTNanoseconds aNow, ZTSWebState& arState) const;
    static void seeWriting(const ZTSWebFigures& acrFigures, ZTSWebState& arState);

    const std::string mFigures;
    const Clock::duration mStands;
    std::mutex mMutex;  ///< of all below
    ZTSWebFigures mLast;
    std::string mHistory;
    ZTNanoseconds mHistorySince = 0;  ///< 0: it can be read
    ZTNanoseconds mSilentSince = 0;   ///< of a collector of which no fetch is known
    Clock::time_point mHeard;         ///< when the history was last told of
};

/// 200, or 503 with the reason: docs/api.md.
struct ZTSWebAnswer;
ZTSWebAnswer answerHealth(const ZTSWebState& acrState);
