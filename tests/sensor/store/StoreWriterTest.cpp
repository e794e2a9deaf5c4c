// What is written into the store stands there, all of it or nothing, with sums that are those of the records.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "StoreBatches.h"
#include "StoreFile.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

class StoreWriter : public ::testing::Test {
  protected:
    ZTSStoreOptions getOptions() const { return {.mPath = mPath, .mHostName = "host"}; }
    std::int64_t ask(const std::string& acrQuery) const {
        SQLite::Database lStore = openStoreToRead(mPath);
        return ZTAskStore(lStore, acrQuery);
    }
    std::int64_t askMeta(const std::string& acrName) const {
        return ask("SELECT max(value) FROM meta WHERE name = '" + acrName + "'");
    }
    std::int64_t countWrongSums() const {
        SQLite::Database lStore = openStoreToRead(mPath);
        return ZTCountWrongSums(lStore);
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
};

// A batch with something for every table.
ZTSStoreBatch sFullBatch(ZTCTestBatches& arBatches, unsigned int aRound) {
    ZTSStoreBatch lBatch = arBatches.make(20);
    lBatch.mLosses = {{1, 2, "agent", "limit", 5, {}}, {3, 4, "agent", "killed", {}, 9}};
    lBatch.mChanges = {{7, "port", "p", "changed", "state", "Online", "Linkdown"}};
    lBatch.mAgents = {ZTSAgentRun{.mStart = 10,
                                  .mProcess = 20,
                                  .mCame = 11,
                                  .mSeen = 12 + aRound,
                                  .mWent = 0,
                                  .mEnd = "",
                                  .mTaken = arBatches.mEvents,
                                  .mTold = {{"agent/lost", aRound}, {"library/lost", 3}},
                                  .mFigures = {{"agent/lost", 2 * aRound}, {"held", 7}}}};
    lBatch.mPorts.emplace();
    lBatch.mPorts->mLocal = {
        {{ZTTestPort(1), ZTTestPort(2)}, "host3", "Online", "16 Gbit", "NPort", 0x10203, "A"}};
    lBatch.mPorts->mRemote = {
        {ZTTestPort(2), {ZTTestPort(3), ZTTestPort(4 + aRound)}, "Online", "FCP Target", {}, "A"}};
    lBatch.mLabels = {{ZTTestPort(4), {"array-1", "a", "c", "A", "s"}}};
    return lBatch;
}

}  // namespace

TEST_F(StoreWriter, SumsAreThoseOfTheRecords) {
    ZTCTestBatches lBatches(3);
    std::uint64_t lNextId = 1;
    std::string lStore;
    for (unsigned int lRun = 0; lRun < 3; ++lRun) {
        ZTCStoreWriter lWriter(getOptions());
        EXPECT_EQ(lWriter.getStart().mNextId, lNextId);
        EXPECT_EQ(lWriter.getStart().mWasInUse, lRun == 2);
        EXPECT_EQ(lWriter.getStart().mLastWrite != 0, lRun != 0);
        EXPECT_TRUE(lStore.empty() || lStore == lWriter.getStart().mStore);
        lStore = lWriter.getStart().mStore;
        for (unsigned int lBatch = 0; lBatch < 30; ++lBatch) {
            lWriter.write(lBatches.make(lBatch * 17 % 100));
        }
        lNextId = lBatches.mNextId;
        EXPECT_EQ(lWriter.getSize().mRecords, lNextId - 1);
        if (lRun == 0) {
            lWriter.finish();
        }
    }
    EXPECT_EQ(lStore.size(), 36U);
    EXPECT_EQ(countWrongSums(), 0);
    EXPECT_EQ(ask("SELECT sum(occurrences) FROM records"), lBatches.mEvents);
    EXPECT_EQ(ask("SELECT sum(events) FROM minutes WHERE axis = 3"), lBatches.mEvents);
    EXPECT_EQ(askMeta("longest"), ask("SELECT max(last - first) FROM records"));
    EXPECT_EQ(askMeta("in_use"), 1);
}

