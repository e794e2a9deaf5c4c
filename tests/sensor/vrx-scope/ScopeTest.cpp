// vrx-scope as people use it: what it prints, how it fails, how it watches.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <nlohmann/json.hpp>

#include "AnswerBytes.h"
#include "FileLock.h"
#include "ScopeProgram.h"
#include "ShownText.h"

namespace {

using Json = nlohmann::ordered_json;

const std::string sOne("\1\0\0\0", 4);
const std::string sPort = bytesOf("500601603b20110c");

TEST(Scope, FailsWithOneLineAndAStatus) {
    const ZTCTestDirectory lDirectory;
    const std::string lWhole = answerOf({recordOf(3, "\x01\x01", sOne + sPort + sPort)});
    writeFile(lDirectory / "cut", lWhole + lWhole.substr(0, lWhole.size() - 1));
    writeFile(lDirectory / "huge", "VRX1" + wordOf(1) + wordOf(0xffffffff));
    writeFile(lDirectory / "targets",
              "# ours\n500601603b20110c 500601603b20110c 0x010a00\n500601603b20110c 1 2\n");
    writeFile(lDirectory / "none", "# none\n");
    const struct {
        ZTCTestChild::Arguments mArguments;
        int mStatus;
        std::string mText;
    } lRows[] = {
        {{}, 2, "A subcommand is required"},
        {{"frobnicate"}, 2, "there is no command 'frobnicate'"},
        {{"fetch", "--json", "--ndjson"}, 2, "excludes"},
        {{"watch", "--json"}, 2, "use --ndjson"},
        {{"watch", "--every", "0"}, 2, "--every"},
        {{"period"}, 2, "seconds"},
        {{"stats", "--for", "1"}, 2, "--every"},
        {{"targets", "add", "500601603b20110c", "500601603b20110c"}, 2, "NODE PORT ADDRESS"},
        {{"targets", "add", "500601603b20110c", "500601603b20110c", "0x1010a00"}, 2, "'0x1010a00'"},
        {{"--dir", "", "fetch"}, 2, "--dir DIR"},
        {{"--dir", lDirectory / "missing", "status"}, 1, "no agent serves"},
        {{"--dir", lDirectory / "none", "status"}, 1, "Not a directory"},
        {{"targets", "load", lDirectory / "targets"}, 1, "targets:3: '1' is not a world wide name"},
        {{"targets", "load", lDirectory / "none"}, 1, "holds no targets"},
        {{"decode", lDirectory / "missing"}, 1, "cannot read"},
        {{"decode", lDirectory / "huge"}, 1, "the message at byte 0 is none"},
        {{"decode", lDirectory.getPath()}, 1, "the message at byte 0 cannot be read"},
        {{"record", lDirectory / "missing/answers"}, 1, "cannot write"},
        {{"record", lDirectory / "none"}, 1, "it holds something else than answers"},
        {{"record", lDirectory / "cut"}, 1, "its last answer is cut short (truncate -s"},
        {{"--timeout", "nan", "fetch"}, 2, "no number"},
    };
    for (const auto& lrRow : lRows) {
        const ZTSScopeResult lResult = runScope(lDirectory.getPath(), lrRow.mArguments);
        SCOPED_TRACE(lResult.mErr);
        EXPECT_EQ(lResult.mStatus, lrRow.mStatus);
        EXPECT_TRUE(lResult.mErr.starts_with("vrx-scope: ") && contains(lResult.mErr, lrRow.mText))
            << lrRow.mText;
        EXPECT_EQ(countIn(lResult.mErr, "\n"), 1U);
        EXPECT_EQ(lResult.mOut, "");
    }
}

TEST(Scope, ShowsWhatCannotBeSaved) {
    ZTSScopeStand lStand;
    lStand.mSim.play("plogi times=3");
    const ZTSScopeResult lResult = runScope(lStand.mrDirectory, {"record", "/dev/full", "--ndjson"});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_TRUE(contains(lResult.mErr, "No space left on device")) << lResult.mErr;
    EXPECT_EQ(Json::parse(lResult.mOut)["occurrences"], 3);
    lStand.mSim.play("plogi times=2");
    const ZTSTestEnd lFetch =
        runChild(ZTCTestChild::Arguments{"/bin/sh", "-c", "exec \"$@\" > /dev/full", "sh", ZT_VRX_SCOPE,
                                         "--dir", lStand.mrDirectory, "fetch", "--ndjson"},
                 ZTCTestChild::Arguments{});
    EXPECT_EQ(lFetch.mStatus, 1);
    EXPECT_TRUE(contains(lFetch.mErr, "; what was fetched:\n{")) << lFetch.mErr;
    EXPECT_EQ(Json::parse(lFetch.mErr.substr(lFetch.mErr.find('\n')))["occurrences"], 2);
    askScope(lStand.mrDirectory, {"shutdown"});
    EXPECT_EQ(runScope(lStand.mrDirectory, {"status"}).mStatus, 1);
}

// On a disk that is full for a while.
TEST(Scope, WatchesOnWhenItCannotSave) {
    ZTSScopeStand lStand;
    const std::string lFile = lStand.mDirectory / "answers";
    // Larger than the output will be, which has the same limit.
    writeFile(lFile, answerOf({recordOf(1, "\x01\x01", std::string(65536, 'x'))}));
    const auto lBefore = std::filesystem::file_size(lFile);
    ZTCScopeRun lWatch(lStand.mrDirectory, {"watch", "--every", "0.05", "--ndjson", "--save", lFile});
    const auto lSee = [&](const char* apKind, unsigned int aCount, const char* apSaid) {
        lStand.mSim.play(apKind);
        EXPECT_TRUE(waitUntil([&] {
            return countIn(lWatch.getOut(), "\"kind\"") == aCount && contains(lWatch.getErr(), apSaid);
        })) << lWatch.getErr();
    };
    const auto lSetLimit = [&](rlim_t aBytes) {
        const rlimit lLimit{aBytes, RLIM_INFINITY};
        EXPECT_EQ(prlimit(lWatch.getProcess(), RLIMIT_FSIZE, &lLimit, nullptr), 0);
    };
    lSee("bus-reset", 1, "a fetch every");
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::file_size(lFile) > lBefore; }));
    lSetLimit(lBefore);
    lSee("lun-reset", 2, "no longer saved: cannot write ");
    lSee("target-reset", 3, "");
    lSetLimit(RLIM_INFINITY);
    lSee("fabric-busy", 4, "answers are saved again, ");
    lWatch.interrupt();
    EXPECT_EQ(lWatch.waitForEnd(), 1);
    EXPECT_EQ(countIn(lWatch.getErr(), "\n"), 4U) << lWatch.getErr();
    EXPECT_TRUE(contains(lWatch.getErr(), " not saved in " + lFile)) << lWatch.getErr();
    const std::string lSaved = askScope(lStand.mrDirectory, {"decode", "--ndjson", lFile});
    EXPECT_TRUE(contains(lSaved, "bus_reset") && contains(lSaved, "fabric_busy")) << lSaved;
    EXPECT_FALSE(contains(lSaved, "lun_reset") || contains(lSaved, "target_reset")) << lSaved;
}

