// A collection from its start to the agent's end: registrations, what is turned away and counted, storms,
// ends.
#include <atomic>

#include "AgentStatistics.h"
#include "SimClient.h"

namespace {

#define BOARD_0 "<20:00:00:25:b5:01:00:00, 10:00:00:25:b5:01:00:00>"
#define BOARD_1 "<20:00:00:25:b5:01:00:01, 10:00:00:25:b5:01:00:01>"

// The registrations of a board, in their order: category and subcategory, or 0 and a mask.
constexpr std::pair<unsigned int, unsigned int> sKinds[] = {
    {1, 1}, {1, 2}, {1, 4}, {1, 8},  {1, 16}, {0, 2},  {2, 1}, {2, 2}, {2, 4},  {4, 1},
    {4, 2}, {4, 4}, {4, 8}, {4, 16}, {4, 32}, {4, 64}, {8, 1}, {0, 1}, {0, 32}, {16, 1}};
constexpr std::size_t sNone = 99;

// Of all registrations of two boards, in their order, those before one number and but for another.
std::string registrationsUpTo(std::size_t aEnd, std::size_t aMissing = sNone) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < aEnd; ++lAt) {
        const std::string lBoard = std::to_string(lAt / 20);
        const auto& [lCategory, lSubcategory] = sKinds[lAt % 20];
        const std::string lKind = std::to_string(lSubcategory);
        const std::string lWhat = lCategory == 0 ? "mask=" + lKind
                                                 : "port=10:00:00:25:b5:01:00:0" + lBoard +
                                                       " category=" + std::to_string(lCategory) +
                                                       " subcategory=" + lKind;
        lText += lAt == aMissing ? "" : "registration board=" + lBoard + " " + lWhat + "\n";
    }
    return lText;
}

// What the library holds, with the handles apart.
std::string registrationsOf(const ZTSTestStand& acrStand, std::vector<unsigned long>* apHandles = nullptr) {
    std::istringstream lReport(acrStand.mSim.ask("report"));
    std::string lText;
    for (std::string lLine; std::getline(lReport, lLine);) {
        if (const std::size_t lAt = lLine.find(" handle="); lAt != std::string::npos) {
            lText += lLine.substr(0, lAt) + "\n";
            if (apHandles != nullptr) {
                apHandles->push_back(std::stoul(lLine.substr(lAt + 8)));
            }
        }
    }
    return lText;
}

TEST(Session, AStartRegistersAsFarAsTheLibraryLetsItAndAStopEndsThat) {
    const struct {
        const char* mpRule;
        std::size_t mEnd, mMissing;
        const char* mpFailure;
    } lRows[] = {
        {"status=0", 40, sNone, nullptr},
        {"status=5 kind=queue-full board=1", 40, sNone, nullptr},
        {"status=6 kind=queue-full board=1", 40, sNone, nullptr},
        {"status=7", 5, sNone, "-E- Failed to register RSCN for Initiator " BOARD_0 " - Error 0"},
        {"status=7 kind=adapter-arrival", 40, sNone, nullptr},
        {"status=1 kind=queue-full board=1", 29, sNone,
         "-E- Failed to register event (4, 1) for Initiator " BOARD_1 " - Error 1"},
        {"status=4 kind=adapter-arrival", 19, sNone,
         "-E- Failed to register event (16, 1) for Initiator " BOARD_0 " - Error 4"},
        {"status=8 kind=plogi board=1", 20, sNone,
         "-E- Failed to register event (1, 1) for Initiator " BOARD_1 " - Error 8"},
        {"status=255", 0, sNone, "-E- Failed to register event (1, 1) for Initiator " BOARD_0 " - Error 255"},
        {"status=1 kind=rscn board=1", 25, sNone,
         "-E- Failed to register RSCN for Initiator " BOARD_1 " - Error 0"},
        {"status=1 kind=link", 17, sNone, "-E- Failed to register LINK for Initiator " BOARD_0 " - Error 0"},
        {"status=1 kind=temperature board=0", 40, 18,
         "-W- Failed to register TEMPERATURE for Initiator " BOARD_0 " - Error 0"},
    };
    ZTSTestStand lStand;
    std::size_t lRegistered = 0;
    std::string lFailures;
    for (const auto& lrRow : lRows) {
        SCOPED_TRACE(lrRow.mpRule);
        lStand.mSim.play(std::string("on-register ") + lrRow.mpRule);
        EXPECT_EQ(lStand.askToStart(), lrRow.mEnd == 40 ? lStand.mSuccess : std::string("\x01\x00\x09", 3));
        EXPECT_EQ(registrationsOf(lStand), registrationsUpTo(lrRow.mEnd, lrRow.mMissing));
        lStand.stop();
        EXPECT_EQ(registrationsOf(lStand), "");
        lStand.mSim.play("on-register status=0");
        lRegistered += lrRow.mEnd - (lrRow.mMissing != sNone ? 1 : 0);
        lFailures += lrRow.mpFailure != nullptr ? std::string(lrRow.mpFailure) + "\n" : "";
    }
    lStand.stop();
    lStand.mAgent.stop();

    const std::string lLog = lStand.mAgent.getLog();
    EXPECT_EQ(recordsWith(lLog, {"Failed to "}), lFailures);
    EXPECT_EQ(countIn(lLog, ": Registered "), lRegistered);
    EXPECT_EQ(countIn(lLog, "duplicated"), 0U);
}

