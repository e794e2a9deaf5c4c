// Runs the benchmarks and prints, group by group, each figure and its ratio to the group's floor: the member
// whose name ends in "floor".
#include <fmt/format.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "Bench.h"

double ztbench::tickLength() {
    static const double sLength = [] {
        using Clock = std::chrono::steady_clock;
        const auto lStart = Clock::now();
        const std::uint64_t lFirst = ticks();
        while (Clock::now() - lStart < std::chrono::milliseconds(50)) {
        }
        const std::chrono::duration<double, std::nano> lTime = Clock::now() - lStart;
        return lTime.count() / static_cast<double>(ticks() - lFirst);
    }();
    return sLength;
}

void ztbench::Distribution::report(benchmark::State& arState) {
    Distribution lEmpty(1000);
    for (int lAt = 0; lAt < 1000; ++lAt) {
        lEmpty.time([] {});
    }
    const auto lQuantile = [](Distribution& arOf, double aPart) {
        auto& lrTicks = arOf.mTicks;
        const auto lAt =
            lrTicks.begin() + static_cast<std::ptrdiff_t>(aPart * static_cast<double>(lrTicks.size() - 1));
        std::nth_element(lrTicks.begin(), lAt, lrTicks.end());
        return static_cast<double>(*lAt) * tickLength();
    };
    const double lClock = lQuantile(lEmpty, 0.5);
    arState.counters["p50"] = lQuantile(*this, 0.5) - lClock;
    arState.counters["p99"] = lQuantile(*this, 0.99) - lClock;
    arState.counters["p99.9"] = lQuantile(*this, 0.999) - lClock;
}

namespace {

class RatioReporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context& /*acrContext*/) override {
        fmt::print("{:<52} {:>12} {:>9}  {}\n", "what", "ns", "x floor", "more");
        return true;
    }

    void ReportRuns(const std::vector<Run>& acrRuns) override {
        for (const Run& lrRun : acrRuns) {
            if (lrRun.error_occurred) {
                fmt::print("{:<52} {}\n", lrRun.run_name.function_name, lrRun.error_message);
                continue;
            }
            // Medians when a benchmark was repeated, the one run otherwise.
            if (lrRun.repetitions > 1 && lrRun.aggregate_name != "median") {
                continue;
            }
            print(lrRun);
        }
    }

  private:
    void print(const Run& acrRun) {
        const std::string& lrName = acrRun.run_name.function_name;
        const std::string lGroup = lrName.substr(0, lrName.find('/'));
        const auto lEach = acrRun.counters.find("each");
        const double lTime =
            acrRun.GetAdjustedRealTime() / (lEach != acrRun.counters.end() ? lEach->second.value : 1.0);
        if (lrName.ends_with("floor")) {
            fmt::print("\n");
            mFloors[lGroup] = lTime;
        }
        fmt::print("{:<52} {:>12.2f} {:>9.2f} ", lrName, lTime, lTime / mFloors[lGroup]);
        for (const auto& [lrCounter, lrValue] : acrRun.counters) {
            if (lrCounter != "each") {
                fmt::print(" {} {:.4g}", lrCounter, lrValue.value);
            }
        }
        fmt::print("\n");
        fflush(stdout);
    }

    std::map<std::string, double> mFloors;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    // A second thread is alive all the time: a process with one skips the atomics.
    std::mutex lMutex;
    std::condition_variable lEnd;
    bool lEnds = false;
    std::thread lSecond([&] {
        std::unique_lock lLock(lMutex);
        lEnd.wait(lLock, [&] { return lEnds; });
    });
    RatioReporter lReporter;
    benchmark::RunSpecifiedBenchmarks(&lReporter);
    {
        const std::lock_guard lLock(lMutex);
        lEnds = true;
    }
    lEnd.notify_one();
    lSecond.join();
    return 0;
}
