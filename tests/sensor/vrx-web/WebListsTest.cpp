// Answers by the history, over stores that tests make.
#include "StoryStore.h"
#include "TestStore.h"
#include "WebAsk.h"

namespace {

using Ids = std::vector<std::uint64_t>;

Ids idsOf(const nlohmann::ordered_json& acrRecords) {
    Ids lIds;
    for (const auto& lrRecord : acrRecords) {
        lIds.push_back(lrRecord.at("id").get<std::uint64_t>());
    }
    return lIds;
}

// All pages of a request.
Ids walk(
    ZTCWebHistory& arHistory, const std::string& acrTarget, const std::function<void()>& acrBetween = [] {}) {
    Ids lAll;
    std::string lCursor;
    do {
        const ZTSWebAsked lAsked = ZTAskWeb(arHistory, acrTarget + lCursor);
        EXPECT_EQ(lAsked.mAnswer.mStatus, 200U) << lAsked.getText();
        const Ids lIds = idsOf(lAsked.mJson.at("records"));
        lAll.insert(lAll.end(), lIds.begin(), lIds.end());
        const auto& lrNext = lAsked.mJson.at("next");
        lCursor = lrNext.is_null() ? "" : "&cursor=" + lrNext.get<std::string>();
        acrBetween();
    } while (!lCursor.empty() && lAll.size() < 10'000);
    return lAll;
}

// A hundred records, of which each three begin at one moment: series 1 to 5 in turn, of two kinds.
struct Records {
    Records() {
        for (int lId = 1; lId <= 5; ++lId) {
            mStore.addSeries(lId, lId == 5 ? "link" : "plogi", lId == 5 ? 2 : 1, 1, "00",
                             "0" + std::to_string(lId), lId % 2 == 0 ? "A" : "B");
        }
        for (int lId = 1; lId <= 100; ++lId) {
            mStore.addRecord(lId, lId % 5 + 1, 1000 + lId / 3, 1000 + lId / 3, 1);
        }
        mStore.closeTo(100);
    }
    // The ids that are meant, the youngest first.
    template <class IsMeant>
    static Ids listIds(const IsMeant& acrIsMeant) {
        Ids lIds;
        for (std::uint64_t lId = 100; lId >= 1; --lId) {
            acrIsMeant(lId) ? lIds.push_back(lId) : void();
        }
        return lIds;
    }

    const ZTCTestDirectory mDirectory;
    ZTCTestStore mStore{mDirectory / "history.db"};
    ZTCWebHistory mHistory{mDirectory / "history.db"};
};

TEST(WebRecords, ComeInPagesThatHaveEachOfThemOnce) {
    Records lRecords;
    const Ids lAll = Records::listIds([](std::uint64_t) { return true; });
    for (const char* const lpLimit : {"1", "7", "50", "99", "100", "1000"}) {
        EXPECT_EQ(walk(lRecords.mHistory, std::string("/api/v1/records?limit=") + lpLimit), lAll);
    }
    EXPECT_EQ(walk(lRecords.mHistory,
                   "/api/v1/records?limit=3&target=50:06:01:60:3b:20:11:02&target=500601603b201104"),
              Records::listIds([](std::uint64_t aId) { return aId % 5 == 1 || aId % 5 == 3; }));
    EXPECT_EQ(walk(lRecords.mHistory, "/api/v1/records?limit=4&fabric=A&since=@1010&until=@1020"),
              Records::listIds(
                  [](std::uint64_t aId) { return aId % 5 % 2 == 1 && aId / 3 >= 10 && aId / 3 <= 20; }));
    EXPECT_EQ(walk(lRecords.mHistory, "/api/v1/records?kind=fpin&kind=stall"), Ids());
}

TEST(WebRecords, WhatComesBetweenTwoPagesMovesNothing) {
    Records lRecords;
    int lId = 100;
    const Ids lIds = walk(lRecords.mHistory, "/api/v1/records?limit=10", [&] {
        ++lId;
        lRecords.mStore.addRecord(lId, 1, 2000 + lId, 2000 + lId, 1);
    });
    EXPECT_EQ(lIds, Records::listIds([](std::uint64_t) { return true; }));
    // A cursor that reaches beyond what is asked for begins with that.
    EXPECT_EQ(walk(lRecords.mHistory, "/api/v1/records?until=@1000&cursor=9000000000000000000.1"),
              (Ids{2, 1}));
    EXPECT_EQ(walk(lRecords.mHistory, "/api/v1/records?since=@1000&cursor=1.1"), Ids());
    for (const char* const lpCursor :
         {"x", "1", "1.", ".1", "1.0", "1.-1", "1.1x", "99999999999999999999.1"}) {
        EXPECT_EQ(ZTAnswerWeb(lRecords.mHistory, std::string("/api/v1/records?cursor=") + lpCursor).mStatus,
                  400U)
            << lpCursor;
    }
}

TEST(WebRecords, OfAnySizeMakeNoAnswerThatIsMuchLarger) {
    Records lRecords;
    constexpr int lBig = 30;
    Ids lAll;
    for (int lAt = 0; lAt < lBig; ++lAt) {
        lRecords.mStore.addRecord(101 + lAt, 1, 3000 + lAt, 3000 + lAt, 1, "zeroblob(262144)");
        lAll.insert(lAll.begin(), static_cast<std::uint64_t>(101 + lAt));
    }
    for (const std::string lFormat : {"json", "csv"}) {
        EXPECT_LT(
            ZTAnswerWeb(lRecords.mHistory, "/api/v1/records?limit=1000&format=" + lFormat).mpBody->size(),
            3U << 20);
    }
    EXPECT_EQ(walk(lRecords.mHistory, "/api/v1/records?limit=1000&since=@3000"), lAll);
}

TEST(WebRecords, OfAnIncidentAreThoseThatTellOfIt) {
    const ZTCTestDirectory lDirectory;
    ZTWriteShownStory(lDirectory / "history.db");
    ZTCWebHistory lHistory(lDirectory / "history.db");
    const auto lIncidents = ZTAskWeb(lHistory, "/api/v1/incidents?since=@0").mJson.at("incidents");
    ASSERT_EQ(lIncidents.size(), 2U);
    EXPECT_EQ(ZTAskWeb(lHistory, "/api/v1/incidents?since=@0&limit=1").mJson.at("more"), true);
    EXPECT_EQ(ZTAskWeb(lHistory, "/api/v1/incidents?since=@0&limit=2").mJson.at("more"), false);
    std::size_t lRecords = 0;
    for (const auto& lrIncident : lIncidents) {
        const std::string lId = lrIncident.at("id").dump();
        const auto lOne = ZTAskWeb(lHistory, "/api/v1/incidents/" + lId).mJson;
        Ids lIds = walk(lHistory, "/api/v1/records?limit=1&incident=" + lId);
        lRecords += lIds.size();
        std::ranges::reverse(lIds);
        EXPECT_EQ(lIds, lOne.at("evidence").get<Ids>());
        const auto lOfIt = ZTAskWeb(lHistory, "/api/v1/records?incident=" + lId).mJson;
        for (const auto& lrRecord : lOfIt.at("records")) {
            EXPECT_EQ(lrRecord.at("incident"), lrIncident.at("id"));
        }
    }
    EXPECT_EQ(lRecords, 5U);
    EXPECT_EQ(ZTAnswerWeb(lHistory, "/api/v1/records?incident=99").mStatus, 404U);
    EXPECT_EQ(ZTAnswerWeb(lHistory, "/api/v1/records?incident=1%20OR%201=1").mStatus, 400U);
}

TEST(WebRecords, AreLinesAndValuesThatASpreadsheetTakesAsTheyAre) {
    Records lRecords;
    lRecords.mStore.exec(
        "INSERT INTO names VALUES ('50:06:01:60:3b:20:11:01', '=cmd|''/c calc''!A1', 'a \"b\", c', "
        "'-1', '', '')");
    const std::string lTarget = "/api/v1/records?target=50:06:01:60:3b:20:11:01&limit=2&format=";
    const ZTSWebAnswer lCsv = ZTAnswerWeb(lRecords.mHistory, lTarget + "csv");
    EXPECT_EQ(countIn(*lCsv.mpBody, "\r\n"), 3U);
    EXPECT_TRUE(contains(*lCsv.mpBody, ",'=cmd|'/c calc'!A1,\"a \"\"b\"\", c\",'-1,")) << *lCsv.mpBody;
    EXPECT_EQ(std::string(lCsv.mpType).substr(0, 8), "text/csv");
    std::map<std::string, std::string> lHeaders(lCsv.mHeaders.begin(), lCsv.mHeaders.end());
    EXPECT_EQ(lHeaders["Content-Disposition"], "attachment; filename=\"records.csv\"");

    const std::string lBehind = "&cursor=" + lHeaders["X-Next-Cursor"];
    std::istringstream lLines(*ZTAnswerWeb(lRecords.mHistory, lTarget + "ndjson" + lBehind).mpBody);
    std::vector<nlohmann::ordered_json> lRead;
    for (std::string lLine; std::getline(lLines, lLine);) {
        lRead.push_back(nlohmann::ordered_json::parse(lLine));
        EXPECT_EQ(lRead.back().at("command"), "records");
    }
    EXPECT_EQ(idsOf(lRead), (Ids{90, 85}));
}

TEST(WebLists, HaveTheNewestFirstAndSayThatThereIsMore) {
    const ZTCTestDirectory lDirectory;
    ZTCTestStore lStore(lDirectory / "history.db");
    for (int lAt = 1; lAt <= 300; ++lAt) {
        const std::string lTime = std::to_string(lAt / 2) + "000000000";
        lStore.exec("INSERT INTO changes (time, what, name, event, attribute, before, after) VALUES (" +
                    lTime + ", '" + (lAt % 3 == 0 ? "lun" : "map") + "', '" + std::to_string(lAt) +
                    "', 'came', '', '', '')");
        lStore.exec("INSERT INTO losses (first, last, source, reason, events) VALUES (" + lTime + ", " +
                    lTime + ", 'agent', '" + std::to_string(lAt) + "', NULL)");
    }
    ZTCWebHistory lHistory(lDirectory / "history.db");
    const auto lNames = [&](const std::string& acrTarget, const char* apList, const char* apName,
                            bool aIsMore) {
        const ZTSWebAsked lAsked = ZTAskWeb(lHistory, acrTarget);
        EXPECT_EQ(lAsked.mJson.at("more"), aIsMore) << acrTarget;
        std::vector<int> lAll;
        for (const auto& lrItem : lAsked.mJson.at(apList)) {
            lAll.push_back(std::stoi(lrItem.at(apName).get<std::string>()));
        }
        return lAll;
    };
    const auto lDown = [](int aFrom, int aCount, int aStep) {
        std::vector<int> lAll;
        for (int lAt = 0; lAt < aCount; ++lAt) {
            lAll.push_back(aFrom - lAt * aStep);
        }
        return lAll;
    };
    EXPECT_EQ(lNames("/api/v1/changes", "changes", "name", true), lDown(300, 200, 1));
    EXPECT_EQ(lNames("/api/v1/changes?what=lun&limit=100", "changes", "name", false), lDown(300, 100, 3));
    EXPECT_EQ(lNames("/api/v1/changes?what=lun&what=map&limit=300", "changes", "name", false),
              lDown(300, 300, 1));
    EXPECT_EQ(lNames("/api/v1/losses?since=@10&until=@12&limit=5", "losses", "reason", true),
              lDown(25, 5, 1));
    EXPECT_EQ(lNames("/api/v1/losses?since=@10&until=@12", "losses", "reason", false), lDown(25, 6, 1));
    EXPECT_EQ(ZTAnswerWeb(lHistory, "/api/v1/changes?what=disk").mStatus, 400U);
}

}  // namespace
