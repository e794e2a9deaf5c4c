// What the agent counts about itself: exact, in a file that is its own, and at nobody's cost.
#include <linux/futex.h>
#include <sys/mman.h>

#include "AgentStatistics.h"
#include "EventBlock.h"
#include "ScopeAgentEventFacts.h"
#include "ScopeAgentStatistics.h"
#include "SimClient.h"
#include "StatisticsBytes.h"
#include "TestCollection.h"
#include "TestDisk.h"
#include "TestPages.h"

namespace {

constexpr char sTmpfs[] = "/dev/shm";
constexpr char sTurns[] = "ZT_TEST_PERIODS=StatisticsTurn=20";

// The figures that are not 0, but for times, the log's, and who was inside when that was looked at last.
std::map<std::string, std::uint64_t> figuresIn(const std::string& acrDirectory) {
    std::map<std::string, std::uint64_t> lFigures;
    for (const ZTSStatistic& lrRow : ZTCAgentStatistics(acrDirectory).read().mRows) {
        if (lrRow.mValue != 0 && !contains(lrRow.mName, "_ns") && !lrRow.mName.starts_with("log_") &&
            lrRow.mName != "callbacks_inside") {
            lFigures[lrRow.mName] = lrRow.mValue;
        }
    }
    return lFigures;
}

std::uint64_t figureIn(const std::string& acrDirectory, const char* apName) {
    return ZTCAgentStatistics(acrDirectory).read().get(apName).value_or(~0UL);
}

// On tmpfs every figure is there as soon as what it counts has happened; elsewhere at the next turn.
TEST(Statistics, AreExactBehindAKnownScenario) {
    for (const std::string lParent : {sTmpfs, "/tmp"}) {
        SCOPED_TRACE(lParent);
        ZTSTestStand lStand({}, "adapters count=2\n", lParent, {sTurns});
        const std::string& lrDirectory = lStand.mDirectory.getPath();
        using Figures = std::map<std::string, std::uint64_t>;
        const auto lExpect = [&](const Figures& acrFigures) {
            if (lParent != sTmpfs) {
                waitUntil([&] { return figuresIn(lrDirectory) == acrFigures; }, ZTTestSoon);
            }
            EXPECT_EQ(figuresIn(lrDirectory), acrFigures);
        };
        EXPECT_TRUE(waitUntil([&] { return namesIn(lStand.mDirectory).count(ZTTestStatistics) == 1; }));
        struct stat lFile {};
        EXPECT_EQ(lstat((lrDirectory + "/vrx-sca.stats").c_str(), &lFile), 0);
        EXPECT_EQ(lFile.st_mode, S_IFREG | 0640U);
        lStand.start();
        lStand.mSim.play("plogi times=5\nlogo\nrscn pages=0x00010a00,0x01030000,0x01030000\nlink board=1");
        Figures lFigures{{"collecting", 1},
                         {"commands_total", 1},
                         {"events_total{kind=\"plogi\"}", 5},
                         {"events_total{kind=\"logo\"}", 1},
                         {"events_total{kind=\"rscn\"}", 3},
                         {"events_total{kind=\"link\"}", 1},
                         {"recorded_events_total", 10},
                         {"records_total", 5},
                         {"folded_total", 5},
                         {"held_events", 10},
                         {"held_records", 5},
                         {"held_bytes", 27 + 27 + 15 + 15 + 11},
                         {"held_bytes_limit", ZTCScopeAgentSystem::TotalDataLimit}};
        lExpect(lFigures);
        const ZTCAgentStatistics lOpen(lrDirectory);
        EXPECT_EQ(occurrencesIn(lStand.fetch()), 10U);
        for (const char* const lpHeld : {"held_events", "held_records", "held_bytes"}) {
            lFigures.erase(lpHeld);
        }
        lFigures["commands_total"] = 2;
        lFigures["fetches_total"] = 1;
        lFigures["fetched_events_total"] = 10;
        lExpect(lFigures);
        // Not time(): its clock is behind by up to a tick, and once in a while by a second.
        const auto lNow = std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
        const auto lFetched = figureIn(lrDirectory, "last_fetch_time_ns");
        EXPECT_LE(static_cast<std::uint64_t>(lNow) - lFetched, 120'000'000'000U);
        lStand.stop();
        lFigures.erase("collecting");
        lFigures["commands_total"] = 3;
        lExpect(lFigures);
        lStand.start();
        lStand.mSim.play("temperature");
        EXPECT_FALSE(lOpen.hasGone());
        EXPECT_EQ(lOpen.read().get("ended_time_ns"), 0U);
        lStand.mAgent.stop();
        EXPECT_TRUE(lOpen.hasGone());
        // The last ones are what the sensor reckons with: what was held is held to the end.
        const ZTSStatistics lLast = lOpen.read();
        EXPECT_GE(lLast.get("ended_time_ns"), lFetched);
        EXPECT_EQ(lLast.get("events_total{kind=\"temperature\"}"), 1U);
        EXPECT_EQ(lLast.get("held_events"), 1U);
        EXPECT_EQ(lLast.get("recorded_events_total"), 11U);
        EXPECT_EQ(lLast.get("fetched_events_total"), 10U);
    }
}

// A kill leaves the file; what others put in its place, or under the name that it is made by, is not written.
TEST(Statistics, TheFileIsTheAgentsAlone) {
    for (const std::string lParent : {sTmpfs, "/tmp"}) {
        SCOPED_TRACE(lParent);
        const ZTCTestDirectory lDirectory(lParent);
        const std::string lName = lDirectory / ZTTestStatistics;
        const auto lIsOf = [&](const ZTCTestAgent& acrAgent) {
            return waitUntil([&] {
                try {
                    return ZTCAgentStatistics(lDirectory.getPath()).getProcess() == acrAgent.getProcess();
                } catch (const ZTCSensorError&) {
                    return false;
                }
            });
        };
        {
            ZTCTestAgent lKilled(lDirectory, {}, {sTurns});
            EXPECT_TRUE(lIsOf(lKilled));
            const ZTCAgentStatistics lOpen(lDirectory.getPath());
            lKilled.sendSignal(SIGKILL);
            lKilled.waitForEnd();
            EXPECT_TRUE(lOpen.hasGone());
            EXPECT_THROW(ZTCAgentStatistics(lDirectory.getPath()), ZTCNoAgentError);
        }
        const ZTCTestDirectory lElsewhere;
        writeFile(lElsewhere / "others", "theirs");
        std::filesystem::remove(lName);
        std::filesystem::create_symlink(lElsewhere / "others", lName);
        std::filesystem::create_symlink(lElsewhere / "others", lName + ".new");
        {
            ZTCTestAgent lAgent(lDirectory, {}, {sTurns});
            EXPECT_TRUE(lIsOf(lAgent));
            std::filesystem::remove(lName);
            writeFile(lName, "theirs");
            lAgent.sendSignal(SIGTERM);
            EXPECT_EQ(lAgent.waitForEnd(), 0);
        }
        EXPECT_EQ(readFile(lName) + readFile(lElsewhere / "others"), "theirstheirs");
        std::filesystem::remove(lName);

        std::filesystem::create_directories(lName + ".new/x");
        ZTCTestAgent lAgent(lDirectory, {}, {sTurns});
        const ZTCTestSensor lSensor(lDirectory);
        EXPECT_TRUE(
            waitUntil([&] { return contains(lAgent.getLog(), "The statistics are in no file: open"); }));
        EXPECT_EQ(lSensor.ask(stopOf(1)), successOf(1));
        std::filesystem::remove_all(lName + ".new");
        EXPECT_TRUE(lIsOf(lAgent));
        lAgent.stop();
        EXPECT_EQ(countIn(lAgent.getLog(), "The statistics are in no file"), 1U);
    }
}

// One word between two fetches, to who waits through a mapping that it may only read.
TEST(Statistics, ASensorThatWaitsIsWokenOnceBetweenFetches) {
    ZTSTestStand lStand({}, "adapters count=2\n", sTmpfs);
    const ZTCDescriptor lFile(open((lStand.mDirectory / ZTTestStatistics).c_str(), O_RDONLY | O_CLOEXEC));
    void* const lpMapped = mmap(nullptr, 64, PROT_READ, MAP_SHARED, lFile.get(), 0);
    ASSERT_NE(lpMapped, MAP_FAILED);
    const auto* const lpWake = reinterpret_cast<const std::uint32_t*>(static_cast<char*>(lpMapped) + 32);
    lStand.start();
    for (std::uint32_t lSeen = 0; lSeen < 2; ++lSeen) {
        std::thread lWaiter([&] {
            const timespec lTime{60, 0};
            const long lStatus = syscall(SYS_futex, lpWake, FUTEX_WAIT, lSeen, &lTime, nullptr, 0);
            EXPECT_TRUE(lStatus == 0 || errno == EAGAIN) << strerror(errno);
        });
        // Two boards in turn: each event is a record of 11 bytes.
        lStand.mSim.play("storm link times=1400 boards=2\nwait storms");
        EXPECT_EQ(*lpWake, lSeen);
        lStand.mSim.play("storm link times=30000 boards=2\nwait storms");
        lWaiter.join();
        EXPECT_EQ(*lpWake, lSeen + 1);
        lStand.fetch();
    }
    munmap(lpMapped, 64);
    lStand.mAgent.stop();
}

// Frozen from the start, or later: nothing stands still but the file. Full: the agent goes on without.
TEST(Statistics, ADiskThatStandsStillOrIsFullStopsNothing) {
    if (ZTIsSanitized) {
        GTEST_SKIP() << "the sanitizers are in the place of what is preloaded";
    }
    const ZTCTestDisk lDisk(ZTTestStatistics);
    enum : unsigned char { FromTheStart, Later, Full };
    for (const unsigned int lWhen : {FromTheStart, Later, Full}) {
        SCOPED_TRACE(lWhen);
        lWhen == FromTheStart ? lDisk.stand() : lDisk.move();
        lWhen == Full ? lDisk.fill() : void();
        ZTCTestAgent::Options lEnvironment = lDisk.getEnvironment();
        lEnvironment.push_back(sTurns + std::string(lWhen == Full ? "" : ",StatisticsEnd=50"));
        ZTSTestStand lStand({}, "adapters count=2\n", sTmpfs, lEnvironment);
        const auto lIsShown = [&] { return namesIn(lStand.mDirectory).count(ZTTestStatistics) == 1; };
        lStand.start();
        if (lWhen == Later) {
            EXPECT_TRUE(waitUntil(lIsShown));
            lDisk.stand();
        }
        for (unsigned int lRound = 0; lRound < 20; ++lRound) {
            lStand.mSim.play("plogi times=1000");
            EXPECT_EQ(occurrencesIn(lStand.fetch()), 1000U);
        }
        if (lWhen == Full) {
            EXPECT_TRUE(waitUntil([&] {
                return contains(lStand.mAgent.getLog(), "The statistics are in no file: fallocate");
            }));
            lDisk.makeRoom();
            EXPECT_TRUE(waitUntil(lIsShown));
            EXPECT_EQ(figureIn(lStand.mDirectory.getPath(), "events_total{kind=\"plogi\"}"), 20000U);
            lStand.mAgent.stop();
            EXPECT_EQ(countIn(lStand.mAgent.getLog(), "The statistics are in no file"), 1U);
            continue;
        }
        lStand.mAgent.sendSignal(SIGTERM);
        EXPECT_EQ(lStand.mAgent.waitForEnd(ZTTestSoon), 0);
        EXPECT_EQ(lIsShown(), lWhen == Later);
        EXPECT_TRUE(contains(lStand.mAgent.getLog(), "ScopeAgent System exiting"));
    }
}

// Whichever thread of the agent's it is that cannot be made: when it is that of the file, counting goes on.
TEST(Statistics, InMemoryGoOnWithoutTheirThread) {
    if (ZTIsSanitized) {
        GTEST_SKIP() << "the sanitizers are in the place of what is preloaded";
    }
    bool lHasGoneOn = false;
    for (unsigned int lThread = 1; lThread < 10 && !lHasGoneOn; ++lThread) {
        const ZTCTestDirectory lDirectory(sTmpfs);
        ZTCTestAgent lAgent(
            lDirectory, {},
            {"LD_PRELOAD=" ZT_SCARCITY, "ZT_SCARCE=pthread_create:" + std::to_string(lThread) + ":1:11"});
        const auto lServes = [&] { return namesIn(lDirectory).count(ZTTestOutputPipe) == 1; };
        EXPECT_TRUE(waitUntil([&] { return !lAgent.isAlive() || lServes(); }));
        const bool lIsShown = lServes() && namesIn(lDirectory).count(ZTTestStatistics) == 1;
        lAgent.sendSignal(SIGTERM);
        lAgent.waitForEnd();
        lHasGoneOn = contains(lAgent.getLog(), "-W- StatisticsFile");
        EXPECT_TRUE(!lHasGoneOn || lIsShown);
        EXPECT_EQ(contains(lAgent.getLog(), "Nobody looks after callbacks_inside"), lHasGoneOn);
    }
    EXPECT_TRUE(lHasGoneOn);
}

// The page has every row, the kinds have one name everywhere, and the threads inside are told.
TEST(Statistics, ThePageHasTheRowsAndTheKindsHaveOneName) {
    const ZTCTestDirectory lDirectory(sTmpfs);
    ZTCTestAgent lAgent(lDirectory);
    const ZTCTestSensor lSensor(lDirectory);
    const auto lGeneral = [](const std::string& acrName, bool aIsOne) {
        return aIsOne ? acrName : std::regex_replace(acrName, std::regex("\"\\w+\""), "\"...\"");
    };
    std::set<std::string> lRows, lKinds, lFunctions;
    for (const ZTSStatistic& lrRow : ZTCAgentStatistics(lDirectory.getPath()).read().mRows) {
        lRows.insert("`" + lGeneral(lrRow.mName, lrRow.mName.find("reason") != std::string::npos) + "`");
        for (const auto& [lpGroup, lpNames] :
             {std::pair("events_total", &lKinds), std::pair("library_call_since_ns", &lFunctions)}) {
            lrRow.mName.starts_with(lpGroup)
                ? void(lpNames->insert("`" + matchesIn(lrRow.mName, "\"(\\w+)\"").at(0)[0] + "`"))
                : void();
        }
    }
    std::set<std::string> lPage, lPageFunctions;
    for (const ZTTestTexts& lrCells : rowsOf("docs/statistics.md", "row | what it is")) {
        lPage.insert(lrCells[0]);
        for (const ZTTestTexts& lrName :
             matchesIn(contains(lrCells[0], "function") ? lrCells[1] : "", "(`\\w+`)")) {
            lPageFunctions.insert(lrName[0]);
        }
    }
    EXPECT_EQ(lRows, lPage);
    EXPECT_EQ(lFunctions, lPageFunctions);
    std::set<std::string> lProtocol, lClient;
    for (const ZTTestTexts& lrCells : rowsOf("docs/protocol.md", "category | subcategory | kind")) {
        lProtocol.insert(lrCells[2]);
    }
    for (const ZTSEventKindName& lrKind : listEventKinds()) {
        lClient.insert(std::string("`") + lrKind.mpName + "`");
        const ZTSScopeEventFacts* const lpFacts =
            ZTFindScopeEventFacts(lrKind.mCategory, lrKind.mSubcategory);
        constexpr const char* lLabels[] = {
#define ZT_KIND(Name, Label, ...) #Label,
#include "ScopeAgentEventFacts.def"
#undef ZT_KIND
        };
        EXPECT_STREQ(lLabels[lpFacts->mKind], lrKind.mpName);
    }
    EXPECT_EQ(lKinds, lProtocol);
    EXPECT_EQ(lKinds, lClient);
    lAgent.stop();
}

}  // namespace
