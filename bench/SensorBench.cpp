// The agent and vrx-sn as they are installed: what a storm costs both, from which rate on something is lost,
// and what they cost at rest.
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "AgentStatistics.h"
#include "Bench.h"
#include "BenchProcess.h"
#include "SensorError.h"
#include "StoreFile.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t sRate = 200'000;  // events a second
constexpr auto sMoment = 20ms;

// Both, in a directory in memory; the store in another one.
class Stand {
  public:
    Stand(std::uint64_t aRate, std::uint64_t aEvents)
        : mDirectory(ztbench::makeFolder("/dev/shm")),
          mStore(ztbench::makeFolder("/tmp")),
          mAgent({ZT_VRX_SCA, "-D", "false"},
                 {"ZT_VRX_SENSOR_DIR=" + mDirectory, "ZT_LIBDFC=" ZT_STORM_PROVIDER,
                  "ZT_BENCH_RATE=" + std::to_string(aRate), "ZT_BENCH_EVENTS=" + std::to_string(aEvents),
                  "ZT_BENCH_RESULT=" + getResultPath()}),
          mSensor({ZT_VRX_SN, "--dir", mDirectory, "--store", mStore + "/history.db"},
                  {"RUNTIME_DIRECTORY=" + mStore}) {
        waitFor([this] { return getFetches() != 0; });
    }
    ~Stand() {
        mSensor.end();
        mAgent.end();
        std::error_code lIgnored;
        std::filesystem::remove_all(mDirectory, lIgnored);
        std::filesystem::remove_all(mStore, lIgnored);
    }
    Stand(const Stand&) = delete;
    Stand& operator=(const Stand&) = delete;

    // Until the library has delivered all: how long it took, in seconds.
    double waitForResult() const {
        double lTime = 0;
        waitFor([&] { return bool(std::ifstream(getResultPath()) >> lTime); });
        return lTime / 1e9;
    }
    ZTSBenchCost getCost() const {
        const ZTSBenchCost lAgent = mAgent.getCost();
        const ZTSBenchCost lSensor = mSensor.getCost();
        return {lAgent.mSeconds + lSensor.mSeconds, lAgent.mSleeps + lSensor.mSleeps};
    }
    ZTSBenchCost getSensorCost() const { return mSensor.getCost(); }
    // What is in the store when vrx-sn has ended.
    std::int64_t endAndAsk(const char* apQuery) {
        mSensor.end();
        return openStoreToRead(mStore + "/history.db").execAndGet(apQuery).getInt64();
    }

  private:
    template <class Condition>
    static void waitFor(const Condition& acrCondition) {
        const auto lDeadline = Clock::now() + 120s;
        while (!acrCondition()) {
            if (Clock::now() > lDeadline) {
                throw std::runtime_error("the agent or vrx-sn does not do its work");
            }
            std::this_thread::sleep_for(sMoment);
        }
    }
    std::string getResultPath() const { return mDirectory + "/result"; }
    std::uint64_t getFetches() const {
        try {
            return ZTCAgentStatistics(mDirectory).read().get("fetches_total").value_or(0);
        } catch (const ZTCSensorError&) {
            return 0;
        }
    }

    std::string mDirectory;
    std::string mStore;
    ZTCBenchProcess mAgent;
    ZTCBenchProcess mSensor;
};

void sStorm() {
    const std::uint64_t lSeconds = ztbench::isFull() ? 30 : 5;
    const std::uint64_t lEvents = sRate * lSeconds;
    Stand lStand(sRate, lEvents);
    const ZTSBenchCost lBefore = lStand.getCost();
    const double lSensorBefore = lStand.getSensorCost().mSeconds;
    const double lTime = lStand.waitForResult();
    const double lAll = lStand.getCost().mSeconds - lBefore.mSeconds;
    const double lSensor = lStand.getSensorCost().mSeconds - lSensorBefore;
    const auto lStored = lStand.endAndAsk("SELECT coalesce(sum(occurrences), 0) FROM records");
    const auto lRows = lStand.endAndAsk("SELECT count(*) FROM records");
    ZTSBenchRow lRow;
    lRow.mName = fmt::format("sensor: {} events a second for {} s, to the store", sRate, lSeconds);
    lRow.mTimes = {lTime * 1e9 / static_cast<double>(lEvents)};
    lRow.mMore =
        fmt::format("{} events lost, {} rows, {:.1f} % of a core (vrx-sn {:.1f} %), really {:.0f} a second",
                    static_cast<std::int64_t>(lEvents) - lStored, lRows, 100 * lAll / lTime,
                    100 * lSensor / lTime, static_cast<double>(lEvents) / lTime);
    lRow.print();
}

// Doubled until something is lost, then halved the span twice.
void sLimit() {
    const auto lLoses = [](std::uint64_t aRate, double& arReally) {
        const std::uint64_t lEvents = aRate;  // one second
        Stand lStand(aRate, lEvents);
        arReally = static_cast<double>(lEvents) / lStand.waitForResult();
        return lStand.endAndAsk("SELECT coalesce(sum(occurrences), 0) FROM records") !=
               static_cast<std::int64_t>(lEvents);
    };
    std::uint64_t lGood = sRate;
    std::uint64_t lBad = 0;
    double lReally = 0;
    for (std::uint64_t lRate = 2 * sRate; lBad == 0 && lRate <= 32 * sRate; lRate *= 2) {
        (lLoses(lRate, lReally) ? lBad : lGood) = lRate;
        if (lReally < 0.8 * static_cast<double>(lRate)) {
            break;  // the library delivers no faster
        }
    }
    for (int lStep = 0; lBad != 0 && lStep < 2; ++lStep) {
        const std::uint64_t lMiddle = (lGood + lBad) / 2;
        (lLoses(lMiddle, lReally) ? lBad : lGood) = lMiddle;
    }
    ZTSBenchRow lRow;
    lRow.mName = "sensor: the rate at which losing begins";
    lRow.mMore = lBad != 0
                     ? fmt::format("nothing lost at {} a second, something at {}", lGood, lBad)
                     : fmt::format("nothing lost at {:.0f} a second, the most that was delivered", lReally);
    lRow.print();
}

void sRest() {
    Stand lStand(1, 0);
    lStand.waitForResult();
    std::this_thread::sleep_for(2s);  // until the start is over
    const auto lBegin = Clock::now();
    const ZTSBenchCost lBefore = lStand.getSensorCost();
    std::this_thread::sleep_for(ztbench::isFull() ? 60s : 8s);
    const ZTSBenchCost lAfter = lStand.getSensorCost();
    const double lTime = std::chrono::duration<double>(Clock::now() - lBegin).count();
    ZTSBenchRow lRow;
    lRow.mName = "sensor: vrx-sn at rest";
    lRow.mMore = fmt::format("{:.1f} wake-ups a second, {:.1f} s of a processor an hour",
                             (lAfter.mSleeps - lBefore.mSleeps) / lTime,
                             (lAfter.mSeconds - lBefore.mSeconds) / lTime * 3600);
    lRow.print();
}

}  // namespace

void ztbench::sensor() {
    sStorm();
    sLimit();
    sRest();
}
