// The agent's figures as vrx-scope shows them.
#include <nlohmann/json.hpp>

#include "FileLock.h"
#include "ScopeProgram.h"
#include "StatisticsBytes.h"

namespace {

using Json = nlohmann::ordered_json;

// The figures of an agent that this process plays: it holds the lock, and has written the file.
TEST(ScopeStatistics, ShowsWhatTheAgentCounts) {
    const ZTCTestDirectory lDirectory;
    const std::string& lrDirectory = lDirectory.getPath();
    const ZTCDescriptor lLock(open((lDirectory / ZTTestPidFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_TRUE(OsLockFile(lLock.get()));
    const auto lNow = static_cast<unsigned long>(time(nullptr)) * 1'000'000'000;
    const auto lWrite = [&](const ZTTestRows& acrLost, unsigned long aSince) {
        ZTTestRows lRows{{"held_bytes", 11 * 1024 + 1},
                         {"held_bytes_limit", 256 * 1024},
                         {"library_call_since_ns{function=\"init\"}", 0},
                         {"library_call_since_ns{function=\"ztapi_reg_event\"}", aSince}};
        lRows.insert(lRows.end(), acrLost.begin(), acrLost.end());
        writeFile(lDirectory / ZTTestStatistics, ZTTestStatisticsOf(lRows));
        return askScope(lrDirectory, {"status"});
    };
    EXPECT_TRUE(contains(
        lWrite({{"lost_total{reason=\"limit\"}", 3}}, lNow - 75'000'000'000),
        "\ndata       0 events, 12 of 256 KiB\n"
        "losses     3 events lost by the agent: it held as much as it may, and nobody fetched in time\n"
        "library    inside the vendor library's ztapi_reg_event for 7"));
    const Json lJson = Json::parse(askScope(lrDirectory, {"status", "--json"}));
    EXPECT_EQ(lJson["pid"], getpid());
    const Json& lrStatus = lJson["statistics"];
    EXPECT_EQ(lrStatus["lost"], Json({{"limit", 3}}));
    EXPECT_EQ(lJson["losses"][0]["reason"], "limit");
    EXPECT_EQ(lrStatus["library_call"]["function"], "ztapi_reg_event");
    const std::string lYoung =
        lWrite({{"lost_total{reason=\"too_short\"}", 1}, {"lost_total{reason=\"no_memory\"}", 2}}, lNow);
    EXPECT_TRUE(contains(
        lYoung,
        "\nlosses     1 event lost by the agent: the vendor's library gave less data than their kind has\n"
        "           2 events lost by the agent: the host had no memory left\n"))
        << lYoung;
    EXPECT_FALSE(contains(lYoung, "\nlibrary ")) << lYoung;
    EXPECT_TRUE(contains(lWrite({{"lost_total{reason=\"limit\"}", 0}}, 0), "\nlosses     none\n"));
    EXPECT_EQ(askScope(lrDirectory, {"stats"}),
              "  name                                                value\n"
              "  held_bytes                                          11265\n"
              "  held_bytes_limit                                   262144\n"
              "  library_call_since_ns{function=\"init\"}                  0\n"
              "  library_call_since_ns{function=\"ztapi_reg_event\"}       0\n"
              "  lost_total{reason=\"limit\"}                              0\n");
    const Json lFigures = Json::parse(askScope(lrDirectory, {"stats", "--json"}));
    EXPECT_EQ(lFigures["values"]["held_bytes"], 11265);
    EXPECT_EQ(lFigures["rates"], nullptr);
    EXPECT_EQ(lFigures["pid"], getpid());
    EXPECT_EQ(lFigures["library"], nullptr);
    std::filesystem::remove(lDirectory / ZTTestStatistics);
    EXPECT_TRUE(contains(askScope(lrDirectory, {"status"}),
                         "collecting unknown\ndata       unknown\nlosses     unknown\n"));
}

// With rows that come while it is looked at. Of a library that another process had, nothing is shown.
TEST(ScopeStatistics, ShowsWhatTheLibraryCounts) {
    ZTSScopeStand lStand;
    const std::string lName = lStand.mDirectory / "libdfc-fchost.stats";
    EXPECT_TRUE(waitUntil([&] { return namesIn(lStand.mDirectory).count(ZTTestStatistics) == 1; }));
    for (const pid_t lProcess : {getpid(), lStand.mAgent.getProcess()}) {
        writeFile(lName,
                  ZTTestStatisticsOf({{"way{name=\"bpf\"}", 1}}, static_cast<unsigned long>(lProcess)));
        EXPECT_EQ(contains(askScope(lStand.mrDirectory, {"stats"}),
                           "\nlibdfc-fchost\n  name             value\n  way{name=\"bpf\"}      1\n"),
                  lProcess != getpid());
    }
    ZTCScopeRun lRun(lStand.mrDirectory, {"stats", "--every", "0.05", "--json"});
    const auto lHas = [&](const char* apText) {
        return waitUntil([&] { return contains(lRun.getOut(), apText); });
    };
    EXPECT_TRUE(lHas(R"("library":{)"));
    const ZTCDescriptor lFile(open(lName.c_str(), O_WRONLY | O_CLOEXEC));
    const std::string lGrown = ZTTestStatisticsOf({{"late{host=\"3\"}", 20}}).substr(64);
    EXPECT_EQ(pwrite(lFile.get(), lGrown.data(), lGrown.size(), 128), 64);
    EXPECT_EQ(pwrite(lFile.get(), "\2", 1, 8), 1);
    EXPECT_TRUE(
        lHas(R"("values":{"way{name=\"bpf\"}":1,"late{host=\"3\"}":20},"rates":{"late{host=\"3\"}":)"));
    EXPECT_EQ(pwrite(lFile.get(), "\2", 1, 128 + 56), 1);
    EXPECT_TRUE(lHas(R"("late{host=\"3\"}":2},"rates":{})"));  // it has fallen
    lRun.interrupt();
    EXPECT_EQ(lRun.waitForEnd(), 0);
}

TEST(ScopeStatistics, ShowsHowFastTheFiguresGrow) {
    ZTSScopeStand lStand({}, {"ZT_TEST_PERIODS=StatisticsTurn=50"});
    const auto lLinesOf = [](const std::string& acrText) {
        std::istringstream lText(acrText);
        std::vector<Json> lLines;
        for (std::string lLine; std::getline(lText, lLine);) {
            lLines.push_back(Json::parse(lLine, nullptr, false));
        }
        return lLines;
    };
    ZTCScopeRun lRun(lStand.mrDirectory, {"stats", "--every", "0.05", "--json"});
    const auto lLast = [&] {
        const auto lLines = lLinesOf(lRun.getOut());
        return lLines.empty() || lLines.back().is_discarded() ? Json() : lLines.back();
    };
    EXPECT_TRUE(waitUntil([&] { return lLast().is_object(); }));
    lStand.mSim.play("plogi times=500");
    EXPECT_TRUE(waitUntil([&] { return lLast()["values"]["recorded_events_total"] == 500; }));
    // Another agent takes its place, which begins at 0.
    lStand.mAgent.sendSignal(SIGTERM);
    lStand.mAgent.waitForEnd();
    EXPECT_TRUE(waitUntil([&] { return contains(lRun.getErr(), "no agent serves"); }));
    const ZTCTestAgent lNew(lStand.mDirectory);
    EXPECT_TRUE(waitUntil([&] { return lLast()["pid"] == lNew.getProcess(); }));
    lRun.interrupt();
    EXPECT_EQ(lRun.waitForEnd(), 0);
    EXPECT_EQ(countIn(lRun.getErr(), "\n"), 1U) << lRun.getErr();
    double lGrown = 0;
    for (const Json& lrLine : lLinesOf(lRun.getOut())) {
        const bool lHasRates = lrLine["rates"].is_object();
        const double lRate = lHasRates ? lrLine["rates"]["recorded_events_total"].get<double>() : 0;
        EXPECT_GE(lRate, 0);
        EXPECT_FALSE(lHasRates && lrLine["rates"].contains("held_events"));
        lGrown += lHasRates ? lRate * lrLine["seconds"].get<double>() : 0;
    }
    EXPECT_NEAR(lGrown, 500, 0.01);
    EXPECT_TRUE(
        contains(askScope(lStand.mrDirectory, {"stats", "--every", "0.05", "--for", "0.1"}), "a second\n"));
}

}  // namespace
