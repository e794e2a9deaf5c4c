// What is known of the agent's run, and of what was lost of it, on its way into the buffer.
#pragma once

#include <mutex>

#include "AgentSight.h"
#include "LossBook.h"
#include "LossLines.h"
#include "SensorMessages.h"
#include "ServiceLog.h"

class ZTCSnBuffer;

/// The loss book, with its lock: held while what it tells is handed on, so that this keeps its order. Throws
/// std::bad_alloc.
class ZTCAgentBook {
  public:
    using Clock = std::chrono::steady_clock;

    ZTCAgentBook(ZTCSnBuffer& arBuffer, ZTCServiceLog& arLog);

    /// What the store had when it was opened. Any thread, once.
    void setStart(const ZTSStoreStart& acrStart);

    // ---- The loop's thread ----

    void seeNone();
    bool isAwaited(const ZTCAgentSight& acrSight);
    /// Its run begins, unless it is under way.
    void begin(const ZTCAgentSight& acrSight, const ZTSBookFigures* apFigures);
    /// How it went.
    ZTSAgentRun end(const ZTSBookFigures* apFigures);
    /// Tells what has been lost.
    void look(const ZTSBookFigures* apFigures, bool aIsFetchOpen);
    ZTSAgentRun getRun();
    /// An answer, with the run as it was before it was read.
    void take(const ZTSensorScopeData& acrData, const ZTSHostPorts& acrPorts, ZTSAgentRun aRun,
              const ZTSMoment& acrNow);
    void loseAnswer();
    void settle(bool aIsFetchOpen);

  private:
    void deliver();

    ZTCSnBuffer& mrBuffer;
    std::mutex mMutex;  // of what follows
    ZTCLossBook mBook;
    ZTCLossLines mLossLines;
    Clock::time_point mNextRun;  // to be stored for itself
};
