// Many events of one kind, from one thread or several.
#pragma once

#include <list>
#include <thread>

#include "Simulator.h"

/// Events in turns, at their times from the start on.
struct ZTSSimBurst {
    std::vector<ZTCSimEvent> mEvents;  // one a board
    uint64_t mTimes = UINT64_MAX;
    double mInterval = 0;  // nanoseconds from one event to the next
    std::optional<ZTCSimulator::Duration> mFor;
    unsigned int mThreads = 1;
    ZTCSimulator::Clock::time_point mStart = ZTCSimulator::Clock::now();

    /// Plays one thread's share.
    void play(ZTCSimulator& arSimulator, unsigned int aThread) const;
};

/// Bursts in the background.
class ZTCSimStorms {
  public:
    explicit ZTCSimStorms(ZTCSimulator& arSimulator) : mrSimulator(arSimulator) {}
    /// The simulator has been stopped.
    ~ZTCSimStorms();
    ZTCSimStorms(const ZTCSimStorms&) = delete;
    ZTCSimStorms& operator=(const ZTCSimStorms&) = delete;

    void start(ZTSSimBurst aBurst);

  private:
    struct Storm {
        explicit Storm(ZTSSimBurst aBurst) : mBurst(std::move(aBurst)), mLeft(mBurst.mThreads) {
            mThreads.reserve(mBurst.mThreads);
        }

        const ZTSSimBurst mBurst;
        std::atomic<unsigned int> mLeft;  // the threads that have not ended
        std::vector<std::thread> mThreads;
    };

    void leave(Storm& arStorm);

    ZTCSimulator& mrSimulator;
    std::mutex mMutex;
    std::list<Storm> mStorms;
};
