// Tells the service manager how it goes, where there is one.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <string>

#include "SensorFiles.h"

/// Any thread. It never waits: what the manager does not take at once is left out, but for the readiness,
/// which is told again.
class ZTCNotify {
  public:
    using Clock = std::chrono::steady_clock;

    /// By NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID.
    ZTCNotify();

    void tellReady();
    void tellReloading();
    void tellStopping();
    void tellStatus(const std::string& acrText);
    /// To be called again and again by the thread whose life is watched: each half of the period something is
    /// sent, else nothing is done.
    void feed(Clock::time_point aNow);

  private:
    bool send(const std::string& acrText) const;

    ZTCSensorDescriptor mSocket;
    sockaddr_un mAddress{};
    socklen_t mAddressSize = 0;
    std::chrono::microseconds mWatchdog{0};  ///< 0: nobody watches
    std::atomic<bool> mOwesReady{false};
    Clock::time_point mFed;  ///< of the thread that feeds
};
