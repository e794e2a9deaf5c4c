// vrx-web as a whole: where it listens, its signals, its options read anew, and its end.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Notify.h"
#include "ServiceLog.h"
#include "ServiceReload.h"
#include "WebAccess.h"
#include "WebListeners.h"
#include "WebServer.h"

/// One at a time, in the main thread, which never waits for anything but for all of these at once.
class ZTCWebLoop {
  public:
    using Clock = std::chrono::steady_clock;

    /// acrWords: the command line, for the options to be read anew. Throws std::runtime_error with one line.
    ZTCWebLoop(const ZTSWebSettings& acrSettings, const ZTSWebPeriods& acrPeriods,
               const std::vector<std::string>& acrWords, ZTCServiceLog& arLog);

    /// Until a signal asks for the end.
    void run();

  private:
    void watch(int aDescriptor, std::uint64_t aWhat);
    void watchServer();
    void tellWhere() const;
    void turn();
    void take(std::uint64_t aWhat);
    void takeSignals();
    void takeConnections(std::size_t aListener);
    void rest(std::size_t aListener, int aErrno);
    void tick(Clock::time_point aNow);
    int getTimeout() const;
    void beginReload();
    void reload();

    ZTSWebOptions mOptions;
    const ZTSWebPeriods mPeriods;
    ZTCServiceLog& mrLog;
    ZTCWebTrouble mDeaf;  ///< listeners
    ZTCWebTrouble mNoMemory;
    ZTCSensorDescriptor mSignals;
    std::shared_ptr<const ZTCSensorDescriptor> mpWake;  ///< an event, of threads that may outlive this
    ZTCSensorDescriptor mEvents;
    ZTCServiceReload<ZTSWebSettings> mReload;
    ZTCNotify mNotify;
    std::vector<ZTCWebListener> mListeners;
    std::vector<std::size_t> mResting;  ///< listeners, until the next tick
    ZTCWebServer mServer;
    bool mHasTokens = false;
    bool mIsEnding = false;
    Clock::time_point mTicked;
    Clock::time_point mStatusTold;
};
