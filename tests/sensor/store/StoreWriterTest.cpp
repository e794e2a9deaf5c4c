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

// Makes checkpoints all the time, as the second thread of the store does.
class Checkpoints {
  public:
    explicit Checkpoints(ZTCStoreWriter& arWriter)
        : mThread([this, &arWriter] {
              const auto lMakesOne = [&] {
                  arWriter.checkpoint();
                  return mEnds.load();
              };
              while (!waitUntil(lMakesOne)) {
              }
          }) {}
    ~Checkpoints() {
        mEnds = true;
        mThread.join();
    }
    Checkpoints(const Checkpoints&) = delete;
    Checkpoints& operator=(const Checkpoints&) = delete;

  private:
    std::atomic<bool> mEnds{false};
    std::thread mThread;
};

// Whether it was written, or somebody is in the way.
bool sTryToWrite(ZTCStoreWriter& arWriter, const ZTSStoreBatch& acrBatch) {
    try {
        arWriter.write(acrBatch);
        return true;
    } catch (const ZTCStoreError& lrError) {
        EXPECT_EQ(lrError.getFault(), ZTEStoreFault::Busy) << lrError.what();
        return false;
    }
}

constexpr std::uint64_t sWalLimit = std::uint64_t{64} << 20;

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

TEST_F(StoreWriter, TheStartHasThePortsThatWereThere) {
    ZTCTestBatches lBatches;
    EXPECT_FALSE(ZTCStoreWriter(getOptions()).getStart().mPorts);
    ZTSStoreBatch lBatch = sFullBatch(lBatches, 1);
    ZTSHostPorts lPorts = *lBatch.mPorts;
    {
        ZTCStoreWriter lWriter(getOptions());
        lWriter.write(lBatch);
        lBatch = sFullBatch(lBatches, 2);
        lBatch.mPorts = lPorts;
        lBatch.mPorts->mLocal.clear();  // the remote one stays
        lWriter.write(lBatch);
    }
    lPorts.mLocal.clear();
    ZTCStoreWriter lWriter(getOptions());
    EXPECT_EQ(lWriter.getStart().mPorts, lPorts);
    // What went meanwhile was seen last when something was last written.
    lBatch = {};
    lBatch.mPorts.emplace();
    lWriter.write(lBatch);
    EXPECT_EQ(ask("SELECT max(seen) FROM remote_ports WHERE here = 0"), lWriter.getStart().mLastWrite);
}

