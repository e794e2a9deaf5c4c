// The agent at its pipes: clients that leave in the middle, and what lies in the runtime directory where it
// wants its own.
#include <sys/prctl.h>

#include <memory>

#include "AgentClient.h"

namespace {

TEST(AgentPipes, AResponseThatCannotBeWrittenDoesNotHoldUpTheEnd) {
    for (const bool lHasReader : {true, false}) {
        SCOPED_TRACE(lHasReader);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory);
        auto lSensor = std::make_unique<ZTCTestSensor>(lDirectory);
        EXPECT_EQ(lSensor->ask(stopOf(0)), successOf(0));
        const ZTCDescriptor lObserver(openPipe(lDirectory / ZTTestOutputPipe, O_WRONLY));
        const int lCapacity = fcntl(lObserver.get(), F_SETPIPE_SZ, 4096);
        std::string lCommands;
        for (unsigned int lAt = 0; lAt < 1000; ++lAt) {
            lCommands += stopOf(lAt);
        }
        lSensor->send(lCommands);
        // It has read one command more than there is room for answers.
        const int lUnread = (1000 - lCapacity / 17 - 1) * 13;
        EXPECT_TRUE(waitUntil([&] { return unreadIn(lSensor->getCommands()) == lUnread; }));
        if (!lHasReader) {
            lSensor.reset();
        }
        lAgent.sendSignal(SIGTERM);
        lAgent.expectEnd("thread with error : The process is to exit", ZTTestSoon);
    }
}

TEST(AgentPipes, TheNextClientFindsItsOwnAnswer) {
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory);
    {
        const ZTCTestSensor lDead(lDirectory);
        lDead.send(stopOf(1) + stopOf(2));
        lDead.sendAndSeeRead(stopOf(3));
    }
    {
        const ZTCTestSensor lSensor(lDirectory);
        lSensor.send(stopOf(4));
        for (const unsigned int lTag : {1U, 2U, 3U, 4U}) {
            EXPECT_EQ(lSensor.receive(), successOf(lTag));
        }
        // Dies in the middle of a response: the agent sees that while it waits for the next command.
        EXPECT_EQ(lSensor.ask(stopOf(5)), successOf(5));
        lSensor.send(stopOf(6));
        EXPECT_EQ(readBytes(lSensor.getResponses(), 5), successOf(6).substr(0, 5));
    }
    {
        const ZTCDescriptor lCommands(openPipe(lDirectory / ZTTestCommandPipe, O_WRONLY));
        // At once, not when its wait of three seconds is over.
        EXPECT_TRUE(waitUntil([&] { return contains(lAgent.getLog(), "12 bytes were dropped"); }, 2));
        const ZTCTestSensor lSensor(lDirectory);
        EXPECT_EQ(lSensor.ask(stopOf(7)), successOf(7));
    }
    {
        // Behind one that has read all of its answer there is nothing to drop.
        const ZTCTestSensor lSensor(lDirectory);
        EXPECT_EQ(lSensor.ask(stopOf(8)), successOf(8));
    }
    lAgent.stop();
    EXPECT_EQ(countIn(lAgent.getLog(), "bytes were dropped"), 1U);
}

// What may lie at a path, how it is refused there when a pipe is wanted and when the pid file is; null: it is
// not, or by the check of another row.
struct ZTSObstacle {
    const char* mpMade;
    const char* mpAsPipe;
    const char* mpAsPidFile;
};

constexpr ZTSObstacle sObstacles[] = {
    {"mkfifo $P.to; ln -s $P.to $P", "symbolic link", "symbolic link"},
    {"ln -s $P.to $P", "symbolic link", "symbolic link"},
    {"mkdir $P", "is not a pipe", "is not a regular file"},
    {"mkfifo $P", nullptr, "is not a regular file"},
    {"echo text > $P", "is not a pipe", nullptr},
    {"mkfifo -m 640 $P; ln $P $P.other", "more than one name", nullptr},
    {"echo text > $P; ln $P $P.other", nullptr, "more than one name"},
    {"mkfifo -m 640 $P; chown 65534:65534 $P", "another user", nullptr},
    {"echo text > $P; chown 65534:65534 $P", nullptr, "another user"},
};

