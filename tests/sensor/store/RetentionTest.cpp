// What is too old or too much goes, and nothing else does.
#include <gtest/gtest.h>

#include "../../../sensor/store/Retention.h"
#include "HostBatches.h"
#include "StoreFile.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

constexpr ZTNanoseconds sDay = 24 * 3600 * ZTSecond;
constexpr std::uint64_t sMega = std::uint64_t{1} << 20;

class Retention : public ::testing::Test {
  protected:
    ZTSStoreOptions getOptions(std::uint64_t aBytes) const {
        return {.mPath = mPath,
                .mHostName = "host",
                .mKeepDays = 90,
                .mKeepBytes = aBytes,
                .mClockTrust = std::chrono::seconds(0)};
    }
    std::int64_t ask(const std::string& acrQuery) const {
        SQLite::Database lStore = openStoreToRead(mPath);
        return ZTAskStore(lStore, acrQuery);
    }
    void keep(std::uint64_t aFirst, std::uint64_t aLast) const {
        openStoreAgain(mPath).exec("INSERT INTO kept VALUES (" + std::to_string(aFirst) + ", " +
                                   std::to_string(aLast) + ")");
    }
    // Sums of minutes and hours count from where both have all their records.
    void expectRightSums() const {
        const std::int64_t lFrom = ask(
            "SELECT (min(first) / 1000000000 / 3600 + 1) * 3600 FROM records WHERE NOT EXISTS (SELECT 1 FROM "
            "kept WHERE records.id BETWEEN first_id AND last_id)");
        SQLite::Database lStore = openStoreToRead(mPath);
        EXPECT_EQ(ZTCountWrongSums(lStore, lFrom), 0);
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
};

}  // namespace

TEST_F(Retention, DecidesByWhatTheFileHas) {
    struct Case {
        const char* mpWhat;
        std::uint64_t mPages, mFree;
        bool mIsTrusted;
        bool mIsFull, mShrinks, mIsAtLimit;
    };
    constexpr std::uint64_t lKeep = 64000;  // pages
    for (const Case& lrCase :
         {Case{"little", 1000, 0, true, false, false, false},
          Case{"the clock was set", 1000, 0, false, false, false, false},
          Case{"nearly full", lKeep - 1000, 0, true, true, false, false},
          Case{"full", lKeep, 0, true, true, false, true},
          Case{"the limit was lowered", 3 * lKeep, 100, true, true, false, true},
          Case{"and all has gone", 3 * lKeep, 2 * lKeep + 5000, true, false, true, false},
          Case{"as large as it may be, and free", lKeep, 5000, true, false, false, false}}) {
        ZTSRetentionFacts lFacts{{90, lKeep * 4096}, 4096,       lrCase.mPages,
                                 lrCase.mFree,       100 * sDay, lrCase.mIsTrusted};
        const ZTSRetentionPlan lPlan = planRetention(lFacts);
        EXPECT_EQ(lPlan.mIsFull, lrCase.mIsFull) << lrCase.mpWhat;
        EXPECT_EQ(lPlan.mShrinks, lrCase.mShrinks) << lrCase.mpWhat;
        EXPECT_EQ(isAtLimit(lFacts), lrCase.mIsAtLimit) << lrCase.mpWhat;
        EXPECT_EQ(lPlan.mOlderThan.value_or(0), lrCase.mIsTrusted ? 10 * sDay : 0) << lrCase.mpWhat;
    }
}

