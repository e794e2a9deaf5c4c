// Incidents in the store: written by what they have grown by, read back whole, and found by their records.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include "IncidentLookup.h"
#include "StoreBatches.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

constexpr ZTNanoseconds sBegin = 1'700'000'000 * ZTSecond;

// One with something in every member.
ZTSIncident sIncident(std::uint64_t aId, ZTNanoseconds aOpened = sBegin) {
    ZTSIncident lIncident;
    lIncident.mId = aId;
    lIncident.mClass = ZTEIncidentClass::RedundancyLost;
    lIncident.mState = ZTEIncidentState::Quiet;
    lIncident.mTitle = "All paths of /data are \"gone\": 4 of 8 \xc3\xa4";
    lIncident.mOpened = aOpened;
    lIncident.mLast = aOpened + 5 * ZTSecond;
    lIncident.mSeries = aId;
    lIncident.mFabrics = {"A", "B"};
    lIncident.mInitiators = {ZTTestPort(0), ZTTestPort(1)};
    lIncident.mTargets = {ZTTestPort(1001)};
    lIncident.mHits = {{"naa.6"}, {"sdb"}, {"mpatha", "mpathb"}, {"vg0-data"}, {"/data", "/ho\xc3\xa9me"}};
    lIncident.mEvents = 5264;
    lIncident.mFirstCause = {"rscn", ZTTestPort(0), ZTTestPort(1001), "B", aOpened, true};
    lIncident.mCauses = {{"not_ready", {}, {}, "", aOpened + 1, false}, {"logo", {}, {}, "A", aOpened, true}};
    lIncident.mSymptoms = {{"path_lost", 4, aOpened, aOpened + 7}};
    lIncident.mPathsTotal = 8;
    lIncident.mLosses = 3;
    lIncident.mEvidence = {{1, 7, ZTTestPort(0), ZTTestPort(1001), "", aOpened, aOpened + 100 * ZTSecond}};
    lIncident.mChanges = {{aOpened - 1, "note", "mueller", "noted", "array1", "", "new firmware"}};
    lIncident.mSuggestion = "Look at the zoning of fabric B";
    lIncident.mAcknowledged = {"root", aOpened + 2, "it is known"};
    lIncident.mWindow = "new firmware";
    lIncident.mMemory = R"({"x": 1})";
    return lIncident;
}

class IncidentTables : public ::testing::Test {
  protected:
    void write(const std::vector<ZTSIncident>& acrIncidents) {
        ZTSStoreBatch lBatch;
        lBatch.mIncidents.mIncidents = acrIncidents;
        writer().write(lBatch);
    }
    ZTCStoreWriter& writer() {
        if (!mWriter) {
            mWriter.emplace(ZTSStoreOptions{.mPath = mPath, .mHostName = "db7"});
        }
        return *mWriter;
    }
    const ZTSIncidentStart& startAgain() {
        mWriter.reset();
        return writer().getStart().mIncidents;
    }
    std::int64_t ask(const std::string& acrQuery) {
        SQLite::Database lStore = openStoreToRead(mPath);
        return ZTAskStore(lStore, acrQuery);
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    std::optional<ZTCStoreWriter> mWriter;
};

}  // namespace

TEST_F(IncidentTables, WhatIsWrittenIsReadWithAllThatItHas) {
    ZTSIncident lOne = sIncident(1);
    ZTSIncident lOther;  // with nothing but what it must have
    lOther.mId = 4;
    lOther.mOpened = lOther.mLast = sBegin + 1;
    write({lOne, lOther});
    EXPECT_EQ(startAgain().mIncidents, (std::vector{lOne, lOther}));
    EXPECT_EQ(startAgain().mNextId, 5U);
    lOne.mMemory = "";
    ZTCStoreReader lReader(mPath);
    EXPECT_EQ(lReader.readIncident(1), lOne);
    EXPECT_EQ(lReader.readIncidents(0), (std::vector{lOther, lOne}));
    EXPECT_EQ(lReader.readIncidents(0, 1), (std::vector{lOther}));
    EXPECT_FALSE(lReader.readIncident(2));
    // As people ask.
    EXPECT_EQ(
        ask("SELECT count(*) FROM incidents, json_each(body, '$.hits.mounts') WHERE value = '/hoéme' AND "
            "json_extract(body, '$.first_cause.kind') = 'rscn' AND class = 'redundancy_lost'"),
        1);
    EXPECT_EQ(
        ask("SELECT id FROM incidents WHERE closed IS merged AND paths_left IS NULL AND series IS NULL AND "
            "acknowledged_at IS NULL"),
        4);
}

