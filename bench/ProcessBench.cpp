// A million different events through the program as it is installed: a library that calls back from one
// thread, and a sensor that fetches all the time (StormProvider.c).
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "AgentStatistics.h"
#include "Bench.h"
#include "SensorClient.h"
#include "SensorError.h"

namespace {

constexpr unsigned int sEvents = 1000000;
constexpr unsigned int sRuns = 9;
constexpr auto sMoment = std::chrono::milliseconds(5);
constexpr auto sPatience = std::chrono::seconds(60);

// The agent in a directory of its own, in memory, where its statistics are mapped.
class Agent {
  public:
    explicit Agent(const char* apMask) {
        char lName[] = "/dev/shm/zt-bench-XXXXXX";
        if (mkdtemp(lName) == nullptr) {
            throw std::runtime_error("cannot make a directory in /dev/shm");
        }
        mDirectory = lName;
        mProcess = fork();
        if (mProcess == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            setenv("ZT_VRX_SENSOR_DIR", mDirectory.c_str(), 1);
            setenv("ZT_LIBDFC", ZT_STORM_PROVIDER, 1);
            setenv("ZT_BENCH_EVENTS", std::to_string(sEvents).c_str(), 1);
            setenv("ZT_BENCH_RESULT", getResultPath().c_str(), 1);
            unsetenv("NOTIFY_SOCKET");
            // Who starts it is told of its end on standard error.
            const int lNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(lNowhere, STDERR_FILENO);
            execl(ZT_VRX_SCA, ZT_VRX_SCA, "-D", "false", "-d", apMask, nullptr);
            _exit(1);
        }
    }
    ~Agent() {
        end();
        std::error_code lIgnored;
        std::filesystem::remove_all(mDirectory, lIgnored);
    }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    const std::string& getDirectory() const { return mDirectory; }
    std::string getResultPath() const { return mDirectory + "/result"; }

    /// Ends it, and returns the nanoseconds that it had of processors.
    double end() {
        if (mProcess <= 0) {
            return 0;
        }
        rusage lUsage{};
        kill(mProcess, SIGTERM);
        wait4(std::exchange(mProcess, -1), nullptr, 0, &lUsage);
        const auto lTime = [](const timeval& acrTime) {
            return static_cast<double>(acrTime.tv_sec) * 1e9 + static_cast<double>(acrTime.tv_usec) * 1e3;
        };
        return lTime(lUsage.ru_utime) + lTime(lUsage.ru_stime);
    }

  private:
    std::string mDirectory;
    pid_t mProcess;
};

struct Run {
    double mAll = 0;     // nanoseconds from the first call to the last return
    double mWaited = 0;  // of these, for a fetch
    double mProcessor = 0;
    std::uint64_t mFetches = 0;
    std::uint64_t mFetched = 0;  // events
    std::uint64_t mLost = 0;
    std::uint64_t mLogLost = 0;
};

// The sensor's end, as soon as the agent is there.
template <class Work>
auto sWhenThere(const Work& acrWork) {
    const auto lDeadline = std::chrono::steady_clock::now() + sPatience;
    for (;;) {
        try {
            return acrWork();
        } catch (const ZTCNoAgentError&) {
            if (std::chrono::steady_clock::now() > lDeadline) {
                throw;
            }
            std::this_thread::sleep_for(sMoment);
        }
    }
}

Run sRun(const char* apMask) {
    Run lRun;
    Agent lAgent(apMask);
    ZTCSensorClient lSensor({.mDirectory = lAgent.getDirectory()});
    sWhenThere([&] {
        lSensor.startScope(4096);
        return true;
    });
    std::vector<ZTSensorBytes> lAnswers{lSensor.fetch()};  // the library begins
    const ZTCAgentStatistics lFigures(lAgent.getDirectory());
    const auto lDeadline = std::chrono::steady_clock::now() + sPatience;
    for (bool lHasEnded = false; !lHasEnded;) {
        if (std::chrono::steady_clock::now() > lDeadline) {
            throw std::runtime_error("the library of the storm does not come to an end");
        }
        const std::uint32_t lWake = lFigures.read().mWake;
        lHasEnded = bool(std::ifstream(lAgent.getResultPath()) >> lRun.mAll >> lRun.mWaited);
        lAnswers.push_back(lSensor.fetch());
        if (!lHasEnded) {
            lFigures.waitForWake(lWake, sMoment);
        }
    }
    for (const ZTSensorBytes& lrAnswer : lAnswers) {
        for (const auto& lrList : decodeScopeData(std::span(lrAnswer).subspan(ZTSSensorHeader::Size))) {
            for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
                lRun.mFetched += lrRecord.mOccurrences;
            }
        }
    }
    lRun.mFetches = lAnswers.size();
    for (const ZTSStatistic& lrRow : lFigures.read().mRows) {
        lRun.mLost += lrRow.mName.starts_with("lost_total") ? lrRow.mValue : 0;
        lRun.mLogLost += lrRow.mName.starts_with("log_lost_total") ? lrRow.mValue : 0;
    }
    lRun.mProcessor = lAgent.end();
    return lRun;
}

