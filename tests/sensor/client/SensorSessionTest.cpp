// Clients that take turns, the sensor's pid file, what is seen of an agent, and a client of a real one.
#include <sys/stat.h>

#include <future>

#include "AgentStatus.h"
#include "ClientOutcome.h"
#include "SensorClient.h"
#include "SensorPidFile.h"
#include "SimClient.h"

namespace {

using std::chrono::milliseconds;

std::string takenBy(const std::unique_ptr<ZTCTestChild>& acrProcess) {
    return "PipesTaken " + std::to_string(acrProcess->getProcess());
}

class SensorSession : public ::testing::Test {
  protected:
    // A process that makes something, and has it until it is killed.
    template <class Make>
    std::unique_ptr<ZTCTestChild> hold(const Make& acrMake) {
        auto lChild = std::make_unique<ZTCTestChild>([&] {
            const auto lHeld = acrMake();
            writeFile(mDirectory / "held", "");
            pause();
        });
        EXPECT_TRUE(waitUntil([&] { return std::filesystem::remove(mDirectory / "held"); }));
        return lChild;
    }
    auto makeClient(int aWait = 0) const {
        return std::make_unique<ZTCSensorClient>(
            ZTSSensorOptions{mDirectory.getPath(), milliseconds(60000), milliseconds(aWait)});
    }
    auto makeFile() const { return std::make_unique<ZTCSensorPidFile>(mDirectory.getPath()); }