// Whoever writes into the file may write anything.
TEST_F(IncidentTables, ABodyOfAnothersIsReadAsFarAsItGoes) {
    write({sIncident(1)});
    for (const char* const lpBody :
         {"", "no json", "[]", "7", R"({"fabrics": ["A"], "hits": 7, "causes": [{"kind": 8}]})",
          R"({"targets": {"a": null}, "first_cause": ["x"]})"}) {
        openStoreAgain(mPath).exec("UPDATE incidents SET class = 'x', body = '" + std::string(lpBody) + "'");
        EXPECT_EQ(ZTCStoreReader(mPath).readIncident(1)->mTitle, sIncident(1).mTitle) << lpBody;
        EXPECT_EQ(startAgain().mIncidents.size(), 1U) << lpBody;
    }
}

// A storm: all of it grows with every second.
TEST_F(IncidentTables, OfEvidenceWhatHasGrownIsWrittenNowAndThen) {
    ZTSIncident lIncident = sIncident(1);
    lIncident.mState = ZTEIncidentState::Open;
    lIncident.mEvidence.clear();
    for (unsigned int lRow = 0; lRow < 3000; ++lRow) {
        lIncident.mEvidence.push_back(
            {1, 7, ZTTestPort(lRow / 50), ZTTestPort(lRow), "A", sBegin, sBegin + ZTSecond});
    }
    const auto lGrow = [&] {
        lIncident.mLast += ZTSecond;
        for (ZTSIncidentEvidence& lrRow : lIncident.mEvidence) {
            lrRow.mLast = lIncident.mLast;
        }
        write({lIncident});
        return ZTCStoreReader(mPath).readIncident(1)->mEvidence == lIncident.mEvidence;
    };
    write({lIncident});
    const std::uint64_t lBefore = writer().getSize().mWalBytes;
    for (unsigned int lSecond = 0; lSecond < 9; ++lSecond) {
        EXPECT_FALSE(lGrow());
    }
    EXPECT_LT((writer().getSize().mWalBytes - lBefore) / 9, std::uint64_t{8} * 4120);
    EXPECT_TRUE(lGrow());
    EXPECT_FALSE(lGrow());
    lIncident.mState = ZTEIncidentState::Quiet;
    EXPECT_TRUE(lGrow());
    // What it no longer has goes, also behind a new start.
    lIncident.mEvidence.erase(lIncident.mEvidence.begin() + 5, lIncident.mEvidence.end() - 5);
    startAgain();
    EXPECT_TRUE(lGrow());
}

TEST_F(IncidentTables, AStartHasWhatIsOpenAndWhatIsRecent) {
    const ZTNanoseconds lNow =
        std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    constexpr ZTNanoseconds lDay = 24 * 3600 * ZTSecond;
    ZTSStoreBatch lBatch;
    std::vector<ZTSIncident>& lrIncidents = lBatch.mIncidents.mIncidents;
    for (std::uint64_t lId = 1; lId <= 4; ++lId) {
        lrIncidents.push_back(sIncident(lId, lNow - 40 * lDay));
    }
    const auto lClose = [&](std::size_t aAt, ZTNanoseconds aTime) {
        lrIncidents[aAt].mState = ZTEIncidentState::Closed;
        lrIncidents[aAt].mClosed = aTime;
    };
    lClose(0, lNow - 12 * lDay);
    lClose(1, lNow - 6 * lDay);
    lClose(3, lNow - 30 * lDay);
    lrIncidents[2].mState = ZTEIncidentState::Open;
    for (std::int64_t lBack = 0; lBack < 60; ++lBack) {
        lBatch.mIncidents.mBaselines.push_back({lNow / lDay - lBack, "rscn", ZTTestPort(3), 7});
    }
    lBatch.mIncidents.mTo = lNow;
    writer().write(lBatch);
    ++lBatch.mIncidents.mBaselines[0].mEvents;  // the day goes on
    writer().write(lBatch);
    const ZTSIncidentStart& lrStart = startAgain();
    EXPECT_EQ(lrStart.mIncidents, (std::vector{lrIncidents[1], lrIncidents[2]}));
    EXPECT_EQ(lrStart.mNextId, 5U);
    EXPECT_EQ(lrStart.mTo, lNow);
    ASSERT_GE(lrStart.mBaselines.size(), 8U);
    EXPECT_LE(lrStart.mBaselines.size(), 9U);
    EXPECT_EQ(lrStart.mBaselines.back(), lBatch.mIncidents.mBaselines.front());
}

