// What the library has sent is in the store, as records or as losses, however agent and sensor end. Some
// rounds as a test; with ZT_TORTURE=all over 5,000,000 events.
#include <random>

#include "SensorBooks.h"
#include "TestClock.h"

namespace {

// In each other round in the middle of a storm, else behind it, when all that it holds is known.
TEST(Conservation, WhatAKilledAgentHeldIsBounded) {
    ZTCSnBooks lBooks;
    const unsigned int lRounds = ZTTestRounds(4U, 20U);
    constexpr std::uint64_t lEvents = 50000;
    for (unsigned int lRound = 0; lRound < lRounds; ++lRound) {
        lBooks.stormAndNote(lEvents, lRound % 2 == 1);
        lBooks.killAgent();
        EXPECT_TRUE(waitUntil(
            [&] { return lBooks.ask("SELECT count(*) FROM agents WHERE end = 'killed'") == lRound + 1; }));
        lBooks.startAgent();
    }
    lBooks.expectBalance();
    EXPECT_EQ(lBooks.getOtherLosses("'limit', 'killed'"), 0);
    EXPECT_EQ(lBooks.ask("SELECT count(*) FROM losses WHERE (reason = 'killed') != (events IS NULL)"), 0);
    EXPECT_EQ(lBooks.ask("SELECT count(*) FROM losses WHERE events IS NULL AND at_most IS NULL"), 0);
}

TEST(Conservation, WhatAKilledSensorHadFetchedIsToldExactly) {
    ZTCSnBooks lBooks;
    const unsigned int lKills = ZTTestRounds(6U, 50U);
    const std::uint64_t lEvents = ZTTestRounds(200000U, 4000000U);
    std::minstd_rand lRandom(20261122);
    lBooks.storm(lEvents, ZTIsSanitized ? 50000 : 150000);
    for (unsigned int lKill = 0; lKill < lKills; ++lKill) {
        EXPECT_TRUE(lBooks.hasGot(1 + lRandom() % (lEvents / lKills)));
        lBooks.killSensor();
        lBooks.startSensor();
    }
    lBooks.expectAll(lEvents);
    EXPECT_EQ(lBooks.getOtherLosses("'limit', 'unstored'"), 0);
    EXPECT_LE(lBooks.ask("SELECT count(*) FROM losses WHERE reason = 'unstored'"), lKills);
}

// The agent first: what it takes behind the last fetch. The sensor first: nothing, but that nobody saw how
// the agent ended.
TEST(Conservation, AnEndInOrderLosesWhatCameBehindTheLastFetch) {
    const unsigned int lRounds = ZTTestRounds(3U, 20U);
    constexpr std::uint64_t lEvents = 20000;
    ZTCSnBooks lBooks;
    for (unsigned int lRound = 0; lRound < lRounds; ++lRound) {
        lBooks.stormAndNote(lEvents, lRound % 2 == 1);
        lBooks.endAgent();
        EXPECT_TRUE(waitUntil(
            [&] { return lBooks.ask("SELECT count(*) FROM agents WHERE end = 'ended'") == lRound + 1; }));
        EXPECT_EQ(lBooks.getUnknown(), lRound);

        lBooks.startAgent();
        lBooks.stormAndNote(lEvents, true);
        lBooks.endSensor();
        lBooks.endAgent();
        lBooks.startSensor();
        EXPECT_TRUE(waitUntil([&] { return lBooks.getUnknown() == lRound + 1; }));
        lBooks.startAgent();
    }
    lBooks.expectBalance();
    EXPECT_EQ(lBooks.getOtherLosses("'limit', 'ended', 'unseen'"), 0);
    EXPECT_EQ(lBooks.ask("SELECT count(*) FROM losses WHERE (reason = 'unseen') != (events IS NULL)"), 0);
}

// An hour forth and back, of both programs; and days, while what is too old is to be removed.
TEST(Conservation, AClockThatIsSetLosesNothing) {
    using namespace std::chrono_literals;
    const ZTCTestClock lClock;
    const unsigned int lRounds = ZTTestRounds(4U, 40U);
    const std::uint64_t lEvents = lRounds * std::uint64_t{40000};
    ZTCSnBooks lBooks({"--every", "0.05", "--fold", "0.5", "--keep-days", "1"}, lClock.getEnvironment(),
                      lClock.getEnvironment());
    lBooks.storm(lEvents);
    for (unsigned int lRound = 0; lRound < lRounds; ++lRound) {
        constexpr std::chrono::seconds lSteps[] = {1h, -1h, 0h, 48h};
        lClock.set(lSteps[lRound % std::size(lSteps)]);
        EXPECT_TRUE(lBooks.hasGot(lEvents / lRounds / 3));
        lBooks.getSensor().sendSignal(SIGHUP);  // looks for what is to be removed
        EXPECT_TRUE(
            waitUntil([&] { return countIn(lBooks.getSensor().getErr(), "are read anew") == lRound + 1; }));
    }
    lBooks.expectAll(lEvents);
    EXPECT_EQ(lBooks.ask("SELECT count(*) FROM meta WHERE name = 'retired_records' AND value > 0"), 0);
    EXPECT_GT(lBooks.ask("SELECT max(last) - min(first) FROM records") / 3600'000'000'000, 48);
}

// What it has open and what memory it takes does not grow with fetches, and with agents that come and go.
TEST(Conservation, NothingIsLeftOpenOrBehind) {
    ZTCSnBooks lBooks({"--every", "0.05", "--fold", "0.1"});
    const auto lStatus = [&](const char* apRow) {
        const std::string lProcess = "/proc/" + std::to_string(lBooks.getSensor().getProcess());
        const std::string lText = readFile(lProcess + "/status");
        return std::strtoull(lText.c_str() + lText.find(apRow) + strlen(apRow), nullptr, 10);
    };
    const auto lOpen = [&] {
        const std::filesystem::directory_iterator lFiles(
            "/proc/" + std::to_string(lBooks.getSensor().getProcess()) + "/fd");
        return std::distance(begin(lFiles), end(lFiles));
    };
    const auto lFetch = [&](unsigned int aTimes) {
        for (unsigned int lTime = 0; lTime < aTimes; ++lTime) {
            const std::int64_t lStored = lBooks.getStored();
            lBooks.play("plogi times=7\nport-busy times=5\n");
            EXPECT_TRUE(waitUntil([&] { return lBooks.getStored() == lStored + 12; }));
        }
    };
    lFetch(10);
    const auto lFiles = lOpen();
    const auto lMemory = lStatus("VmRSS:");
    const auto lThreads = lStatus("Threads:");
    for (unsigned int lRound = 0; lRound < ZTTestRounds(2U, 60U); ++lRound) {
        lRound % 2 == 0 ? lBooks.killAgent() : void(lBooks.endAgent());
        lBooks.startAgent();
        lFetch(ZTTestRounds(10U, 50U));
    }
    // The connection that brings the log into the file is made when there is something to bring: three files.
    EXPECT_TRUE(waitUntil([&] { return lOpen() <= lFiles + 3; })) << lFiles << ", now " << lOpen();
    EXPECT_LE(lStatus("VmRSS:"), lMemory * 3 / 2 + 4096);
    EXPECT_EQ(lStatus("Threads:"), lThreads);
    EXPECT_EQ(lBooks.endSensor(), 0);
    EXPECT_EQ(lBooks.endAgent(), 0);
    EXPECT_EQ(namesIn(lBooks.getDirectory()), std::set<std::string>{ZTTestLog});
    lBooks.expectSumsAreWhole();
}

}  // namespace
