// The heartbeat: the agent's own, and its watch over the sensor's.
#include <sys/inotify.h>
#include <sys/stat.h>

#include "AgentClient.h"
#include "CommonHeartbeat.h"
#include "ScopeAgentHeartbeatHandler.h"
#include "ScopeAgentSystem.h"

namespace {

void setModTime(const std::string& acrPath, time_t aSeconds) {
    const timespec lTimes[] = {{aSeconds, 0}, {aSeconds, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, acrPath.c_str(), lTimes, 0), 0);
}

std::string ownPid() {
    return std::to_string(getpid()) + "\n";
}

// Its periods are over as soon as they are waited for. In each, the next step is done.
class SteppedSystem : public ZTCScopeAgentSystem {
  public:
    using Step = std::function<void(SteppedSystem&)>;

    SteppedSystem(const ZTCTestDirectory& acrDirectory, const std::vector<Step>& acrSteps)
        : ZTCScopeAgentSystem("stepped"),
          mSensorFile(acrDirectory / ZTTestSensorFile),
          mOwnFile(acrDirectory / ZTTestPidFile),
          mrSteps(acrSteps) {
        setenv("ZT_VRX_SENSOR_DIR", acrDirectory.getPath().c_str(), 1);
        preInit();
        setLogCode(255);
        markAsRunning();
    }

    void run() {
        ZTCScopeAgentHeartbeatHandler lHandler(this, 1);
        mpHandler = &lHandler;
        void* lBlock[] = {static_cast<ZTCThreadComponent*>(&lHandler),
                          static_cast<ZTCSystemInterface*>(this)};
        ScopeAgentHeartbeatThread(lBlock);
        EXPECT_EQ(mStep, mrSteps.size());
    }

    void timedWait(unsigned int aConditional, unsigned int aSeconds) override {
        EXPECT_TRUE(aConditional == 0 && aSeconds == 1);
        struct stat lStatus {};
        EXPECT_EQ(stat(mOwnFile.c_str(), &lStatus), 0);
        EXPECT_GT(lStatus.st_mtime, 1000000000);  // touched since the last beat
        setModTime(mOwnFile, 1000000000);
        if (mStep == mrSteps.size()) {
            mpHandler->setForExit();
            return;
        }
        mrSteps[mStep++](*this);
        throw ZTCTimeOutEx("", 0);
    }

    const std::string mSensorFile;
    const std::string mOwnFile;