// Each record by both ways, and as people ask.
TEST_F(IncidentTables, RecordsAreFoundByIncidentAndIncidentsByRecord) {
    ZTCTestBatches lBatches;
    std::vector<ZTSIncident> lIncidents;
    ZTSStoreBatch lBatch = lBatches.make(3000);
    for (std::uint64_t lId = 1; lId <= 5; ++lId) {
        lIncidents.push_back(sIncident(lId));
        lIncidents.back().mEvidence.clear();
    }
    lIncidents[4].mMerged = 2;
    lIncidents[4].mState = ZTEIncidentState::Closed;
    std::map<std::uint64_t, std::uint64_t> lExpected;  // incident by record
    for (const ZTSStoreRow& lrRow : lBatch.mRows) {
        const ZTSRecord& lrRecord = lrRow.mRecord;
        if (lrRow.mId % 7 < lIncidents.size()) {
            lIncidents[lrRow.mId % 7].mEvidence.push_back(
                {lrRecord.mSeries.mCategory, lrRecord.mSeries.mSubcategory, lrRecord.mSeries.mInitiator.mPort,
                 lrRecord.mSeries.mRemote.value_or(ZTSWwn{}), lrRecord.mSeries.mFabric, lrRecord.mFirst,
                 lrRecord.mFirst + ZTSecond / 2});
            lExpected[lrRow.mId] = lrRow.mId % 7 == 4 ? 2 : lrRow.mId % 7 + 1;
        }
    }
    lBatch.mIncidents.mIncidents = lIncidents;
    writer().write(lBatch);
    ZTCStoreReader lReader(mPath);
    ZTCIncidentLookup lLookup;
    lLookup.read(lReader, lBatch.mRows.front().mRecord.mFirst, lBatch.mRows.back().mRecord.mFirst);
    for (const ZTSStoreRow& lrRow : lBatch.mRows) {
        EXPECT_EQ(lLookup.find(lrRow.mRecord), lExpected[lrRow.mId]) << lrRow.mId;
    }
    for (const ZTSIncident& lrIncident : lIncidents) {
        const std::vector<std::uint64_t> lIds = lReader.readEvidence(lrIncident, 0);
        EXPECT_EQ(lIds.size(), lrIncident.mEvidence.size());
        for (const std::uint64_t lId : lIds) {
            EXPECT_EQ(lId % 7 + 1, lrIncident.mId);
        }
        EXPECT_TRUE(std::ranges::is_sorted(lIds));
        EXPECT_EQ(lReader.readEvidence(lrIncident, 9), std::vector(lIds.begin(), lIds.begin() + 9));
        EXPECT_EQ(
            ask("SELECT count(*) FROM incident_records WHERE incident = " + std::to_string(lrIncident.mId)),
            static_cast<std::int64_t>(lIds.size()));
    }
    lLookup.read(lReader, 0, sBegin - 1);
    EXPECT_EQ(lLookup.find(lBatch.mRows.front().mRecord), 0U);
    // Those that were open at a time.
    EXPECT_EQ(lReader.readIncidents(0).size(), 4U);
}

// Whoever asks for that, and whoever finds incidents knows nothing of it.
TEST_F(IncidentTables, WhatIsKeptOrAcknowledgedStaysSo) {
    ZTSIncident lIncident = sIncident(1);
    lIncident.mAcknowledged.reset();
    write({lIncident});
    EXPECT_TRUE(writer().markIncident({1, 5, "root", "acknowledge", "1", "known"}));
    EXPECT_TRUE(writer().markIncident({2, 6, "root", "keep", "1", ""}));
    for (const ZTSStoreRequest& lrOther :
         {ZTSStoreRequest{3, 7, "root", "keep", "2", ""}, ZTSStoreRequest{4, 7, "root", "keep", "1x", ""},
          ZTSStoreRequest{5, 7, "root", "keep", "", ""}, ZTSStoreRequest{6, 7, "root", "accept", "1", ""}}) {
        EXPECT_FALSE(writer().markIncident(lrOther));
    }
    lIncident.mEvidence.push_back({1, 8, ZTTestPort(0), ZTTestPort(1001), "", sBegin, sBegin});
    write({lIncident});
    lIncident.mIsKept = true;
    lIncident.mAcknowledged = {"root", 5, "known"};
    EXPECT_EQ(startAgain().mIncidents, (std::vector{lIncident}));
    EXPECT_EQ(ask("SELECT count(*) FROM incident_evidence WHERE kept = 1"), 2);
}
