// What a log record costs its caller, beside other ways to log, and how many are written in a second.
//
// Callers come in turns that wake the writer no sooner than it is time, as events do; between turns the log
// catches up. The rate is measured with the catching up: there the writer and the kernel are the limit.
#include <fcntl.h>
#include <fmt/format.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "Bench.h"
#include "BenchAgent.h"
#include "Log.h"

namespace {

constexpr char sFile[] = "LogBench";
constexpr unsigned int sBurst = 1000;  // records that a ring holds, and more
constexpr unsigned int sBursts = 20;   // of a turn
constexpr char sLine[] =
    "2026-11-21T02:46:01.123456Z 1234.1240 -N- LogBench:57 agentRecord: Processing PLOGI event Cat=1 "
    "SubCat=123456\n";

// A way of logging: a record, and waiting until all records are written.
struct Logger {
    const char* mpName;
    const char* mpFile;
    void (*mpRecord)(unsigned int aNumber);
    void (*mpCatchUp)();
};

int sWriteFile() {
    static const int sOpened = open(ztbench::logFile("write.log").c_str(),
                                    O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    return sOpened;
}

const std::shared_ptr<spdlog::logger>& sBasic() {
    static const auto sLogger = spdlog::basic_logger_mt("basic", ztbench::logFile("basic.log"), true);
    return sLogger;
}

const std::shared_ptr<spdlog::logger>& sAsync() {
    static const auto sLogger = [] {
        spdlog::init_thread_pool(8192, 1);
        return spdlog::basic_logger_mt<spdlog::async_factory>("async", ztbench::logFile("async.log"), true);
    }();
    return sLogger;
}

void sAgentRecord(unsigned int aNumber) {
    Log(ZTLL_Notice, sFile, "Processing PLOGI event Cat=%u SubCat=%u", 1U, aNumber);
}

constexpr Logger sLoggers[] = {
    {"agent", nullptr, sAgentRecord, ztbench::restLog},  // its file has a limit
    {"write of the formatted line", "write.log",
     [](unsigned int) { ztbench::keep(write(sWriteFile(), sLine, sizeof sLine - 1)); }, [] {}},
    {"spdlog basic", "basic.log",
     [](unsigned int aNumber) { sBasic()->info("Processing PLOGI event Cat={} SubCat={}", 1, aNumber); },
     [] { sBasic()->flush(); }},
    {"spdlog async", "async.log",
     [](unsigned int aNumber) { sAsync()->info("Processing PLOGI event Cat={} SubCat={}", 1, aNumber); },
     [] { sAsync()->flush(); }},
};
constexpr const Logger& sAgent = sLoggers[0];
constexpr const Logger& sWrite = sLoggers[1];

// Files do not grow for as long as it is measured.
void sShorten(const Logger& acrLogger) {
    if (acrLogger.mpFile != nullptr && truncate(ztbench::logFile(acrLogger.mpFile).c_str(), 0) != 0 &&
        errno != ENOENT) {
        throw std::runtime_error(acrLogger.mpFile + std::string(" cannot be cut: ") + strerror(errno));
    }
}

ZTSBenchLoad sSingleRecords(const Logger& acrLogger, const char* apMore = "") {
    return {acrLogger.mpName + std::string(apMore), [=] { return acrLogger.mpRecord; },
            [=] {
                acrLogger.mpCatchUp();
                sShorten(acrLogger);
            }};
}

// Bursts, and until they are written. A ring holds one.
ZTSBenchLoad sBurstsOf(const Logger& acrLogger) {
    void (*const lpCatchUp)() =
        &acrLogger == &sAgent ? [] { static_cast<void>(flushLog()); } : acrLogger.mpCatchUp;
    return {acrLogger.mpName,
            [=] {
                return [=](unsigned int) {
                    for (unsigned int lAt = 0; lAt < sBurst; ++lAt) {
                        acrLogger.mpRecord(lAt);
                    }
                    lpCatchUp();
                };
            },
            [=] { sShorten(acrLogger); }, sBursts, sBurst};
}

}  // namespace

void ztbench::logCaller() {
    useLog();
    setLogCode(ZTLogCodeDefault);
    const ZTCBenchGroup lGroup("log caller", eventFloor());
    lGroup.measure({"masked record", [] {
                        return [](unsigned int) {
                            Log(ZTLL_Trace, sFile, "Processing PLOGI event Cat=%u SubCat=%u", 1U, 1U);
                        };
                    }});
    for (const Logger& lrLogger : sLoggers) {
        lGroup.measure(sSingleRecords(lrLogger));
    }
    {
        std::atomic<bool> lEnds{false};
        std::thread lOther([&] {
            while (!lEnds) {
                for (unsigned int lAt = 0; lAt < sBurst; ++lAt) {
                    sAgentRecord(lAt);
                }
                flushLog();
            }
        });
        lGroup.measure(sSingleRecords(sAgent, ", while another thread logs without pause"));
        lEnds = true;
        lOther.join();
    }
}

void ztbench::logRate() {
    useLog();
    setLogCode(ZTLogCodeDefault);
    for (const unsigned int lThreads : {1U, 2U}) {
        const ZTCBenchGroup lGroup(fmt::format("log rate, {} thread{}", lThreads, lThreads == 1 ? "" : "s"),
                                   sBurstsOf(sWrite), lThreads);
        for (const Logger& lrLogger : sLoggers) {
            if (&lrLogger != &sWrite) {
                lGroup.measure(sBurstsOf(lrLogger));
            }
        }
    }
}
