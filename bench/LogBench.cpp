// What a log record costs its caller, and how many are written in a second.
//
// Callers come in bursts that their ring holds, as events do; between bursts the log catches up. The rate is
// measured without pauses: there the writer and the kernel are the limit.
#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <ctime>
#include <functional>
#include <string>
#include <thread>

#include "Bench.h"
#include "Log.h"
#include "Mutex.h"

namespace {

constexpr char sFile[] = "LogBench";
constexpr unsigned int sBurst = 1000;
constexpr unsigned int sBursts = 300;
constexpr unsigned int sRateRecords = 500000;  // of each thread

// A directory for the files, gone at the end.
class Directory {
  public:
    Directory() {
        char lName[] = "/tmp/zt-bench-XXXXXX";
        mName = mkdtemp(lName) != nullptr ? lName : "/tmp";
    }
    ~Directory() {
        for (const char* lpFile : {"agent.log", "basic.log", "async.log", "write.log"}) {
            unlink(file(lpFile).c_str());
        }
        rmdir(mName.c_str());
    }
    std::string file(const char* apName) const { return mName + "/" + apName; }

  private:
    std::string mName;
};

const Directory& directory() {
    static const Directory sDirectory;
    return sDirectory;
}

// One way of logging: a record, and waiting until all records are written.
struct Logger {
    std::function<void(unsigned int)> mRecord;
    std::function<void()> mCatchUp;
};

using ztbench::useAgentLog;

void agentRecord(unsigned int aNumber) {
    Log(ZTLL_Notice, sFile, "Processing PLOGI event Cat=%u SubCat=%u", 1U, aNumber);
}

}  // namespace

void ztbench::useAgentLog() {
    static const bool sOpened = [] {
        setLogFilePath(directory().file("agent.log").c_str());
        openLog();
        return true;
    }();
    benchmark::DoNotOptimize(sOpened);
}

