// Waits in which signals are events, so that nothing that is under way is ever cut off by one.
#pragma once

#include <chrono>
#include <csignal>

#include "SensorFiles.h"

/// As long as it lives SIGINT, SIGTERM, SIGHUP and SIGWINCH interrupt nothing, and are told by the waits;
/// those that were ignored before, as by nohup, stay so. One at a time, in a program's only thread.
class ZTCWaiting {
  public:
    using Clock = std::chrono::steady_clock;
    enum class Reason : unsigned char { Time, Resize, End };

    ZTCWaiting();  ///< throws ZTCScopeFailure, and nothing is held back
    ~ZTCWaiting();
    ZTCWaiting(const ZTCWaiting&) = delete;
    ZTCWaiting& operator=(const ZTCWaiting&) = delete;

    /// Returns at the time, or earlier because the terminal's size is another or the program is to end.
    Reason until(Clock::time_point aTime);

  private:
    sigset_t mBlocked;
    ZTCSensorDescriptor mSignals;
};
