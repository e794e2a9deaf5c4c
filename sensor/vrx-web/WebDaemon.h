// libmicrohttpd, driven from a loop of ours: it reads requests and writes answers, and nothing else.
#pragma once

#include <microhttpd.h>

#include <chrono>
#include <optional>
#include <string>

#include "SensorFiles.h"
#include "WebListeners.h"

class ZTCWebServer;

/// As they stand in their files; empty: plain.
struct ZTSWebKeys {
    std::string mCertificate;
    std::string mKey;
};

/// One thread: all that it calls, it calls in run() or add().
class ZTCWebDaemon {
  public:
    /// Throws std::runtime_error: it cannot be started, or a certificate does not fit its key.
    ZTCWebDaemon(ZTCWebServer& arServer, const ZTSWebKeys& acrKeys);
    /// None of its connections may be suspended.
    ~ZTCWebDaemon();
    ZTCWebDaemon(const ZTCWebDaemon&) = delete;
    ZTCWebDaemon& operator=(const ZTCWebDaemon&) = delete;

    /// Is readable when there is something to run for.
    int getDescriptor() const;
    bool hasConnections() const;
    /// Takes it in any case; false: it is closed again.
    bool add(ZTCSensorDescriptor aSocket, const ZTSListenAddress& acrPeer);
    void run();
    /// Until it wants to run again, whatever its descriptor says.
    std::optional<std::chrono::milliseconds> getTimeout();

  private:
    MHD_Daemon* mpDaemon = nullptr;
};
