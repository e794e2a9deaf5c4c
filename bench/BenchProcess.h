// A program of ours in a process of its own, and what it costs.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What a process has had so far.
struct ZTSBenchCost {
    double mSeconds = 0;  ///< of a processor
    double mSleeps = 0;   ///< of its threads: each is followed by a wake-up

    ZTSBenchCost operator-(const ZTSBenchCost& acrBefore) const {
        return {mSeconds - acrBefore.mSeconds, mSleeps - acrBefore.mSleeps};
    }
};

/// It ends with this one, or before. What it says goes nowhere.
class ZTCBenchProcess {
  public:
    /// acrEnvironment: "NAME=VALUE", besides what there is.
    ZTCBenchProcess(const std::vector<std::string>& acrCommand,
                    const std::vector<std::string>& acrEnvironment);
    ~ZTCBenchProcess() { end(); }
    ZTCBenchProcess(const ZTCBenchProcess&) = delete;
    ZTCBenchProcess& operator=(const ZTCBenchProcess&) = delete;

    void end();
    /// Of the threads whose names the text contains; empty: of all.
    ZTSBenchCost getCost(std::string_view aThreads = {}) const;
    /// Memory that it has now, and the most it had, in MiB.
    std::pair<double, double> getResident() const;

  private:
    pid_t mProcess;
};

namespace ztbench {

/// ZT_BENCH=all: as long as what is promised.
bool isFull();
/// A new folder in another one.
std::string makeFolder(const std::string& acrParent);

}  // namespace ztbench
