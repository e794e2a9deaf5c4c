// Watches over the life of a system: takes the process's signals, and sees to it that nothing that hangs
// keeps the process from starting unsaid, or from ending.
#pragma once

#include <atomic>
#include <chrono>

#include "Event.h"
#include "SignalSource.h"

class ZTCSystem;

/// A thread that lives as long as the process. It waits for nothing that may stand still, and needs no
/// memory.
///
/// - SIGHUP opens the log anew; SIGTERM and SIGINT, and the end of the process that started a daemon before
/// that
///   is ready, make the system exit. While it is still starting, its main thread sees that when it comes
///   back.
/// - A system that does not end in time is left, with a record that says what holds it up.
/// - The service manager's watchdog is fed while the main thread turns and no call into foreign code lasts
/// too
///   long.
class ZTCSystemWatch {
  public:
    /// Blocks the signals: on the main thread, before any other is started. Throws ZTCOsException.
    explicit ZTCSystemWatch(ZTCSystem& arSystem);
    ZTCSystemWatch(const ZTCSystemWatch&) = delete;
    ZTCSystemWatch& operator=(const ZTCSystemWatch&) = delete;

    /// Starts the thread, behind a fork. aStarter: the descriptor of the pipe to the process that waits for
    /// this one to be ready, else -1. Throws ZTCOsException.
    void start(int aStarter);

    /// Something has changed that it waits for. Any thread.
    void wake() { mWake.set(); }

  private:
    using Clock = std::chrono::steady_clock;

    static void* threadMain(void* apWatch);
    [[noreturn]] void run();
    int timeToWait() const;
    void takeSignals();
    void lookAtStarter(short aEvents);
    void lookAtStart();
    void lookAtEnd();
    void notifyServiceManager();
    void cleanUp();
    [[noreturn]] void leave();

    ZTCSystem& mrSystem;
    ZTCSignalSource mSignals;
    ZTCEvent mWake;
    ZTCDescriptor mStarter;  // our own: the system closes its own when it is ready
    Clock::time_point mStarted;
    Clock::duration mNote{};  // the service manager hears so often
    Clock::time_point mNextNote;
    std::atomic<bool> mHasCleanedUp{false};
    bool mHasToldStart = false;
    bool mHasServiceManager = false;
    bool mIsWatchdogSet = false;
    bool mHasToldCall = false;
    unsigned int mTurns = 0;  // of the main thread, as it was at the last note
};
