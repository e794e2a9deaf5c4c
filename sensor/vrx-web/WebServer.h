// The server: takes connections, has their requests answered, and keeps everybody to his time.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <unordered_map>

#include "ServiceLog.h"
#include "WebAccess.h"
#include "WebConnections.h"
#include "WebDaemon.h"
#include "WebDesk.h"
#include "WebOptions.h"
#include "WebWorkers.h"

/// Used by the loop's thread, which it never keeps.
class ZTCWebServer {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t MostGuesses = 16;  ///< of a peer's, that wait

    /// aWake is called by other threads when takeNews() is to be called; it must not wait, and may be called
    /// as long as the process lives. Throws std::runtime_error with one line.
    ZTCWebServer(const ZTSWebOptions& acrOptions, const ZTSWebPeriods& acrPeriods, ZTSWebAccess aAccess,
                 ZTCServiceLog& arLog, const std::function<void()>& acrWake);
    /// Whatever is under way ends.
    ~ZTCWebServer();
    ZTCWebServer(const ZTCWebServer&) = delete;
    ZTCWebServer& operator=(const ZTCWebServer&) = delete;

    /// For what comes from now on. Who is connected keeps his keys. Throws std::runtime_error; then all is as
    /// it was.
    void setAccess(ZTSWebAccess aAccess, const std::vector<std::string>& acrNames);
    /// Somebody who has connected to a listener; TLS is spoken with whom the keys are for.
    void take(ZTCSensorDescriptor aSocket, const ZTSListenAddress& acrPeer);
    /// What other threads have to say.
    void takeNews();
    /// Looks at everybody's time.
    void tick(Clock::time_point aNow);

    /// To be called again and again: behind all of the above, when a descriptor is readable, and when the
    /// time is over.
    void run();
    std::vector<int> listDescriptors() const;
    std::optional<std::chrono::milliseconds> getTimeout() const;

    /// "12 connections, 3 of them follow", and what is amiss.
    std::string getStatus();
    bool isEmpty() const { return mConnections.count() == 0; }

    // ---- Called by libmicrohttpd, through ZTCWebDaemon ----

    ZTSWebConnection* takeOpened(int aSocket, MHD_Connection* apConnection);
    void takeClosed(const ZTSWebConnection& acrConnection);
    void takeTarget(ZTSWebConnection& arConnection, const char* apTarget) noexcept;
    MHD_Result takeRequest(ZTSWebConnection& arConnection, const char* apMethod) noexcept;
    void takeEnd(ZTSWebConnection& arConnection) noexcept;

  private:
    using Phase = ZTEWebPhase;

    void react(ZTSWebConnection& arConnection, ZTSWebReaction aReaction);
    void work(ZTSWebConnection& arConnection, ZTCWebWorkers::Work aWork);
    void follow(ZTSWebConnection& arConnection, const std::string& acrLastEventId);
    void wait(ZTSWebConnection& arConnection, std::chrono::milliseconds aTime, ZTSWebAnswer aLate);
    void answerNow(ZTSWebConnection& arConnection, ZTSWebAnswer aAnswer);
    void resume(ZTSWebConnection& arConnection);
    void meetEnd(ZTSWebConnection& arConnection);
    void tellState(Clock::time_point aNow);
    void forget(ZTSWebConnection& arConnection);
    ZTCWebDaemon& daemonFor(const ZTSListenAddress& acrPeer);

    const ZTSWebPeriods mPeriods;
    ZTCServiceLog& mrLog;
    ZTCServiceTrouble mCrowd;   ///< connections that find no room
    ZTCServiceTrouble mSlow;    ///< those that are shut
    ZTCServiceTrouble mSilent;  ///< the collector
    ZTCServiceTrouble mUnread;  ///< the history
    ZTCServiceTrouble mKept;    ///< workers
    ZTCWebPage mPage;
    ZTCWebHealth mHealth;
    ZTCWebDesk mDesk;
    ZTCWebStream mStream;
    ZTCWebWorkers mWorkers;
    ZTCWebConnections mConnections;
    std::uint64_t mLastTicket = 0;
    std::unordered_map<std::uint64_t, ZTSWebConnection*> mByTicket;
    std::map<std::string, std::size_t> mGuesses;  ///< that wait, by peer
    Clock::time_point mStateTold;
    Clock::time_point mShutLast;

    // They call all of the above.
    std::unique_ptr<ZTCWebDaemon> mpPlain;
    std::list<std::unique_ptr<ZTCWebDaemon>> mSecure;  ///< the last one takes connections
};
