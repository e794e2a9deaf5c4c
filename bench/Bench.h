// What the benchmarks share: groups whose first member is the floor that the others are held against, and the
// distribution of the times of single calls.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

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

/// Opens the agent's log in a directory that is gone at the end, and starts its writer. Any number of times.
void useAgentLog();

/// The times of single calls, what reading the clock takes taken off.
class Distribution {
  public:
    explicit Distribution(std::size_t aMost) { mTicks.reserve(aMost); }

    template <class Call>
    void time(Call&& arCall) {
        const std::uint64_t lBefore = ticks();
        arCall();
        mTicks.push_back(ticks() - lBefore);
    }

    /// Takes in what another has timed.
    void add(const Distribution& acrOther) {
        mTicks.insert(mTicks.end(), acrOther.mTicks.begin(), acrOther.mTicks.end());
    }

    /// Adds counters p50, p99 and p99.9 in nanoseconds.
    void report(benchmark::State& arState);

  private:
    std::vector<std::uint64_t> mTicks;
};

}  // namespace ztbench
