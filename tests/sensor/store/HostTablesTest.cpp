// What the host tells is read as it was written; of what is there, only what differs is written again.
#include <gtest/gtest.h>

#include "HostBatches.h"
#include "StoreBatches.h"
#include "StoreFollow.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

class HostTables : public ::testing::Test {
  protected:
    ZTSStoreOptions getOptions() const { return {.mPath = mPath, .mHostName = "host"}; }
    std::int64_t ask(const std::string& acrQuery) const {
        SQLite::Database lStore = openStoreToRead(mPath);
        return ZTAskStore(lStore, acrQuery);
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
};

std::vector<ZTSFpin> sFpinsOf(const std::vector<ZTSStoredFpin>& acrStored) {
    std::vector<ZTSFpin> lFpins;
    for (const ZTSStoredFpin& lrStored : acrStored) {
        lFpins.push_back(lrStored.mFpin);
    }
    return lFpins;
}

}  // namespace

TEST_F(HostTables, WhatIsReadIsWhatWasWritten) {
    const ZTSStoreBatch lBatch = ZTHostBatch(1'700'000'000);
    const ZTSHostNews& lrNews = lBatch.mHost;
    {
        ZTCStoreWriter lWriter(getOptions());
        EXPECT_FALSE(lWriter.getStart().mStorage);
        lWriter.write(lBatch);
        ZTCStoreReader lReader(mPath);
        EXPECT_EQ(lReader.readStorage().listHere(), lrNews.mStorage);
        EXPECT_EQ(sFpinsOf(lReader.readFpins(0, INT64_MAX)), lrNews.mFpins);
        ASSERT_EQ(lReader.readStalls(0, INT64_MAX).size(), 1U);
        EXPECT_EQ(lReader.readStalls(0, INT64_MAX).at(0).mStall, lrNews.mStalls.at(0));
        EXPECT_EQ(lReader.readBlindSpots(), lrNews.mBlindSpots);
        EXPECT_EQ(lReader.readWindows(), lrNews.mWindows);
    }
    const ZTSStoreStart lStart = ZTCStoreWriter(getOptions()).getStart();
    EXPECT_EQ(lStart.mStorage, lrNews.mStorage);
    EXPECT_EQ(lStart.mStalls, lrNews.mStalls);
    EXPECT_EQ(lStart.mFacts, lBatch.mFacts);
    EXPECT_EQ(lStart.mPorts, lBatch.mPorts);
}

// Each table refuses what is written to it; what is written behind that is all there is.
TEST_F(HostTables, ABatchThatFailsLeavesNothing) {
    ZTCStoreWriter lWriter(getOptions());
    std::int64_t lSecond = 1'700'000'000;
    for (const char* const lpAt :
         {"INSERT ON luns", "UPDATE ON luns", "INSERT ON maps", "DELETE ON map_paths", "DELETE ON volumes",
          "DELETE ON volume_over", "DELETE ON mounts", "INSERT ON fpins", "UPDATE ON stalls",
          "INSERT ON measured", "UPDATE ON measured", "UPDATE ON measure_minutes", "INSERT ON measure_hours",
          "INSERT ON blind_spots", "DELETE ON windows", "INSERT ON facts"}) {
        lSecond += 3600;
        lWriter.write(ZTHostBatch(lSecond, 5));
        ZTSStoreBatch lBatch = ZTHostBatch(lSecond, 3);
        lBatch.mHost.mMeasures.addToHour(lSecond * ZTSecond, {{}, {}, lpAt}, "commands", 1);
        lBatch.mHost.mStorage->mLuns[0].mState = lpAt;
        lBatch.mHost.mStorage->mMaps[0].mPaths.pop_back();
        lBatch.mHost.mFpins.pop_back();
        lBatch.mHost.mFpins[0].mCount = 1;
        lBatch.mHost.mFpins[0].mEvent = lpAt;
        openStoreAgain(mPath).exec(std::string("CREATE TRIGGER refuse BEFORE ") + lpAt +
                                   " BEGIN SELECT RAISE(ABORT, 'no'); END");
        EXPECT_THROW(lWriter.write(lBatch), ZTCStoreError) << lpAt;
        EXPECT_EQ(ask("SELECT sum(here) FROM luns"), 40) << lpAt;
        openStoreAgain(mPath).exec("DROP TRIGGER refuse");
        lWriter.write(lBatch);
        ASSERT_EQ(ZTCStoreReader(mPath).readStorage().listHere(), lBatch.mHost.mStorage) << lpAt;
        ASSERT_EQ(
            ask("SELECT sum(value) FROM measure_hours WHERE time = " + std::to_string(lSecond / 3600 * 3600)),
            2 * (100 + 50) + 30 + 1)
            << lpAt;
        ASSERT_EQ(ask("SELECT max(value) FROM meta WHERE name = 'measures'"),
                  ask("SELECT (SELECT count(*) FROM measure_hours) + count(*) FROM measure_minutes"));
    }
    EXPECT_EQ(ask("SELECT sum(times) FROM fpins"), 16 * (3 + 2));
    EXPECT_EQ(ask("SELECT count(*) FROM stalls"), 16);
}

// A path that changes among thousands.
TEST_F(HostTables, OnlyWhatDiffersIsWritten) {
    ZTCStoreWriter lWriter(getOptions());
    ZTSStoreBatch lBatch;
    lBatch.mHost.mStorage = ZTTestStorage(1024);
    ZTSHostStorage& lrStorage = *lBatch.mHost.mStorage;
    const auto lWrite = [&] {
        const std::uint64_t lBefore = lWriter.getSize().mWalBytes;
        lWriter.write(lBatch);
        return lWriter.getSize().mWalBytes - lBefore;
    };
    const std::uint64_t lAll = lWrite();
    EXPECT_GT(lAll, 1'000'000U);
    lrStorage.mLuns[4000].mState = "offline";
    lrStorage.mMaps[500].mPaths[5].mIsUsable = false;
    EXPECT_LT(lWrite(), lAll / 20);
    EXPECT_EQ(ZTCStoreReader(mPath).readStorage().listHere(), lrStorage);
    lWriter.finish();
    ZTCStoreWriter lNext(getOptions());
    lNext.write(lBatch);
    EXPECT_LT(lNext.getSize().mWalBytes, lAll / 20) << "it knows what is there";
    EXPECT_EQ(lNext.getStart().mStorage, lrStorage);
}

TEST_F(HostTables, WhatHasGoneStaysWithWhenItWasThere) {
    ZTSStoreBatch lBatch = ZTHostBatch(1'700'000'000, 2);
    ZTNanoseconds lFirst = 0;
    {
        ZTCStoreWriter lWriter(getOptions());
        lWriter.write(lBatch);
        lFirst = ZTCStoreReader(mPath).readStorage().mTime;
    }
    lBatch.mHost.mStorage = ZTTestStorage(1);
    lBatch.mHost.mStorage->mMaps[0].mPaths[0].mIsUsable = false;
    ZTCStoreWriter lWriter(getOptions());
    openStoreAgain(mPath).exec(
        "CREATE TRIGGER refuse BEFORE DELETE ON mounts BEGIN SELECT RAISE(ABORT, ''); END");
    EXPECT_THROW(lWriter.write(lBatch), ZTCStoreError);
    openStoreAgain(mPath).exec("DROP TRIGGER refuse");
    lWriter.write(lBatch);
    const ZTSStoredStorage lStored = ZTCStoreReader(mPath).readStorage();
    EXPECT_EQ(lStored.listHere(), lBatch.mHost.mStorage);
    ASSERT_EQ(lStored.mMaps.size(), 2U);
    EXPECT_EQ(lStored.mMaps[1].mSeen, lWriter.getStart().mLastWrite);
    EXPECT_EQ(lStored.mMaps[1].mSince, 0) << "it was so when it was first seen";
    EXPECT_GT(lStored.mMaps[0].mSince, lFirst);
    EXPECT_EQ(lStored.mMaps[0].mSeen, ask("SELECT value FROM meta WHERE name = 'last_write'"));
    EXPECT_EQ(ask("SELECT count(*) FROM luns WHERE here = 0"), 8);
    lWriter.write({});
    EXPECT_GT(ZTCStoreReader(mPath).readStorage().mMaps[0].mSeen, lStored.mMaps[0].mSeen)
        << "it is still there";
    // That it has changed was told before.
    const ZTNanoseconds lTold = lStored.mTime - ZTSecond;
    lBatch.mChanges = {{lTold, "map", lStored.mMaps[0].mMap.mName, "changed", "paths", "", ""}};
    lBatch.mHost.mStorage->mMaps[0].mPaths[1].mIsUsable = false;
    lWriter.write(lBatch);
    EXPECT_EQ(ZTCStoreReader(mPath).readStorage().mMaps[0].mSince, lTold);
    lWriter.finish();
    const std::vector<ZTSMap> lGone = ZTCStoreWriter(getOptions()).getStart().mMapsGone;
    ASSERT_EQ(lGone.size(), 1U);
    EXPECT_EQ(lGone[0].mTotal, 8U);
}

// FPINs go on from batch to batch, and a stall from its begin to its end.
TEST_F(HostTables, WhatGoesOnIsOneRow) {
    constexpr std::int64_t lBegin = 1'700'000'000;
    ZTCStoreWriter lWriter(getOptions());
    lWriter.write({});
    ZTCStoreReader lReader(mPath);
    ZTCStoreFollow lFollow({}, lReader.readPlace());
    std::optional<ZTCStoreFollow> lLate;  // prints a long history before its first read
    for (std::int64_t lSecond = 0; lSecond < 15; ++lSecond) {
        ZTSStoreBatch lBatch;
        lBatch.mHost.mFpins = {ZTHostBatch(lBegin + lSecond).mHost.mFpins.at(0)};
        lBatch.mHost.mStalls = {ZTHostBatch(lBegin).mHost.mStalls.at(0)};
        lBatch.mHost.mStalls[0].mLast += lSecond * ZTSecond;
        lBatch.mHost.mStalls[0].mIsOver = lSecond == 14;
        lWriter.write(lBatch);
        if (lSecond == 7) {
            lLate.emplace(ZTSHistoryFilter(), lReader.readPlace());
        }
        ZTCStoreFollow::News lNews;
        EXPECT_FALSE(lFollow.read(lReader, lNews));
        EXPECT_EQ(lNews.mStalls.size(), lSecond == 0 || lSecond == 14 ? 1U : 0U) << lSecond;
        EXPECT_EQ(lNews.mFpins.size(), lSecond % 10 == 0 ? 1U : 0U) << lSecond;
        const bool lIsOpen = lSecond < 14;
        EXPECT_EQ(lReader.readStalls((lBegin + 3600) * ZTSecond, INT64_MAX).size(), lIsOpen ? 1U : 0U);
        EXPECT_EQ(lReader.readOpenStalls().size(), lIsOpen ? 1U : 0U);
    }
    ZTCStoreFollow::News lNews;
    EXPECT_FALSE(lLate->read(lReader, lNews));
    ASSERT_EQ(lNews.mStalls.size(), 1U);
    EXPECT_TRUE(lNews.mStalls[0].mStall.mIsOver);
    EXPECT_EQ(ask("SELECT group_concat(times, '') FROM fpins"), 2010);
    EXPECT_EQ(ask("SELECT sum(count) FROM fpins"), 15 * 17);
    EXPECT_EQ(lReader.readFpins((lBegin + 12) * ZTSecond, INT64_MAX).size(), 1U);
    EXPECT_EQ(lReader.readFpins(0, (lBegin + 9) * ZTSecond).size(), 1U);
    EXPECT_EQ(lReader.readFpins(0, INT64_MAX, 1).at(0).mFpin.mFirst, (lBegin + 10) * ZTSecond);
    EXPECT_EQ(lReader.readStalls((lBegin + 20) * ZTSecond, INT64_MAX).size(), 1U);
    EXPECT_EQ(lReader.readStalls((lBegin + 21) * ZTSecond, INT64_MAX).size(), 0U);
}

// The clock was set back behind more of them than are known; and what was known is not there any more.
TEST_F(HostTables, FpinsGoOnWhateverBecameOfOthers) {
    constexpr std::int64_t lBegin = 1'700'000'000;
    ZTCStoreWriter lWriter(getOptions());
    const auto lWrite = [&](std::int64_t aSecond, std::uint32_t aModifiers) {
        ZTSStoreBatch lBatch;
        for (std::uint32_t lModifier = 0; lModifier < aModifiers; ++lModifier) {
            lBatch.mHost.mFpins.push_back(ZTHostBatch(aSecond).mHost.mFpins.at(0));
            lBatch.mHost.mFpins.back().mModifier = lModifier;
        }
        lWriter.write(lBatch);
    };
    lWrite(lBegin + 3600, 300);
    lWrite(lBegin, 1);
    lWrite(lBegin + 1, 1);
    EXPECT_EQ(ask("SELECT max(times) FROM fpins"), 2 * 2);
    openStoreAgain(mPath).exec("DELETE FROM fpins");
    lWrite(lBegin + 2, 1);
    lWrite(lBegin + 3, 1);
    EXPECT_EQ(ask("SELECT sum(times) + count(*) * 10 FROM fpins"), 2 * 2 + 10) << "one row of two";
}

TEST_F(HostTables, MeasuresAddUpOrHaveTheMost) {
    constexpr std::int64_t lHour = 1'699'999'200;
    const ZTSMeasured lPath{ZTTestPort(1), ZTTestPort(2), ""};
    const ZTSMeasured lLun{ZTTestPort(1), ZTTestPort(2), "naa.6"};
    ZTCStoreWriter lWriter(getOptions());
    for (const std::int64_t lSecond : {5, 50, 65, 3600}) {
        ZTSStoreBatch lBatch;
        const ZTNanoseconds lTime = (lHour + lSecond) * ZTSecond;
        lBatch.mHost.mMeasures.add(lTime, lPath, "commands", 10);
        lBatch.mHost.mMeasures.add(lTime, lPath, "slowest_us", static_cast<std::uint64_t>(lSecond));
        lBatch.mHost.mMeasures.addToHour(lTime, lLun, "novel", 7);
        lWriter.write(lBatch);
    }
    ZTCStoreReader lReader(mPath);
    const auto lRead = [&](const char* apName, ZTEStoreBin aBin) {
        std::string lText;
        for (const ZTSStoredMeasure& lrMeasure : lReader.readMeasures(apName, aBin, lHour, lHour + 7200)) {
            EXPECT_TRUE(lrMeasure.mWhose == (lrMeasure.mName == "novel" ? lLun : lPath));
            lText += std::to_string(lrMeasure.mTime - lHour) + ':' + std::to_string(lrMeasure.mValue) + ' ';
        }
        return lText;
    };
    EXPECT_EQ(lRead("commands", ZTEStoreBin::Minute), "0:20 60:10 3600:10 ");
    EXPECT_EQ(lRead("slowest_us", ZTEStoreBin::Minute), "0:50 60:65 3600:3600 ");
    EXPECT_EQ(lRead("commands", ZTEStoreBin::Hour), "0:30 3600:10 ");
    EXPECT_EQ(lRead("novel", ZTEStoreBin::Hour), "0:21 3600:7 ");
    EXPECT_EQ(lReader.readMeasures("", ZTEStoreBin::Hour, lHour, lHour + 1).size(), 3U);
}