TEST_F(Retention, BelievesAClockThatHasKeptStep) {
    using namespace std::chrono_literals;
    ZTCClockTrust lTrust(1h);
    auto lSteady = std::chrono::steady_clock::time_point(5h);
    ZTNanoseconds lNow = 1000 * sDay;
    const auto lPass = [&](std::chrono::nanoseconds aTime, ZTNanoseconds aStep = 0) {
        lSteady += aTime;
        lNow += aTime.count() + aStep;
        return lTrust.look(lNow, lSteady);
    };
    EXPECT_FALSE(lPass(0s));
    EXPECT_FALSE(lPass(59min));
    EXPECT_TRUE(lPass(1min));
    EXPECT_TRUE(lPass(1min, ZTSecond));  // slewed
    EXPECT_FALSE(lPass(1s, 3600 * ZTSecond));
    EXPECT_FALSE(lPass(59min));
    EXPECT_FALSE(lPass(1s, -3600 * ZTSecond));
    EXPECT_FALSE(lPass(59min));
    EXPECT_TRUE(lPass(1min));
}

// At full speed, and with nobody who retires in between.
TEST_F(Retention, TheFileStaysBelowItsLimit) {
    const std::uint64_t lBytes = ZTTestRounds(5 * sMega, 200 * sMega);
    const std::uint64_t lRows = ZTTestRounds(ZTIsSanitized ? 80'000U : 150'000U, 10'000'000U);
    ZTCStoreWriter lWriter(getOptions(lBytes));
    ZTCTestBatches lBatches;
    lBatches.mStep = 100'000'000;
    keep(101, 200);
    std::uint64_t lLargest = 0;
    std::int64_t lEvents = 0;
    for (unsigned int lBatch = 0; lBatches.mNextId < lRows; ++lBatch) {
        lWriter.write(lBatches.make(1000));
        lWriter.checkpoint();
        lLargest = std::max(lLargest, lWriter.getSize().mBytes);
        if (lBatch % 64 == 0) {
            lWriter.retire(lBatches.mTime);
            const std::int64_t lNow = ask("SELECT sum(events) FROM series");
            EXPECT_GT(lNow, lEvents);
            lEvents = lNow;
        }
    }
    while (lWriter.retire(lBatches.mTime)) {
    }
    EXPECT_LT(lLargest, lBytes * 11 / 10);
    EXPECT_GT(lLargest, lBytes * 9 / 10);
    EXPECT_EQ(ask("SELECT count(*) FROM records WHERE id BETWEEN 101 AND 200"), 100);
    EXPECT_EQ(ask("SELECT sum(events) FROM series"), lBatches.mEvents);
    EXPECT_EQ(ask("SELECT max(id) FROM records") + 1, lBatches.mNextId);
    EXPECT_GT(ask("SELECT count(*) FROM records"), lBytes / 300);
    EXPECT_EQ(lWriter.getSize().mRecords, ask("SELECT count(*) FROM records"));
    expectRightSums();
    // The rest of the file goes back to the disk.
    lWriter.setKeep(90, lBytes / 2);
    while (lWriter.retire(lBatches.mTime)) {
        lWriter.checkpoint();
    }
    lWriter.finish();
    EXPECT_LT(std::filesystem::file_size(mPath), lBytes * 6 / 10);
    expectRightSums();
}

TEST_F(Retention, SeriesThatHaveNoRecordsShareRowsBeforeTheyFillTheStore) {
    const std::uint64_t lBytes = 2 * sMega;
    ZTCStoreWriter lWriter(getOptions(lBytes));
    ZTCTestBatches lBatches;
    lBatches.mRemotes = 1'000'000;
    const auto lWrite = [&](unsigned int aBatches) {
        for (unsigned int lBatch = 0; lBatch < aBatches; ++lBatch) {
            lWriter.write(lBatches.make(200));
            lWriter.checkpoint();
        }
    };
    lWrite(40);
    const std::int64_t lBefore = ask("SELECT count(*) FROM series WHERE remote <> '*'");
    const std::string lLast = "SELECT max(id) FROM series";
    EXPECT_LE(lBefore, lBytes / 1600);
    lBatches.mRemotes = 2;
    lWrite(300);  // the records of the first ones go
    while (lWriter.retire(lBatches.mTime)) {
        EXPECT_GE(ask(lLast), lBefore);
    }
    EXPECT_LT(ask("SELECT count(*) FROM series WHERE remote <> '*'"), lBefore);
    EXPECT_EQ(ask("SELECT sum(events) FROM series"), lBatches.mEvents);
    EXPECT_EQ(ask("SELECT count(*) FROM records WHERE series NOT IN (SELECT id FROM series)"), 0);
    EXPECT_GT(ask("SELECT count(*) FROM records"), 1000);
    lWrite(3);
    EXPECT_LT(lWriter.getSize().mBytes, lBytes * 12 / 10);
    EXPECT_EQ(ask("SELECT sum(events) FROM series"), lBatches.mEvents);
}

