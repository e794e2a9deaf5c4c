// The store's disk stands still or is full in a storm: fetching goes on, and what finds no room in memory is
// told.
#include "SensorBooks.h"
#include "TestDisk.h"
#include "TestManager.h"

namespace {

constexpr char sWatchdog[] = "10000000";

struct Stand {
    explicit Stand(const ZTCSnStand::Words& acrArguments)
        : mBooks(acrArguments, mManager.getEnvironment(sWatchdog, mDisk.getEnvironment())) {
        EXPECT_TRUE(waitUntil([&] { return mBooks.ask("SELECT count(*) FROM meta") > 0; }));
    }

    bool hasRow(const char* apPart) const {
        return waitUntil([&] { return contains(mBooks.getSensor().getErr(), apPart); });
    }
    /// The agent holds nothing: all has been fetched.
    bool isFetched() const {
        return waitUntil([&] { return mBooks.getFigure("held_events") == 0U; });
    }

    const ZTCTestDirectory mDirectory;
    const ZTCTestManager mManager{mDirectory / "notify"};
    const ZTCTestDisk mDisk{"history.db"};
    ZTCSnBooks mBooks;
};

// In the whole form the storm is as long as a minute.
TEST(StandingStore, AStormWaitsInMemoryUntilTheDiskMoves) {
    Stand lStand({"--every", "0.05"});
    const unsigned int lRounds = ZTTestRounds(2U, 60U);
    const std::uint64_t lEvents = lRounds * std::uint64_t{50000};
    lStand.mDisk.stand();
    lStand.mBooks.storm(lEvents, 50000);
    for (unsigned int lRound = 0; lRound < lRounds; ++lRound) {
        EXPECT_TRUE(lStand.mManager.hears("WATCHDOG=1"));
        EXPECT_TRUE(
            waitUntil([&] { return lStand.mBooks.getDelivered() >= (lRound + 1) * lEvents / lRounds; }));
    }
    EXPECT_TRUE(lStand.isFetched());
    EXPECT_TRUE(lStand.mManager.hears("stands still"));
    EXPECT_EQ(lStand.mBooks.getStored(), 0);
    lStand.mDisk.move();
    lStand.mBooks.expectAll(lEvents);
    EXPECT_EQ(lStand.mBooks.getOtherLosses("'limit'"), 0);
}

TEST(StandingStore, AFullDiskIsWaitedForInMemory) {
    Stand lStand({"--every", "0.05", "--fold", "0.1"});
    constexpr std::uint64_t lEvents = 100000;
    lStand.mBooks.storm(lEvents / 2);
    EXPECT_TRUE(lStand.mBooks.waitForEvents(1));
    lStand.mDisk.fill();
    lStand.mBooks.storm(lEvents / 2);
    EXPECT_TRUE(lStand.hasRow("the history is not written: "));
    lStand.mBooks.getSim().play("wait storms\n");
    EXPECT_TRUE(lStand.isFetched());
    EXPECT_TRUE(contains(lStand.mBooks.getSensor().getErr(), "no room"))
        << lStand.mBooks.getSensor().getErr();
    lStand.mDisk.makeRoom();
    lStand.mBooks.expectAll(lEvents);
    EXPECT_EQ(lStand.mBooks.getOtherLosses("'limit'"), 0);
}

// So many different events that no folding helps: the buffer's 64 MiB are full, and what comes then is
// counted.
TEST(StandingStore, WhatFindsNoRoomIsToldExactly) {
    if (!ZTTestRounds(false, true)) {
        GTEST_SKIP() << "takes half a minute";
    }
    Stand lStand({"--every", "0.05", "--fold", "0"});
    lStand.mDisk.stand();
    std::uint64_t lEvents = 0;
    while (lEvents < 600000) {
        std::string lLines;
        for (unsigned int lLine = 0; lLine < 1500; ++lLine, ++lEvents) {
            char lText[64];
            snprintf(lText, sizeof lText, "plogi from=0x50060160%08x\n", static_cast<unsigned int>(lEvents));
            lLines += lText;
        }
        lStand.mBooks.play(lLines);
    }
    EXPECT_TRUE(lStand.mManager.hears("WATCHDOG=1"));
    lStand.mDisk.move();
    lStand.mBooks.expectAll(lEvents);
    EXPECT_GT(lStand.mBooks.ask("SELECT sum(events) FROM losses WHERE reason = 'buffer'"), 0);
    EXPECT_EQ(lStand.mBooks.getOtherLosses("'limit', 'buffer'"), 0);
}

}  // namespace
