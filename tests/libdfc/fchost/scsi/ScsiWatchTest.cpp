// The thread that learns of SCSI errors, with a source and uevents of ours.
#include <sys/eventfd.h>

#include "ScsiTest.h"
#include "ScsiWatch.h"

namespace {

// What the source brings next. It outlives the source.
struct ZTSScript {
    std::mutex mMutex;
    ZTScsiFailures mFirsts, mRepeats;
    std::uint64_t mLost = 0;
    std::string mRefusal;
    std::atomic<bool> mIsShort{false};  // of memory, once
    std::atomic<bool> mIsEndless{false};
    std::atomic<unsigned int> mTakes{0}, mFailed{0}, mProcessors{0}, mTries{0};
    std::atomic<bool> mIsThere{true};
    const ZTCDescriptor mFile{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};

    void bring(const ZTScsiFailures& acrFirsts, const ZTScsiFailures& acrRepeats, std::uint64_t aLost = 0) {
        const std::lock_guard<std::mutex> lLock(mMutex);
        mFirsts = acrFirsts;
        mRepeats = acrRepeats;
        mLost = aLost;
        eventfd_write(mFile.get(), 1);
    }
};

class ScriptedSource : public ZTCScsiSource {
  public:
    explicit ScriptedSource(ZTSScript& arScript) : mrScript(arScript) {}
    int getFile() const override { return mrScript.mFile.get(); }
    void take(ZTScsiFailures& arFailures) override {
        const std::lock_guard<std::mutex> lLock(mrScript.mMutex);
        ++mrScript.mTakes;
        eventfd_t lCount = 0;
        if (!mrScript.mIsEndless) {
            eventfd_read(getFile(), &lCount);
            arFailures.swap(mrScript.mFirsts);
        } else if (mrScript.mFailed < 1'000'000) {
            arFailures.assign(100, scsiFailure(ZTTestQueueFull));
            mrScript.mFailed += 100;
        }
        if (mrScript.mIsShort.exchange(false)) {
            throw std::bad_alloc();
        }
    }
    void takeRepeats(ZTScsiFailures& arFailures) override {
        const std::lock_guard<std::mutex> lLock(mrScript.mMutex);
        arFailures.swap(mrScript.mRepeats);
    }
    std::uint64_t takeLost() override {
        const std::lock_guard<std::mutex> lLock(mrScript.mMutex);
        return mrScript.mLost;
    }
    std::uint64_t takeUnseen() override {
        const std::lock_guard<std::mutex> lLock(mrScript.mMutex);
        return 2 * std::exchange(mrScript.mLost, 0);
    }
    void lookForProcessors() override {
        if (++mrScript.mProcessors == 1) {
            throw std::bad_alloc();
        }
    }
    std::string describe() const override {
        const std::lock_guard<std::mutex> lLock(mrScript.mMutex);
        return "a script" + mrScript.mRefusal;
    }

  private:
    ZTSScript& mrScript;
};

struct ZTSWatchStand : ZTSScsiTestStand {
    using ZTSScsiTestStand::ZTSScsiTestStand;

    ZTScsiWays getWays() {
        return {{"one", ZTFF_WayBpf,
                 []() -> std::unique_ptr<ZTCScsiSource> { throw ZTCScsiNotAvailable("it is not"); }},
                {"two", ZTFF_WayPerf, [this]() -> std::unique_ptr<ZTCScsiSource> {
                     ++mScript.mTries;
                     if (!mScript.mIsThere) {
                         throw ZTCScsiNotAvailable("not yet");
                     }
                     return std::make_unique<ScriptedSource>(mScript);
                 }}};
    }
    void start() { mWatch.emplace(mSettings, mBoards, mRegistrations, mStatistics, mUevents, getWays()); }
    bool waitFor(ZTEFcFigure aFigure, std::uint64_t aValue) {
        return waitUntil([&] { return mStatistics.get(aFigure) == aValue; });
    }

