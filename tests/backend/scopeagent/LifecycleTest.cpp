// The agent from its start to its end: what it makes and removes, in which order, and what signals and a
// sudden death do.
#include <sys/prctl.h>
#include <sys/stat.h>

#include <random>

#include "AgentClient.h"

namespace {

const unsigned int sKills = ZTTestRounds(ZTIsSanitized ? 40U : 100U, 1000U);

TEST(Lifecycle, WhatItMakesIsItsOwnAndGoneAtTheEnd) {
    for (const std::string lWay : {"SIGTERM", "SIGINT", "ShutDown", "-s"}) {
        SCOPED_TRACE(lWay);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory);
        const ZTCTestSensor lSensor(lDirectory);
        EXPECT_EQ(lSensor.ask(stopOf(1)), successOf(1));
        const std::set<std::string> lNames{ZTTestLog, ZTTestPidFile, ZTTestStatistics, ZTTestCommandPipe,
                                           ZTTestOutputPipe};
        EXPECT_TRUE(waitUntil([&] { return namesIn(lDirectory) == lNames; }));
        EXPECT_EQ(readFile(lDirectory / ZTTestPidFile), std::to_string(lAgent.getProcess()) + "\n");
        for (const char* const lpPipe : {ZTTestCommandPipe, ZTTestOutputPipe}) {
            struct stat lStatus {};
            EXPECT_EQ(lstat((lDirectory / lpPipe).c_str(), &lStatus), 0);
            EXPECT_EQ(lStatus.st_mode, S_IFIFO | 0600U) << lpPipe;
        }
        if (lWay == "-s") {
            const ZTSTestEnd lEnd =
                runChild(ZTCTestAgent::commandOf({"-s"}, {}), ZTCTestAgent::environmentOf(lDirectory));
            EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
            EXPECT_FALSE(lAgent.isAlive());
        } else if (lWay == "ShutDown") {
            EXPECT_EQ(lSensor.ask(messageOf(9, "\x04")), successOf(9));
        } else {
            lAgent.sendSignal(lWay == "SIGTERM" ? SIGTERM : SIGINT);
        }
        lAgent.expectEnd("ScopeAgent System exiting", ZTTestSoon);
    }
}

// Parts of the records, in their order.
constexpr const char* sRecords[] = {
    "main: Starting the ScopeAgent",
    " init: Entered",
    "initLibdfc: Left",
    "Creating HeartbeatHandler Conditional...",
    "Creating CommandHandler Conditional...",
    "Creating ScopeAgent Command Reader IPC...",
    "Opening ScopeAgent Command Reader IPC...",
    "Creating Output IPC...",
    "Opening Response Pipe Writer Server...",
    "Creating ScopeAgent Protocol Handler...",
    "Creating the Heartbeat Handler Thread object...Timeout = 240",
    "Creating Command Handler Thread object...",
    " init: Left",
    "startThreads: Entered",
    "Waiting for control availability...",
    "process: Command to handle: 5",
    "createFailedResponse: Left",
    "Waiting for control availability...",
    "process: Command to handle: 4",
    "closeLibdfc: Entered",
    "handleShutDownCommand: Left",
    "Exiting ScopeAgentCommandHandler thread with error : Shutting down ScopeAgent\n",
    "makeThreadsToExit: Entered",
    " destroy: Entered",
    "Closing and Destroying Command Pipe...",
    "Closing and Destroying Output Pipe...",
    "postDestroy: Left",
    "ScopeAgent System exiting"};

TEST(Lifecycle, IsToldInItsOrder) {
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory, {"-d", "255"});
    const ZTCTestSensor lSensor(lDirectory);
    EXPECT_EQ(lSensor.ask(messageOf(1, bytesOf("05 00000000"))), messageOf(1, bytesOf("01 0006")));
    EXPECT_EQ(lSensor.ask(messageOf(2, "\x04")), successOf(2));
    lAgent.expectEnd();
    const std::string lLog = lAgent.getLog();
    std::size_t lAt = 0;
    for (const char* const lpRecord : sRecords) {
        lAt = lLog.find(lpRecord, lAt);
        ASSERT_NE(lAt, std::string::npos) << lpRecord << " is not where it should be in\n" << lLog;
    }
    for (const char* const lpThread : {"ScopeAgentHeartbeatThread", "CommandHandlerThreadProcedure"}) {
        for (const char* const lpText : {": Entered\n", ": Left\n"}) {
            EXPECT_EQ(countIn(lLog, std::string(lpThread) + lpText), 1U) << lpThread << lpText;
        }
    }
}