// The floor of an event, by itself.
double sFloor() {
    constexpr unsigned int lCalls = 10000;
    static const ZTBenchCall sCall = ztbench::eventFloor().mMake();
    std::vector<double> lTimes;
    for (unsigned int lTurn = 0; lTurn < 100; ++lTurn) {
        const std::uint64_t lBefore = ztbench::ticks();
        for (unsigned int lAt = 0; lAt < lCalls; ++lAt) {
            sCall(lAt);
        }
        lTimes.push_back(static_cast<double>(ztbench::ticks() - lBefore) * ztbench::tickLength() / lCalls);
    }
    return ztbench::quantile(lTimes, 0.5);
}

void sMeasure(const char* apName, const char* apMask) {
    ZTSBenchRow lRow{apName};
    std::vector<double> lCalling;
    std::vector<double> lProcessor;
    std::uint64_t lMissing = 0;
    Run lSum;
    double lBefore = sFloor();
    for (unsigned int lAt = 0; lAt < sRuns; ++lAt) {
        const Run lRun = sRun(apMask);
        const double lBehind = sFloor();
        lRow.mTimes.push_back(lRun.mAll / sEvents);
        lRow.mRatios.push_back(lRun.mAll / sEvents / ((lBefore + lBehind) / 2));
        lBefore = lBehind;
        lCalling.push_back((lRun.mAll - lRun.mWaited) / sEvents);
        lProcessor.push_back(lRun.mProcessor / sEvents);
        lMissing += sEvents - lRun.mFetched;
        lSum.mFetches += lRun.mFetches;
        lSum.mLost += lRun.mLost;
        lSum.mLogLost += lRun.mLogLost;
    }
    lRow.mMore = fmt::format(
        "{:.2f} million a second, the best run {:.2f}; {:.2f} while calling, the rest waits for a fetch; {} fetches; "
        "processor {:.0f} ns; ",
        1e3 / ztbench::quantile(lRow.mTimes, 0.5), 1e3 / ztbench::quantile(lRow.mTimes, 0),
        1e3 / ztbench::quantile(lCalling, 0.5), lSum.mFetches / sRuns, ztbench::quantile(lProcessor, 0.5));
    lRow.mMore +=
        lMissing == 0 && lSum.mLost == 0
            ? "all fetched"
            : fmt::format("{} NOT FETCHED, {} of them lost by the agent's count", lMissing, lSum.mLost);
    if (lSum.mLogLost != 0) {
        lRow.mMore += fmt::format("; {} log records lost a run", lSum.mLogLost / sRuns);
    }
    lRow.print();
}

}  // namespace

void ztbench::process() {
    fmt::print("\n");
    sMeasure("process: a million different PLOGIs, one thread, masked (-d 8)", "8");
    sMeasure("process: the same, notices logged (-d 63)", "63");
}