// One table after the other refuses what is written to it; the same batch is written again behind that.
TEST_F(StoreWriter, ABatchThatFailsLeavesNothing) {
    ZTCStoreWriter lWriter(getOptions());
    ZTCTestBatches lBatches;
    unsigned int lRound = 0;
    for (const char* const lpAt :
         {"INSERT ON records", "UPDATE ON records", "INSERT ON series", "UPDATE ON series",
          "INSERT ON member", "INSERT ON minutes", "UPDATE ON minutes", "INSERT ON hours",
          "INSERT ON series_hours", "INSERT ON losses", "UPDATE ON loss_totals", "INSERT ON changes",
          "UPDATE ON agents", "INSERT ON figures", "INSERT ON remote_ports", "INSERT ON names",
          "INSERT ON meta"}) {
        lWriter.write(sFullBatch(lBatches, ++lRound));
        lBatches.mRemotes += 50;  // the next one has new series and members
        const ZTSStoreBatch lBatch = sFullBatch(lBatches, ++lRound);
        {
            SQLite::Database lOther = openStoreAgain(mPath);
            lOther.exec(std::string("CREATE TRIGGER refuse BEFORE ") + lpAt +
                        " BEGIN SELECT RAISE(ABORT, 'no'); END");
        }
        const std::int64_t lBefore = ask("SELECT sum(events) FROM series");
        EXPECT_THROW(lWriter.write(lBatch), ZTCStoreError) << lpAt;
        EXPECT_EQ(ask("SELECT sum(events) FROM series"), lBefore);
        {
            SQLite::Database lOther = openStoreAgain(mPath);
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

TEST_F(StoreWriter, APortIsAsItIsSinceItsLastChange) {
    ZTCTestBatches lBatches;
    ZTCStoreWriter lWriter(getOptions());
    const auto lSince = [&](const ZTSChange& acrChange) {
        ZTSStoreBatch lBatch;
        lBatch.mChanges = {acrChange};
        lWriter.write(lBatch);
        lBatch = sFullBatch(lBatches, 1);
        lBatch.mChanges.clear();
        lWriter.write(lBatch);
        return ask("SELECT since FROM ports");
    };
    const std::string lPort = ZTTestPort(2).toText();
    const ZTNanoseconds lNow =
        std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_EQ(lSince({7, "port", lPort, "came", "", "", "Online"}), 0) << "of long before it came";
    EXPECT_EQ(lSince({9, "port", lPort, "changed", "state", "Online", "Linkdown"}), 9);
    EXPECT_EQ(lSince({10, "port", lPort, "changed", "speed", "", "16 Gbit"}), 9);
    EXPECT_EQ(lSince({11, "remote_port", lPort, "changed", "state", "", "Online"}), 9);
    openStoreAgain(mPath).exec("DELETE FROM ports");
    EXPECT_EQ(lSince({lNow, "port", lPort, "came", "", "", "Online"}), lNow);
}

TEST_F(StoreWriter, AnAgentThatIsStartedAgainAndAgainFillsNothing) {
    ZTCTestBatches lBatches;
    ZTCStoreWriter lWriter(getOptions());
    ZTSStoreBatch lBatch = sFullBatch(lBatches, 1);
    const ZTSAgentRun lRun = lBatch.mAgents.at(0);
    for (unsigned int lStart = 0; lStart < 6000; ++lStart) {
        lBatch.mAgents.push_back(lRun);
        lBatch.mAgents.back().mStart += lStart;
    }
    lWriter.write(lBatch);
    EXPECT_EQ(ask("SELECT count(*) FROM agents"), 5000);
    EXPECT_EQ(ask("SELECT count(*) FROM figures WHERE agent = (SELECT max(id) FROM agents)"), 3);
    EXPECT_EQ(ask("SELECT count(*) FROM figures"), 3);
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

TEST_F(StoreWriter, ReadersInSlicesHoldUpNothing) {
    ZTCStoreWriter lWriter(getOptions());
    ZTCTestBatches lBatches;
    lBatches.mData = 4000;
    std::atomic<bool> lEnds{false};
    std::vector<std::thread> lReaders;
    for (unsigned int lReader = 0; lReader < 20; ++lReader) {
        lReaders.emplace_back([&, lReader] {
            SQLite::Database lStore = openStoreToRead(mPath);
            while (!lEnds) {
                SQLite::Transaction lSlice(lStore);
                ZTAskStore(lStore, "SELECT count(*) FROM series");
                const auto lEnd =
                    std::chrono::steady_clock::now() + std::chrono::milliseconds(20 + lReader * 5);
                waitUntil([&] { return lEnds || std::chrono::steady_clock::now() >= lEnd; });
            }
        });
    }
    {
        const Checkpoints lCheckpoints(lWriter);
        const std::uint64_t lMany = ZTTestRounds(sWalLimit * 3 / 2, 20 * sWalLimit);
        for (std::uint64_t lBytes = 0; lBytes < lMany && !HasFailure(); lBytes += 300 * lBatches.mData) {
            const ZTSStoreBatch lBatch = lBatches.make(300);
            ASSERT_TRUE(waitUntil([&] { return sTryToWrite(lWriter, lBatch); }));
            ASSERT_LT(lWriter.getSize().mWalBytes, sWalLimit);
        }
    }
    lEnds = true;
    for (std::thread& lrReader : lReaders) {
        lrReader.join();
    }
    EXPECT_EQ(countWrongSums(), 0);
    EXPECT_EQ(ask("SELECT sum(occurrences) FROM records"), lBatches.mEvents);
}

TEST_F(StoreWriter, TheLogStaysShortWhateverABatchIsLike) {
    ZTCStoreWriter lWriter(getOptions());
    SQLite::Database lReader = openStoreToRead(mPath);
    const SQLite::Transaction lSnapshot(lReader);
    ZTAskStore(lReader, "SELECT count(*) FROM records");
    ZTCTestBatches lBatches;
    do {
        lBatches.mData = lBatches.mData == 24 ? 2100 : 24;
        lBatches.mRemotes = lBatches.mData == 24 ? 1000000 : 20;
    } while (sTryToWrite(lWriter, lBatches.make(1900)));
    EXPECT_GT(lWriter.getSize().mWalBytes, sWalLimit / 8);
    EXPECT_LT(lWriter.getSize().mWalBytes, sWalLimit);
}

// Another process, as SQLite's locks tell processes apart: it begins before this one has the file open.
TEST_F(StoreWriter, WhoKeepsASnapshotIsNamedAndWaitedFor) {
    ZTCStoreWriter(getOptions()).finish();
    const ZTCTestChild lReader([&] {
        SQLite::Database lStore = openStoreToRead(mPath);
        ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(mDirectory / "begin"); }));
        SQLite::Transaction lSnapshot(lStore);
        ZTAskStore(lStore, "SELECT count(*) FROM records");
        writeFile(mDirectory / "reads", "");
        waitUntil([&] { return std::filesystem::exists(mDirectory / "end"); });
    });
    ZTCStoreWriter lWriter(getOptions());
    ZTCTestBatches lBatches;
    lBatches.mData = 4000;
    lWriter.write(lBatches.make(10));
    EXPECT_EQ(lWriter.describeHolder(), "");
    writeFile(mDirectory / "begin", "");
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(mDirectory / "reads"); }));
    EXPECT_EQ(lWriter.describeHolder(),
              "process " + std::to_string(lReader.getProcess()) + " (" +
                  readFile("/proc/self/comm").substr(0, readFile("/proc/self/comm").find('\n')) + ")");
    ZTSStoreBatch lBatch;
    do {
        lBatch = lBatches.make(300);
        lWriter.checkpoint();
    } while (sTryToWrite(lWriter, lBatch));
    EXPECT_GT(lWriter.getSize().mWalBytes, sWalLimit / 2);
    EXPECT_LT(lWriter.getSize().mWalBytes, sWalLimit);
    EXPECT_FALSE(lWriter.retire(sWalLimit));
    writeFile(mDirectory / "end", "");
    EXPECT_TRUE(waitUntil([&] {
        lWriter.checkpoint();
        return sTryToWrite(lWriter, lBatch);
    }));
    lWriter.finish();
    EXPECT_EQ(countWrongSums(), 0);
    EXPECT_EQ(ask("SELECT sum(occurrences) FROM records"), lBatches.mEvents);
}

