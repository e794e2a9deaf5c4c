// The loop with the agent and the simulated library, and with what else may be at the other end of the pipes.
#include "AgentLoop.h"
#include "FileLock.h"
#include "HostLook.h"
#include "SimClient.h"
#include "SnBuffer.h"
#include "SnFigures.h"
#include "StatisticsBytes.h"
#include "TestPages.h"

namespace {

using namespace std::chrono_literals;

constexpr char sTmpfs[] = "/dev/shm";

// What a store has, in memory: it takes what is there at once.
class Store {
  public:
    explicit Store(ZTCSnBuffer& arBuffer) : mrBuffer(arBuffer) {}
    ~Store() { stop(); }

    void start(ZTCAgentLoop& arLoop) {
        ZTSStoreStart lStart;
        lStart.mAgent = mRun;
        arLoop.setStart(lStart);
        mThread = std::thread([this] {
            while (!mIsEnding) {
                if (mrBuffer.waitForWork(10ms)) {
                    take();
                }
            }
        });
    }
    void stop() {
        mIsEnding = true;
        mThread.joinable() ? mThread.join() : void();
        take();
    }

    std::uint64_t getEvents() const { return mEvents; }
    /// "agent ended 3", each reason once; "?" where nobody knows.
    std::string getLosses() {
        const std::lock_guard lLock(mMutex);
        std::string lText;
        for (const auto& [lrReason, lrEvents] : mLosses) {
            lText += (lText.empty() ? "" : ", ") + lrReason + " " + lrEvents;
        }
        return lText;
    }
    std::string getChanges() {
        const std::lock_guard lLock(mMutex);
        return mChanges;
    }

  private:
    void take() {
        const ZTSStoreBatch lBatch = mrBuffer.detach(mNextId);
        const std::lock_guard lLock(mMutex);
        for (const ZTSStoreRow& lrRow : lBatch.mRows) {
            mEvents += lrRow.mAdded;
            mNextId = std::max(mNextId, lrRow.mId + 1);
        }
        for (const ZTSLoss& lrLoss : lBatch.mLosses) {
            std::string& lrEvents = mLosses[lrLoss.mSource + " " + lrLoss.mReason];
            const std::uint64_t lBefore = std::strtoull(lrEvents.c_str(), nullptr, 10);
            lrEvents = lrLoss.mEvents ? std::to_string(lBefore + *lrLoss.mEvents) : "?";
        }
        for (const ZTSChange& lrChange : lBatch.mChanges) {
            mChanges += lrChange.mEvent + " ";
        }
        mRun = lBatch.mAgents.empty() ? mRun : lBatch.mAgents.back();
        mrBuffer.stored();
    }

    ZTCSnBuffer& mrBuffer;
    std::thread mThread;
    std::atomic<bool> mIsEnding{false};
    std::atomic<std::uint64_t> mEvents{0};
    std::uint64_t mNextId = 1;
    std::mutex mMutex;
    std::map<std::string, std::string> mLosses;
    std::string mChanges;
    std::optional<ZTSAgentRun> mRun;
};

// A sensor without the rest of the program.
struct Sensor {
    explicit Sensor(const ZTCTestDirectory& acrDirectory, std::chrono::milliseconds aEvery = 100ms) {
        mOptions.mDirectory = acrDirectory.getPath();
        mOptions.mEvery = aEvery;
    }
    ~Sensor() { stop(); }

    void start() {
        mpLoop =
            std::make_unique<ZTCAgentLoop>(mOptions, mBuffer, mHost, mFigures, mLog, [this] { ++mTurns; });
        mStore.start(*mpLoop);
        mThread = std::thread([this] { mpLoop->run(); });
    }
    void stop() {
        if (mThread.joinable()) {
            mpLoop->end();
            mThread.join();
            mBuffer.closeAll();
            mStore.stop();
        }
    }
    bool isUp() { return mFigures.get(ZTSN_AgentUp) == 1; }

