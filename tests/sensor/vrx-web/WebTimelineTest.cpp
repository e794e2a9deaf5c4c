// A timeline says of each lane and bin what the records of that time say, from whatever it is counted.
#include "StoreBatches.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "TestSupport.h"
#include "TimeText.h"
#include "WebAsk.h"
#include "WhenText.h"

namespace {

using Json = nlohmann::ordered_json;
/// Events by the lane's name and the bin's begin, in seconds.
using Counts = std::map<std::pair<std::string, std::int64_t>, std::uint64_t>;

constexpr ZTNanoseconds sBegin = 1'700'000'000 * ZTSecond;

std::string sTime(ZTNanoseconds aTime) {
    return isoText(toSensorTime(aTime));
}

class WebTimeline : public ::testing::Test {
  protected:
    ZTCStoreWriter& writer() {
        if (!mWriter) {
            mWriter.emplace(ZTSStoreOptions{.mPath = mPath, .mHostName = "db7"});
        }
        return *mWriter;
    }
    ZTSWebAsked ask(const std::string& acrParameters, const char* apWhat = "timeline") {
        return ZTAskWeb(mHistory, std::string("/api/v1/") + apWhat + "?" + acrParameters);
    }
    // From one moment to before another one.
    Json ask(ZTNanoseconds aSince, ZTNanoseconds aUntil, const std::string& acrMore) {
        const ZTSWebAsked lAsked = ask("since=" + sTime(aSince) + "&until=" + sTime(aUntil) + "&" + acrMore);
        EXPECT_EQ(lAsked.mAnswer.mStatus, 200U) << lAsked.getText();
        return lAsked.mJson;
    }
    static std::int64_t secondsOf(const Json& acrTime) {
        return *readWhen(acrTime.get<std::string>(), 0, zoneOfUtc) / ZTSecond;
    }
    static Counts countsOf(const Json& acrAnswer) {
        Counts lCounts;
        const std::int64_t lWidth = acrAnswer.at("bin_seconds").get<std::int64_t>();
        const std::int64_t lBegin = secondsOf(acrAnswer.at("since"));
        const std::int64_t lEnd = secondsOf(acrAnswer.at("until"));
        EXPECT_EQ(lBegin % lWidth + lEnd % lWidth, 0);
        for (const Json& lrLane : acrAnswer.at("lanes")) {
            std::int64_t lTime = lBegin;
            for (const Json& lrCount : lrLane.at("counts")) {
                const std::string lName = lrLane.at("name").is_null() ? "none" : lrLane.at("name");
                if (lrCount != 0) {
                    lCounts[{lName, lTime}] += lrCount.get<std::uint64_t>();
                }
                lTime += lWidth;
            }
            EXPECT_EQ(lTime, lEnd);
        }
        return lCounts;
    }
    // The same, of the records themselves. acrName is a column of the series.
    Counts countRecords(const Json& acrAnswer, const std::string& acrName,
                        const std::string& acrWhich) const {
        SQLite::Database lStore = openStoreToRead(mPath);
        const std::string lWidth = acrAnswer.at("bin_seconds").dump();
        SQLite::Statement lRow(
            lStore, "SELECT coalesce(nullif(" + acrName + ", ''), 'none'), records.first / 1000000000 / " +
                        lWidth + " * " + lWidth +
                        " AS bin, sum(occurrences) FROM records JOIN series ON series.id = series "
                        "WHERE bin >= ? AND bin < ? AND " +
                        acrWhich + " GROUP BY 1, 2");
        lRow.bind(1, secondsOf(acrAnswer.at("since")));
        lRow.bind(2, secondsOf(acrAnswer.at("until")));
        Counts lCounts;
        while (lRow.executeStep()) {
            lCounts[{lRow.getColumn(0).getString(), lRow.getColumn(1).getInt64()}] =
                static_cast<std::uint64_t>(lRow.getColumn(2).getInt64());
        }
        return lCounts;
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    std::optional<ZTCStoreWriter> mWriter;
    ZTCWebHistory mHistory{mPath};
};

struct Filter {
    std::string mParameters;
    std::string mSql;  // as a condition
};

}  // namespace

TEST_F(WebTimeline, ItsCountsAreThoseOfTheRecords) {
    ZTCTestBatches lBatches;
    lBatches.mTime = sBegin;
    lBatches.mStep = 7 * ZTSecond;
    lBatches.mRemotes = 12;
    for (unsigned int lRound = 0; lRound < 20; ++lRound) {
        ZTSStoreBatch lBatch = lBatches.make(100);
        for (ZTSStoreRow& lrRow : lBatch.mRows) {
            constexpr std::uint8_t lKinds[] = {1, 16, 17};
            lrRow.mRecord.mSeries.mSubcategory = lKinds[lrRow.mRecord.mSeries.mSubcategory % 3];
        }
        writer().write(lBatch);
    }
    const std::string lPort = ZTTestPort(0).toText();
    const std::string lRemote = ZTTestPort(1003).toText();
    const Filter lFilters[] = {
        {"", "true"},
        {"&initiator=" + lPort, "initiator = '" + lPort + "'"},
        {"&target=" + lRemote + "&fabric=B", "remote = '" + lRemote + "' AND fabric = 'B'"},
        {"&kind=plogi&kind=2/17&kind=1,16", "kind IN ('plogi', '2/17', 'logo')"},
        {"&kind=plogi&initiator=" + lPort + "&host=db7", "kind = 'plogi' AND initiator = '" + lPort + "'"}};
    struct Span {
        ZTNanoseconds mLength;
        const char* mpBins;
        int mWidth;
    };
    // Of records, minutes and hours.
    const Span lSpans[] = {{2000 * ZTSecond, "1000", 10},  {15000 * ZTSecond, "300", 60},
                           {15000 * ZTSecond, "30", 900},  {15000 * ZTSecond, "5", 3600},
                           {15000 * ZTSecond, "2", 21600}, {90000 * ZTSecond, "2", 86400}};
    for (const auto& [lBy, lName] : {std::pair("initiator", "initiator"),
                                     {"target", "remote"},
                                     {"kind", "kind"},
                                     {"fabric", "fabric"},
                                     {"host", "'db7'"}}) {
        for (const Filter& lrFilter : lFilters) {
            for (const Span& lrSpan : lSpans) {
                SCOPED_TRACE(std::string(lBy) + lrFilter.mParameters + ", bins " + lrSpan.mpBins);
                const Json lAnswer =
                    ask(sBegin + 3, sBegin + lrSpan.mLength,
                        std::string("by=") + lBy + "&bins=" + lrSpan.mpBins + lrFilter.mParameters);
                EXPECT_EQ(lAnswer.at("bin_seconds"), lrSpan.mWidth);
                ASSERT_EQ(countsOf(lAnswer), countRecords(lAnswer, lName, lrFilter.mSql));
            }
        }
    }
    EXPECT_TRUE(ask(sBegin, sBegin + ZTSecond, "kind=fpin").at("lanes").empty())
        << "records alone have lanes";
}

TEST_F(WebTimeline, OfManyLanesTheRestIsOne) {
    ZTCTestBatches lBatches;
    lBatches.mTime = sBegin;
    lBatches.mStep = ZTSecond / 10;
    lBatches.mRemotes = 600;
    writer().write(lBatches.make(6000));
    for (const char* const lpBins : {"1000", "1"}) {
        const Json lAnswer = ask(sBegin, sBegin + 600 * ZTSecond, std::string("by=target&bins=") + lpBins);
        const Json& lrLanes = lAnswer.at("lanes");
        ASSERT_EQ(lrLanes.size(), 64U);
        EXPECT_EQ(lrLanes.back().at("name"), "");
        std::map<std::string, std::uint64_t> lWanted;
        std::map<std::int64_t, std::uint64_t> lAll;
        for (const auto& [lrLane, lEvents] : countRecords(lAnswer, "remote", "true")) {
            lWanted[lrLane.first] += lEvents;
            lAll[lrLane.second] += lEvents;
        }
        std::map<std::string, std::uint64_t> lShown;
        for (const auto& [lrLane, lEvents] : countsOf(lAnswer)) {
            lShown[lrLane.first] += lEvents;
            lAll[lrLane.second] -= lEvents;
        }
        std::uint64_t lLeast = UINT64_MAX;
        for (const auto& [lrName, lEvents] : lShown) {
            if (!lrName.empty()) {
                EXPECT_EQ(lEvents, lWanted[lrName]);
                lLeast = std::min(lLeast, lEvents);
                lWanted.erase(lrName);
            }
        }
        EXPECT_TRUE(
            std::ranges::all_of(lWanted, [&](const auto& acrLane) { return acrLane.second <= lLeast; }));
        EXPECT_TRUE(std::ranges::all_of(lAll, [](const auto& acrBin) { return acrBin.second == 0; }));
    }
}

// An answer may be coarser than what was asked for, but it takes no longer.
TEST_F(WebTimeline, OfVeryManyRecordsBinsAreThoseOfSums) {
    ZTCTestBatches lBatches;
    lBatches.mTime = sBegin;
    lBatches.mStep = ZTSecond / 40;
    lBatches.mRemotes = 2;
    lBatches.mData = 4;
    ZTSStoreBatch lBatch = lBatches.make(61'000);
    ZTSRecord lRare = lBatch.mRows.back().mRecord;
    lRare.mSeries.mInitiator.mPort = ZTTestPort(77);
    lBatch.mRows.push_back({lBatches.mNextId, true, lRare, lRare.mOccurrences});
    writer().write(lBatch);
    const auto lWidthOf = [&](const std::string& acrMore) {
        const Json lAnswer = ask(sBegin, sBegin + 2000 * ZTSecond, "by=target&" + acrMore);
        EXPECT_FALSE(lAnswer.at("lanes").empty());
        return lAnswer.at("bin_seconds").get<int>();
    };
    EXPECT_EQ(lWidthOf(""), 60);
    EXPECT_EQ(lWidthOf("initiator=" + ZTTestPort(0).toText() + "&initiator=" + ZTTestPort(1).toText()), 3600);
    EXPECT_EQ(lWidthOf("initiator=" + ZTTestPort(77).toText()), 10);
}

TEST_F(WebTimeline, WhatIsNotAskedRightIsRefused) {
    writer().write({});
    const auto lStatus = [&](const std::string& acrParameters) { return ask(acrParameters).mAnswer.mStatus; };
    for (const char* const lpWrong :
         {"by=colour", "bins=0", "bins=4097", "bins=x", "since=soon", "since=-1h&until=-2h",
          "since=2100-01-01", "since=-20000d", "since=-3d&bins=2", "kind=nothing", "initiator=me", "fabric=x",
          "host=other", "since=1&until=2"}) {
        EXPECT_EQ(lStatus(lpWrong), 400U) << lpWrong;
    }
    for (const char* const lpRight :
         {"", "by=host", "since=now", "until=2262-04-11", "since=-4000d&bins=4096",
          "since=@1700000000&until=@1702000000", "kind="}) {
        EXPECT_EQ(lStatus(lpRight), 200U) << lpRight;
    }
    const Json lDay = ask("").mJson;
    EXPECT_EQ(lDay.at("bin_seconds"), 300);
    EXPECT_EQ(lDay.at("by"), "initiator");
}

TEST_F(WebTimeline, HolesAreLossesAndWhenNobodyCollected) {
    ZTSStoreBatch lBatch;
    const auto lLoss = [&](int aFirst, int aLast, const char* apReason, std::optional<std::uint64_t> aEvents,
                           std::optional<std::uint64_t> aAtMost = {}) {
        lBatch.mLosses.push_back(
            {sBegin + aFirst * ZTSecond, sBegin + aLast * ZTSecond, "agent", apReason, aEvents, aAtMost});
    };
    const auto lSensor = [&](int aTime, const char* apEvent, const std::string& acrBefore) {
        lBatch.mChanges.push_back(
            {sBegin + aTime * ZTSecond, "sensor", "vrx-sn, process 7", apEvent, "", acrBefore, ""});
    };
    for (int lSecond = 0; lSecond < 100; ++lSecond) {
        lLoss(100 + lSecond, 101 + lSecond, "limit", 2);
    }
    lLoss(150, 151, "killed", {}, 7);
    lLoss(500, 501, "limit", 5);
    lSensor(-5000, "came", "");
    lSensor(-4000, "went", "");
    lSensor(50, "came", "");
    lSensor(800, "went", sTime(sBegin + 700 * ZTSecond));
    lSensor(800, "came", "");
    lBatch.mChanges.push_back(
        {sBegin + 900 * ZTSecond, "sensor", "buffer", "changed", "lost_changes", "0", "1"});
    for (int lRun = 0; lRun < 3; ++lRun) {
        ZTSAgentRun& lrRun = lBatch.mAgents.emplace_back();
        lrRun.mStart = lrRun.mProcess = lRun + 1;
        lrRun.mCame = sBegin + lRun * 300 * ZTSecond;
        lrRun.mSeen = lrRun.mCame + 200 * ZTSecond;
        lrRun.mWent = lRun < 2 ? lrRun.mSeen + ZTSecond : 0;
    }
    writer().write(lBatch);
    const auto lHoles = [&](int aFrom, int aTo) {
        std::string lText;
        const Json lAnswer = ask(sBegin + aFrom * ZTSecond, sBegin + aTo * ZTSecond, "bins=4096");
        for (const Json& lrHole : lAnswer.at("holes")) {
            const auto lAt = [&](const char* apName) {
                return std::to_string(secondsOf(lrHole.at(apName)) - sBegin / ZTSecond);
            };
            lText += lAt("first") + ".." + lAt("last") + " " + lrHole.at("source").get<std::string>() + " " +
                     lrHole.at("reason").get<std::string>() + " " + lrHole.at("events").dump() + "; ";
            EXPECT_FALSE(lrHole.at("text").get<std::string>().empty());
        }
        return lText;
    };
    EXPECT_EQ(lHoles(0, 1000),
              "-4000..50 sensor away null; 100..200 agent limit 200; 150..151 agent killed null; "
              "201..300 agent away null; 500..501 agent limit 5; 501..600 agent away null; "
              "700..800 sensor away null; ");
    EXPECT_EQ(lHoles(-2000, -1900), "-4000..50 sensor away null; ");
    EXPECT_EQ(lHoles(820, 990), "");
    mWriter.reset();
    const std::string lGone = lHoles(1000, 300'000'000);
    EXPECT_TRUE(lGone.find("sensor away") != std::string::npos) << lGone << "it does not run";
}

TEST_F(WebTimeline, WhatWasMeasuredIsSummedByWhoseItIs) {
    ZTSStoreBatch lBatch;
    ZTCMeasures& lrMeasures = lBatch.mHost.mMeasures;
    for (unsigned int lAt = 0; lAt < 8; ++lAt) {
        const ZTSMeasured lWhose{ZTTestPort(lAt / 4), ZTTestPort(10 + lAt / 2 % 2), std::to_string(lAt % 2)};
        for (unsigned int lMinute = 0; lMinute < 3; ++lMinute) {
            const ZTNanoseconds lTime = sBegin + lMinute * 1800 * ZTSecond;
            lrMeasures.add(lTime, lWhose, "commands", 1U << lAt);
            lrMeasures.add(lTime, lWhose, "slowest_us", lAt + 1);
        }
    }
    writer().write(lBatch);
    const auto lList = [&](const std::string& acrMore, unsigned int aStatus = 200) {
        const ZTSWebAsked lAsked =
            ask("since=" + sTime(sBegin) + "&until=" + sTime(sBegin + 3601 * ZTSecond) + "&" + acrMore,
                "measures");
        EXPECT_EQ(lAsked.mAnswer.mStatus, aStatus) << lAsked.getText();
        std::string lText;
        for (const Json& lrMeasure : aStatus == 200 ? lAsked.mJson.at("measures") : Json::array()) {
            const auto lPort = [&](const char* apName) {
                const Json& lrPort = lrMeasure.at(apName);
                return lrPort.is_null() ? "-" : lrPort.at("port_name").get<std::string>().substr(21);
            };
            const Json& lrLun = lrMeasure.at("lun");
            lText += lPort("initiator") + " " + lPort("target") + " " +
                     (lrLun.is_null() ? "-" : lrLun.get<std::string>()) + ":";
            for (const Json& lrValue : lrMeasure.at("values")) {
                lText += lrValue != 0 ? " " + lrValue.dump() : "";
            }
            lText += "; ";
        }
        return lText;
    };
    EXPECT_EQ(lList("name=commands&by=initiator"), "00 - -: 15 15 15; 01 - -: 240 240 240; ");
    EXPECT_EQ(lList("name=slowest_us&by=target&target=" + ZTTestPort(11).toText()),
              "00 0b -: 4 4 4; 01 0b -: 8 8 8; ");
    EXPECT_EQ(lList("name=slowest_us&bins=2&initiator=" + ZTTestPort(1).toText()),
              "01 0a 0: 5 5; 01 0a 1: 6 6; 01 0b 0: 7 7; 01 0b 1: 8 8; ");
    EXPECT_EQ(lList("name=commands&bins=2&by=initiator"), "00 - -: 30 15; 01 - -: 480 240; ") << "hours";
    EXPECT_EQ(lList("name=nothing"), "");
    EXPECT_EQ(lList("by=kind", 400), "");
}