namespace {

// ---- What a record costs its caller ----

void floorOfAnEvent(benchmark::State& arState) {
    ZTCMutex lMutex;
    unsigned char lEvent[20] = {};
    unsigned char lCopy[20];
    unsigned int lCount = 0;
    for (auto lStep : arState) {
        const ZTCScopedLock lLock(lMutex);
        timespec lNow;
        clock_gettime(CLOCK_REALTIME, &lNow);
        memcpy(lCopy, lEvent, sizeof lCopy);
        benchmark::DoNotOptimize(lCopy);
        benchmark::DoNotOptimize(lNow);
        benchmark::DoNotOptimize(++lCount);
    }
}
BENCHMARK(floorOfAnEvent)->Name("log caller/lock, clock, 20 bytes, count: the floor")->Repetitions(5);

void maskedRecord(benchmark::State& arState) {
    for (auto lStep : arState) {
        Log(ZTLL_Trace, sFile, "Processing PLOGI event Cat=%u SubCat=%u", 1U, 1U);
    }
}
BENCHMARK(maskedRecord)->Name("log caller/masked record")->Repetitions(5);

void burstOfRecords(benchmark::State& arState) {
    useAgentLog();
    unsigned int lNumber = 0;
    for (auto lStep : arState) {
        for (unsigned int lAt = 0; lAt < sBurst; ++lAt) {
            agentRecord(lNumber++);
        }
        arState.PauseTiming();
        flushLog();
        arState.ResumeTiming();
    }
    arState.counters["each"] = sBurst;
}
BENCHMARK(burstOfRecords)->Name("log caller/record, mean of bursts")->Iterations(sBursts)->Repetitions(5);

template <class Record, class CatchUp>
void singleCalls(benchmark::State& arState, Record&& arRecord, CatchUp&& arCatchUp) {
    ztbench::Distribution lTimes(sBurst * sBursts);
    unsigned int lNumber = 0;
    for (auto lStep : arState) {
        for (unsigned int lBurst = 0; lBurst < sBursts; ++lBurst) {
            for (unsigned int lAt = 0; lAt < sBurst; ++lAt) {
                lTimes.time([&] { arRecord(lNumber++); });
            }
            arCatchUp();
        }
    }
    arState.counters["each"] = sBurst * sBursts;
    lTimes.report(arState);
}

void agentCalls(benchmark::State& arState) {
    useAgentLog();
    singleCalls(arState, agentRecord, flushLog);
}
BENCHMARK(agentCalls)->Name("log call/agent, with catching up: the floor")->Iterations(1);

// A second thread logs the same bursts meanwhile.
void agentCallsOfTwo(benchmark::State& arState) {
    useAgentLog();
    std::atomic<bool> lEnds{false};
    std::thread lOther([&] {
        while (!lEnds.load()) {
            for (unsigned int lAt = 0; lAt < sBurst; ++lAt) {
                agentRecord(lAt);
            }
            flushLog();
        }
    });
    singleCalls(arState, agentRecord, flushLog);
    lEnds = true;
    lOther.join();
}
BENCHMARK(agentCallsOfTwo)->Name("log call/agent, two threads")->Iterations(1);

std::string formattedLine() {
    return "2026-11-21T02:46:01.123456Z 1234.1240 -N- LogBench:57 agentRecord: Processing PLOGI event Cat=1 "
           "SubCat=123456\n";
}

int writeFile() {
    return open(directory().file("write.log").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC,
                0640);
}

void writeCalls(benchmark::State& arState) {
    const int lFile = writeFile();
    const std::string lLine = formattedLine();
    singleCalls(
        arState, [&](unsigned int) { benchmark::DoNotOptimize(write(lFile, lLine.data(), lLine.size())); },
        [] {});
    close(lFile);
}
BENCHMARK(writeCalls)->Name("log call/write of the formatted line")->Iterations(1);

std::shared_ptr<spdlog::logger> basicLogger() {
    static const auto sLogger = spdlog::basic_logger_mt("basic", directory().file("basic.log"), true);
    return sLogger;
}

std::shared_ptr<spdlog::logger> asyncLogger() {
    static const auto sLogger = [] {
        spdlog::init_thread_pool(8192, 1);
        return spdlog::basic_logger_mt<spdlog::async_factory>("async", directory().file("async.log"), true);
    }();
    return sLogger;
}

void spdlogCalls(benchmark::State& arState, const std::shared_ptr<spdlog::logger>& acrLogger) {
    singleCalls(
        arState,
        [&](unsigned int aNumber) { acrLogger->info("Processing PLOGI event Cat={} SubCat={}", 1, aNumber); },
        [&] { acrLogger->flush(); });
}
void basicCalls(benchmark::State& arState) {
    spdlogCalls(arState, basicLogger());
}
BENCHMARK(basicCalls)->Name("log call/spdlog basic")->Iterations(1);
void asyncCalls(benchmark::State& arState) {
    spdlogCalls(arState, asyncLogger());
}
BENCHMARK(asyncCalls)->Name("log call/spdlog async")->Iterations(1);

// ---- How many records are written in a second ----

template <class Record, class CatchUp>
void rate(benchmark::State& arState, unsigned int aThreads, Record&& arRecord, CatchUp&& arCatchUp) {
    for (auto lStep : arState) {
        std::vector<std::thread> lThreads;
        for (unsigned int lThread = 0; lThread < aThreads; ++lThread) {
            lThreads.emplace_back([&] {
                for (unsigned int lAt = 0; lAt < sRateRecords; ++lAt) {
                    arRecord(lAt);
                }
            });
        }
        for (std::thread& lrThread : lThreads) {
            lrThread.join();
        }
        arCatchUp();
    }
    arState.counters["each"] = sRateRecords * aThreads;
    arState.counters["records/s"] = benchmark::Counter(static_cast<double>(sRateRecords) * aThreads,
                                                       benchmark::Counter::kIsIterationInvariantRate);
}

void writeRate(benchmark::State& arState, unsigned int aThreads) {
    const int lFile = writeFile();
    const std::string lLine = formattedLine();
    rate(
        arState, aThreads,
        [&](unsigned int) { benchmark::DoNotOptimize(write(lFile, lLine.data(), lLine.size())); }, [] {});
    close(lFile);
}
void writeRateOfOne(benchmark::State& arState) {
    writeRate(arState, 1);
}
BENCHMARK(writeRateOfOne)
    ->Name("log rate/one write each: the floor")
    ->Iterations(1)
    ->Repetitions(5)
    ->UseRealTime();
void writeRateOfTwo(benchmark::State& arState) {
    writeRate(arState, 2);
}
BENCHMARK(writeRateOfTwo)
    ->Name("log rate/one write each, two threads")
    ->Iterations(1)
    ->Repetitions(5)
    ->UseRealTime();

void agentRate(benchmark::State& arState, unsigned int aThreads) {
    useAgentLog();
    flushLog();
    // What a full ring turns away would be counted as written.
    const auto lRecord = [](unsigned int aNumber) {
        agentRecord(aNumber);
        if (aNumber % sBurst == sBurst - 1) {
            flushLog();
        }
    };
    rate(arState, aThreads, lRecord, flushLog);
}
void agentRateOfOne(benchmark::State& arState) {
    agentRate(arState, 1);
}
BENCHMARK(agentRateOfOne)->Name("log rate/agent")->Iterations(1)->Repetitions(5)->UseRealTime();
void agentRateOfTwo(benchmark::State& arState) {
    agentRate(arState, 2);
}
BENCHMARK(agentRateOfTwo)->Name("log rate/agent, two threads")->Iterations(1)->Repetitions(5)->UseRealTime();

void spdlogRate(benchmark::State& arState, const std::shared_ptr<spdlog::logger>& acrLogger) {
    rate(
        arState, 1,
        [&](unsigned int aNumber) { acrLogger->info("Processing PLOGI event Cat={} SubCat={}", 1, aNumber); },
        [&] { acrLogger->flush(); });
}
void basicRate(benchmark::State& arState) {
    spdlogRate(arState, basicLogger());
}
BENCHMARK(basicRate)->Name("log rate/spdlog basic")->Iterations(1)->Repetitions(5)->UseRealTime();
void asyncRate(benchmark::State& arState) {
    spdlogRate(arState, asyncLogger());
}
BENCHMARK(asyncRate)->Name("log rate/spdlog async")->Iterations(1)->Repetitions(5)->UseRealTime();

}  // namespace
