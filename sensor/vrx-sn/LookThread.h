// A thread that looks at something which may take its time to answer: a driver, a disk.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>

#include "ServiceThread.h"

/// What it looks at. It belongs to its thread, which calls everything here but the constructor; whatever it
/// tells others goes by what these have under a lock.
class ZTCLooker {
  public:
    using Clock = std::chrono::steady_clock;

    ZTCLooker() = default;
    virtual ~ZTCLooker() = default;
    ZTCLooker(const ZTCLooker&) = delete;
    ZTCLooker& operator=(const ZTCLooker&) = delete;

    /// Returns when the next look is due at the latest. Where it throws, which but for std::bad_alloc it is
    /// not to do, the next one comes in a second.
    virtual Clock::time_point look() = 0;
    /// Behind the last look: tells what it has kept back. Throws std::bad_alloc alone.
    virtual void end() {}
    /// What else than the time it is to be woken by, when it is readable; -1: nothing.
    virtual std::array<int, 2> getDescriptors() const { return {-1, -1}; }
    /// A look has taken so long.
    virtual void tellSlow(unsigned int aSeconds) = 0;
    /// One threw something else than std::bad_alloc, which is told once.
    virtual void tellFailed(const char* apWhy) = 0;
    /// One does not come back, which is told once. Called by whoever watches.
    virtual void tellHangs(unsigned int aSeconds) = 0;
};

/// It may be kept by what it asks, and holds up nobody then: who watches it sees it, and at the end it is
/// left to itself, with its looker. The functions are for any thread.
class ZTCLookThread {
  public:
    using Clock = ZTCLooker::Clock;

    /// Throws std::system_error.
    template <std::size_t Size>
    ZTCLookThread(const char (&aprName)[Size], std::shared_ptr<ZTCLooker> apLooker)
        : mpShared(makeShared(std::move(apLooker))) {
        startServiceThread(aprName, [lpShared = mpShared] { run(*lpShared); }).detach();
    }
    /// Ends it, and waits for nothing.
    ~ZTCLookThread() { end(); }
    ZTCLookThread(const ZTCLookThread&) = delete;
    ZTCLookThread& operator=(const ZTCLookThread&) = delete;

    /// The next look is due at once.
    void wake();
    void end();
    /// Until something is so, which is asked behind each look; or the thread has ended, or the time is over.
    void waitUntil(const std::function<bool()>& acrCondition, Clock::time_point aTime);
    void waitForEnd(Clock::time_point aTime);
    /// Has the looker tell of a look that has been under way for a minute, once.
    void watch(Clock::time_point aNow);

  private:
    struct Shared;
    static std::shared_ptr<Shared> makeShared(std::shared_ptr<ZTCLooker> apLooker);
    static void run(Shared& arShared);

    const std::shared_ptr<Shared> mpShared;
};
