// What it costs that the agent's figures stand in a file, that others read it, and that a sensor waits for
// `wake` in it.
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>

#include "Bench.h"
#include "BenchAgent.h"
#include "Log.h"
#include "ScopeAgentStatistics.h"
#include "StatisticsFile.h"

namespace {

using Wake = std::atomic<std::uint32_t>;

// The figures as a file on tmpfs, and back in memory.
class Figures {
  public:
    Figures() {
        char lName[] = "/dev/shm/zt-bench-XXXXXX";
        mDirectory = mkdtemp(lName) != nullptr ? lName : "/dev/shm";
        ZTNameStatistics();
        const std::string lPath = mDirectory + "/vrx-sca.stats";
        mShown.show(
            lPath.c_str(), [](void* /*apContext*/) {}, nullptr);
        mFile = open(lPath.c_str(), O_RDWR | O_CLOEXEC);
        void* const lpReader = mmap(nullptr, ZTSStatisticsBlock::Size, PROT_READ, MAP_SHARED, mFile, 0);
        if (mFile < 0 || lpReader == MAP_FAILED) {
            throw std::runtime_error("there is no file of the statistics in /dev/shm: " +
                                     std::string(strerror(errno)));
        }
        mpReader = static_cast<ZTSStatisticsBlock*>(lpReader);
    }
    ~Figures() {
        mShown.withdraw();
        munmap(mpReader, ZTSStatisticsBlock::Size);
        close(mFile);
        rmdir(mDirectory.c_str());
    }
    Figures(const Figures&) = delete;
    Figures& operator=(const Figures&) = delete;

    int getFile() const { return mFile; }
    /// What a sensor has of it.
    const Wake& getWake() const { return mpReader->mWake; }

    void toMemory() const { map(MAP_PRIVATE | MAP_ANONYMOUS, -1); }
    void toFile() const { map(MAP_SHARED, mFile); }

  private:
    void map(int aFlags, int aFile) const {
        const auto lFigures = std::make_unique<ZTSStatisticsBlock>();
        ZTCopyStatistics(*lFigures);
        mmap(&ztstatistics::gBlock, ZTSStatisticsBlock::Size, PROT_READ | PROT_WRITE,
             aFlags | MAP_FIXED | MAP_POPULATE, aFile, 0);
        memcpy(static_cast<void*>(&ztstatistics::gBlock), lFigures.get(), sizeof *lFigures);
    }

    std::string mDirectory;
    ZTCStatisticsFile mShown;
    int mFile = -1;
    ZTSStatisticsBlock* mpReader = nullptr;
};

// Waits as a sensor does, once each time that it is told to, and takes the time when it has been woken.
class WaitingSensor {
  public:
    explicit WaitingSensor(const Wake& acrWake) : mcrWake(acrWake), mThread([this] { run(); }) {}
    ~WaitingSensor() {
        end();
        mEnds = true;
        tell();
        mThread.join();
    }
    WaitingSensor(const WaitingSensor&) = delete;
    WaitingSensor& operator=(const WaitingSensor&) = delete;

    /// Returns when it waits.
    void begin() {
        mIsWaiting = false;
        tell();
        while (!mIsWaiting) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));  // and the kernel has it
    }
    /// When it was woken; 0: it was not.
    std::uint64_t end() {
        mIsTold.wait(true);
        return mWoken;
    }

  private:
    void tell() {
        mIsTold = true;
        mIsTold.notify_all();
    }

    void run() {
        const timespec lMost{0, 100000000};
        for (mIsTold.wait(false); !mEnds; mIsTold.wait(false)) {
            const std::uint32_t lSeen = mcrWake;
            mIsWaiting = true;
            syscall(SYS_futex, &mcrWake, FUTEX_WAIT, lSeen, &lMost, nullptr, 0);
            const std::uint64_t lNow = ztbench::ticks();
            mWoken = mcrWake != lSeen ? lNow : 0;
            mIsTold = false;
            mIsTold.notify_all();
        }
    }

    const Wake& mcrWake;
    std::atomic<bool> mIsTold{false};
    std::atomic<bool> mIsWaiting{false};
    std::atomic<bool> mEnds{false};
    std::atomic<std::uint64_t> mWoken{0};
    std::thread mThread;
};

ZTSBenchLoad sRepeatedPlogi(const char* apName, std::function<void()> aPrepare) {
    return {apName,
            [] {
                const auto lEvent = std::make_shared<ZTCBenchEvent>(1U, 1U, 20U);
                return [=](unsigned int) { lEvent->deliver(); };
            },
            [=] {
                aPrepare();
                ztbench::empty(0);
            }};
}

}  // namespace

void ztbench::statistics() {
    useAgent();
    const Figures lFigures;
    const ZTCBenchGroup lGroup("statistics", sRepeatedPlogi("repeated PLOGI, masked, counted in memory",
                                                            [&] { lFigures.toMemory(); }));
    const auto lToFile = [&] { lFigures.toFile(); };
    lGroup.measure(sRepeatedPlogi("the same, counted in a file on tmpfs", lToFile));
    {
        std::atomic<bool> lEnds{false};
        std::thread lReader([&] {
            for (char lBytes[sizeof(ZTSStatisticsBlock)]; !lEnds;) {
                keep(pread(lFigures.getFile(), lBytes, sizeof lBytes, 0));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        lGroup.measure(sRepeatedPlogi("the same, read at 1 kHz", lToFile));
        lEnds = true;
        lReader.join();
    }
    lGroup.measure({"the counting by itself",
                    [] { return [](unsigned int) { ZTCountRecorded(ZTSEK_ElsPlogi, true); }; }, lToFile});
    lFigures.toMemory();
}

void ztbench::wake() {
    constexpr unsigned int lNearlyAnEighth =
        262144 / 8 / 27;  // records of PLOGIs, which take 27 bytes of the limit
    useAgent();
    const Figures lFigures;
    ZTCBenchEvent lEvent(1U, 1U, 20U);
    const auto lDeliver = [&](unsigned int aName) {
        lEvent.setName(aName);
        lEvent.deliver();
    };
    const auto lPrepare = [&] {
        empty(0);
        for (unsigned int lAt = 0; lAt < lNearlyAnEighth; ++lAt) {
            lDeliver(lAt);
        }
    };
    const ZTCBenchGroup lGroup(
        "wake", {"new PLOGI, masked, that passes the eighth; nobody waits",
                 [&] { return [&](unsigned int aNumber) { lDeliver(~aNumber); }; }, lPrepare, 1});
    WaitingSensor lSensor(lFigures.getWake());
    std::uint64_t lBegin = 0;
    std::vector<double> lTimes;
    const auto lTake = [&] {
        if (lBegin != 0 && lSensor.end() > lBegin) {
            lTimes.push_back(static_cast<double>(lSensor.end() - lBegin) * tickLength());
        }
        lBegin = 0;
    };
    lGroup.measure({"the same; a sensor waits on the mapped file",
                    [&] {
                        return [&](unsigned int aNumber) {
                            lBegin = ticks();
                            lDeliver(~aNumber);
                        };
                    },
                    [&] {
                        lTake();
                        lPrepare();
                        lSensor.begin();
                    },
                    1, 1,
                    [&] {
                        lTake();
                        return lTimes.empty()
                                   ? "it is never woken"
                                   : fmt::format("it is awake after {:.0f} ns", quantile(lTimes, 0.5));
                    }});
    lFigures.toMemory();
}
