// How collector and history are, as everybody who asks is told.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "StatisticsBytes.h"
#include "TestSupport.h"
#include "WebAnswer.h"
#include "WebState.h"

namespace {

constexpr ZTNanoseconds sNow = 1'700'000'000 * ZTSecond;

unsigned long secondsAgo(unsigned long aSeconds) {
    return static_cast<unsigned long>(sNow) - aSeconds * ZTSecond;
}

struct State {
    ZTCTestDirectory mDirectory;
    ZTCWebHealth mHealth{mDirectory.getPath()};

    void show(const ZTTestRows& acrRows, pid_t aProcess = getpid()) const {
        writeFile(mDirectory / "vrx-sn.stats",
                  ZTTestStatisticsOf(acrRows, static_cast<unsigned long>(aProcess)));
    }
    nlohmann::json ask(unsigned int aStatus, ZTNanoseconds aNow = sNow) {
        const ZTSWebAnswer lAnswer = answerHealth(mHealth.getState(aNow));
        EXPECT_EQ(lAnswer.mStatus, aStatus) << *lAnswer.mpBody;
        return nlohmann::json::parse(*lAnswer.mpBody);
    }
};

// The number of a process that has gone.
pid_t goneProcess() {
    ZTCTestChild lChild([] {});
    const pid_t lProcess = lChild.getProcess();
    lChild.waitForEnd();
    return lProcess;
}

}  // namespace

TEST(WebState, TheCollectorIsSilentAfterThreePeriods) {
    State lState;
    EXPECT_EQ(lState.ask(503).at("reason"), "vrx-sn does not run; nothing was fetched yet");
    const auto lRows = [](unsigned long aLast, unsigned long aPeriod, unsigned long aAgent) {
        return ZTTestRows{{"last_fetch_time_ns", aLast}, {"period_ms", aPeriod}, {"agent_up", aAgent}};
    };
    lState.show(lRows(secondsAgo(2), 1000, 1));
    EXPECT_EQ(lState.ask(200), nlohmann::json::parse(
                                   R"({"status": "ok", "reason": null, "since": null, "period_ms": 1000,
                                       "last_fetch": "2023-11-14T22:13:18.000000000Z", "agent_up": true})"));
    const struct {
        unsigned long mAgo, mPeriod, mAgent;
        unsigned int mStatus;
        const char* mpReason;
    } lTable[] = {
        {4, 1000, 1, 503, "vrx-sn fetches nothing; the last fetch was at 2023-11-14 22:13:16.000 UTC"},
        {4, 1000, 0, 503, "no agent answers vrx-sn; the last fetch was at 2023-11-14 22:13:16.000 UTC"},
        {4, 2000, 1, 200, nullptr},
        {2, 50, 1, 200, nullptr},  // a fetch in a storm takes longer than that
        {4, 50, 1, 503, "vrx-sn fetches nothing; the last fetch was at 2023-11-14 22:13:16.000 UTC"},
        {10'000, 3'600'000, 1, 200, nullptr},
    };
    for (const auto& lrRow : lTable) {
        SCOPED_TRACE(lrRow.mAgo);
        lState.show(lRows(secondsAgo(lrRow.mAgo), lrRow.mPeriod, lrRow.mAgent));
        const nlohmann::json lAnswer = lState.ask(lrRow.mStatus);
        EXPECT_EQ(lAnswer.at("status"), lrRow.mpReason != nullptr ? "silent" : "ok");
        if (lrRow.mpReason != nullptr) {
            EXPECT_EQ(lAnswer.at("reason"), lrRow.mpReason);
            EXPECT_EQ(lAnswer.at("since"), "2023-11-14T22:13:16.000000000Z");
        }
    }
    // A clock that was set back by an hour tells nothing until the next fetch.
    lState.show(lRows(secondsAgo(2), 1000, 1));
    lState.ask(503, sNow - 3600 * ZTSecond);
}

TEST(WebState, WhoHasGoneIsMissedEvenIfItsPeriodsAreLong) {
    State lState;
    const ZTTestRows lRows = {{"last_fetch_time_ns", secondsAgo(4)}, {"period_ms", 600'000}, {"agent_up", 1}};
    lState.show(lRows);
    lState.ask(200);
    lState.show(lRows, goneProcess());
    const nlohmann::json lKilled = lState.ask(503);
    EXPECT_TRUE(contains(lKilled.at("reason"), "it was killed")) << lKilled;
    EXPECT_FALSE(lKilled.at("agent_up").get<bool>());
    // A restart takes a moment, in which there is no file.
    std::filesystem::remove(lState.mDirectory / "vrx-sn.stats");
    lState.ask(200, sNow - 2 * ZTSecond);
    EXPECT_EQ(lState.ask(503).at("last_fetch"), "2023-11-14T22:13:16.000000000Z") << "it is remembered";
    // What is no such file is told as that.
    writeFile(lState.mDirectory / "vrx-sn.stats", std::string(64, 'x'));
    EXPECT_TRUE(contains(lState.ask(503).at("reason"), "holds no statistics"));
}

TEST(WebState, AHistoryThatCannotBeReadIsTheWorst) {
    State lState;
    const auto lRows = [](unsigned long aStands) {
        return ZTTestRows{{"last_fetch_time_ns", secondsAgo(1)},
                          {"period_ms", 1000},
                          {"agent_up", 1},
                          {"store_stands_since_ns", aStands}};
    };
    lState.show(lRows(secondsAgo(30)));
    const nlohmann::json lUnwritten = lState.ask(503);
    EXPECT_EQ(lUnwritten.at("status"), "unwritten");
    EXPECT_EQ(lUnwritten.at("since"), "2023-11-14T22:12:50.000000000Z");
    lState.mHealth.noteHistory("the file is damaged");
    EXPECT_EQ(lState.ask(503).at("status"), "unreadable");
    lState.show(lRows(0));
    EXPECT_EQ(lState.ask(503).at("reason"), "the file is damaged");
    std::filesystem::remove(lState.mDirectory / "vrx-sn.stats");
    const nlohmann::json lBoth = lState.ask(503, sNow + 60 * ZTSecond);
    EXPECT_EQ(lBoth.at("status"), "unreadable");
    EXPECT_TRUE(contains(lBoth.at("reason"), "the file is damaged; vrx-sn does not run; ")) << lBoth;
    lState.show(lRows(0));
    lState.mHealth.noteHistory("");
    lState.ask(200);
}

TEST(WebState, AHistoryOfWhichNothingIsHeardStandsStill) {
    ZTCWebHealth lHealth("/nowhere", std::chrono::milliseconds(20));
    lHealth.noteHistory("");
    EXPECT_TRUE(waitUntil([&] { return contains(lHealth.getState(0).mHistory, "stands still"); }));
    lHealth.noteHistory("");
    EXPECT_TRUE(waitUntil([&] {
        lHealth.noteHistory("");
        return lHealth.getState(0).mHistory.empty();
    }));
}
