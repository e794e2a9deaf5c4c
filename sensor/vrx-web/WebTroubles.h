// What is amiss for a while, told in the journal and to the service manager.
#pragma once

#include <chrono>
#include <string>

#include "ServiceLog.h"
#include "WebState.h"

/// One thread.
class ZTCWebTroubles {
  public:
    using Clock = std::chrono::steady_clock;

    ZTCWebTroubles(ZTCServiceLog& arLog, ZTCWebHealth& arHealth);

    /// Somebody is not let in: so many are.
    void noteRefused(std::size_t aConnections);
    /// Somebody is shut out.
    void noteSlow(const char* apWhy);
    /// Looks at collector and history. aKept: how many threads a disk keeps.
    void tick(Clock::time_point aNow, std::size_t aKept);
    /// "; the history cannot be read: ...", or nothing.
    std::string getStatus() const;

  private:
    ZTCWebHealth& mrHealth;
    ZTCServiceTrouble mCrowd;
    ZTCServiceTrouble mSlow;
    ZTCServiceTrouble mSilent;
    ZTCServiceTrouble mUnread;
    ZTCServiceTrouble mUnwritten;
    ZTCServiceTrouble mKept;
    Clock::time_point mCrowded;
    Clock::time_point mSlowed;
    Clock::time_point mLooked;
    ZTSWebState mState;
};
