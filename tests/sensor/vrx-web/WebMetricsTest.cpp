// The metrics: what the history has counted and what vrx-sn tells, in the form that Prometheus reads.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>

#include "StatisticsBytes.h"
#include "StoreWriter.h"
#include "StoredIncidents.h"
#include "TestPages.h"
#include "TestStore.h"
#include "WebAnswer.h"
#include "WebMetrics.h"

namespace {

/// The lines without comments: name and labels, and the value.
ZTTestMap samplesIn(const std::string& acrText) {
    ZTTestMap lSamples;
    std::istringstream lLines(acrText);
    for (std::string lLine; std::getline(lLines, lLine);) {
        const std::size_t lEnd = lLine.rfind(' ');
        EXPECT_TRUE(lLine.starts_with("#") ||
                    lSamples.emplace(lLine.substr(0, lEnd), lLine.substr(lEnd + 1)).second)
            << lLine << " stands twice";
    }
    return lSamples;
}

struct Site {
    ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    ZTCWebHealth mHealth{mDirectory.getPath()};
    ZTCWebMetrics mMetrics{mHealth, mDirectory / "ship"};

    void show(const ZTTestRows& acrRows) const {
        writeFile(mDirectory / "vrx-sn.stats", ZTTestStatisticsOf(acrRows));
    }
    void read() {
        ZTCStoreReader lReader(mPath);
        mMetrics.read(lReader);
    }
    ZTTestMap ask() const {
        const ZTSWebAnswer lAnswer = mMetrics.answer();
        EXPECT_EQ(lAnswer.mStatus, 200U);
        EXPECT_TRUE(std::string(lAnswer.mpType).starts_with("text/plain; version=0.0.4"));
        return samplesIn(*lAnswer.mpBody);
    }
};

void expectAmong(const ZTTestMap& acrSamples, const ZTTestMap& acrExpected) {
    for (const auto& [lrName, lrValue] : acrExpected) {
        const auto lAt = acrSamples.find("scopeagent_" + lrName);
        EXPECT_EQ(lAt == acrSamples.end() ? "nothing" : lAt->second, lrValue) << lrName;
    }
}

std::size_t countOf(const ZTTestMap& acrSamples, const std::string& acrFamily) {
    return static_cast<std::size_t>(std::ranges::count_if(acrSamples, [&](const auto& acrOne) {
        return acrOne.first.starts_with("scopeagent_" + acrFamily + "{");
    }));
}

}  // namespace

TEST(WebMetrics, ThePageHasEveryFamilyAndEveryAlert) {
    std::vector<ZTTestTexts> lFamilies;
    std::set<std::string> lNames;
    for (const ZTSWebFamily& lrFamily : listWebFamilies()) {
        std::string lLabels;
        for (const char* const lpLabel : lrFamily.mLabels) {
            lLabels += lpLabel == nullptr ? "" : (lLabels.empty() ? "`" : ", `") + std::string(lpLabel) + "`";
        }
        const std::string lName = std::string("scopeagent_") + lrFamily.mpName;
        EXPECT_EQ(lrFamily.mIsCounter, lName.ends_with("_total")) << lName;
        lNames.insert(lName);
        lFamilies.push_back({"`" + lName + "`", lLabels.empty() ? "none" : lLabels,
                             lrFamily.mIsCounter ? "counter" : "gauge", lrFamily.mpHelp});
    }
    EXPECT_EQ(rowsOf("docs/metrics.md", "metric | labels | type"), lFamilies);

    const std::string lRules = sourceOf("packaging/vrx-web.rules.yml");
    ZTTestMap lAlerts;
    for (const ZTTestTexts& lrAlert : matchesIn(lRules, "alert: (\\w+)[^]*?severity: (\\w+)")) {
        lAlerts.emplace("`" + lrAlert[0] + "`", lrAlert[1]);
    }
    EXPECT_EQ(mapOf("docs/metrics.md", "alert", 0, 1), lAlerts);
    for (const ZTTestTexts& lrUsed : matchesIn(lRules + sourceOf("docs/metrics.md"), "(scopeagent_\\w+)")) {
        EXPECT_TRUE(lNames.contains(lrUsed[0])) << lrUsed[0] << " is no metric";
    }
}