TEST(AgentPipes, WhatIsNotItsOwnIsRefusedAndLeftAlone) {
    const auto lShell = [](const std::string& acrPath, const std::string& acrCommands) {
        const ZTCTestChild::Arguments lCommand{"/bin/sh", "-c", acrCommands};
        return runChild(lCommand, ZTCTestChild::Arguments{"P=" + acrPath}).mOut;
    };
    const std::string lSeen =
        "find $P -mindepth 1 -printf '%P %m %U %i %n %s %T@\n' | sort; find $P -type f -exec cat {} +";
    for (const char* const lpName : {ZTTestCommandPipe, ZTTestOutputPipe, ZTTestPidFile}) {
        for (const ZTSObstacle& lrObstacle : sObstacles) {
            const char* const lpRefusal =
                lpName == ZTTestPidFile ? lrObstacle.mpAsPidFile : lrObstacle.mpAsPipe;
            if (lpRefusal == nullptr || (contains(lrObstacle.mpMade, "chown") && geteuid() != 0)) {
                continue;
            }
            SCOPED_TRACE(std::string(lpName) + ": " + lrObstacle.mpMade);
            const ZTCTestDirectory lDirectory;
            lShell(lDirectory / lpName, lrObstacle.mpMade);
            const std::string lBefore = lShell(lDirectory.getPath(), lSeen);
            EXPECT_TRUE(contains(lBefore, lpName));
            // Who stops an agent looks at no pipe.
            for (int lStops = 0; lStops <= (lpName == ZTTestPidFile ? 1 : 0); ++lStops) {
                const ZTCTestAgent::Options lCommand{ZT_VRX_SCA, lStops != 0 ? "-s" : "-Dfalse"};
                ZTCTestChild lChild(lCommand, ZTCTestAgent::environmentOf(lDirectory));
                EXPECT_EQ(lChild.waitForEnd(ZTTestSoon), lStops);
                const std::string lErr = lChild.getErr();
                EXPECT_TRUE(countIn(lErr, "\n") == 1 && contains(lErr, lDirectory / lpName) &&
                            (lStops != 0 || contains(lErr, lpRefusal)))
                    << lErr;
                std::filesystem::remove(lDirectory / ZTTestLog);
            }
            EXPECT_EQ(lShell(lDirectory.getPath(), lSeen), lBefore);
        }
    }
}

// What the agent opens must not come to stand where standard input, output or error are expected.
TEST(AgentPipes, ClosedStandardDescriptorsDoNoHarm) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const char* const lpDaemon : {"false", "true"}) {
        for (const std::vector<int>& lrClosed : {std::vector{0}, {1}, {2}, {0, 1, 2}}) {
            SCOPED_TRACE(std::string(lpDaemon) + " " + std::to_string(lrClosed.size()));
            const ZTCTestDirectory lDirectory;
            setenv("ZT_VRX_SENSOR_DIR", lDirectory.getPath().c_str(), 1);
            setenv("ZT_LIBDFC", ZT_PROVIDER_MINIMAL, 1);
            ZTCTestChild lStart([&] {
                for (const int lDescriptor : lrClosed) {
                    close(lDescriptor);
                }
                execl(ZT_VRX_SCA, ZT_VRX_SCA, "-D", lpDaemon, nullptr);
            });
            const ZTCTestSensor lSensor(lDirectory);
            EXPECT_EQ(lSensor.ask(messageOf(1, bytesOf("05 00000000"))), messageOf(1, bytesOf("01 0006")));
            const pid_t lPid = std::stoi(readFile(lDirectory / ZTTestPidFile));
            for (const int lDescriptor : lrClosed) {
                EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(lPid) + "/fd/" +
                                                        std::to_string(lDescriptor)),
                          "/dev/null");
            }
            kill(lPid, SIGTERM);
            if (lPid != lStart.getProcess()) {
                EXPECT_EQ(ZTCTestProcess(lPid).waitForEnd(ZTTestSoon), 0);
            }
            EXPECT_EQ(lStart.waitForEnd(ZTTestSoon), 0);
            EXPECT_EQ(namesIn(lDirectory), std::set<std::string>{ZTTestLog});
            const std::string lLog = readFile(lDirectory / ZTTestLog);
            EXPECT_EQ(countIn(lLog, "ScopeAgent System exiting"), 1U) << lLog;
        }
    }
    unsetenv("ZT_VRX_SENSOR_DIR");
}

}  // namespace