  private:
    const std::vector<Step>& mrSteps;
    std::size_t mStep = 0;
    ZTCThreadComponent* mpHandler = nullptr;
};

using Step = SteppedSystem::Step;

void nothing(SteppedSystem& /*arSystem*/) {}

Step sensorIs(const std::string& acrText) {
    return [=](SteppedSystem& arSystem) {
        writeFile(arSystem.mSensorFile, acrText);
        setModTime(arSystem.mSensorFile, 1000);
    };
}

Step changed(time_t aTime) {
    return [=](SteppedSystem& arSystem) { setModTime(arSystem.mSensorFile, aTime); };
}

Step removed(const std::string SteppedSystem::*apFile) {
    return [=](SteppedSystem& arSystem) { std::filesystem::remove(arSystem.*apFile); };
}

// What the log says of the heartbeat, a word a record: a period with nothing to tell is "beat".
std::string storyIn(const std::string& acrLog) {
    constexpr std::pair<const char*, const char*> lRecords[] = {
        {"Checking the status of Sensor\n", " beat"},
        {"hasn't changed\n", " unchanged"},
        {"Failed in stat on ", " missing"},
        {"Sensor process still running, but not updating the heartbeat\n", " alive"},
        {"Failed in getting the status of Sensor\n", " gone"},
        {"Checking the status of the actual sensor process/service\n", " check"},
        {"Failed in updating the status\n", " untouchable"},
        {"Exiting Heartbeat Handler Thread as it is marked for exit.\n", " end"},
    };
    std::istringstream lLog(acrLog);
    std::string lStory;
    for (std::string lLine; std::getline(lLog, lLine);) {
        for (const auto& [lpText, lpWord] : lRecords) {
            lStory += contains(lLine + "\n", lpText) ? lpWord : "";
        }
    }
    return lStory;
}

TEST(Heartbeat, JudgesTheSensorByItsFileAndThenByItsProcess) {
    const Step lNobodys = sensorIs("4194304\n");  // the kernel's numbers end before it
    const Step lOurs = sensorIs(ownPid());
    const Step lGone = removed(&SteppedSystem::mSensorFile);
    const Step lDirectory = [](SteppedSystem& arSystem) { mkdir(arSystem.mSensorFile.c_str(), 0700); };
    const std::pair<std::vector<Step>, const char*> lRows[] = {
        {{lNobodys, changed(1001), changed(1002), changed(1003)}, " beat beat beat beat end"},
        {{lNobodys, changed(10), changed(9000), changed(11), nothing}, " beat beat beat beat beat end"},
        {{lOurs, nothing, nothing, nothing, changed(2), nothing},
         " beat beat beat unchanged check alive beat unchanged check alive beat beat end"},
        {{lNobodys, nothing, nothing}, " beat beat beat unchanged check gone"},
        {{nothing, nothing}, " beat missing beat missing check gone"},
        {{nothing, lOurs, nothing}, " beat missing beat beat unchanged check alive end"},
        {{lOurs, lGone, nothing}, " beat beat missing beat missing check gone"},
        {{lDirectory, nothing}, " beat missing beat missing check gone"},
        {{lOurs, removed(&SteppedSystem::mOwnFile)}, " beat untouchable"},
    };
    for (const auto& [lrSteps, lpStory] : lRows) {
        const ZTCTestDirectory lRuntime;
        const ZTSTestEnd lEnd = runChild([&, &lrGiven = lrSteps, lpGiven = lpStory] {
            SteppedSystem lSystem(lRuntime, lrGiven);
            lSystem.run();
            EXPECT_EQ(lSystem.isSetForExit(), !contains(lpGiven, "end"));
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
        EXPECT_EQ(storyIn(lEnd.mErr), lpStory) << lEnd.mErr;
    }
}

TEST(Heartbeat, EndsTheAgentThatHasNoSensor) {
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory, {"-b", "2", "-d", "255"}, {"ZT_TEST_PERIODS=Second=20"});
    lAgent.expectEnd("ScopeAgent System exiting", ZTTestSoon);
    EXPECT_EQ(storyIn(lAgent.getLog()), " beat missing beat missing check gone");
}

// The system's part of it is the instance manager's test.
bool failsIn(ZTCCheckHeartbeat& arCheck) {
    try {
        arCheck.CheckStatus();
        return false;
    } catch (const ZTCHeartbeatFailedEx&) {
        return true;
    }
}

// What another user may put into the sensor's place. $T is a file of ours that names a process which lives.
TEST(Heartbeat, BelievesNobodyElsesFile) {
    for (const char* const lpMade : {"ln -s $T $P", "ln $T $P", "mkfifo $P"}) {
        SCOPED_TRACE(lpMade);
        const ZTCTestDirectory lDirectory;
        const std::string lPath = lDirectory / ZTTestSensorFile;
        writeFile(lDirectory / "target", ownPid());
        EXPECT_EQ(runChild(ZTCTestChild::Arguments{"/bin/sh", "-c", lpMade},
                           ZTCTestChild::Arguments{"P=" + lPath, "T=" + (lDirectory / "target")})
                      .mStatus,
                  0);
        const ZTCDescriptor lOpenings(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        inotify_add_watch(lOpenings.get(), lDirectory.getPath().c_str(), IN_OPEN);
        ZTCCheckHeartbeat lCheck(makePointer<ZTCString>(lPath.c_str()), nullptr);
        EXPECT_FALSE(failsIn(lCheck));
        setModTime(lDirectory / "target", 5);
        EXPECT_TRUE(failsIn(lCheck));
        ZTCProcessInstanceManager lManager((lDirectory / "own.pid").c_str());
        EXPECT_THROW(lManager.getProcStatus(lPath.c_str()), ZTCClibGetProcStatusFailedEx);
        char lEvents[4096];
        EXPECT_EQ(read(lOpenings.get(), lEvents, sizeof lEvents), -1) << "it was opened";
    }
}

}  // namespace