// A process that holds the lock of a pid file, under a name and with a log that somebody chose with care.
TEST(Scope, ShowsNothingThatATerminalActsOn) {
    const ZTCTestDirectory lDirectory;
    const std::string lBad = "\x1b[2J\x1b[1m\n\x7f\x9b\xc2\x9b\xc3\xa9";
    const std::string lShown = "\\x1b[2J\\x1b[1m\\x0a\\x7f\\x9b\\xc2\\x9b\xc3\xa9";
    writeFile(lDirectory / ZTTestPidFile, "1\n");
    const ZTCDescriptor lIsReady(eventfd(0, EFD_CLOEXEC));
    const ZTCTestChild lHolder([&] {
        prctl(PR_SET_NAME, lBad.c_str());
        open((lDirectory / ("log" + lBad)).c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
        ASSERT_TRUE(OsLockFile(open((lDirectory / ZTTestPidFile).c_str(), O_RDWR)));
        eventfd_write(lIsReady.get(), 1);
        pause();
    });
    eventfd_t lCount = 0;
    eventfd_read(lIsReady.get(), &lCount);
    const std::string lTable = askScope(lDirectory.getPath(), {"status"});
    EXPECT_TRUE(contains(lTable, "/log" + lShown + "\n") &&
                contains(lTable, "(" + lShown.substr(0, 37) + ")\nsince      20"))
        << lTable;
    const std::string lJson = askScope(lDirectory.getPath(), {"status", "--json"});
    EXPECT_TRUE(std::all_of(lJson.begin(), lJson.end(), [](char aSign) {
        return aSign == '\n' || (aSign >= ' ' && aSign <= '~');
    })) << lJson;
    const std::string lNone = runScope(lDirectory / lBad, {"status"}).mErr;
    EXPECT_TRUE(contains(lNone, "/" + lShown) && countIn(lNone, "\n") == 1) << lNone;
    std::filesystem::create_directory(lDirectory / lBad);
    EXPECT_TRUE(contains(runScope(lDirectory / lBad, {"status"}).mOut, "/" + lShown + "\nagent "));
}

TEST(Scope, TakesNothingElseForAnAgentOrASensor) {
    const ZTCTestDirectory lDirectory;
    writeFile(lDirectory / ZTTestPidFile, "1\n");
    std::filesystem::create_symlink(lDirectory / ZTTestPidFile, lDirectory / ZTTestSensorFile);
    const auto lStatus = [&] { return runScope(lDirectory.getPath(), {"status"}).mOut; };
    struct flock lLock {};
    for (const auto& [lCommand, lType] :
         {std::pair{0, short{0}}, {F_SETLK, short{F_WRLCK}}, {F_OFD_SETLK, short{F_RDLCK}}}) {
        const ZTCDescriptor lFile(open((lDirectory / ZTTestPidFile).c_str(), O_RDWR | O_CLOEXEC));
        lLock.l_type = lType;
        EXPECT_EQ(lCommand == 0 ? flock(lFile.get(), LOCK_EX) : fcntl(lFile.get(), lCommand, &lLock), 0);
        EXPECT_TRUE(contains(lStatus(), "agent      not running\nsensor     none\n")) << lStatus();
    }
    // Blanks behind the number are none of it.
    std::filesystem::remove(lDirectory / ZTTestSensorFile);
    writeFile(lDirectory / ZTTestSensorFile, std::to_string(getpid()) + " \r\n");
    EXPECT_TRUE(contains(lStatus(), "sensor     process " + std::to_string(getpid()) + ", ")) << lStatus();
}

TEST(Scope, KnowsWhatIsPrintable) {
    using namespace std::string_literals;
    const std::pair<std::string, std::string> lRows[] = {
        {"plain \xc2\xa0\xe2\x82\xac\xf0\x9f\x98\x80", "plain \xc2\xa0\xe2\x82\xac\xf0\x9f\x98\x80"},
        {"\0\t\r"s, "\\x00\\x09\\x0d"},
        {"\xc0\x80", "\\xc0\\x80"},           // longer than it need be
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},  // half of a pair
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
        {"\xe2\x82", "\\xe2\\x82"},  // cut short
        {"\xe2\x82g", "\\xe2\\x82g"},
    };
    for (const auto& [lrText, lrShown] : lRows) {
        EXPECT_EQ(toShownText(lrText), lrShown);
    }
    EXPECT_EQ(toShownText("a\nb", true), "a\nb");
}