TEST_F(Retention, WhatIsTooOldGoes) {
    ZTCStoreWriter lWriter(getOptions(100 * sMega));
    ZTCTestBatches lBatches;
    lBatches.mStep = sDay / 100;
    const ZTNanoseconds lBegin = lBatches.mTime;
    keep(50, 60);
    ZTSStoreBatch lBatch = lBatches.make(20000);  // 200 days
    lBatch.mLosses = {{lBegin, lBegin + 1, "agent", "limit", 7, {}},
                      {lBegin, lBatches.mTime, "agent", "limit", 8, {}}};
    lBatch.mChanges = {{lBegin, "port", "p", "came", "", "", ""},
                       {lBatches.mTime, "port", "p", "went", "", "", ""}};
    lWriter.write(lBatch);
    const ZTNanoseconds lNow = lBatches.mTime;
    while (lWriter.retire(lNow)) {
    }
    EXPECT_EQ(ask("SELECT count(*) FROM records"), 11 + 9001);
    EXPECT_EQ(ask("SELECT min(first) FROM records WHERE id > 60"), lNow - 90 * sDay);
    EXPECT_EQ(ask("SELECT sum(events) FROM series"), lBatches.mEvents);
    EXPECT_LE(ask("SELECT count(DISTINCT time) FROM hours"), 90 * 24 + 1);
    EXPECT_LE(ask("SELECT count(DISTINCT time) FROM series_hours"), 90 * 24 + 1);
    EXPECT_EQ(ask("SELECT sum(events) FROM losses"), 8);
    EXPECT_EQ(ask("SELECT events FROM loss_totals"), 15);
    EXPECT_EQ(ask("SELECT count(*) FROM changes"), 1);
    expectRightSums();
}

// Open rows may grow yet, and ids go on behind the newest one.
TEST_F(Retention, OpenRowsAndTheNewestOneStay) {
    {
        ZTCStoreWriter lWriter(getOptions(100 * sMega));
        ZTCTestBatches lBatches;
        lWriter.write(lBatches.make(1000));
        while (lWriter.retire(lBatches.mTime + 1000 * sDay)) {
        }
        EXPECT_EQ(ask("SELECT count(*) FROM records"), lBatches.mOpen);
        lWriter.write(lBatches.make(0));
        expectRightSums();
    }
    ZTCStoreWriter lWriter(getOptions(100 * sMega));
    while (lWriter.retire(INT64_MAX / 2)) {
    }
    EXPECT_EQ(ask("SELECT min(id) FROM records"), 1000);
    lWriter.finish();
    EXPECT_EQ(ZTCStoreWriter(getOptions(100 * sMega)).getStart().mNextId, 1001U);
}

TEST_F(Retention, AClockThatWasSetEmptiesNothing) {
    ZTSStoreOptions lOptions = getOptions(100 * sMega);
    lOptions.mClockTrust = std::chrono::hours(1);
    ZTCStoreWriter lWriter(lOptions);
    ZTCTestBatches lBatches;
    lWriter.write(lBatches.make(1000));
    for (const ZTNanoseconds lStep : {ZTNanoseconds{0}, 1000 * sDay, -1000 * sDay, 2000 * sDay}) {
        EXPECT_FALSE(lWriter.retire(lBatches.mTime + lStep));
    }
    EXPECT_EQ(ask("SELECT count(*) FROM records"), 1000);
}