    ZTSSnOptions mOptions;
    ZTCTestDirectory mRoot;
    ZTCServiceLog mLog{"vrx-sn"};
    ZTCSnFigures mFigures{""};
    ZTCSnBuffer mBuffer{{}};
    ZTCHostLook mHost{mRoot.getPath(), "", mBuffer, mLog};
    Store mStore{mBuffer};
    std::unique_ptr<ZTCAgentLoop> mpLoop;
    std::thread mThread;
    std::atomic<unsigned int> mTurns{0};
};

std::uint64_t sumIn(const std::string& acrLosses) {
    std::uint64_t lSum = 0;
    for (const ZTTestTexts& lrNumber : matchesIn(acrLosses, "(\\d+)")) {
        lSum += std::stoull(lrNumber[0]);
    }
    return lSum;
}

// Each agent's events are in the store, or told: also those that it took behind the last fetch.
TEST(AgentLoop, KeepsTheBooksWhileAgentsComeAndGo) {
    for (const std::string lParent : {sTmpfs, "/tmp"}) {
        SCOPED_TRACE(lParent);
        const ZTCTestDirectory lDirectory(lParent);
        Sensor lSensor(lDirectory, 1h);
        lSensor.start();
        const ZTCTestSim lSim("adapters count=2\n");
        for (const int lSignal :
             lParent == sTmpfs ? std::vector{SIGTERM, SIGKILL, 0} : std::vector{SIGKILL, 0}) {
            ZTCTestAgent lAgent(lDirectory, {}, lSim.getEnvironment());
            ASSERT_TRUE(waitUntil([&] { return lSensor.isUp(); }));
            lSim.play("plogi times=3\nlogo");
            if (lSignal == 0) {
                lSensor.stop();
                break;
            }
            lAgent.sendSignal(lSignal);
            lAgent.waitForEnd();
            EXPECT_TRUE(waitUntil([&] { return !lSensor.isUp(); }));
        }
        EXPECT_EQ(lSensor.mStore.getEvents(), 4U);
        const bool lIsMapped = lParent == sTmpfs;
        EXPECT_EQ(lSensor.mStore.getLosses(), lIsMapped ? "agent ended 4, agent killed ?" : "agent killed ?");
        EXPECT_EQ(lSensor.mStore.getChanges(), lIsMapped ? "came went came went came " : "came went came ");
    }
}

// Nothing but the agent's word can have it fetch before an hour is over.
TEST(AgentLoop, AStormIsFetchedAtOnceAndEndsInTheMiddle) {
    const ZTCTestDirectory lDirectory(sTmpfs);
    const ZTCTestSim lSim("adapters count=2\n");
    ZTCTestAgent lAgent(lDirectory, {}, lSim.getEnvironment());
    Sensor lSensor(lDirectory, 1h);
    lSensor.start();
    ASSERT_TRUE(waitUntil([&] { return lSensor.isUp(); }));
    for (unsigned int lRound = 0; lRound < 5; ++lRound) {
        const std::uint64_t lFetches = lSensor.mFigures.get(ZTSN_Fetches);
        lSim.play("storm link times=10000 boards=2\nwait storms");
        EXPECT_TRUE(waitUntil([&] { return lSensor.mFigures.get(ZTSN_Fetches) > lFetches; }));
    }
    lSensor.stop();
    EXPECT_EQ(lSensor.mStore.getEvents() + sumIn(lSensor.mStore.getLosses()), lSim.getSent());
    lAgent.stop();
}

// Pipes, a lock and figures like an agent's, in this process. A fetch is answered as the test says.
class FakeAgent {
  public:
    struct Answer {
        std::chrono::milliseconds mBehind{0};
        std::string mBody = std::string("\x02") + wordOf(0);
        unsigned int mEvents = 0;  ///< that its figures say were fetched
    };
    FakeAgent(const ZTCTestDirectory& acrDirectory, std::vector<Answer> aAnswers)
        : mLock(open((acrDirectory / ZTTestPidFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)),
          mAnswers(std::move(aAnswers)) {
        EXPECT_TRUE(OsLockFile(mLock.get()));
        mStatistics = acrDirectory / ZTTestStatistics;
        show();
        for (const char* const lpPipe : {ZTTestCommandPipe, ZTTestOutputPipe}) {
            EXPECT_EQ(mkfifo((acrDirectory / lpPipe).c_str(), 0600), 0);
        }
        mCommandPipe = openPipe(acrDirectory / ZTTestCommandPipe, O_RDONLY);
        mOutput = openPipe(acrDirectory / ZTTestOutputPipe, O_RDWR);
        mThread = std::thread([this] { serve(); });
    }
    ~FakeAgent() {
        mIsEnding = true;
        mThread.join();
    }

    unsigned int getFetches() const { return mFetches; }
    std::string getCommands() {
        const std::lock_guard lLock(mMutex);
        return mCommands;
    }

  private:
    void show() const {
        writeFile(mStatistics + ".new", ZTTestStatisticsOf({{"fetched_events_total", mEvents},
                                                            {"held_bytes_limit", 262144},
                                                            {"collecting", mIsCollecting ? 1 : 0}}));
        const ZTCDescriptor lFile(open(mStatistics.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640));
        const std::string lBytes = readFile(mStatistics + ".new");
        EXPECT_EQ(pwrite(lFile.get(), lBytes.data(), lBytes.size(), 0), static_cast<ssize_t>(lBytes.size()));
    }
    void serve() {
        while (!mIsEnding) {
            pollfd lPoll{mCommandPipe.get(), POLLIN, 0};
            if (poll(&lPoll, 1, 10) != 1 || (lPoll.revents & POLLIN) == 0) {
                std::this_thread::sleep_for(1ms);
                continue;
            }
            const std::string lHeader = readBytes(mCommandPipe, 12);
            const std::string lBody = readBytes(mCommandPipe, lengthIn(lHeader));
            answer(lHeader.substr(4, 4), lBody.empty() ? '?' : static_cast<char>('0' + lBody[0]));
        }
    }
    void answer(const std::string& acrTag, char aCommand) {
        {
            const std::lock_guard lLock(mMutex);
            mCommands += aCommand;
        }
        std::string lBody(5, '\0');
        mIsCollecting = aCommand == '0' || (mIsCollecting && aCommand != '2');
        if (aCommand == '1') {
            const Answer lAnswer = mFetches < mAnswers.size() ? mAnswers[mFetches] : Answer{};
            for (auto lLeft = lAnswer.mBehind; lLeft > 0ms && !mIsEnding; lLeft -= 10ms) {
                std::this_thread::sleep_for(10ms);
            }
            lBody = lAnswer.mBody;
            mEvents += lAnswer.mEvents;
            ++mFetches;
        }
        show();
        writeAll(mOutput, "VRX1" + acrTag + wordOf(lBody.size()) + lBody);
    }

    ZTCDescriptor mLock;
    ZTCDescriptor mCommandPipe;
    ZTCDescriptor mOutput;
    std::string mStatistics;
    const std::vector<Answer> mAnswers;
    std::atomic<bool> mIsEnding{false};
    std::atomic<unsigned int> mFetches{0};
    unsigned long mEvents = 0;
    bool mIsCollecting = false;
    std::mutex mMutex;
    std::string mCommands;
    std::thread mThread;
};

TEST(AgentLoop, WhateverAnAgentAnswersTheSensorGoesOn) {
    const struct {
        const char* mpName;
        std::vector<FakeAgent::Answer> mAnswers;
        const char* mpLosses;
    } lRows[] = {
        {"good", {}, ""},
        {"late: the answer that comes is taken", {{.mBehind = 1500ms}}, ""},
        {"garbage", {{.mBody = "\x02garbage", .mEvents = 5}}, "sensor answer 5"},
        {"of another kind", {{}, {.mBody = successOf(0).substr(12), .mEvents = 2}}, "sensor answer 2"},
        {"refused", {{.mBody = bytesOf("01 0006")}}, ""},
        {"what others fetched", {{}, {.mEvents = 3}}, "sensor unstored 3"},
    };
    for (const auto& lrRow : lRows) {
        SCOPED_TRACE(lrRow.mpName);
        const ZTCTestDirectory lDirectory(sTmpfs);
        FakeAgent lAgent(lDirectory, lrRow.mAnswers);
        Sensor lSensor(lDirectory, 20ms);
        lSensor.start();
        EXPECT_TRUE(waitUntil([&] { return lAgent.getFetches() > lrRow.mAnswers.size() + 2; }));
        EXPECT_TRUE(waitUntil([&] { return lSensor.isUp(); }));
        lSensor.stop();
        EXPECT_EQ(lSensor.mStore.getLosses(), lrRow.mpLosses);
        // The period, the start of what was not under way, and fetches: no start for a second time.
        EXPECT_TRUE(lAgent.getCommands().starts_with("5011")) << lAgent.getCommands();
        EXPECT_EQ(countIn(lAgent.getCommands(), "0"), 1U);
    }
}

TEST(AgentLoop, AnAgentThatHangsHoldsUpNoEnd) {
    const ZTCTestDirectory lDirectory(sTmpfs);
    FakeAgent lAgent(lDirectory, {{.mBehind = 1h}});
    Sensor lSensor(lDirectory);
    lSensor.start();
    EXPECT_TRUE(waitUntil([&] { return lAgent.getCommands().ends_with("1"); }));
    const unsigned int lTurns = lSensor.mTurns;
    EXPECT_TRUE(waitUntil([&] { return lSensor.mTurns > lTurns + 1; }));  // the watchdog is fed
    const auto lBegin = std::chrono::steady_clock::now();
    lSensor.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - lBegin, std::chrono::seconds(ZTTestSoon));
}

// At the start that is the end of it; who comes behind that finds the directory taken.
TEST(AgentLoop, OneSensorADirectory) {
    const ZTCTestDirectory lDirectory(sTmpfs);
    {
        const ZTCDirectoryClaim lOther(lDirectory.getPath(), 0ms);
        Sensor lSensor(lDirectory);
        ZTCAgentLoop lLoop(lSensor.mOptions, lSensor.mBuffer, lSensor.mHost, lSensor.mFigures, lSensor.mLog,
                           [] {});
        EXPECT_THROW(lLoop.run(), ZTCPipesTakenError);
    }
    Sensor lSensor(lDirectory);
    lSensor.start();
    EXPECT_TRUE(waitUntil([&] { return namesIn(lDirectory).count(ZTTestSensorFile) == 1; }));
    EXPECT_THROW(ZTCDirectoryClaim(lDirectory.getPath(), 0ms), ZTCPipesTakenError);
    lSensor.stop();
    EXPECT_EQ(namesIn(lDirectory).count(ZTTestSensorFile), 0U);
}

}  // namespace