// Interrupted again and again while events come without pause, it has printed all that it has fetched.
TEST(Scope, LosesNoRecordWhenItIsInterrupted) {
    ZTSScopeStand lStand;
    lStand.mSim.play("storm plogi rate=20000 times=10000 threads=2 boards=2");
    std::uint64_t lPrinted = 0;
    const auto lCount = [&](const std::string& acrLines) {
        std::istringstream lLines(acrLines);
        for (std::string lLine; std::getline(lLines, lLine);) {
            lPrinted += Json::parse(lLine)["occurrences"].get<std::uint64_t>();
        }
    };
    for (unsigned int lRound = 0; lRound < 5; ++lRound) {
        ZTCScopeRun lWatch(lStand.mrDirectory, {"watch", "--every", "0.05", "--ndjson"});
        EXPECT_TRUE(waitUntil([&] { return contains(lWatch.getErr(), "a fetch every"); }));
        const std::uint64_t lSoon = lStand.mSim.getSent() + 1000;
        EXPECT_TRUE(
            waitUntil([&] { return lStand.mSim.getSent() >= std::min<std::uint64_t>(lSoon, 10000); }));
        lWatch.interrupt();
        EXPECT_EQ(lWatch.waitForEnd(), 0) << lWatch.getErr();
        lCount(lWatch.getOut());
    }
    lStand.mSim.play("wait storms");
    lCount(askScope(lStand.mrDirectory, {"fetch", "--ndjson"}));
    EXPECT_EQ(lPrinted, lStand.mSim.getSent());
    EXPECT_EQ(namesIn(lStand.mDirectory).count("vrx-sn.pid"), 0U);
}

