// What is too old or too much goes, and nothing else does.
#include <gtest/gtest.h>

#include "../../../sensor/store/Retention.h"
#include "StoreBatches.h"
#include "StoreFile.h"
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
    const std::uint64_t lRows = ZTTestRounds(150'000U, 10'000'000U);
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
