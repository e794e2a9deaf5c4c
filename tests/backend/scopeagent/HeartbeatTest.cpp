// The heartbeat: the agent's own, and its watch over the sensor's. Every case has an agent of its own, with a
// period of a second; all run at once.
#include <sys/inotify.h>
#include <sys/stat.h>

#include <ctime>

#include "AgentClient.h"
#include "CommonHeartbeat.h"

namespace {

constexpr char sBeat[] = "Checking the status of Sensor\n";
constexpr char sUnchanged[] = "hasn't changed\n";
constexpr char sMissing[] = "Failed in stat on ";
constexpr char sAlive[] = "Sensor process still running, but not updating the heartbeat\n";
constexpr char sGone[] = "Failed in getting the status of Sensor\n";

// An agent and the sensor's file beside it.
class Watch {
  public:
    explicit Watch(const std::string& acrSensorFile = "")
        : mAgent((prepare(acrSensorFile), mDirectory), {"-b", "1", "-d", "255"}) {}

    const ZTCTestDirectory& getDirectory() const { return mDirectory; }
    ZTCTestAgent& getAgent() { return mAgent; }

    void writeSensorFile(const std::string& acrText) const { writeFile(mSensorFile, acrText); }
    void setModTime(time_t aSeconds) const { setModTime(mSensorFile, aSeconds); }
    static void setModTime(const std::string& acrPath, time_t aSeconds) {
        const timespec lTimes[] = {{aSeconds, 0}, {aSeconds, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, acrPath.c_str(), lTimes, 0), 0);
    }

    void waitForBeats(std::size_t aCount) const {
        EXPECT_TRUE(waitUntil([&] { return countIn(mAgent.getLog(), " CheckStatus: Left\n") >= aCount; }))
            << mAgent.getLog();
    }

    /// What the log says of the heartbeat, a word a record: a period with nothing to tell is "beat".
    std::string story() const {
        constexpr std::pair<const char*, const char*> lRecords[] = {
            {sBeat, " beat"},
            {sUnchanged, " unchanged"},
            {sMissing, " missing"},
            {sAlive, " alive"},
            {sGone, " gone"},
            {"Checking the status of the actual sensor process/service\n", " check"},
            {"Failed in updating the status\n", " untouchable"},
        };
        std::istringstream lLog(mAgent.getLog());
        std::string lStory;
        for (std::string lLine; std::getline(lLog, lLine);) {
            for (const auto& [lpText, lpWord] : lRecords) {
                lStory += contains(lLine + "\n", lpText) ? lpWord : "";
            }
        }
        return lStory;
    }

    /// A look ends before the warning that the time has not changed, and behind the one that there is no
    /// file.
    void expectOrderOfTraces() const {
        std::istringstream lLog(mAgent.getLog());
        bool lIsInside = false;
        for (std::string lLine; std::getline(lLog, lLine);) {
            if (contains(lLine, " CheckStatus: ")) {
                EXPECT_EQ(contains(lLine + "\n", sUnchanged) || contains(lLine, "Entered"), !lIsInside)
                    << lLine;
                lIsInside = contains(lLine, "Entered") || contains(lLine, sMissing);
            }
        }
    }

  private:
    void prepare(const std::string& acrSensorFile) const {
        if (!acrSensorFile.empty()) {
            writeSensorFile(acrSensorFile);
            setModTime(1000000000);
        }
    }