// An agent that stands still for longer than an answer may take has not lost what it answers then.
TEST(Scope, TakesAnAnswerThatComesLate) {
    ZTSScopeStand lStand;
    ZTCScopeRun lWatch(lStand.mrDirectory, {"watch", "--every", "0.05", "--timeout", "0.3", "--ndjson"});
    EXPECT_TRUE(waitUntil([&] { return contains(lWatch.getErr(), "a fetch every"); }));
    lStand.mSim.play("bus-reset");
    EXPECT_TRUE(waitUntil([&] {
        lStand.mAgent.sendSignal(SIGSTOP);
        return contains(lWatch.getErr(), "not answered in time");
    })) << lWatch.getErr();
    lStand.mAgent.sendSignal(SIGCONT);
    EXPECT_TRUE(waitUntil([&] { return contains(lWatch.getOut(), "bus_reset"); })) << lWatch.getErr();
    lWatch.interrupt();
    EXPECT_EQ(lWatch.waitForEnd(), 0) << lWatch.getErr();
}

// Neither a closed stream nor a pipe that nobody reads does harm, and a signal that was ignored stays so.
TEST(Scope, LivesWithTheStreamsThatItIsGiven) {
    ZTSScopeStand lStand;
    const auto lRun = [&](const std::string& acrCommand) {
        return ZTCTestChild({"/bin/bash", "-c", acrCommand},
                            {"ZT_VRX_SENSOR_DIR=" + lStand.mrDirectory, "SCOPE=" ZT_VRX_SCOPE});
    };
    EXPECT_EQ(lRun("$SCOPE start <&- >&- 2>&-").waitForEnd(), 0);
    EXPECT_TRUE(lStand.mAgent.isAlive());

    ZTCTestChild lIgnoring = lRun("trap '' HUP; exec $SCOPE watch --every 0.05");
    EXPECT_TRUE(waitUntil([&] { return contains(lIgnoring.getErr(), "a fetch every"); }));
    kill(lIgnoring.getProcess(), SIGHUP);
    lStand.mSim.play("bus-reset");
    EXPECT_TRUE(waitUntil([&] { return contains(lIgnoring.getOut(), "bus_reset"); }));
    kill(lIgnoring.getProcess(), SIGTERM);
    EXPECT_EQ(lIgnoring.waitForEnd(), 0);

    const ZTCTestDirectory lElsewhere;
    const std::string lPipe = lElsewhere / "pipe";
    EXPECT_EQ(mkfifo(lPipe.c_str(), 0600), 0);
    const ZTCDescriptor lReader(open(lPipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ZTCTestChild lUnread = lRun("exec $SCOPE watch --every 0.05 --ndjson > " + lPipe);
    EXPECT_TRUE(waitUntil([&] { return contains(lUnread.getErr(), "a fetch every"); }));
    lStand.mSim.play("storm plogi times=2000 boards=2");
    lStand.mSim.play("wait storms");
    EXPECT_TRUE(waitUntil([&] {
        kill(lUnread.getProcess(), SIGTERM);
        return !lUnread.isAlive();
    }));
}

TEST(Scope, WatchesWhileAgentsComeAndGo) {
    const ZTCTestDirectory lDirectory;
    ZTCScopeRun lWatch(lDirectory.getPath(), {"watch", "--every", "0.05", "--start", "--ndjson"});
    EXPECT_TRUE(waitUntil([&] { return contains(lWatch.getErr(), "waiting for an agent"); }));
    for (unsigned int lRound = 1; lRound <= 2; ++lRound) {
        const ZTCTestSim lSim("");
        ZTCTestAgent lAgent(lDirectory, {}, lSim.getEnvironment());
        EXPECT_TRUE(waitUntil([&] { return countIn(lWatch.getErr(), "collection started") == lRound; }))
            << lWatch.getErr();
        lSim.play("bus-reset");
        EXPECT_TRUE(waitUntil([&] { return countIn(lWatch.getOut(), "bus_reset") == lRound; }))
            << lWatch.getErr();

        // It has the pipes meanwhile, and says so to others.
        const ZTSScopeResult lOther = runScope(lDirectory.getPath(), {"fetch"});
        EXPECT_EQ(lOther.mStatus, 1);
        EXPECT_TRUE(
            contains(lOther.mErr, "taken by process " + std::to_string(lWatch.getProcess()) + " (vrx-scope)"))
            << lOther.mErr;
        lAgent.sendSignal(lRound == 1 ? SIGKILL : SIGTERM);
        lAgent.waitForEnd();
        EXPECT_TRUE(waitUntil([&] { return countIn(lWatch.getErr(), "the agent is gone") == lRound; }));
    }
    EXPECT_EQ(readFile(lDirectory / "vrx-sn.pid"), std::to_string(lWatch.getProcess()) + "\n");
    lWatch.interrupt();
    EXPECT_EQ(lWatch.waitForEnd(), 0);
    EXPECT_EQ(namesIn(lDirectory), std::set<std::string>{ZTTestLog});
}

TEST(Scope, IsTheAgentsSensorAsLongAsItWatches) {
    const ZTCTestDirectory lDirectory;
    ZTCScopeRun lWatch(lDirectory.getPath(), {"watch", "--every", "0.05", "--for", "0.5"});
    EXPECT_TRUE(waitUntil([&] { return contains(lWatch.getErr(), "waiting for an agent"); }));
    // Two periods without a sensor end an agent.
    ZTCTestAgent lAgent(lDirectory, {"-b", "1"}, {"ZT_TEST_PERIODS=Second=100"});
    bool lIsKept = true;
    EXPECT_TRUE(waitUntil([&] {
        const bool lIsAlive = lAgent.isAlive();
        lIsKept = lIsKept && (lIsAlive || !lWatch.isAlive());
        return !lWatch.isAlive();
    }));
    EXPECT_TRUE(lIsKept);
    EXPECT_EQ(lWatch.waitForEnd(), 0);
    lAgent.expectEnd("Failed in getting the status of Sensor");
}

TEST(Scope, RedrawsItsViewAndLeavesTheSums) {
    ZTSScopeStand lStand;
    winsize lSize{24, 100, 0, 0};
    int lTerminal = -1;
    const pid_t lWatch = forkpty(&lTerminal, nullptr, nullptr, &lSize);
    if (lWatch == 0) {
        setenv("TERM", "xterm", 1);
        setenv("NO_COLOR", "1", 1);
        execl(ZT_VRX_SCOPE, "vrx-scope", "--dir", lStand.mrDirectory.c_str(), "watch", "--every", "0.1",
              nullptr);
        abort();
    }
    const ZTCDescriptor lScreen(lTerminal);
    std::string lShown;
    const auto lShows = [&](const std::string& acrText) {
        char lBytes[4096];
        pollfd lPoll{lScreen.get(), POLLIN, 0};
        const ssize_t lRead = poll(&lPoll, 1, 1000) == 1 ? read(lScreen.get(), lBytes, sizeof lBytes) : 0;
        lShown.append(lBytes, lRead > 0 ? static_cast<std::size_t>(lRead) : 0);
        return contains(lShown, acrText);
    };
    EXPECT_TRUE(waitUntil([&] { return lShows("0 events in 0 records, last fetch"); })) << lShown;
    lStand.mSim.play("plogi from=50:06:01:60:3b:20:11:0c");
    EXPECT_TRUE(waitUntil([&] { return lShows("50:06:01:60:3b:20:11:0c       1"); })) << lShown;
    lSize = {3, 20, 0, 0};
    lShown.clear();
    ioctl(lScreen.get(), TIOCSWINSZ, &lSize);
    EXPECT_TRUE(waitUntil([&] { return lShows("\x1b[Hvrx-sca, process "); })) << lShown;
    EXPECT_TRUE(waitUntil([&] { return lShows("1 event in 1 record,\x1b[K"); }))
        << lShown;  // cut to 20 columns
    kill(lWatch, SIGINT);
    EXPECT_TRUE(waitUntil([&] { return lShows("\x1b[?1049l"); })) << lShown;
    EXPECT_TRUE(waitUntil([&] { return lShows("1 event in 1 record, last"); })) << lShown;
    int lStatus = -1;
    EXPECT_EQ(waitpid(lWatch, &lStatus, 0), lWatch);
    EXPECT_EQ(lStatus, 0);
    EXPECT_FALSE(contains(lShown, "\x1b[1m"));
}

}  // namespace
