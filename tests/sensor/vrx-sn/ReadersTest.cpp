// Others at the store and at the agent while vrx-sn collects: readers, locks, a second sensor.
#include <sys/resource.h>

#include <nlohmann/json.hpp>

#include "ScopeProgram.h"
#include "SensorBooks.h"

namespace {

ZTCTestChild::Arguments historyOf(const ZTCSnStand& acrStand, const ZTCTestChild::Arguments& acrMore) {
    ZTCTestChild::Arguments lArguments{"history", "--store", acrStand.getStore(), "--ndjson"};
    lArguments.insert(lArguments.end(), acrMore.begin(), acrMore.end());
    return lArguments;
}

// What a store's log may become at the most, with the file of it that keeps its length.
constexpr std::uintmax_t sMostLog = std::uintmax_t{64} << 20;

std::uintmax_t logOf(const ZTCSnStand& acrStand) {
    std::error_code lError;
    const std::uintmax_t lSize = std::filesystem::file_size(acrStand.getStore() + "-wal", lError);
    return lError ? 0 : lSize;
}

TEST(Readers, NeitherHoldUpTheStormNorLetTheLogGrow) {
    const std::uint64_t lEvents = ZTTestRounds(100000U, 2000000U);
    ZTCSnBooks lBooks({"--every", "0.05", "--fold", "0"});
    lBooks.storm(lEvents, 50000);
    EXPECT_TRUE(lBooks.waitForEvents(1));
    std::atomic<bool> lIsOver{false};
    std::atomic<unsigned int> lReads{0};
    std::thread lReaders([&] {
        inThreads(ZTTestRounds(4U, 20U), [&](unsigned int aThread) {
            setpriority(PRIO_PROCESS, 0,
                        19);  // of the processor they take what is left: it is locks that count
            while (!lIsOver) {
                askScope(lBooks.getDirectory().getPath(),
                         aThread % 4 == 3
                             ? ZTCTestChild::Arguments{"history", "--store", lBooks.getStore(), "--summary"}
                             : historyOf(lBooks, {"--since", "-1h"}));
                ++lReads;
            }
        });
    });
    std::uintmax_t lLog = 0;
    EXPECT_TRUE(waitUntil(
        [&] {
            lLog = std::max(lLog, logOf(lBooks));
            return lBooks.getDelivered() >= lEvents && lReads >= 20;
        },
        600));
    lIsOver = true;
    lReaders.join();
    lBooks.expectAll(lEvents);
    EXPECT_LT(lLog, sMostLog);
    EXPECT_EQ(lBooks.getOtherLosses("'limit'"), 0);
    printf("           %u reads; the log had %ju KiB at the most\n", lReads.load(), lLog / 1024);
}

// Of another process, and not of ours: a lock, and a transaction that reads on and on.
TEST(Readers, WhoHoldsTheStoreIsNamedAndTheRowsWait) {
    constexpr std::uint64_t lEvents = 40000;
    ZTCSnBooks lBooks({"--every", "0.05", "--fold", "0.05"});
    EXPECT_TRUE(waitUntil([&] { return lBooks.ask("SELECT count(*) FROM meta") > 0; }));
    lBooks.storm(lEvents / 2);
    {
        SQLite::Database lOther(lBooks.getStore(), SQLite::OPEN_READWRITE, 10000);
        lOther.exec("BEGIN EXCLUSIVE");
        const std::int64_t lStored = lBooks.getStored();
        lBooks.storm(lEvents / 2);
        const std::string lWho = "held by process " + std::to_string(getpid());
        EXPECT_TRUE(waitUntil([&] { return contains(lBooks.getSensor().getErr(), lWho); }))
            << lBooks.getSensor().getErr();
        EXPECT_TRUE(waitUntil([&] { return lBooks.getFigure("held_events") == 0U; }));
        EXPECT_EQ(lBooks.getStored(), lStored);
    }
    EXPECT_TRUE(lBooks.waitForEvents(lEvents)) << lBooks.getSensor().getErr();

    // Its log grows as far as it may, in the whole form; then the rows wait for that reader, too.
    std::uint64_t lMore = 0;
    {
        SQLite::Database lOther(lBooks.getStore(), SQLite::OPEN_READONLY, 10000);
        lOther.exec("BEGIN");
        EXPECT_GT(lOther.execAndGet("SELECT count(*) FROM records").getInt64(), 0);
        const auto lIsHeld = [&] {
            return countIn(lBooks.getSensor().getErr(), "held by process " + std::to_string(getpid())) > 1;
        };
        for (unsigned int lRound = 0; lRound < ZTTestRounds(1U, 400U) && !lIsHeld(); ++lRound) {
            lBooks.storm(lEvents);
            lBooks.getSim().play("wait storms\n");
            lMore += lEvents;
        }
        EXPECT_TRUE(ZTTestRounds(true, false) || waitUntil(lIsHeld)) << lBooks.getSensor().getErr();
        EXPECT_LT(logOf(lBooks), sMostLog);
    }
    lBooks.expectAll(lEvents + lMore);
    EXPECT_EQ(lBooks.getOtherLosses("'limit'"), 0);
}

// The one that collects is named, and goes on.
TEST(Readers, ThereIsOneSensor) {
    ZTCSnBooks lBooks;
    lBooks.play("plogi times=3\n");
    EXPECT_TRUE(lBooks.waitForEvents(3));
    const std::string lFirst = std::to_string(lBooks.getSensor().getProcess());
    const std::string& lrDirectory = lBooks.getDirectory().getPath();
    const ZTCTestDirectory lOther;
    const ZTSTestEnd lEnds[] = {runChild<ZTCSnRun>(lrDirectory, lOther / "history.db"),
                                runChild<ZTCSnRun>(lOther.getPath(), lBooks.getStore()),
                                runScope(lrDirectory, {"fetch"})};
    for (const ZTSTestEnd& lrEnd : lEnds) {
        EXPECT_NE(lrEnd.mStatus, 0);
        EXPECT_EQ(lrEnd.mOut, "");
        EXPECT_EQ(countIn(lrEnd.mErr, "\n"), 1U) << lrEnd.mErr;
        EXPECT_TRUE(contains(lrEnd.mErr, "process " + lFirst)) << lrEnd.mErr;
    }
    lBooks.play("plogi times=4\n");
    lBooks.expectAll(7);
}

// Each record is shown once when it has closed, with all of its events, whatever became of the one who wrote
// it.
TEST(Readers, FollowingGoesOnWhenTheSensorIsStartedAnew) {
    constexpr std::uint64_t lEvents = 4000;
    ZTCSnBooks lBooks({"--every", "0.05", "--fold", "0.2"});
    lBooks.play("plogi times=4000\n");
    EXPECT_TRUE(lBooks.waitForEvents(lEvents));
    ZTCScopeRun lFollow(lBooks.getDirectory().getPath(), historyOf(lBooks, {"--follow"}));
    for (unsigned int lRound = 0; lRound < 4; ++lRound) {
        lBooks.storm(lEvents, 40000);
        EXPECT_TRUE(lBooks.hasGot(lEvents / 4));
        lRound % 2 == 0 ? lBooks.killSensor() : void(lBooks.endSensor());
        lBooks.startSensor();
        lBooks.getSim().play("wait storms\n");
    }
    lBooks.expectAll(5 * lEvents);
    const auto lShown = [&] {
        std::set<std::uint64_t> lClosed;
        std::uint64_t lSum = 0;
        std::istringstream lOut(lFollow.getOut());
        for (std::string lLine; std::getline(lOut, lLine) && !lOut.eof();) {
            const auto lRow = nlohmann::json::parse(lLine);
            if (lRow.contains("id") && !lRow.value("open", false)) {
                EXPECT_TRUE(lClosed.insert(lRow["id"].get<std::uint64_t>()).second) << lLine;
                lSum += lRow["occurrences"].get<std::uint64_t>();
            }
        }
        return lSum;
    };
    EXPECT_TRUE(waitUntil([&] { return lShown() == static_cast<std::uint64_t>(lBooks.getStored()); }))
        << lShown() << " of " << lBooks.getStored();
    lFollow.interrupt();
    EXPECT_EQ(lFollow.waitForEnd(), 0);
    EXPECT_EQ(lFollow.getErr(), "");
}

}  // namespace