    const ZTCTestDirectory mDirectory;
    const std::string mSensorFile = mDirectory / ZTTestSensorFile;
    ZTCTestAgent mAgent;
};

std::string ownPid() {
    return std::to_string(getpid()) + "\n";
}

constexpr char sSilentAndGone[] = " beat beat beat unchanged check gone";
constexpr char sNoProcess[] = "4194304\n";  // the kernel's numbers end before it

void expectEndWith(Watch& arWatch, const std::string& acrStory) {
    EXPECT_EQ(arWatch.getAgent().waitForEnd(), 0);
    EXPECT_TRUE(arWatch.story().starts_with(acrStory)) << arWatch.story() << "\ninstead of\n" << acrStory;
    arWatch.expectOrderOfTraces();
    std::filesystem::remove_all(arWatch.getDirectory() / ZTTestSensorFile);
    EXPECT_EQ(namesIn(arWatch.getDirectory()), std::set<std::string>{ZTTestLog});
}

void endsAfter(const std::string& acrSensorFile, const std::string& acrStory) {
    Watch lWatch(acrSensorFile);
    expectEndWith(lWatch, acrStory);
}

void stop(Watch& arWatch, const std::string& acrStory) {
    arWatch.getAgent().sendSignal(SIGTERM);
    expectEndWith(arWatch, acrStory);
}

// Steady, and with a clock that steps back and forth: what counts is that the time changes.
template <class ModTime>
void beatsAndIsLeftAlone(const ModTime& acrModTime) {
    Watch lWatch(sNoProcess);
    const std::string lPidFile = lWatch.getDirectory() / ZTTestPidFile;
    for (unsigned int lBeat = 1; lBeat <= 5; ++lBeat) {
        lWatch.waitForBeats(lBeat);
        struct stat lStatus {};
        EXPECT_EQ(stat(lPidFile.c_str(), &lStatus), 0);
        EXPECT_GT(lStatus.st_mtime, 1000000000);  // touched since the last beat
        Watch::setModTime(lPidFile, 1000000000);
        lWatch.setModTime(acrModTime(lBeat));
    }
    stop(lWatch, " beat beat beat beat beat");
    EXPECT_EQ(countIn(lWatch.story(), " "), countIn(lWatch.story(), " beat"));
}

const std::pair<const char*, void (*)()> sCases[] = {
    {"steady", [] { beatsAndIsLeftAlone([](unsigned int aBeat) { return 1000000000 + time_t{aBeat}; }); }},
    {"stepping",
     [] { beatsAndIsLeftAlone([](unsigned int aBeat) { return 999999000 + aBeat % 2 * 9000; }); }},
    {"silent but alive, then back",
     [] {
         Watch lWatch(ownPid());
         lWatch.waitForBeats(5);
         const ZTCTestSensor lSensor(lWatch.getDirectory());
         EXPECT_EQ(lSensor.ask(stopOf(1)), successOf(1));
         lWatch.setModTime(2);
         lWatch.waitForBeats(8);
         stop(lWatch, " beat beat beat unchanged check alive beat unchanged check alive beat");
         EXPECT_TRUE(contains(lWatch.story(), " alive beat beat")) << lWatch.story();
     }},
    {"no process", [] { endsAfter(sNoProcess, sSilentAndGone); }},
    {"no file", [] { endsAfter("", " beat missing beat missing check gone"); }},
    {"a file that comes late, and does not change",
     [] {
         Watch lWatch;
         lWatch.waitForBeats(1);
         lWatch.writeSensorFile(ownPid());
         lWatch.waitForBeats(4);
         stop(lWatch, " beat missing beat beat unchanged check alive beat");
     }},
    {"a file that goes, and the process with it",
     [] {
         Watch lWatch(ownPid());
         lWatch.waitForBeats(1);
         std::filesystem::remove(lWatch.getDirectory() / ZTTestSensorFile);
         expectEndWith(lWatch, " beat beat missing beat missing check gone");
     }},
    {"a directory",
     [] {
         Watch lWatch;
         mkdir((lWatch.getDirectory() / ZTTestSensorFile).c_str(), 0700);
         expectEndWith(lWatch, " beat missing beat missing check gone");
     }},
    {"own file removed",
     [] {
         Watch lWatch(ownPid());
         lWatch.waitForBeats(1);
         std::filesystem::remove(lWatch.getDirectory() / ZTTestPidFile);
         expectEndWith(lWatch, " beat untouchable");
     }},
};

TEST(Heartbeat, JudgesTheSensorByItsFileAndThenByItsProcess) {
    inThreads(static_cast<unsigned int>(std::size(sCases)), [](unsigned int aCase) {
        SCOPED_TRACE(sCases[aCase].first);
        sCases[aCase].second();
    });
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

TEST(Heartbeat, CountsFailuresUntilTheTimeChanges) {
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / ZTTestSensorFile;
    writeFile(lPath, ownPid());
    ZTCCheckHeartbeat lCheck(makePointer<ZTCString>(lPath.c_str()), nullptr);
    constexpr std::pair<time_t, bool> lLooks[] = {{0, false}, {0, false}, {0, true},  {0, true},  {5, false},
                                                  {5, false}, {0, false}, {0, false}, {5, false}, {5, false},
                                                  {5, true},  {6, false}, {6, false}};
    for (const auto& lrLook : lLooks) {
        Watch::setModTime(lPath, lrLook.first);
        EXPECT_EQ(failsIn(lCheck), lrLook.second) << "look " << &lrLook - lLooks;
    }
}

// What another user may put into the sensor's place. $T is a file of ours that names a process which lives.
TEST(Heartbeat, BelievesNobodyElsesFile) {
    const std::pair<const char*, bool> lRows[] = {
        {"ln -s $T $P", false},
        {"ln $T $P", false},
        {"mkfifo $P", false},
        {"mknod $P c 1 3", true},
        {"cp $T $P; chown 65534 $P", true},
    };
    for (const auto& [lpMade, lNeedsRoot] : lRows) {
        if (lNeedsRoot && geteuid() != 0) {
            continue;
        }
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
        Watch::setModTime(lDirectory / "target", 5);
        EXPECT_TRUE(failsIn(lCheck));
        ZTCProcessInstanceManager lManager((lDirectory / "own.pid").c_str());
        EXPECT_THROW(lManager.getProcStatus(lPath.c_str()), ZTCClibGetProcStatusFailedEx);
        char lEvents[4096];
        EXPECT_EQ(read(lOpenings.get(), lEvents, sizeof lEvents), -1) << "it was opened";
    }
}

TEST(Heartbeat, EndsItsWaitOnAShutDown) {
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory, {"-b", "60", "-d", "255"});
    const ZTCTestSensor lSensor(lDirectory);
    EXPECT_TRUE(waitUntil([&] { return contains(lAgent.getLog(), "Going to wait for 60 seconds"); }));
    EXPECT_EQ(lSensor.ask(messageOf(1, "\x04")), successOf(1));
    lAgent.expectEnd("-H- ScopeAgentHeartbeatHandler", ZTTestSoon);
    EXPECT_EQ(countIn(lAgent.getLog(), "Exiting Heartbeat Handler Thread as it is marked for exit."), 1U);
    EXPECT_FALSE(contains(lAgent.getLog(), "Updating the status"));
}

}  // namespace
