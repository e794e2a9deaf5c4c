// What an event costs, from the vendor library's call to its return, beside the loop that no event can beat:
// a lock, a reading of the clock, a copy of 20 bytes, a count.
//
// Threads come in bursts, as events do; between the bursts the log catches up and the collection is emptied,
// and that is not timed.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <barrier>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Bench.h"
#include "BenchAgent.h"
#include "NamedPipeWriterServer.h"
#include "ProtocolHelper.h"
#include "ScopeAgentStatistics.h"

namespace {

using ztbench::Event;

constexpr unsigned int sBurst = 3000;       // of one thread: what its ring of the log holds
constexpr unsigned int sMostAtOnce = 8000;  // of all: what the collection holds
constexpr unsigned int sBursts = 50;

using Call = std::function<void(unsigned int)>;  // given the number of the call

struct Load {
    const char* mpName;
    std::function<Call()> mMake;  // what one thread does
    unsigned int mLogCode;
};

ZTCMutex& floorLock() {
    static ZTCMutex& srLock = *new ZTCMutex;
    return srLock;
}

Call makeFloor() {
    return [](unsigned int) {
        static unsigned char sEvent[20];
        static unsigned char sCopy[20];
        static unsigned int sCount;
        const ZTCScopedLock lLock(floorLock());
        timespec lNow;
        clock_gettime(CLOCK_REALTIME, &lNow);
        memcpy(sCopy, sEvent, sizeof sCopy);
        benchmark::DoNotOptimize(sCopy);
        benchmark::DoNotOptimize(lNow);
        benchmark::DoNotOptimize(++sCount);
    };
}

Call makePlogi() {
    return [lpEvent = std::make_shared<Event>(1U, 1U, 20U)](unsigned int) { lpEvent->deliver(); };
}

Call makeNewPlogi() {
    return [lpEvent = std::make_shared<Event>(1U, 1U, 20U)](unsigned int aNumber) {
        lpEvent->setName(aNumber);
        lpEvent->deliver();
    };
}

Call makeCheckCondition() {
    return [lpEvent = std::make_shared<Event>(4U, 4U, 32U)](unsigned int) { lpEvent->deliver(); };
}

const Load sLoads[] = {
    {"lock, clock, 20 bytes, count: the floor", makeFloor, 0},
    {"repeated PLOGI, masked", makePlogi, 0},
    {"repeated PLOGI", makePlogi, ZTLogCodeDefault},
    {"repeated check condition, masked", makeCheckCondition, 0},
    {"repeated check condition", makeCheckCondition, ZTLogCodeDefault},
    {"new PLOGI, masked", makeNewPlogi, 0},
    {"new PLOGI", makeNewPlogi, ZTLogCodeDefault},
};

// Bursts by so many threads at once. Returns the nanoseconds of a call; with a distribution, times each call.
double run(const Load& acrLoad, unsigned int aThreads, ztbench::Distribution* apTimes,
           double& arAllocations) {
    const unsigned int lBurst = std::min(sBurst, sMostAtOnce / aThreads);
    std::barrier lTogether(static_cast<std::ptrdiff_t>(aThreads));
    std::vector<std::uint64_t> lTicks(aThreads);
    std::vector<std::uint64_t> lAllocations(aThreads);
    std::vector<ztbench::Distribution> lTimes(
        aThreads, ztbench::Distribution(apTimes != nullptr ? sBurst * sBursts : 0));
    const auto lWork = [&](unsigned int aThread) {
        const Call lCall = acrLoad.mMake();
        unsigned int lNumber = aThread << 24;
        for (unsigned int lRound = 0; lRound < sBursts; ++lRound) {
            if (aThread == 0) {
                setLogCode(ZTLL_Error.mBit);
                ztbench::fetch();
                flushLog();
                setLogCode(acrLoad.mLogCode);
            }
            lTogether.arrive_and_wait();
            const std::uint64_t lAllocated = ztbench::allocations();
            const std::uint64_t lBefore = ztbench::ticks();
            for (unsigned int lAt = 0; lAt < lBurst; ++lAt) {
                ++lNumber;
                apTimes != nullptr ? lTimes[aThread].time([&] { lCall(lNumber); }) : lCall(lNumber);
            }
            lTicks[aThread] += ztbench::ticks() - lBefore;
            lAllocations[aThread] += ztbench::allocations() - lAllocated;
            lTogether.arrive_and_wait();
        }
    };
    std::vector<std::thread> lThreads;
    for (unsigned int lThread = 0; lThread < aThreads; ++lThread) {
        lThreads.emplace_back(lWork, lThread);
    }
    std::uint64_t lAll = 0;
    std::uint64_t lAllocated = 0;
    for (unsigned int lThread = 0; lThread < aThreads; ++lThread) {
        lThreads[lThread].join();
        lAll += lTicks[lThread];
        lAllocated += lAllocations[lThread];
        if (apTimes != nullptr) {
            apTimes->add(lTimes[lThread]);
        }
    }
    const double lCalls = static_cast<double>(lBurst) * sBursts * aThreads;
    arAllocations = static_cast<double>(lAllocated) / lCalls;
    return static_cast<double>(lAll) * ztbench::tickLength() / lCalls;
}

void measure(benchmark::State& arState, const Load& acrLoad, unsigned int aThreads) {
    ztbench::agent();
    double lAllocations = 0;
    for (auto lStep : arState) {
        arState.SetIterationTime(run(acrLoad, aThreads, nullptr, lAllocations) * 1e-9);
    }
    arState.counters["allocations"] = lAllocations;
    ztbench::Distribution lTimes(sBurst * sBursts * aThreads);
    run(acrLoad, aThreads, &lTimes, lAllocations);
    lTimes.report(arState);
    setLogCode(ZTLogCodeDefault);
}

const int sRegistered = [] {
    for (const unsigned int lThreads : {1U, 2U, 4U}) {
        for (const Load& lrLoad : sLoads) {
            const std::string lName = "event, " + std::to_string(lThreads) + " at once/" + lrLoad.mpName;
            benchmark::RegisterBenchmark(lName.c_str(), measure, lrLoad, lThreads)
                ->Iterations(1)
                ->Repetitions(5)
                ->UseManualTime();
        }
    }
    return 0;
}();

// ---- What the agent counts of an event ----

// The statistics as a file on tmpfs, from now on.
const std::string& statisticsFile() {
    static const std::string& srPath = *[] {
        char lName[] = "/dev/shm/zt-bench-XXXXXX";
        auto* const lpPath = new std::string(mkdtemp(lName) != nullptr ? lName : "/dev/shm");
        lpPath->append("/vrx-sca.stats");
        ZTNameStatistics();
        static ZTCStatisticsFile& srFile = *new ZTCStatisticsFile;
        srFile.show(
            lpPath->c_str(), [](void* /*apContext*/) {}, nullptr);
        atexit([] {
            srFile.withdraw();
            rmdir(statisticsFile().substr(0, statisticsFile().rfind('/')).c_str());
        });
        return lpPath;
    }();
    return srPath;
}

void statisticsAlone(benchmark::State& arState) {
    for (auto lStep : arState) {
        ZTCountRecorded(ZTSEK_ElsPlogi, true);
    }
}

const int sStatistics = [] {
    static const Load sLoad{"repeated PLOGI", makePlogi, ZTLogCodeDefault};
    const auto lRegister = [](const char* apName, auto aMeasure) {
        return benchmark::RegisterBenchmark(apName, aMeasure)->Iterations(1)->Repetitions(5)->UseManualTime();
    };
    // The best of several: what is looked for is smaller than what else goes on in a machine.
    const auto lTime = [](benchmark::State& arState) {
        ztbench::agent();
        for (auto lStep : arState) {
            double lAllocations = 0;
            double lBest = run(sLoad, 1, nullptr, lAllocations);
            for (unsigned int lRound = 0; lRound < 20; ++lRound) {
                lBest = std::min(lBest, run(sLoad, 1, nullptr, lAllocations));
            }
            arState.SetIterationTime(lBest * 1e-9);
        }
        setLogCode(ZTLogCodeDefault);
    };
    lRegister("statistics/repeated PLOGI, counted in memory, the floor", lTime);
    lRegister("statistics/counted in a file on tmpfs", [=](benchmark::State& arState) {
        statisticsFile();
        lTime(arState);
    });
    lRegister("statistics/the same, read at 1 kHz", [=](benchmark::State& arState) {
        std::atomic<bool> lEnds{false};
        std::thread lReader([&, lFile = open(statisticsFile().c_str(), O_RDONLY | O_CLOEXEC)] {
            for (char lBytes[sizeof(ZTSStatisticsBlock)]; !lEnds;) {
                benchmark::DoNotOptimize(pread(lFile, lBytes, sizeof lBytes, 0));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            close(lFile);
        });
        lTime(arState);
        lEnds = true;
        lReader.join();
    });
    benchmark::RegisterBenchmark("statistics/the counting by itself", statisticsAlone)->Repetitions(5);
    return 0;
}();

// ---- Memory and fetch ----

// Fills the collection with so many records of the smallest size, one board after the other.
void fill(unsigned int aRecords) {
    static const Event sEvent(16U, 1U, 0U);
    setLogCode(ZTLL_Error.mBit);
    ztbench::fetch();
    for (unsigned int lAt = 0; lAt < aRecords; ++lAt) {
        sEvent.deliver(lAt % 2);
    }
}

void memoryOfRecords(benchmark::State& arState) {
    constexpr unsigned int lRecords = 8000;
    const Call lCall = (ztbench::agent(), makeNewPlogi());
    setLogCode(ZTLL_Error.mBit);
    ztbench::fetch();
    const std::size_t lBefore = mallinfo2().uordblks;
    for (auto lStep : arState) {
        for (unsigned int lAt = 0; lAt < lRecords; ++lAt) {
            lCall(lAt);
        }
    }
    arState.counters["bytes a record"] =
        static_cast<double>(mallinfo2().uordblks - lBefore) / static_cast<double>(lRecords);
    arState.counters["each"] = lRecords;
    setLogCode(ZTLogCodeDefault);
}
BENCHMARK(memoryOfRecords)->Name("memory/new PLOGI records, the floor")->Iterations(1);

constexpr unsigned int sManyRecords = 20000;

void copyOfResponse(benchmark::State& arState) {
    ztbench::agent();
    fill(sManyRecords);
    const ZTCPointer<ZTCBuffer> lResponse(ztbench::fetch());
    std::vector<unsigned char> lCopy(lResponse->getLength());
    for (auto lStep : arState) {
        memcpy(lCopy.data(), lResponse->getBytes(), lCopy.size());
        benchmark::DoNotOptimize(lCopy.data());
        benchmark::ClobberMemory();
    }
    arState.counters["bytes"] = static_cast<double>(lCopy.size());
    setLogCode(ZTLogCodeDefault);
}
BENCHMARK(copyOfResponse)->Name("fetch/bare copy of the bytes, the floor")->Repetitions(5);

// Times one part of what a fetch does with so many records; the work returns its ticks.
template <class Work>
void timeFetches(benchmark::State& arState, unsigned int aRecords, const Work& acrWork) {
    ztbench::agent();
    for (auto lStep : arState) {
        fill(aRecords);
        arState.SetIterationTime(static_cast<double>(acrWork()) * ztbench::tickLength() * 1e-9);
    }
    setLogCode(ZTLogCodeDefault);
}

std::uint64_t detach() {
    ZTCScopeAgentSystem& lrAgent = ztbench::agent();
    ZTCScopeAgentRecordLists lLists(lrAgent.makeRecordLists());
    const std::uint64_t lBefore = ztbench::ticks();
    {
        const ZTCScopedLock lLock(lrAgent.getScopeDataLock());
        lrAgent.clearPrevScopeData();
        lrAgent.resetRecordLists(lLists, ztlog::now());
    }
    return ztbench::ticks() - lBefore;
}
void lockOfFew(benchmark::State& arState) {
    timeFetches(arState, 20, detach);
}
void lockOfMany(benchmark::State& arState) {
    timeFetches(arState, sManyRecords, detach);
}
BENCHMARK(lockOfFew)->Name("fetch/lock held, 20 records")->Iterations(20)->Repetitions(5)->UseManualTime();
BENCHMARK(lockOfMany)
    ->Name("fetch/lock held, 20000 records")
    ->Iterations(20)
    ->Repetitions(5)
    ->UseManualTime();

void encodeMany(benchmark::State& arState) {
    timeFetches(arState, sManyRecords, [] {
        const std::uint64_t lBefore = ztbench::ticks();
        const ZTCPointer<ZTCBuffer> lResponse(ztbench::fetch());
        return ztbench::ticks() - lBefore;
    });
}
BENCHMARK(encodeMany)
    ->Name("fetch/response made, 20000 records")
    ->Iterations(20)
    ->Repetitions(5)
    ->UseManualTime();

// The other end of the output pipe: takes whole messages and tells when it has one.
class Sensor {
  public:
    Sensor() {
        char lName[] = "/tmp/zt-bench-XXXXXX";
        mPath = std::string(mkdtemp(lName) != nullptr ? lName : "/tmp") + "/out.fifo";
        auto* const lpServer = new ZTCNamedPipeWriterServer(ZTCString(mPath.c_str()), 1);
        mServer = ZTCPointer<ZTCWriter>(lpServer, ZTPST_Individual, ZTPMT_New);
        lpServer->create(0);
        lpServer->open(0);
        mThread = std::thread([this, lPipe = open(mPath.c_str(), O_RDONLY | O_CLOEXEC)] { take(lPipe); });
    }
    ~Sensor() {
        ZTCPointer<ZTCWriter>().swap(mServer);
        mThread.join();
        unlink(mPath.c_str());
        rmdir(mPath.substr(0, mPath.rfind('/')).c_str());
    }
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;

    /// Writes a message and returns when it has been read wholly.
    void pass(const ZTCPointer<ZTCBuffer>& acrMessage) {
        mLeft = acrMessage->getLength() + ZTWireHeaderSize;
        mHelper.write(mServer, acrMessage, 0);
        for (std::size_t lLeft = mLeft; lLeft != 0; lLeft = mLeft) {
            mLeft.wait(lLeft);
        }
    }

  private:
    void take(int aPipe) {
        std::vector<char> lRoom(1 << 20);
        for (ssize_t lRead; (lRead = read(aPipe, lRoom.data(), lRoom.size())) > 0;) {
            mLeft -= static_cast<std::size_t>(lRead);
            mLeft.notify_one();
        }
        close(aPipe);
    }

    std::string mPath;
    ZTCPointer<ZTCWriter> mServer;
    ZTCProtocolHelper mHelper;
    std::atomic<std::size_t> mLeft{0};
    std::thread mThread;
};

void fetchThroughPipe(benchmark::State& arState) {
    ztbench::agent();
    Sensor lSensor;
    timeFetches(arState, sManyRecords, [&] {
        const std::uint64_t lBefore = ztbench::ticks();
        lSensor.pass(ztbench::fetch());
        return ztbench::ticks() - lBefore;
    });
}
BENCHMARK(fetchThroughPipe)
    ->Name("fetch/through the pipe, 20000 records")
    ->Iterations(20)
    ->Repetitions(5)
    ->UseManualTime();

}  // namespace