// Before it takes signals, one may end it at once: then there is nothing yet to be left over.
TEST(Lifecycle, StormsOfSignalsEndItInOrderOrNotAtAll) {
    constexpr int lSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGPIPE};
    std::minstd_rand lRandom(1);
    for (const bool lIsStarting : {true, false}) {
        for (unsigned int lRound = 0; lRound < 10; ++lRound) {
            const ZTCTestDirectory lDirectory;
            ZTCTestAgent lAgent(lDirectory, {"-d", "255"});
            if (lIsStarting) {
                std::this_thread::sleep_for(std::chrono::microseconds(lRandom() % 4000));
            } else {
                const ZTCTestSensor lSensor(lDirectory);
                for (unsigned int lAt = 0; lAt < 1000; ++lAt) {
                    lAgent.sendSignal(SIGHUP);
                    ASSERT_TRUE(lAt % 100 != 0 || lSensor.ask(stopOf(lAt)) == successOf(lAt));
                }
            }
            for (unsigned int lAt = 0; lAt < 1000; ++lAt) {
                lAgent.sendSignal(lSignals[lRandom() % std::size(lSignals)]);
            }
            const int lStatus = lAgent.waitForEnd();
            if (lStatus != 0) {
                EXPECT_TRUE(lIsStarting && namesIn(lDirectory).empty()) << lStatus << lAgent.getLog();
                EXPECT_EQ(countIn("129 130 141 143", std::to_string(lStatus)), 1U) << lStatus;
            } else {
                EXPECT_EQ(namesIn(lDirectory), std::set<std::string>{ZTTestLog});
                EXPECT_EQ(countIn(lAgent.getLog(), "Ending on signal "), 1U);
                EXPECT_TRUE(contains(lAgent.getLog(), "ScopeAgent System exiting"));
            }
        }
    }
}

TEST(Lifecycle, StartsAtOnceAfterASuddenDeath) {
    const ZTCTestDirectory lDirectory;
    std::minstd_rand lRandom(2);
    for (unsigned int lKill = 0; lKill < sKills; ++lKill) {
        ZTCTestAgent lAgent(lDirectory);
        if (lKill % 4 == 0) {  // in the middle of its work
            const ZTCTestSensor lSensor(lDirectory);
            ASSERT_EQ(lSensor.ask(stopOf(lKill)), successOf(lKill));
            for (unsigned int lMore = lRandom() % 8; lMore != 0; --lMore) {
                lSensor.send(stopOf(lMore));
            }
        } else {
            std::this_thread::sleep_for(
                std::chrono::microseconds(lRandom() % (ZTIsSanitized ? 60000 : 6000)));
        }
        lAgent.sendSignal(SIGKILL);
        ASSERT_EQ(lAgent.waitForEnd(), 128 + SIGKILL);
    }
    ZTCTestAgent lAgent(lDirectory);
    const ZTCTestSensor lSensor(lDirectory);
    EXPECT_EQ(lSensor.ask(stopOf(1)), successOf(1));
    lAgent.stop();
}

TEST(Lifecycle, ADaemonCanBeSpokenToWhenItsCommandReturns) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const ZTCTestDirectory lDirectory;
    for (unsigned int lRound = 0; lRound < 5; ++lRound) {
        const ZTSTestEnd lStart =
            runChild(ZTCTestAgent::commandOf({}, {}), ZTCTestAgent::environmentOf(lDirectory));
        ASSERT_EQ(lStart.mStatus, 0) << lStart.mErr;
        const ZTCDescriptor lCommands(open((lDirectory / ZTTestCommandPipe).c_str(), O_WRONLY | O_NONBLOCK));
        ASSERT_TRUE(lCommands.isOpen());
        EXPECT_EQ(lStart.mOut + lStart.mErr, "");
        ZTCTestProcess lDaemon(std::stoi(readFile(lDirectory / ZTTestPidFile)));
        const std::string lProcess = "/proc/" + std::to_string(lDaemon.getProcess());
        EXPECT_EQ(std::filesystem::read_symlink(lProcess + "/cwd"), "/");
        for (const char* const lpStream : {"/fd/0", "/fd/1", "/fd/2"}) {
            EXPECT_EQ(std::filesystem::read_symlink(lProcess + lpStream), "/dev/null");
        }
        EXPECT_EQ(getsid(lDaemon.getProcess()), lDaemon.getProcess());
        EXPECT_EQ(ZTCTestSensor(lDirectory).ask(messageOf(lRound, "\x04")), successOf(lRound));
        EXPECT_EQ(lDaemon.waitForEnd(ZTTestSoon), 0);
        EXPECT_EQ(namesIn(lDirectory), std::set<std::string>{ZTTestLog});
    }
}

}  // namespace
