// The server: takes connections, has their requests answered, and keeps everybody to his time.
#pragma once

#include <atomic>
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
#include "WebTroubles.h"
#include "WebWorkers.h"

/// Used by the loop's thread, which it never keeps.
class ZTCWebServer {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t MostGuesses = 16;                   ///< of a peer's, that wait
    static constexpr std::size_t MostBytes = std::size_t{24} << 20;  ///< of answers that are being taken

    /// aWake is called by other threads when takeNews() is to be called; it must not wait, and may be called
    /// as long as the process lives. Throws std::runtime_error with one line.
    ZTCWebServer(const ZTSWebOptions& acrOptions, const ZTSWebPeriods& acrPeriods, ZTSWebAccess aAccess,
                 ZTCServiceLog& arLog, const std::function<void()>& acrWake);
    /// Whatever is under way ends.
    ~ZTCWebServer();
    ZTCWebServer(const ZTCWebServer&) = delete;
    ZTCWebServer& operator=(const ZTCWebServer&) = delete;

    /// For what comes from now on: who is connected keeps his certificate. Whether TLS is spoken stays.
    /// Throws std::runtime_error; then all is as it was.
    void setAccess(ZTSWebAccess aAccess, const std::vector<std::string>& acrNames);
    /// Somebody who has connected to a listener. TLS is spoken with all but those of a Unix socket.
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

    /// "12 connections, 3 follow", and what is amiss.
    std::string getStatus();
    bool isEmpty() const { return mConnections.count() == 0; }

    // ---- Called by libmicrohttpd, through ZTCWebDaemon ----

    ZTSWebConnection* takeOpened(int aSocket, MHD_Connection* apConnection);
    void takeClosed(const ZTSWebConnection& acrConnection);
    void takeTarget(ZTSWebConnection& arConnection, const char* apTarget) noexcept;
    MHD_Result takeRequest(ZTSWebConnection& arConnection, const char* apMethod) noexcept;
    void takeEnd(ZTSWebConnection& arConnection) noexcept;

    // ---- Called when answers are taken (WebReply.h) ----

    void noteTaken(ZTSWebConnection& arConnection) const;
    /// Whether there is a piece for him now, or he is to come again.
    bool hasNext(ZTSWebFollower& arFollower) const;
    /// There is none: he waits for what comes, or for what he has missed. Throws std::bad_alloc.
    void waitForNext(ZTSWebConnection& arConnection);

  private:
    using Phase = ZTEWebPhase;

    ZTCWebDaemon& daemonFor(const ZTSListenAddress& acrPeer);
    bool mayGuess(const std::string& acrPeer) const;
    void react(ZTSWebConnection& arConnection, ZTSWebReaction aReaction);
    std::optional<std::string> work(ZTSWebConnection& arConnection, ZTCWebWorkers::Work aWork);
    void wait(ZTSWebConnection& arConnection, std::chrono::milliseconds aTime, ZTSWebReaction::Making aLate);
    void answerNow(ZTSWebConnection& arConnection, ZTSWebAnswer aAnswer);
    void makeRoom(std::size_t aBytes) const;
    void forget(ZTSWebConnection& arConnection);
    void meetEnd(ZTSWebConnection& arConnection);

    const ZTSWebPeriods mPeriods;
    ZTCWebPage mPage;
    ZTCWebHealth mHealth;
    ZTCWebTroubles mTroubles;
    ZTCWebMetrics mMetrics;
    ZTCWebDesk mDesk;
    const std::shared_ptr<std::atomic<bool>> mpHasStreamNews;  ///< of a thread that may outlive this
    ZTCWebStream mStream;
    ZTCWebWorkers mWorkers;
    ZTCWebConnections mConnections;
    std::uint64_t mLastTicket = 0;
    std::unordered_map<std::uint64_t, ZTSWebConnection*> mByTicket;
    std::map<std::string, std::size_t> mGuesses;  ///< that wait, by peer

    // They call all of the above.
    std::unique_ptr<ZTCWebDaemon> mpPlain;
    std::list<std::unique_ptr<ZTCWebDaemon>> mSecure;  ///< the last one takes connections
};