TEST_F(StoreWriter, ALockHoldsUpOneBatch) {
    ZTCStoreWriter lWriter(getOptions());
    ZTCTestBatches lBatches;
    const ZTSStoreBatch lBatch = lBatches.make(10);
    SQLite::Database lOther = openStoreAgain(mPath);
    lOther.exec("BEGIN IMMEDIATE");
    EXPECT_FALSE(sTryToWrite(lWriter, lBatch));
    lOther.exec("ROLLBACK");
    EXPECT_TRUE(sTryToWrite(lWriter, lBatch));
    EXPECT_EQ(countWrongSums(), 0);
}

TEST_F(StoreWriter, ADamagedFileIsSetAsideAndANewOneBegun) {
    ZTCStoreWriter lWriter(getOptions());
    ZTCTestBatches lBatches;
    lWriter.write(lBatches.make(100));
    const ZTSStoreStart lBefore = lWriter.getStart();
    lWriter.beginAnew();
    EXPECT_NE(lWriter.getStart().mStore, lBefore.mStore);
    EXPECT_EQ(lWriter.getStart().mSetAsideMade, lBefore.mMade);
    EXPECT_TRUE(std::filesystem::exists(lWriter.getStart().mSetAside)) << lWriter.getStart().mSetAside;
    EXPECT_EQ(lWriter.getSize().mRecords, 0U);
    // Rows that had begun in the old one have what is theirs since.
    const std::uint64_t lEvents = lBatches.mEvents;
    lWriter.write(lBatches.make(100));
    lWriter.write(lBatches.make(0));
    EXPECT_EQ(ask("SELECT sum(occurrences) FROM records"), lBatches.mEvents - lEvents);
    EXPECT_EQ(countWrongSums(), 0);
    // The same at a start: when it was begun is not read from what is damaged.
    const ZTNanoseconds lMade = lWriter.getStart().mMade;
    lWriter.finish();
    std::filesystem::resize_file(mPath, 5000);
    EXPECT_EQ(ZTCStoreWriter(getOptions()).getStart().mSetAsideMade, lMade);
}