TEST_F(Retention, WhatTheHostToldGoesWithItsTime) {
    ZTCStoreWriter lWriter(getOptions(100 * sMega));
    const std::int64_t lNow = 1'700'000'000;
    for (std::int64_t lDay = 200; lDay >= 0; --lDay) {
        ZTSStoreBatch lBatch = ZTHostBatch(lNow - lDay * 86400, lDay == 200 ? 2 : 1);
        lBatch.mHost.mStalls[0].mIsOver = lDay != 150;
        lWriter.write(lBatch);
    }
    openStoreAgain(mPath).exec(
        "UPDATE luns SET seen = 5 WHERE here = 0; UPDATE maps SET seen = 5 WHERE here = 0;"
        "INSERT INTO requests VALUES (1, 5, '', '', '', '', 6), (2, 5, '', '', '', '', 0)");
    while (lWriter.retire(lNow * ZTSecond)) {
    }
    EXPECT_EQ(ask("SELECT count(*) FROM fpins"), 2 * 91);
    EXPECT_EQ(ask("SELECT count(*) FROM stalls"), 91 + 1) << "one is not over";
    EXPECT_EQ(ask("SELECT count(DISTINCT time) FROM measure_minutes"), 91);
    EXPECT_EQ(ask("SELECT count(DISTINCT time) FROM measure_hours"), 91);
    EXPECT_EQ(ask("SELECT count(*) FROM luns"), 8);
    EXPECT_EQ(ask("SELECT count(*) FROM maps"), 1);
    EXPECT_EQ(ask("SELECT count(*) FROM requests"), 1) << "one is not done";
    EXPECT_EQ(ask("SELECT value FROM meta WHERE name = 'retired_fpins'"), 2 * 110);
    EXPECT_EQ(ask("SELECT value FROM meta WHERE name = 'retired_stalls'"), 109);
    EXPECT_EQ(ask("SELECT value FROM meta WHERE name = 'retired_measures'"), 5 * 110);
    EXPECT_EQ(ask("SELECT value FROM meta WHERE name = 'measures'"), 5 * 91);
    // Somebody else took them all.
    openStoreAgain(mPath).exec(
        "DELETE FROM measure_minutes; DELETE FROM measure_hours;"
        "UPDATE meta SET value = 1 << 40 WHERE name = 'measures'");
    lWriter.finish();
    ZTCStoreWriter(getOptions(100 * sMega)).retire(lNow * ZTSecond);
    EXPECT_EQ(ask("SELECT value FROM meta WHERE name = 'measures'"), 0);
}

TEST_F(Retention, WhatTheHostToldFillsNoStore) {
    const std::uint64_t lBytes = 2 * sMega;
    ZTCStoreWriter lWriter(getOptions(lBytes));
    std::int64_t lSecond = 1'700'000'000;
    ZTCTestBatches lBatches;
    lWriter.write(lBatches.make(100));
    std::uint64_t lLargest = 0;
    for (unsigned int lRound = 0; lRound < (ZTIsSanitized ? 20U : 60U); ++lRound) {
        ZTSStoreBatch lBatch;
        for (unsigned int lAt = 0; lAt < 400; ++lAt) {
            lSecond += 60;
            ZTSStoreBatch lMore = ZTHostBatch(lSecond, 0);
            lMore.mHost.mStalls[0].mIsOver = true;
            lMore.mHost.mMeasures.add(lSecond * ZTSecond, {{}, {}, std::to_string(lAt)}, "commands", 1);
            lBatch.mHost.join(std::move(lMore.mHost));
        }
        lWriter.write(lBatch);
        lWriter.checkpoint();
        // As after hours in which nobody looked.
        while (lWriter.retire(lSecond * ZTSecond)) {
        }
        lLargest = std::max(lLargest, lWriter.getSize().mBytes);
    }
    EXPECT_LT(lLargest, lBytes * 13 / 10);
    EXPECT_GT(ask("SELECT count(*) FROM fpins"), 400);
    EXPECT_GT(ask("SELECT count(*) FROM measure_hours"), 400);
    EXPECT_GT(ask("SELECT count(*) FROM records"), 0);
}

