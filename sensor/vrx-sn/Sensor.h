// vrx-sn as a whole: what works in it, its signals, and its end.
#pragma once

#include <thread>

#include "AgentLoop.h"
#include "HostLook.h"
#include "IncidentFeed.h"
#include "IncidentThread.h"
#include "Notify.h"
#include "ServiceLog.h"
#include "ServiceReload.h"
#include "SnBuffer.h"
#include "SnFigures.h"
#include "SnOptions.h"
#include "SnStatus.h"
#include "StoreThread.h"

/// One at a time, in the main thread, which has no other work and never waits for a disk or for the agent.
class ZTCSensor {
  public:
    /// acrWords: the command line, for the options to be read anew. Throws what its parts throw.
    ZTCSensor(const ZTSSnOptions& acrOptions, const std::vector<std::string>& acrWords, ZTCServiceLog& arLog);
    ~ZTCSensor();
    ZTCSensor(const ZTCSensor&) = delete;
    ZTCSensor& operator=(const ZTCSensor&) = delete;

    /// Until a signal asks for the end. Returns the program's status, or ends the process at once where
    /// something stands still. Throws ZTCStoreError when the store can never be used.
    int run();

  private:
    using Clock = std::chrono::steady_clock;
    enum class Event : unsigned char { End, Reload, HasRead, Broken };

    void takeStart(const ZTSStoreStart& acrStart);
    void collect();
    void turn();
    void showHost();
    void tellStatus(Clock::time_point aNow);
    Event waitForEvent();
    void takeFailure();
    void noteSelf(const std::string& acrProcess, const char* apEvent, const char* apHow,
                  const std::string& acrSeen = "");
    void beginReload();
    void reload();
    void end();
    [[noreturn]] void leave(int aStatus);

    ZTSSnOptions mOptions;
    ZTCServiceLog& mrLog;
    ZTCSensorDescriptor mSignals;
    ZTCSensorDescriptor mBroken;  ///< an event: a thread has ended by itself
    ZTCServiceReload<ZTSSnOptions> mReload;
    ZTCNotify mNotify;
    ZTCSnFigures mFigures;
    ZTCSnStatus mStatus;
    ZTCIncidentFeed mFeed;
    ZTCSnBuffer mBuffer;
    ZTCHostLook mHost;
    ZTCIncidentThread mIncidents;
    ZTCAgentLoop mLoop;
    ZTCStoreThread mStore;
    std::thread mCollecting;
    ZTCSensorDescriptor mCollected;  ///< an event: its thread is about to end
    std::atomic<int> mResult{0};
    bool mIsOtherTold = false;  ///< the store's thread's: what became of the one before

    // The collecting thread's.
    Clock::time_point mStatusTold;
    std::pair<bool, bool> mStateTold;
};