    ZTSScript mScript;
    ZTCFcTestSender mSender;
    ZTCFcSocket mUevents{NETLINK_USERSOCK, 4,
                         static_cast<std::uint32_t>(std::stoul(mSender.getSetting().substr(2)))};
    std::optional<ZTCScsiWatch> mWatch;
};

TEST(ScsiWatch, TellsFirstsAtOnceAndRepeatsLater) {
    inOwnNetwork([] {
        ZTSWatchStand lStand;
        lStand.mTree.add("scsi_device/3:0:1:2", {{"device/queue_depth", "32"}});
        lStand.start();
        ZTSScsiFailure lRepeats = scsiFailure(ZTTestQueueFull);
        lRepeats.mCount = 999;
        lStand.mScript.bring({scsiFailure(ZTTestQueueFull)}, {lRepeats}, 4);
        EXPECT_TRUE(lStand.waitFor(ZTFF_ToldQueueFull, 1000));
        EXPECT_TRUE(lStand.waitFor(ZTFF_LostFull, 4) && lStand.waitFor(ZTFF_LostBusy, 8));
        EXPECT_EQ(ZTTestCalls.mCount, 1000U);
        lStand.mScript.mIsShort = true;
        lStand.mScript.bring({scsiFailure(0x08)}, {scsiFailure(0x08)});
        EXPECT_TRUE(lStand.waitFor(ZTFF_ToldDeviceBusy, 2));
        lStand.mTree.set("scsi_device/3:0:1:2/device/queue_depth", "16\n");
        EXPECT_TRUE(lStand.waitFor(ZTFF_ToldQueueDepthChange, 1));
        EXPECT_EQ(lStand.mStatistics.get(ZTFF_WayPerf) - lStand.mStatistics.get(ZTFF_WayBpf), 1U);
        lStand.mScript.mIsShort = true;
        lStand.mScript.bring({scsiFailure(0x08)}, {lRepeats});  // of which the end brings what is left
        lStand.mWatch.reset();
        EXPECT_EQ(lStand.mStatistics.get(ZTFF_LostNoMemory), 0U);
        EXPECT_EQ(lStand.mStatistics.get(ZTFF_ToldDeviceBusy), 3U);
        EXPECT_EQ(lStand.mStatistics.get(ZTFF_ToldQueueFull), 1999U);
        const std::string lLog = lStand.getLog();
        EXPECT_EQ(countIn(lLog, "SCSI errors are seen by a script; not by one: it is not\n"), 1U) << lLog;
        EXPECT_GE(countIn(lLog, "no memory: SCSI errors come later"), 1U) << lLog;
        EXPECT_TRUE(contains(lLog, "libdfc-fchost: 4 SCSI errors were lost: they came faster")) << lLog;
    });
}

TEST(ScsiWatch, TriesAgainWhenTheModuleComes) {
    inOwnNetwork([] {
        const auto lUevent = [](const std::string& acrLines) {
            std::string lBytes = "add@" + acrLines + "ACTION=add;" + acrLines;
            std::replace(lBytes.begin(), lBytes.end(), ';', '\0');
            return lBytes;
        };
        ZTSWatchStand lStand;
        lStand.mScript.mIsThere = false;
        lStand.start();
        EXPECT_TRUE(waitUntil([&] {
            return contains(lStand.getLog(), "SCSI errors are not seen (one: it is not; two: not yet)\n");
        }));
        for (const char* const lpLines : {"DEVPATH=/module/scsi_mod_x;", "DEVPATH=/module/ext4;", "x"}) {
            lStand.mSender.sendBytes(lUevent(lpLines));
        }
        EXPECT_EQ(lStand.mScript.mTries, 1U);
        lStand.mScript.mIsThere = true;
        lStand.mSender.sendBytes(lUevent("DEVPATH=/module/scsi_mod;SUBSYSTEM=module;"));
        EXPECT_TRUE(lStand.waitFor(ZTFF_WayPerf, 1));
        EXPECT_EQ(lStand.mScript.mTries, 2U);
        // One that cannot be opened is told; for want of memory it is looked for again.
        for (const char* const lpRefusal : {", not on all", ""}) {
            std::unique_lock<std::mutex> lLock(lStand.mScript.mMutex);
            lStand.mScript.mRefusal = lpRefusal;
            lLock.unlock();
            lStand.mSender.sendBytes(lUevent("DEVPATH=/devices/system/cpu/cpu1;SUBSYSTEM=cpu;"));
            const std::string lLine =
                std::string("are seen by a script") + lpRefusal + "; not by one: it is not\n";
            const unsigned int lLines = *lpRefusal != '\0' ? 1 : 2;
            EXPECT_TRUE(waitUntil([&] { return countIn(lStand.getLog(), lLine) == lLines; }));
        }
        EXPECT_EQ(lStand.mScript.mProcessors, 3U);
        // A source that says it has something, and has not, is asked again after a rest.
        lStand.mScript.mTakes = 0;
        const auto lStart = std::chrono::steady_clock::now();
        lStand.mScript.mFailed = 1'000'000;
        lStand.mScript.mIsEndless = true;
        lStand.mScript.bring({}, {});
        EXPECT_TRUE(waitUntil([&] { return lStand.mScript.mTakes > 5; }));
        const unsigned int lTakes = lStand.mScript.mTakes;
        EXPECT_LE(lTakes, (std::chrono::steady_clock::now() - lStart) / std::chrono::milliseconds(10) + 2);
        lStand.mWatch.reset();
        EXPECT_EQ(countIn(lStand.getLog(), "SCSI errors are "), 4U);
    });
}

TEST(ScsiWatch, EndsInTheMiddleOfAStorm) {
    inOwnNetwork([] {
        ZTSWatchStand lStand(100);
        lStand.mScript.mIsEndless = true;
        lStand.start();
        lStand.mScript.bring({}, {});
        EXPECT_TRUE(waitUntil([&] { return lStand.mScript.mFailed > 1000; }));
        lStand.mWatch.reset();
        EXPECT_EQ(ZTTestCalls.mCount, lStand.mStatistics.get(ZTFF_ToldQueueFull));
        EXPECT_EQ(ZTTestCalls.mCount + lStand.mStatistics.get(ZTFF_BeyondQueueFull), lStand.mScript.mFailed);
        EXPECT_TRUE(contains(lStand.getLog(), " SCSI errors were more than are told a second"));
    });
}

}  // namespace