TEST(WebMetrics, WhatTheHistoryHasCountedIsTold) {
    Site lSite;
    {
        ZTSStoredIncidents lStory;
        lStory.mBatch.mPorts->mLocal[2].mState = "Linkdown";
        lStory.mBatch.mPorts->mLocal[3].mState = "";
        lStory.mBatch.mHost.mStorage->mMaps[0].mPaths[0].mIsUsable = false;
        lStory.mBatch.mHost.mStorage->mMaps[1].mName = "a\"b\\c\n\xff<b>";
        ZTSStoreRow lRow = lStory.mBatch.mRows.back();
        ++lRow.mId;
        lRow.mRecord.mSeries.mSubcategory = 4;
        lRow.mRecord.mData = {1, 0, 0, 0, 0x50, 6, 1, 0x60, 0x3b, 2, 0, 0, 2, 0, 0, 0, 4, 0, 0, 0};
        lStory.mBatch.mRows.push_back(lRow);
        lStory.mBatch.mLosses = {{1, 2, "agent", "no_memory", 5, {}},
                                 {1, 2, "library", "no_memory", 6, {}},
                                 {1, 2, "agent", "killed", {}, 40}};
        ZTCStoreWriter lWriter(ZTHostStoreOptions(lSite.mPath));
        lWriter.write(lStory.mBatch);
    }
    lSite.read();
    const ZTTestMap lSamples = lSite.ask();
    expectAmong(
        lSamples,
        {{R"(events_total{initiator="10000025b5010001",kind="rscn"})", "1"},
         {R"(events_total{initiator="10000025b5010000",kind="99/1"})", "1"},
         {R"(target_events_total{initiator="10000025b5010001",target="500601603b010101",kind="logo"})", "2"},
         {R"(check_conditions_total{initiator="10000025b5010000",sense_key="not_ready"})", "1"},
         {R"(fpin_total{initiator="10000025b5010001",target="500601603b010001",descriptor="congestion",)"
          R"(event="oversubscription"})",
          "1"},
         {R"(lost_events_total{reason="no_memory"})", "11"},
         {R"(lost_events_total{reason="limit"})", "0"},
         {R"(losses_unnumbered_total{reason="killed"})", "1"},
         {R"(port_state{initiator="10000025b5010000",state="Online"})", "1"},
         {R"(port_state{initiator="10000025b5010000",state="Linkdown"})", "0"},
         {R"(port_state{initiator="10000025b5010002",state="Linkdown"})", "1"},
         {R"(port_state{initiator="10000025b5010003",state="Unknown"})", "1"},
         {R"(port_info{initiator="10000025b5010000",node_name="",fabric="left",host="host3"})", "1"},
         {R"(paths{map="mpatha"})", "8"},
         {R"(paths_usable{map="mpatha"})", "7"},
         {R"(paths_usable{map="a\"b\\c\\x0a\\xff<b>"})", "8"},
         {"stalled_disks", "1"},
         {R"(incidents_open{class="redundancy_lost"})", "1"},
         {R"(incidents_open{class="link_flap"})", "1"},
         {R"(incidents_open{class="overload"})", "0"},
         {R"(incidents_total{class="link_flap"})", "2"},
         {R"(incidents_total{class="io_stall"})", "1"},
         {"series_dropped_total", "0"},
         {"sensor_up", "0"},
         {"agent_up", "0"},
         {"store_readable", "1"}});
    EXPECT_EQ(countOf(lSamples, "target_events_total"), 4U) << "only what has a port beyond the fabric";
    EXPECT_FALSE(lSamples.contains("scopeagent_store_bytes")) << "nobody has told of it";
}