// Of a store's rows: which belong to incidents that are kept, a few of each 50, one after the other and not.
class ZTCKeptEvidence {
  public:
    void addTo(ZTSStoreBatch& arBatch, bool aIsKept = true) {
        ZTSIncident lIncident;
        lIncident.mId = ++mIncidents;
        lIncident.mState = ZTEIncidentState::Closed;
        lIncident.mIsKept = aIsKept;
        for (const ZTSStoreRow& lrRow : arBatch.mRows) {
            const ZTSRecord& lrRecord = lrRow.mRecord;
            lIncident.mOpened = lIncident.mLast = lIncident.mClosed = lrRecord.mFirst;
            if (lrRow.mIsNew && (lrRow.mId % 50 < 5 || lrRow.mId % 50 == 20)) {
                lIncident.mEvidence.push_back({lrRecord.mSeries.mCategory, lrRecord.mSeries.mSubcategory,
                                               lrRecord.mSeries.mInitiator.mPort,
                                               lrRecord.mSeries.mRemote.value_or(ZTSWwn{}),
                                               lrRecord.mSeries.mFabric, lrRecord.mFirst, lrRecord.mFirst});
                mRecords += aIsKept ? 1 : 0;
            }
        }
        arBatch.mIncidents.mIncidents = {lIncident};
    }
    std::uint64_t mIncidents = 0;
    std::int64_t mRecords = 0;
};

// By their time, and for want of room.
TEST_F(Retention, RecordsOfKeptIncidentsStay) {
    for (const bool lByTime : {true, false}) {
        std::filesystem::remove_all(mPath);
        std::filesystem::remove_all(mPath + "-wal");
        ZTCStoreWriter lWriter(getOptions(lByTime ? 100 * sMega : 3 * sMega));
        ZTCTestBatches lBatches;
        ZTCKeptEvidence lEvidence;
        lBatches.mStep = lByTime ? sDay / 10 : ZTSecond;
        lBatches.mRemotes = 3;
        for (unsigned int lBatch = 0; lBatch < 40; ++lBatch) {
            ZTSStoreBatch lRows = lBatches.make(1000);
            lEvidence.addTo(lRows, lBatch < 5);
            lWriter.write(lRows);
            lWriter.checkpoint();
            while (!lByTime && lWriter.retire(lBatches.mTime)) {
            }
        }
        while (lWriter.retire(lBatches.mTime)) {
            lWriter.checkpoint();
        }
        ZTCStoreReader lReader(mPath);
        std::size_t lThere = 0;
        for (std::uint64_t lId = 1; lId <= 5; ++lId) {
            lThere += lReader.readEvidence(*lReader.readIncident(lId), 0).size();
        }
        EXPECT_EQ(lThere, lEvidence.mRecords);
        EXPECT_LT(ask("SELECT min(id) FROM records WHERE id > 5000"), 40000);
        EXPECT_GT(ask("SELECT min(id) FROM records WHERE id > 5000"), lByTime ? 35000 : 10000);
        EXPECT_EQ(ask("SELECT count(*) FROM records WHERE id <= 5000"), lThere) << "and no others";
        EXPECT_EQ(ask("SELECT sum(last_id - first_id + 1) FROM kept"), lThere);
        EXPECT_EQ(ask("SELECT count(*) FROM kept"), lThere / 3 + 1) << "rows that follow are one";
        EXPECT_EQ(ask("SELECT count(*) FROM incidents") +
                      ask("SELECT value FROM meta WHERE name = 'retired_incidents'"),
                  40);
        EXPECT_LT(ask("SELECT count(*) FROM incidents"), 35);
        EXPECT_EQ(
            ask("SELECT count(*) FROM incident_evidence LEFT JOIN incidents ON id = incident WHERE id IS NULL"),
            0);
        expectRightSums();
    }
}

