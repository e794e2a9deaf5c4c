// The agent with its log on a disk that stands still: what it exists for goes on.
#include "SimClient.h"
#include "TestDisk.h"

namespace {

constexpr unsigned int sEvents = 100000;

struct Stand {
    Stand() : mSim("") {}

    ZTCTestAgent::Options environment(const char* apPeriods = "") const {
        ZTCTestAgent::Options lDisk = mDisk.getEnvironment();
        lDisk.push_back(std::string("ZT_TEST_PERIODS=") + apPeriods);
        return mSim.getEnvironment(lDisk);
    }
    std::string log() const { return readFile(mDisk / "log"); }

    ZTCTestDirectory mDirectory;
    ZTCTestDisk mDisk;
    ZTCTestSim mSim;
};

std::vector<ZTSTestList> fetch(const ZTCTestSensor& acrSensor) {
    return ZTCTestFetch(acrSensor.ask(messageOf(2, "\x01")).substr(12)).getLists();
}

}  // namespace

TEST(LogDisk, StandsStillWhileEventsAreTakenAndTheAgentEnds) {
    for (const bool lMovesAgain : {true, false}) {
        Stand lStand;
        ZTCTestAgent lAgent(lStand.mDirectory, {"-l", lStand.mDisk / "log"},
                            lStand.environment(lMovesAgain ? "" : "LogFlush=50"));
        const ZTCTestSensor lSensor(lStand.mDirectory);
        EXPECT_EQ(lSensor.ask(messageOf(1, '\0' + wordOf(64))), successOf(1));
        lStand.mDisk.stand();
        lStand.mSim.play("storm queue-full lun=1 rate=max times=" + std::to_string(sEvents) +
                         "\nwait storms");
        EXPECT_EQ(occurrencesIn(fetch(lSensor)), sEvents);
        if (lMovesAgain) {
            lStand.mDisk.move();
            EXPECT_TRUE(waitUntil([&] { return contains(lStand.log(), " log records were lost: "); }));
        }
        lAgent.sendSignal(SIGTERM);
        EXPECT_EQ(lAgent.waitForEnd(10), 0);
        EXPECT_EQ(namesIn(lStand.mDirectory), std::set<std::string>{});
    }
}

TEST(LogDisk, CannotBeOpenedOnceItMovesAndIsTriedAgain) {
    Stand lStand;
    lStand.mDisk.stand();
    ZTCTestAgent lAgent(lStand.mDirectory, {"-l", lStand.mDisk / "log"},
                        lStand.environment("LogOpen=20,LogTell=20"));
    const ZTCTestSensor lSensor(lStand.mDirectory);
    std::filesystem::rename(lStand.mDisk.getPath(), lStand.mDisk.getPath() + ".away");
    lStand.mDisk.move();
    EXPECT_TRUE(waitUntil([&] {
        return contains(lAgent.getErr(), "vrx-sca: cannot open the log file " + (lStand.mDisk / "log") +
                                             ": No such file or directory\n");
    })) << lAgent.getErr();
    std::filesystem::rename(lStand.mDisk.getPath() + ".away", lStand.mDisk.getPath());
    EXPECT_TRUE(waitUntil([&] { return contains(lStand.log(), ": Starting the ScopeAgent\n"); }));
    lAgent.sendSignal(SIGTERM);
    EXPECT_EQ(lAgent.waitForEnd(10), 0);
}

TEST(LogDisk, StandsStillAtAStartWhichGoesOn) {
    for (const char* const lpIsDaemon : {"true", "false"}) {
        Stand lStand;
        lStand.mDisk.stand();
        ZTCTestChild lStarter(
            ZTCTestChild::Arguments{ZT_TEST_AGENT, "-D", lpIsDaemon, "-l", lStand.mDisk / "log"},
            ZTCTestAgent::environmentOf(lStand.mDirectory, lStand.environment("LogOpen=20")));
        const ZTCTestSensor lSensor(lStand.mDirectory);
        EXPECT_EQ(lSensor.ask(stopOf(1)), successOf(1));
        EXPECT_EQ(lStarter.getErr(),
                  "vrx-sca: the log file does not open: going on without it until it does\n");
        lStand.mDisk.move();
        EXPECT_TRUE(waitUntil([&] { return contains(lStand.log(), ": Starting the ScopeAgent\n"); }));
        EXPECT_EQ(lSensor.ask(messageOf(9, "\x04")), successOf(9));
        EXPECT_EQ(lStarter.waitForEnd(10), 0);
        EXPECT_TRUE(waitUntil([&] { return contains(lStand.log(), ": ScopeAgent System exiting\n"); }));
        EXPECT_EQ(namesIn(lStand.mDirectory), std::set<std::string>{});
    }
}
