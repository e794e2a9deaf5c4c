// What is amiss for a while, told in the journal and to the service manager.
#pragma once

#include <chrono>
#include <string>

#include "ServiceLog.h"
#include "WebState.h"

/// A trouble that is met now and then: it is over when it was not met for half a minute. One thread.
class ZTCWebTrouble {
  public:
    using Clock = std::chrono::steady_clock;

    ZTCWebTrouble(ZTCServiceLog& arLog, const char* apWhat) : mTrouble(arLog, apWhat) {}

    void met(const std::string& acrWhy) {
        mMet = Clock::now();
        mTrouble.met(acrWhy, mMet);
    }
    void tick(Clock::time_point aNow) { aNow - mMet >= Quiet ? mTrouble.over(aNow) : void(); }

  private:
    static constexpr std::chrono::seconds Quiet{30};

    ZTCServiceTrouble mTrouble;
    Clock::time_point mMet;
};

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
    ZTCWebTrouble mCrowd;
    ZTCWebTrouble mSlow;
    ZTCServiceTrouble mSilent;
    ZTCServiceTrouble mUnread;
    ZTCServiceTrouble mUnwritten;
    ZTCServiceTrouble mKept;
    Clock::time_point mLooked;
    ZTSWebState mState;
};
