// How the benchmarks measure.
//
// Everything is measured beside a floor, the least that such work can cost, in short turns: one of the floor,
// one of the load, one of the floor, and so on. Whatever else goes on in the machine befalls both. A row's
// ratio is the median of the ratios of neighbouring turns. In turns of their own the single calls are timed,
// the load's and the floor's: what the machine alone does to a call shows in both.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

/// What one thread does again and again. The number is another each time, of each thread.
using ZTBenchCall = std::function<void(unsigned int)>;

struct ZTSBenchLoad {
    std::string mName;
    std::function<ZTBenchCall()> mMake;    ///< called by each thread
    std::function<void()> mPrepare{};      ///< before a turn, not timed
    unsigned int mCalls = 400;             ///< of each thread in a turn
    unsigned int mEach = 1;                ///< of what the row is about, in a call
    std::function<std::string()> mMore{};  ///< what the row says besides
};

/// Rows that share a floor.
class ZTCBenchGroup {
  public:
    /// Prints the floor's own row: measured against itself.
    ZTCBenchGroup(const std::string& acrName, const ZTSBenchLoad& acrFloor, unsigned int aThreads = 1);

    /// Measures a load and prints its row. The threads run at once, on processors of their own if there are
    /// as many.
    void measure(const ZTSBenchLoad& acrLoad) const;

  private:
    std::string mName;
    ZTSBenchLoad mFloor;
    unsigned int mThreads;
};

/// A row. What is empty is left blank.
struct ZTSBenchRow {
    std::string mName;
    std::vector<double> mTimes{};    ///< nanoseconds, one a turn
    std::vector<double> mRatios{};   ///< to the floor, one a turn
    std::vector<double> mSingles{};  ///< nanoseconds of single calls
    std::vector<double> mFloorSingles{};
    std::string mMore{};

    void print();
};

namespace ztbench {

/// A clock that costs little: the processor's own where there is one, else the steady clock.
inline std::uint64_t ticks() {
#if defined(__x86_64__)
    unsigned int lProcessor;
    return __rdtscp(&lProcessor);
#else
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

/// Nanoseconds a tick.
double tickLength();

/// Has the compiler believe that the value is used.
template <class Value>
inline void keep(const Value& acrValue) {
    asm volatile("" : : "r,m"(acrValue) : "memory");
}

/// The value that so large a part of them stays below. Reorders them.
double quantile(std::vector<double>& arValues, double aPart);

/// The processors that this process may use.
unsigned int processors();

/// What no event can beat: a lock, a reading of the clock, a copy of 20 bytes, a count.
ZTSBenchLoad eventFloor();

// The groups, in the order in which they are run. The first one forks, so it comes before all threads.
void memory();
void events();
void fill();
void fetch();
void statistics();
void wake();
void process();
void logCaller();
void logRate();
void pointer();
void scsi();
void look();
void sensor();
void host();
void fold();
void incidents();
void store();
void web();

}  // namespace ztbench