TEST(Session, ASecondStartForgetsTheRegistrationsOfTheFirst) {
    ZTSTestStand lStand({}, "adapters count=1");
    lStand.start();
    lStand.start();
    std::vector<unsigned long> lHandles;
    EXPECT_EQ(registrationsOf(lStand, &lHandles), registrationsUpTo(20) + registrationsUpTo(20));
    const std::vector<unsigned long> lOlder(lHandles.begin(), lHandles.begin() + 20);
    lStand.mSim.play("plogi");
    EXPECT_EQ(occurrencesIn(lStand.fetch()), 2U);
    lStand.stop();
    lHandles.clear();
    EXPECT_EQ(registrationsOf(lStand, &lHandles), registrationsUpTo(20));
    EXPECT_EQ(lHandles, lOlder);
    lStand.stop();
    lStand.mSim.play("plogi");
    EXPECT_EQ(occurrencesIn(lStand.fetch()), 1U);
    lStand.mAgent.stop();

    std::string lExpected;
    for (const auto& [lCategory, lSubcategory] : sKinds) {
        lExpected += "-E- addRegEvent FAILED due duplicated keyform " +
                     std::to_string(lCategory * 256 + lSubcategory) + " has been detected\n";
    }
    EXPECT_EQ(recordsWith(lStand.mAgent.getLog(), {"addRegEvent FAILED"}), lExpected);
}

TEST(Session, AStopThatFailsIsWarnedOfAndDoneWith) {
    ZTSTestStand lStand;
    lStand.start();
    lStand.mSim.play("on-unregister status=3");
    lStand.stop();
    lStand.stop();  // there is nothing left to fail
    lStand.mAgent.stop();
    std::string lExpected;
    for (const char* const lpInitiator : {BOARD_0, BOARD_1}) {
        for (const auto& [lCategory, lSubcategory] : sKinds) {
            lExpected += lCategory == 0 ? ""
                                        : "-W- Failed to Unregister event (" + std::to_string(lCategory) +
                                              ", " + std::to_string(lSubcategory) + ") for Initiator " +
                                              lpInitiator + " - Error 3\n";
        }
    }
    EXPECT_EQ(recordsWith(lStand.mAgent.getLog(), {"Unregister"}), lExpected);
}

// ---- Storms ----

// The events that an agent tells of as lost. Not its log's: a storm of notices has no room for all of them.
std::uint64_t lossesOf(const ZTSTestStand& acrStand) {
    std::uint64_t lSum = 0;
    for (const ZTSStatistic& lrRow : ZTCAgentStatistics(acrStand.mDirectory.getPath()).read().mRows) {
        lSum += lrRow.mName.starts_with("lost_total") ? lrRow.mValue : 0;
    }
    return lSum;
}

