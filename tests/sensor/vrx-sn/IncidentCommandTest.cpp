// The command of --on-incident, however bad it is: it holds up nobody, and leaves nothing behind.
#include <linux/capability.h>
#include <signal.h>
#include <sys/stat.h>

#include "IncidentCommand.h"
#include "ServiceLog.h"
#include "SnFigures.h"
#include "TestSupport.h"

namespace {

using namespace std::chrono_literals;

class IncidentCommand : public ::testing::Test {
  protected:
    std::string script(const std::string& acrText, mode_t aMode = 0755) {
        const std::string lPath = mDirectory / ("script" + std::to_string(++mScripts));
        writeFile(lPath, acrText);
        chmod(lPath.c_str(), aMode);
        return lPath;
    }
    std::string shell(const std::string& acrLines) { return script("#!/bin/sh\n" + acrLines + "\n"); }
    void begin(const std::string& acrCommand, std::chrono::milliseconds aTime = 30s) {
        mCommand.emplace(mFigures, mLog, aTime);
        mCommand->setCommand(acrCommand);
    }
    bool isIdle() const {
        return waitUntil([this] { return mCommand->countWaiting() == 0; });
    }
    // Runs it once: what was said of it.
    std::string runOnce(const std::string& acrCommand, const std::string& acrText = "{}\n",
                        std::chrono::milliseconds aTime = 30s) {
        testing::internal::CaptureStderr();
        begin(acrCommand, aTime);
        mCommand->run(acrText);
        EXPECT_TRUE(isIdle());
        EXPECT_TRUE(mCommand->finish(30s));
        mCommand.reset();
        return testing::internal::GetCapturedStderr();
    }
    // The process whose number is in the file has gone.
    static bool hasGone(const std::string& acrFile) {
        return waitUntil([&] {
            const int lProcess = atoi(readFile(acrFile).c_str());
            const std::string lStatus = readFile("/proc/" + std::to_string(lProcess) + "/stat");
            return lProcess > 0 && (lStatus.empty() || contains(lStatus, ") Z "));
        });
    }

