// The client's reading of an agent's figures, from files that a test has made.
#include "AgentClient.h"
#include "AgentStatistics.h"
#include "FileLock.h"
#include "StatisticsBytes.h"

namespace {

const ZTTestRows sRows{{"records_total", 5}, {"held_bytes", 12}};

// The lock by which an agent is known, held by this process.
ZTCDescriptor lockOf(const ZTCTestDirectory& acrDirectory) {
    ZTCDescriptor lFile(open((acrDirectory / ZTTestPidFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    EXPECT_TRUE(OsLockFile(lFile.get()));
    return lFile;
}

TEST(AgentStatistics, RefusesWhatIsNone) {
    const ZTCTestDirectory lDirectory;
    const ZTCDescriptor lLock = lockOf(lDirectory);
    const std::string lName = lDirectory / "vrx-sca.stats";
    const std::string lGood = ZTTestStatisticsOf(sRows);
    const auto lWith = [&](std::size_t aAt, const std::string& acrBytes) {
        return std::string(lGood).replace(aAt, acrBytes.size(), acrBytes);
    };
    const std::pair<std::string, std::string> lFiles[] = {
        {"", "cut short"},
        {lGood.substr(0, 63), "cut short"},
        {lGood.substr(0, lGood.size() - 1), "cut short"},
        {"x" + lGood.substr(1), "begins with something else"},
        {lWith(8, ZTTestHostOrder(~0U)), "header cannot be"},
        {lWith(8, ZTTestHostOrder(3U)), "cut short"},
        {lWith(12, ZTTestHostOrder(63U)), "header cannot be"},
        {lWith(12, ZTTestHostOrder(~0U)), "header cannot be"},
        {lWith(64, "\x1b[2J"), "a name in it cannot be"},
        {lWith(64, std::string(56, '\0')), "a name in it cannot be"},
        {lWith(24, ZTTestHostOrder(0UL)), "no agent serves"},
        {lWith(24, ZTTestHostOrder(~0UL)), "no agent serves"},
    };
    const auto lErrorOf = [&]() -> std::string {
        try {
            const ZTCAgentStatistics lAgent(lDirectory.getPath());
            return "";
        } catch (const ZTCSensorError& lrError) {
            return lrError.what();
        }
    };
    EXPECT_TRUE(contains(lErrorOf(), "no agent serves"));
    for (const auto& [lBytes, lError] : lFiles) {
        writeFile(lName, lBytes);
        EXPECT_TRUE(contains(lErrorOf(), lError)) << lErrorOf() << " is not " << lError;
    }
    writeFile(lName, lGood);
    EXPECT_EQ(lErrorOf(), "");
    if (chown(lName.c_str(), 12345, 12345) == 0) {
        EXPECT_TRUE(contains(lErrorOf(), "belongs to another user"));
    }
    std::filesystem::rename(lName, lDirectory / "other");
    std::filesystem::create_symlink(lDirectory / "other", lName);
    EXPECT_TRUE(contains(lErrorOf(), "it is a symbolic link"));
    std::filesystem::remove(lName);
    EXPECT_EQ(mkfifo(lName.c_str(), 0600), 0);
    EXPECT_TRUE(contains(lErrorOf(), "it is not a file"));
}

// The agent was killed, and its number is another process's.
TEST(AgentStatistics, BelievesNoProcessWithoutTheLock) {
    const ZTCTestDirectory lDirectory;
    const std::string& lrDirectory = lDirectory.getPath();
    writeFile(lDirectory / "vrx-sca.stats", ZTTestStatisticsOf(sRows, 1));
    EXPECT_THROW(ZTCAgentStatistics{lrDirectory}, ZTCNoAgentError);
    ZTCDescriptor lLock = lockOf(lDirectory);
    const ZTCAgentStatistics lAgent(lrDirectory);
    EXPECT_FALSE(lAgent.hasGone());
    close(lLock.release());
    EXPECT_TRUE(lAgent.hasGone());
    EXPECT_THROW(ZTCAgentStatistics{lrDirectory}, ZTCNoAgentError);
    if (geteuid() == 0) {
        // One of the agent's group reads the figures, but no pid file.
        const ZTSTestEnd lEnd = runChild([&] {
            EXPECT_EQ(chmod(lrDirectory.c_str(), 0755), 0);
            EXPECT_EQ(setuid(65534), 0);
            EXPECT_FALSE(ZTCAgentStatistics(lrDirectory).hasGone());
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
    }
}

TEST(AgentStatistics, ReadsRowsOfAnySizeAndNoticesTheEnd) {
    for (const unsigned int lRowSize : {64U, 128U}) {
        const ZTCTestDirectory lDirectory;
        const ZTCDescriptor lLock = lockOf(lDirectory);
        const std::string lName = lDirectory / "vrx-sca.stats";
        const ZTTestRows lRows{{std::string(56, 'n'), 7}, {"a_total{b=\"c_d\"}", ~0UL}, {"a_total_b", 1}};
        writeFile(lName, ZTTestStatisticsOf(lRows, static_cast<unsigned long>(getpid()), lRowSize));
        const ZTCAgentStatistics lAgent(lDirectory.getPath());
        const ZTSStatistics lAll = lAgent.read();
        ASSERT_EQ(lAll.mRows.size(), 3U);
        EXPECT_EQ(lAll.get(std::string(56, 'n')), 7U);
        EXPECT_EQ(lAll.get("a_total{b=\"c_d\"}"), ~0UL);
        EXPECT_EQ(lAll.get("a_total"), std::nullopt);
        EXPECT_TRUE(lAll.mRows[1].isCounter() && !lAll.mRows[2].isCounter());
        EXPECT_EQ(lAll.mWake, 7U);
        EXPECT_EQ(lAgent.getProcess(), getpid());
        EXPECT_EQ(lAgent.getStart().time_since_epoch(), std::chrono::seconds(5));
        EXPECT_FALSE(lAgent.hasGone());
        writeFile(lName + ".new", "another");
        std::filesystem::rename(lName + ".new", lName);
        EXPECT_TRUE(lAgent.hasGone());
        EXPECT_EQ(lAgent.read().mRows.size(), 3U);
        EXPECT_FALSE(lAgent.waitForWake(7, std::chrono::minutes(5)));
    }
}

TEST(AgentStatistics, WaitsForTheWakeAndNotForEver) {
    const ZTCTestDirectory lDirectory;
    const ZTCDescriptor lLock = lockOf(lDirectory);
    const std::string lName = lDirectory / "vrx-sca.stats";
    writeFile(lName, ZTTestStatisticsOf(sRows));
    const ZTCAgentStatistics lAgent(lDirectory.getPath());
    EXPECT_TRUE(lAgent.waitForWake(6, std::chrono::minutes(5)));
    EXPECT_FALSE(lAgent.waitForWake(7, std::chrono::milliseconds(1)));
    // Written as on a disk, where nobody is woken, once the thread sleeps, longer than the test waits.
    std::atomic<pid_t> lThread{0};
    std::atomic<bool> lIsOver{false};
    std::thread lWaiter([&] {
        lThread = gettid();
        EXPECT_TRUE(lAgent.waitForWake(7, std::chrono::seconds(3 * ZTTestSoon)));
        lIsOver = true;
    });
    EXPECT_TRUE(waitUntil(
        [&] { return contains(readFile("/proc/self/task/" + std::to_string(lThread) + "/stat"), ") S "); }));
    EXPECT_FALSE(lIsOver);
    const ZTCDescriptor lFile(open(lName.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(pwrite(lFile.get(), "\x08", 1, 32), 1);
    EXPECT_TRUE(waitUntil([&] { return lIsOver.load(); }, ZTTestSoon));
    lWaiter.join();
    EXPECT_EQ(truncate(lName.c_str(), 0), 0);
    EXPECT_THROW(lAgent.waitForWake(8, std::chrono::minutes(5)), ZTCSensorError);
}

// Whenever it comes, before the wait or in it: a wait for minutes is over at once.
TEST(AgentStatistics, AnEndOfTheWaitIsNeverMissed) {
    const ZTCTestDirectory lDirectory;
    const ZTCDescriptor lLock = lockOf(lDirectory);
    writeFile(lDirectory / "vrx-sca.stats", ZTTestStatisticsOf(sRows));
    const ZTCAgentStatistics lAgent(lDirectory.getPath());
#ifdef __SANITIZE_THREAD__
    constexpr bool lHasSignals = false;  // it keeps them back as long as a thread waits in the kernel
#else
    constexpr bool lHasSignals = true;
#endif
    static ZTCWaitEnd* spEnd = nullptr;
    const auto lHandler = signal(SIGUSR1, [](int) { spEnd->end(); });
    for (unsigned int lRound = 0; lRound < ZTTestRounds(500U, 20000U); ++lRound) {
        ZTCWaitEnd lEnd;
        spEnd = &lEnd;
        std::atomic<bool> lIsThere{false};
        std::thread lWaiter([&] {
            lIsThere = true;
            while (!lEnd.hasEnded()) {  // a signal ends a wait by itself
                lRound % 2 == 0 ? lAgent.waitForWake(7, std::chrono::minutes(5), &lEnd)
                                : lEnd.waitUntil(ZTCWaitEnd::Clock::now() + std::chrono::minutes(5));
            }
        });
        while (!lIsThere) {
        }
        lHasSignals&& lRound % 4 < 2 ? void(pthread_kill(lWaiter.native_handle(), SIGUSR1)) : lEnd.end();
        lWaiter.join();
    }
    signal(SIGUSR1, lHandler);
}

// Figures that an agent has left are read where somebody asks for them.
TEST(AgentStatistics, WhatAKilledAgentLeftIsThereToBeRead) {
    const ZTCTestDirectory lDirectory;
    writeFile(lDirectory / "vrx-sca.stats", ZTTestStatisticsOf(sRows, 1));
    EXPECT_THROW(ZTCAgentStatistics{lDirectory.getPath()}, ZTCNoAgentError);
    const ZTCAgentStatistics lLeft(lDirectory.getPath(), "/vrx-sca.stats", ZTEStatisticsOf::Any);
    EXPECT_TRUE(lLeft.hasGone());
    EXPECT_EQ(lLeft.read().get("held_bytes"), 12U);
    EXPECT_EQ(lLeft.read(1).mRows.size(), 1U);
    EXPECT_EQ(lLeft.readWake(), 7U);
}

}  // namespace