// Fetches without a pause while the work is done in another thread, and once behind it. The sum of what came.
std::uint64_t fetchDuring(ZTSTestStand& arStand, const std::function<void()>& acrWork) {
    std::atomic<bool> lIsDone{false};
    std::jthread lWorker([&] {
        acrWork();
        lIsDone = true;
    });
    std::uint64_t lSum = 0;
    while (!lIsDone && !::testing::Test::HasFailure()) {
        lSum += occurrencesIn(arStand.fetch());
    }
    lWorker.join();
    return lSum + occurrencesIn(arStand.fetch());
}

TEST(Session, WhatAStormLosesIsCounted) {
    ZTSTestStand lStand({}, "", "/tmp", {"ZT_TEST_PERIODS=StatisticsTurn=20"});
    lStand.start(1000000);
    // Of a thread that changes the board with each event every one is a record, of 11 bytes.
    lStand.mSim.play("storm link times=25000 boards=2\nwait storms");
    std::uint64_t lSum = occurrencesIn(lStand.fetch());
    EXPECT_EQ(lSum, 23832U);
    EXPECT_TRUE(waitUntil([&] { return lossesOf(lStand) == 25000 - lSum; }));  // written at times
    const std::string lTimes = ZTIsSanitized ? " times=6000" : " times=50000";
    lSum += fetchDuring(lStand, [&] {
        lStand.mSim.play("storm ls-rjt threads=2 boards=2" + lTimes + "\nstorm link threads=2 boards=2" +
                         lTimes + "\nstorm check-condition threads=2" + lTimes +
                         "\nstorm plogi threads=1 board=77" + lTimes + "\nstorm rscn threads=1 boards=2" +
                         lTimes + "\nwait storms");
    });
    lStand.fetch();
    const std::uint64_t lSent = lStand.mSim.getSent();
    EXPECT_TRUE(waitUntil([&] { return lSum + lossesOf(lStand) == lSent; })) << lSum << lossesOf(lStand);
    lStand.mAgent.stop();
}

// ---- Ends ----

void expectEndOf(ZTSTestStand& arStand, bool aBySignal) {
    if (aBySignal) {
        arStand.mAgent.sendSignal(SIGTERM);
    } else {
        EXPECT_EQ(arStand.ask("\x04"), arStand.mSuccess);
    }
    arStand.mAgent.expectEnd("ScopeAgent System exiting", ZTTestSoon);
    EXPECT_FALSE(contains(arStand.mAgent.getLog(), "close does not return"));
}

TEST(Session, EndsUnderAStorm) {
    for (unsigned int lRound = 0; lRound < ZTTestRounds(8U, 100U); ++lRound) {
        SCOPED_TRACE(lRound);
        ZTSTestStand lStand({"-d", lRound % 2 == 0 ? "63" : "31"});
        lStand.start();
        lStand.mSim.play("storm plogi threads=4 boards=2 for=60s\nstorm rscn threads=4 boards=2 for=60s");
        ASSERT_TRUE(waitUntil([&] { return lStand.mSim.getSent() > 1000 || HasFailure(); }));
        expectEndOf(lStand, lRound % 4 == 3);
    }
}

TEST(Session, EndsWhateverTheLibraryDoes) {
    for (const char* const lpFault : {"callbacks-during-close", "callbacks-after-close for=500ms",
                                      "slow-close for=300ms", "stuck-callback"}) {
        for (const bool lBySignal : {false, true}) {
            SCOPED_TRACE(std::string(lpFault) + (lBySignal ? ", by a signal" : ""));
            const bool lIsStuck = contains(lpFault, "stuck");
            ZTSTestStand lStand(
                {}, "", "/tmp",
                {std::string("ZT_TEST_PERIODS=StatisticsTurn=20") + (lIsStuck ? ",CallbacksLeave=50" : "")});
            lStand.start();
            lStand.mSim.play(std::string("fault ") + lpFault);
            // The file comes at a turn of its own thread, where it is none of memory.
            EXPECT_TRUE(!lIsStuck || waitUntil([&] {
                return namesIn(lStand.mDirectory).count(ZTTestStatistics) == 1 &&
                       ZTCAgentStatistics(lStand.mDirectory.getPath()).read().get("callbacks_inside") == 1U;
            }));
            expectEndOf(lStand, lBySignal);
            EXPECT_EQ(contains(lStand.mAgent.getLog(), "1 callbacks of the vendor library do not return"),
                      lIsStuck);
        }
    }
}

}  // namespace
