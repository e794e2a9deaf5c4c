#include "Storm.h"

#include <algorithm>
#include <cstdio>
#include <exception>

namespace {

using Clock = ZTCSimulator::Clock;
using Duration = ZTCSimulator::Duration;

constexpr Duration sNever = std::chrono::hours(24 * 365);
constexpr Duration sBatch = std::chrono::milliseconds(1);   // what is due within it is played at once
constexpr Duration sGrace = std::chrono::milliseconds(10);  // for what was due before the end
constexpr unsigned int sEventsAClock = 64;                  // the clock is read once in so many

}  // namespace

void ZTSSimBurst::play(ZTCSimulator& arSimulator, unsigned int aThread) const {
    ZTCSimCaller lCaller(arSimulator);
    std::vector<ZTCSimulator::Route> lRoutes(mEvents.size());
    const auto lEnd = mStart + mFor.value_or(sNever);
    const auto lLatest = lEnd + (mInterval > 0 ? sGrace : Duration(0));
    const auto lMost = static_cast<double>(sNever.count());
    auto lNow = Clock::now();
    unsigned int lPlayed = 0;
    for (uint64_t lAt = aThread; lAt < mTimes; lAt += mThreads) {
        const auto lDelay = std::min(static_cast<double>(lAt) * mInterval, lMost);
        const auto lDue = mStart + Duration(static_cast<int64_t>(lDelay));
        if (lDue >= lEnd) {
            arSimulator.sleepUntil(lEnd);
            return;
        }
        if (lDue > lNow || ++lPlayed % sEventsAClock == 0) {
            lNow = Clock::now();
        }
        if (lDue > lNow) {
            arSimulator.sleepUntil(std::max(lDue, lNow + sBatch));
            lNow = Clock::now();
        }
        if (lNow >= lLatest || arSimulator.isStopped()) {
            return;
        }
        const size_t lBoard = lAt % mEvents.size();
        lCaller.deliver(mEvents[lBoard], lRoutes[lBoard]);
    }
}

ZTCSimStorms::~ZTCSimStorms() {
    for (Storm& lrStorm : mStorms) {
        for (std::thread& lrThread : lrStorm.mThreads) {
            lrThread.join();
        }
    }
}

void ZTCSimStorms::leave(Storm& arStorm) {
    if (--arStorm.mLeft == 0) {
        mrSimulator.countStorms(-1);
    }
}

void ZTCSimStorms::start(ZTSSimBurst aBurst) {
    const std::lock_guard<std::mutex> lLock(mMutex);
    std::erase_if(mStorms, [](Storm& arStorm) {
        if (arStorm.mLeft != 0) {
            return false;
        }
        for (std::thread& lrThread : arStorm.mThreads) {
            lrThread.join();
        }
        return true;
    });
    Storm& lrStorm = mStorms.emplace_back(std::move(aBurst));
    mrSimulator.countStorms(1);
    for (unsigned int lThread = 0; lThread < lrStorm.mBurst.mThreads; ++lThread) {
        try {
            lrStorm.mThreads.emplace_back([this, &lrStorm, lThread] {
                try {
                    lrStorm.mBurst.play(mrSimulator, lThread);
                } catch (const std::exception& lrException) {
                    fprintf(stderr, "libdfc-sim: a storm's thread ends: %s\n", lrException.what());
                }
                leave(lrStorm);
            });
        } catch (const std::exception&) {  // fewer threads play fewer events
            leave(lrStorm);
        }
    }
}
