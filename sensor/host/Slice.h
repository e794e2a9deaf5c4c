// A part of a look that takes no more than so much processor time.
#pragma once

#include <chrono>
#include <ctime>

/// Of the thread that made it: counted from then on.
class ZTCSlice {
  public:
    explicit ZTCSlice(std::chrono::nanoseconds aMost) : mMost(aMost) {}

    /// Whether so many quarters of it are over.
    bool isOver(unsigned int aQuarters = 4) const { return now() - mBegin >= mMost * aQuarters / 4; }

  private:
    static std::chrono::nanoseconds now() {
        timespec lTime{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lTime);
        return std::chrono::seconds(lTime.tv_sec) + std::chrono::nanoseconds(lTime.tv_nsec);
    }

    const std::chrono::nanoseconds mMost;
    const std::chrono::nanoseconds mBegin = now();
};