TEST_F(Retention, IncidentsThatAreNotClosedStayWhenNothingElseCanGo) {
    const std::uint64_t lBytes = 2 * sMega;
    ZTCStoreWriter lWriter(getOptions(lBytes));
    ZTNanoseconds lTime = 1'700'000'000 * ZTSecond;
    ZTSStoreBatch lBatch;
    for (std::uint64_t lId = 1; lId <= 4000; ++lId) {
        lTime += 3600 * ZTSecond;
        ZTSIncident lIncident;
        lIncident.mId = lId;
        lIncident.mOpened = lIncident.mLast = lTime;
        lIncident.mTitle = std::string(1000, 'x');
        lIncident.mIsKept = lId == 7;
        lIncident.mClosed = lId == 5 ? 0 : lTime;
        lIncident.mState = lId == 5 ? ZTEIncidentState::Open : ZTEIncidentState::Closed;
        lBatch.mIncidents = {{lIncident}, {{lTime / sDay, "rscn", {}, 1}}, lTime};
        lWriter.write(lBatch);
        if (lId % 50 == 0) {
            lWriter.checkpoint();
            while (lWriter.retire(lTime)) {
            }
        }
    }
    EXPECT_LT(lWriter.getSize().mBytes, lBytes * 12 / 10);
    EXPECT_EQ(ask("SELECT sum(id) FROM incidents WHERE id < 1000"), 5 + 7);
    EXPECT_GT(ask("SELECT count(*) FROM incidents"), 300);
    lWriter.finish();
    ZTCStoreWriter(getOptions(lBytes)).retire(lTime);
    EXPECT_EQ(ask("SELECT count(*) FROM baselines"), 35);
}

// A name goes with the last sum that refers to it, and comes again with the next one.
TEST_F(Retention, NamesThatNoSumHasGo) {
    const ZTNanoseconds lNow = 1'700'000'000 * ZTSecond;
    ZTCTestBatches lBatches;
    lBatches.mRemotes = 1500;
    {
        ZTCStoreWriter lWriter(getOptions(100 * sMega));
        lBatches.mTime = lNow - 200 * sDay;
        lBatches.mStep = ZTSecond / 100;
        ZTSStoreBatch lBatch = lBatches.make(9000);
        for (unsigned int lAt = 0; lAt < 1500; ++lAt) {
            lBatch.mHost.mMeasures.addToHour(lBatches.mTime, {{}, {}, std::to_string(lAt)}, "commands", 1);
        }
        lWriter.write(lBatch);
        lBatches.mTime = lNow;
        lBatches.mRemotes = 50;
        lWriter.write(lBatches.make(200));
        while (lWriter.retire(lNow)) {
        }
    }
    const std::string lUnused = "SELECT count(*) FROM member WHERE id NOT IN (SELECT member FROM hours)";
    EXPECT_GT(ask(lUnused), 1000);
    EXPECT_EQ(ask("SELECT count(*) FROM measured"), 1500);
    ZTCStoreWriter lWriter(getOptions(100 * sMega));
    while (lWriter.retire(lNow)) {
    }
    EXPECT_EQ(ask(lUnused), 0);
    EXPECT_EQ(
        ask("SELECT count(*) FROM (SELECT member FROM minutes UNION SELECT member FROM hours) WHERE member "
            "NOT IN (SELECT id FROM member)"),
        0);
    EXPECT_EQ(ask("SELECT count(*) FROM measured"), 0);
    lBatches.mRemotes = 5000;
    ZTSStoreBatch lBatch = lBatches.make(1000);
    lBatch.mHost.mMeasures.addToHour(lNow, {{}, {}, "7"}, "commands", 1);
    lWriter.write(lBatch);
    expectRightSums();
    EXPECT_EQ(ask("SELECT count(*) FROM measured JOIN measure_hours ON measured = measured.id"), 1);
}