    const ZTCTestDirectory mDirectory;
    unsigned int mScripts = 0;
    ZTCSnFigures mFigures{""};
    ZTCServiceLog mLog{"vrx-sn"};
    std::optional<ZTCIncidentCommand> mCommand;
};

TEST_F(IncidentCommand, GetsTheTextAndItsArgumentsAndNothingOfOurs) {
    const std::string lOut = mDirectory / "out";
    const std::string lFacts = mDirectory / "facts";
    const std::string lShell = shell(
        "cat > $1\n(grep -E 'CapEff|SigBlk|SigIgn' /proc/self/status; ls -l /proc/$$/fd; env; pwd; echo $2) > " +
        lFacts);
    signal(SIGPIPE, SIG_IGN);
    setenv("NOTIFY_SOCKET", "/none", 1);
    const std::string lText(300000, 'x');  // more than a pipe holds
    EXPECT_EQ(runOnce(lShell + "  " + lOut + " last", lText), "");
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(readFile(lOut), lText);
    const std::string lSaid = readFile(lFacts);
    const std::size_t lRights = lSaid.find("CapEff:") + 7;
    EXPECT_EQ(std::stoull(lSaid.substr(lRights), nullptr, 16) >> CAP_NET_ADMIN & 1, 0U) << lSaid;
    EXPECT_PRED2(contains, lSaid, "SigBlk:\t0000000000000000\n");
    const std::size_t lIgnored = lSaid.find("SigIgn:") + 7;  // two of them are the C library's
    EXPECT_EQ(std::stoull(lSaid.substr(lIgnored), nullptr, 16) & 0x7fffffff, 0U) << lSaid;
    EXPECT_PRED2(contains, lSaid, "\n/\nlast\n");
    EXPECT_FALSE(contains(lSaid, "NOTIFY_SOCKET"));
    EXPECT_FALSE(contains(lSaid, "eventfd")) << lSaid;
    EXPECT_EQ(mFigures.get(ZTSN_Commands), 1U);
    EXPECT_EQ(mFigures.get(ZTSN_CommandsFailed), 0U);
}

TEST_F(IncidentCommand, WhateverIsWrongWithItIsOneLine) {
    const std::string lMissing = mDirectory / "missing";
    const std::pair<std::string, const char*> lBad[] = {
        {lMissing, "No such file"},
        {script("#!/bin/sh\n", 0644), "Permission denied"},
        {mDirectory.getPath(), "Permission denied"},
        {script("no program\n"), "Exec format error"},
        {shell("exit 3"), "it ended with status 3"},
        {shell("kill -SEGV $$"), "it ended by signal 11"},
    };
    for (const auto& [lCommand, lpWhy] : lBad) {
        const std::string lSaid = runOnce(lCommand, std::string(200000, 'x'));
        EXPECT_EQ(lSaid, "vrx-sn: the command of --on-incident failed: " +
                             lSaid.substr(std::min(lSaid.size(), lSaid.find(lpWhy))))
            << lpWhy;
        EXPECT_EQ(std::ranges::count(lSaid, '\n'), 1) << lSaid;
    }
    EXPECT_EQ(mFigures.get(ZTSN_CommandsFailed), std::size(lBad));
}

TEST_F(IncidentCommand, OneThatHangsIsKilledWithAllOfItsGroup) {
    const std::string lOwn = mDirectory / "own";
    const std::string lChild = mDirectory / "child";
    // It takes no signal but one, and so does its child.
    const std::string lShell =
        shell("trap '' TERM INT HUP\nsleep 1000 & echo $! > " + lChild + ".new && mv " + lChild + ".new " +
              lChild + "\necho $$ > " + lOwn + "\nwait; wait; sleep 1000");
    EXPECT_PRED2(contains, runOnce(lShell, "{}", 500ms), "took too long, and was killed");
    EXPECT_TRUE(hasGone(lOwn));
    EXPECT_TRUE(hasGone(lChild));
    // One that ends leaves nothing behind either.
    EXPECT_EQ(runOnce(shell("sleep 1000 & echo $! > " + lOwn)), "");
    EXPECT_TRUE(hasGone(lOwn));
}

TEST_F(IncidentCommand, WhatItWritesIsThrownAway) {
    const std::string lFlood =
        "dd if=/dev/zero bs=1M count=64 2>&1; dd if=/dev/zero bs=1M count=64 >&2 2>/dev/null";
    EXPECT_EQ(runOnce(shell(lFlood)), "");
}

TEST_F(IncidentCommand, OneAtATimeAndNoMoreWaitThanAreSaid) {
    const std::string lOut = mDirectory / "out";
    const std::string lGo = mDirectory / "go";
    testing::internal::CaptureStderr();
    begin(shell("while ! test -e " + lGo + "; do sleep 0.01; done; echo begin $(cat) >> " + lOut +
                "; echo end >> " + lOut));
    for (std::size_t lText = 0; lText < ZTCIncidentCommand::MostWaiting + 3; ++lText) {
        mCommand->run(std::to_string(lText));
    }
    EXPECT_EQ(mFigures.get(ZTSN_CommandsDropped), 3U);
    writeFile(lGo, "");
    EXPECT_TRUE(isIdle());
    std::string lExpected;
    for (std::size_t lText = 0; lText < ZTCIncidentCommand::MostWaiting; ++lText) {
        lExpected += "begin " + std::to_string(lText) + "\nend\n";
    }
    EXPECT_EQ(readFile(lOut), lExpected);
    EXPECT_EQ(std::ranges::count(testing::internal::GetCapturedStderr(), '\n'), 3);
}

TEST_F(IncidentCommand, AnEndWaitsForNoneOfThem) {
    const std::string lOwn = mDirectory / "own";
    testing::internal::CaptureStderr();
    begin(shell("echo $$ > " + lOwn + "; sleep 1000"));
    mCommand->run("1");
    mCommand->run("2");
    EXPECT_TRUE(waitUntil([&] { return !readFile(lOwn).empty(); }));
    EXPECT_TRUE(mCommand->finish(10ms));
    mCommand.reset();
    EXPECT_TRUE(hasGone(lOwn));
    EXPECT_PRED2(contains, testing::internal::GetCapturedStderr(),
                 "ending: 1 incidents are not told to the command of --on-incident");
    begin("");
    mCommand->run("nobody is told");
    EXPECT_EQ(mCommand->countWaiting(), 0U);
}

}  // namespace