TEST(WebMetrics, FiguresAreOfNowAndTheHistoryAsItWasLastRead) {
    Site lSite;
    ZTCTestStore lStore(lSite.mPath);
    lStore.addSeries(1, "plogi", 1, 1, "00", "0c");
    lStore.addRecord(1, 1, 10, 11, 3);
    lSite.read();
    lSite.show({{"agent_up", 1},
                {"last_fetch_time_ns", 1'700'000'000'250'000'000},
                {"fetches_total", 17},
                {"store_bytes", 9'007'199'254'740'991},
                {"stalled_disks", 3},
                {"uncommitted_bytes", 70},
                {"incidents_link_flap", 2}});
    const ZTTestMap lStored = {{R"(events_total{initiator="10000025b5010000",kind="plogi"})", "3"}};
    ZTTestMap lLive = {{"agent_up", "1"},           {"sensor_up", "1"},
                       {"fetches_total", "17"},     {"last_fetch_timestamp_seconds", "1700000000.25"},
                       {"stalled_disks", "3"},      {"store_bytes", "9007199254740991"},
                       {"uncommitted_bytes", "70"}, {R"(incidents_open{class="link_flap"})", "2"}};
    expectAmong(lSite.ask(), lStored);
    expectAmong(lSite.ask(), lLive);

    lStore.addRecord(2, 1, 10, 11, 4);
    lSite.read();  // just now it was: many that ask cost as much as one
    expectAmong(lSite.ask(), lStored);
    lSite.mHealth.noteHistory("its disk stands still");
    std::filesystem::remove(lSite.mDirectory / "vrx-sn.stats");
    expectAmong(lSite.ask(), lStored);
    expectAmong(lSite.ask(), {{"agent_up", "0"},
                              {"sensor_up", "0"},
                              {"store_readable", "0"},
                              {"fetches_total", "17"},
                              {"store_bytes", "9007199254740991"},
                              {"stalled_disks", "0"},
                              {R"(incidents_open{class="link_flap"})", "0"}});
    EXPECT_FALSE(lSite.ask().contains("scopeagent_uncommitted_bytes"));
}

TEST(WebMetrics, WhatIsTooMuchIsLeftOutAndCounted) {
    Site lSite;
    ZTCTestStore lStore(lSite.mPath);
    lStore.exec(
        "WITH RECURSIVE n (id) AS (VALUES (1) UNION ALL SELECT id + 1 FROM n WHERE id < 2500) INSERT INTO series "
        "SELECT id, 'plogi', 1, 1, '10:00:00:25:b5:01:00:00', '', '', printf('50:00:00:00:00:00:%02x:%02x', id / "
        "256, id % 256), '', '', id, 1, 1, 1 FROM n");
    ZTCStoreReader lReader(lSite.mPath);
    std::size_t lDropped = 0;
    ZTCWebSamples lSamples = readStoredSamples(lReader, 2000, lDropped);
    EXPECT_EQ(lDropped, 500U);
    lSite.mMetrics.read(lReader);
    const ZTTestMap lTold = lSite.ask();
    EXPECT_EQ(countOf(lTold, "target_events_total"), 2000U);
    expectAmong(lTold, {{"series_dropped_total", "500"},
                        {R"(events_total{initiator="10000025b5010000",kind="plogi"})", "3126250"}});
    EXPECT_TRUE(lTold.contains(
        R"(scopeagent_target_events_total{initiator="10000025b5010000",target="50000000000001f5",kind="plogi"})"));
    EXPECT_FALSE(lTold.contains(
        R"(scopeagent_target_events_total{initiator="10000025b5010000",target="50000000000001f4",kind="plogi"})"))
        << "those that had most stay";
}

TEST(WebMetrics, SinksAreToldWhoeverTheyBelongTo) {
    Site lSite;
    const std::string lDirectory = lSite.mDirectory / "ship";
    EXPECT_EQ(countOf(lSite.ask(), "sink_pending_records"), 0U) << "there are none";
    std::filesystem::create_directory(lDirectory);
    writeFile(lDirectory + "/jetstream.stats", ZTTestStatisticsOf({{"pending_records", 12},
                                                                   {"sent_records_total", 34},
                                                                   {"failures_total{reason=\"refused\"}", 5},
                                                                   {"failures_total{reason=\"", 6},
                                                                   {"else", 7}}));
    EXPECT_TRUE(geteuid() != 0 || chown((lDirectory + "/jetstream.stats").c_str(), 12345, 12345) == 0);
    writeFile(lDirectory + "/broken.stats", "x");
    writeFile(lDirectory + "/other", "x");
    EXPECT_EQ(mkfifo((lDirectory + "/pipe.stats").c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", lDirectory + "/link.stats");
    const ZTTestMap lSamples = lSite.ask();
    expectAmong(lSamples, {{R"(sink_pending_records{sink="jetstream"})", "12"},
                           {R"(sink_sent_records_total{sink="jetstream"})", "34"},
                           {R"(sink_failures_total{sink="jetstream",reason="refused"})", "5"}});
    EXPECT_EQ(countOf(lSamples, "sink_failures_total"), 1U);
    EXPECT_EQ(countOf(lSamples, "sink_pending_records"), 1U);
}
