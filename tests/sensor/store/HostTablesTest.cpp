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