// One table after the other refuses what is written to it; the same batch is written again behind that.
TEST_F(StoreWriter, ABatchThatFailsLeavesNothing) {
    ZTCStoreWriter lWriter(getOptions());
    ZTCTestBatches lBatches;
    unsigned int lRound = 0;
    for (const char* const lpAt :
         {"INSERT ON records", "UPDATE ON records", "INSERT ON series", "UPDATE ON series",
          "INSERT ON member", "INSERT ON minutes", "UPDATE ON minutes", "INSERT ON hours", "INSERT ON losses",
          "UPDATE ON loss_totals", "INSERT ON changes", "UPDATE ON agents", "INSERT ON figures",
          "INSERT ON remote_ports", "INSERT ON names", "INSERT ON meta"}) {
        lWriter.write(sFullBatch(lBatches, ++lRound));
        lBatches.mRemotes += 50;  // the next one has new series and members
        const ZTSStoreBatch lBatch = sFullBatch(lBatches, ++lRound);
        {
            SQLite::Database lOther(mPath, SQLite::OPEN_READWRITE, 10000);
            lOther.exec(std::string("CREATE TRIGGER refuse BEFORE ") + lpAt +
                        " BEGIN SELECT RAISE(ABORT, 'no'); END");
        }
        const std::int64_t lBefore = ask("SELECT sum(events) FROM series");
        EXPECT_THROW(lWriter.write(lBatch), ZTCStoreError) << lpAt;
        EXPECT_EQ(ask("SELECT sum(events) FROM series"), lBefore);
        {
            SQLite::Database lOther(mPath, SQLite::OPEN_READWRITE, 10000);
            lOther.exec("DROP TRIGGER refuse");
        }
        lWriter.write(lBatch);
        ASSERT_EQ(countWrongSums(), 0) << lpAt;
        ASSERT_EQ(ask("SELECT sum(occurrences) FROM records"), lBatches.mEvents) << lpAt;
    }
    EXPECT_EQ(ask("SELECT count(*) FROM losses"), 2 * lRound);
    EXPECT_EQ(ask("SELECT events * 1000 + unknown FROM loss_totals ORDER BY reason LIMIT 1"), lRound);
    EXPECT_EQ(ask("SELECT events FROM loss_totals WHERE reason = 'limit'"), 5 * lRound);
    EXPECT_EQ(ask("SELECT sum(here) FROM remote_ports"), 1);
    EXPECT_EQ(ask("SELECT count(*) FROM remote_ports"), lRound);
}

TEST_F(StoreWriter, TheAgentIsAsItWasWritten) {
    ZTCTestBatches lBatches;
    {
        ZTCStoreWriter lWriter(getOptions());
        lWriter.write(sFullBatch(lBatches, 1));
        lWriter.write(sFullBatch(lBatches, 2));
    }
    const ZTSAgentRun lWritten = sFullBatch(lBatches, 2).mAgents.at(0);
    const ZTSAgentRun lRead = *ZTCStoreWriter(getOptions()).getStart().mAgent;
    EXPECT_EQ(lRead.mFigures, lWritten.mFigures);
    EXPECT_EQ(lRead.mTold, lWritten.mTold);
    EXPECT_EQ(lRead.mSeen, lWritten.mSeen);
    EXPECT_EQ(lRead.mWent, 0);
    EXPECT_EQ(ask("SELECT count(*) FROM agents"), 1);
}

TEST_F(StoreWriter, ManySeriesShareRows) {
    ZTSStoreOptions lOptions = getOptions();
    lOptions.mSeriesLimit = 100;
    ZTCStoreWriter lWriter(lOptions);
    ZTCTestBatches lBatches;
    lBatches.mRemotes = 5000;
    for (unsigned int lBatch = 0; lBatch < 10; ++lBatch) {
        lWriter.write(lBatches.make(200));
    }
    EXPECT_EQ(countWrongSums(), 0);
    // Beyond the limit one for each kind, initiator and fabric.
    EXPECT_EQ(ask("SELECT count(*) FROM series WHERE remote <> '*'"), 100);
    EXPECT_EQ(ask("SELECT sum(events) FROM series"), lBatches.mEvents);
}