    const ZTCTestDirectory mDirectory;
    const std::string mFile = mDirectory / ZTTestSensorFile;
};

TEST_F(SensorSession, WhoHasThePipesIsNamed) {
    auto lFirst = hold([&] { return makeClient(); });
    const auto lOutcome = [&](int aWait) { return clientOutcomeOf([&] { makeClient(aWait); }); };
    EXPECT_EQ(lOutcome(0), takenBy(lFirst));
    EXPECT_EQ(lOutcome(60), takenBy(lFirst));
    auto lSecond = std::async(std::launch::async, lOutcome, 60000);
    EXPECT_EQ(lSecond.wait_for(milliseconds(100)), std::future_status::timeout);
    lFirst.reset();
    EXPECT_EQ(lSecond.get(), "done");
    // Another program, which knows nothing of claims.
    const std::string lPipe = mDirectory / ZTTestCommandPipe;
    mkfifo(lPipe.c_str(), 0600);
    const ZTCDescriptor lReader = openPipe(lPipe, O_RDONLY);
    const auto lForeign = hold([&] { return openPipe(lPipe, O_WRONLY); });
    EXPECT_EQ(clientOutcomeOf([&] { makeClient()->stop(); }), takenBy(lForeign));
}

TEST_F(SensorSession, ThePidFileIsKeptAsLongAsItIsOurs) {
    const auto lMakeOlder = [&] {
        const auto lTime = std::filesystem::last_write_time(mFile) - std::chrono::hours(1);
        std::filesystem::last_write_time(mFile, lTime);
        return lTime;
    };
    const std::string lOurs = std::to_string(getpid()) + "\n";
    for (const char* const lpStale :
         {"", "no number", "-1\n", "0", "1 2\n", "4194305\n", "99999999999999999"}) {
        writeFile(mFile, lpStale);
        auto lFile = makeFile();
        EXPECT_EQ(readFile(mFile), lOurs) << lpStale;
        const auto lOld = lMakeOlder();
        lFile->touch();
        EXPECT_GT(std::filesystem::last_write_time(mFile), lOld + std::chrono::minutes(59));
        std::filesystem::remove(mFile);
        lFile->touch();
        EXPECT_EQ(readFile(mFile), lOurs);
        lFile.reset();
        EXPECT_TRUE(mDirectory.isEmpty());
    }
    const auto lOther = hold([&] { return makeFile(); });
    const std::string lTheirs = std::to_string(lOther->getProcess()) + "\n";
    EXPECT_EQ(clientOutcomeOf([&] { makeFile(); }), takenBy(lOther));
    EXPECT_EQ(readFile(mFile), lTheirs);
    lMakeOlder();  // so old a file is not of so young a process: the number has been given anew
    auto lFile = makeFile();
    EXPECT_EQ(readFile(mFile), lOurs);
    std::filesystem::remove(mFile);
    writeFile(mFile, lTheirs);
    EXPECT_EQ(clientOutcomeOf([&] { lFile->touch(); }), takenBy(lOther));
    lFile.reset();
    EXPECT_EQ(readFile(mFile), lTheirs);
}

TEST_F(SensorSession, TheAgentsStatusIsReadWithoutACommand) {
    const auto lIsNow = [](const std::optional<ZTSAgentStatus::Time>& acrTime) {
        const auto lNow = std::chrono::system_clock::now();
        return acrTime && *acrTime <= lNow && *acrTime > lNow - std::chrono::minutes(5);
    };
    for (const bool lIsStarted : {false, true, false}) {  // the last time with what a killed one leaves
        std::unique_ptr<ZTCTestAgent> lAgent;
        std::unique_ptr<ZTCSensorPidFile> lFile;
        if (lIsStarted) {
            lAgent = std::make_unique<ZTCTestAgent>(mDirectory);
            const ZTCTestSensor lServed(mDirectory);
            lFile = makeFile();
        }
        const ZTSAgentStatus lStatus = readAgentStatus(mDirectory.getPath());
        EXPECT_EQ(lStatus.mIsRunning, lIsStarted);
        EXPECT_EQ(lStatus.mIsSensorRunning, lIsStarted);
        EXPECT_EQ(lStatus.mProcess, lIsStarted ? lAgent->getProcess() : 0);
        EXPECT_EQ(lStatus.mSensor, lIsStarted ? getpid() : 0);
        EXPECT_EQ(lStatus.mLog, lIsStarted ? mDirectory / ZTTestLog : "");
        for (const auto& lrTime : {lStatus.mSince, lStatus.mHeartbeat, lStatus.mSensorHeartbeat}) {
            EXPECT_EQ(lIsNow(lrTime), lIsStarted);
        }
    }
    EXPECT_EQ(clientOutcomeOf([&] { readAgentStatus(mDirectory / "missing"); }), "NoAgent");
}

TEST_F(SensorSession, DrivesAnAgentAndLivesOnWhenItComesBack) {
    const auto lClient = makeClient();
    const auto lIsAgentThere = [&] { return clientOutcomeOf([&] { lClient->stop(); }) == "done"; };
    EXPECT_FALSE(lIsAgentThere());
    const ZTCTestSim lSim("");
    {
        ZTCTestAgent lEarlier(mDirectory, {}, lSim.getEnvironment());
        ASSERT_TRUE(waitUntil(lIsAgentThere));
        lEarlier.stop();
    }
    EXPECT_FALSE(lIsAgentThere());
    ZTCTestAgent lAgent(mDirectory, {}, lSim.getEnvironment());
    ASSERT_TRUE(waitUntil(lIsAgentThere));
    EXPECT_EQ(clientOutcomeOf([&] { lClient->setCollectionPeriod(0); }), "Refused 6");
    EXPECT_EQ(clientOutcomeOf([&] { lClient->registerTargets({}); }), "Refused 6");
    lClient->setCollectionPeriod(60);
    std::vector<ZTSSensorTarget> lTargets(ZTSensorMaxTargets + 1);
    lTargets.back().mNames = {*ZTSWwn::fromText("0102030405060708"), *ZTSWwn::fromText("5006016000000a0b")};
    lClient->registerTargets(lTargets);
    lClient->startScope(65536);
    lSim.play("lun-reset board=1 port=5006016000000a0b");
    const ZTSensorBytes lMessage = lClient->fetch();
    const auto lData = decodeScopeData(std::span(lMessage).subspan(ZTSSensorHeader::Size));
    ASSERT_EQ(lData.size(), 2U);
    EXPECT_TRUE(lData[0].mRecords.empty());
    ASSERT_EQ(lData[1].mRecords.size(), 1U);
    EXPECT_EQ(lData[1].mRecords[0].mTarget, lTargets.back().mNames);
    lClient->shutDown();
    lAgent.expectEnd();
    EXPECT_FALSE(lIsAgentThere());
}

}  // namespace
