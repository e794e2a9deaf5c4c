// Whatever of the store's work fails, once or from there on: what was told to be written is there, and
// nothing else.
#include <gtest/gtest.h>

#include "FailingAllocator.h"
#include "FaultyVfs.h"
#include "HostBatches.h"
#include "StoreFile.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

constexpr unsigned int sBatches = 4;

std::string sQuick() {
    return std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
}

class StoreFaults : public ::testing::Test {
  protected:
    ZTSStoreOptions getOptions() const { return {.mPath = mPath, .mHostName = "host"}; }

    /// Does it, and again when it failed: true, if it came to pass.
    bool tryTwice(const std::function<void()>& acrWork) {
        for (unsigned int lTry = 0; lTry < 2; ++lTry) {
            try {
                acrWork();
                return true;
            } catch (const ZTCStoreError& lrError) {
                EXPECT_TRUE(lrError.mayPass()) << lrError.what();
                EXPECT_EQ(countIn(lrError.what(), "\n"), 0U) << lrError.what();
                mErrors.emplace_back(lrError.what());
            } catch (const std::bad_alloc&) {
                mErrors.emplace_back("no memory");
            }
        }
        return false;
    }

    /// Opens, writes, brings the log in, closes, as far as it comes; and counts what it was told is written.
    void runScript() {
        std::unique_ptr<ZTCStoreWriter> lpWriter;
        if (!tryTwice([&] { lpWriter = std::make_unique<ZTCStoreWriter>(getOptions()); })) {
            return;
        }
        EXPECT_EQ(lpWriter->getStart().mSetAside, "");
        for (unsigned int lAt = 0; lAt < sBatches; ++lAt) {
            const ZTSStoreBatch& lrBatch = mMade[lAt];
            if (!tryTwice([&] { lpWriter->write(lrBatch); })) {
                break;
            }
            mEvents += countEvents(lrBatch);
            mWritten = lAt + 1;
            if (lAt % 2 == 0) {
                tryTwice([&] { ZTBringLogIn(mPath); });
            }
        }
        tryTwice([&] { lpWriter->finish(); });
    }

    /// That nothing fails now, and that all is there that has been written.
    void checkStore() {
        ZTCStoreWriter lWriter(getOptions());
        EXPECT_EQ(lWriter.getStart().mSetAside, "");
        SQLite::Database lStore = openStoreToRead(mPath);
        EXPECT_EQ(lStore.execAndGet("PRAGMA integrity_check").getString(), "ok");
        EXPECT_EQ(ZTAskStore(lStore, "SELECT coalesce(sum(occurrences), 0) FROM records"), mEvents);
        EXPECT_EQ(ZTCountWrongSums(lStore), 0);
        const auto lHas = [&](const char* apWhat, std::int64_t aNumber) {
            EXPECT_EQ(ZTAskStore(lStore, std::string("SELECT ") + apWhat), aNumber) << apWhat;
        };
        lHas("sum(times) FROM fpins", 3 * mWritten);
        lHas("count(*) FROM stalls", mWritten);
        lHas("sum(value) FROM measure_hours", 180 * mWritten);
        lHas(
            "coalesce((SELECT value FROM meta WHERE name = 'measures'), 0) - (SELECT count(*) FROM "
            "measure_minutes) - count(*) FROM measure_hours",
            0);
        lHas("sum(here) FROM luns", mWritten == 0 ? 0 : mWritten % 2 == 0 ? 16 : 8);
        lHas("sum(last) FROM incident_evidence", mWritten * mWritten);
        lHas("coalesce(max(value), 0) FROM meta WHERE name = 'incidents_to'", mWritten);
        lHas("count(*) FROM map_paths", mWritten == 0 ? 0 : mWritten % 2 == 0 ? 16 : 8);
    }

    static std::vector<ZTSStoreBatch> makeBatches() {
        ZTCTestBatches lBatches(5);
        std::vector<ZTSStoreBatch> lMade(sBatches);
        for (unsigned int lAt = 0; lAt < sBatches; ++lAt) {
            ZTSStoreBatch& lrBatch = lMade[lAt];
            lrBatch = lBatches.make(15);
            lrBatch.mHost = ZTHostBatch(1'700'000'000 + lAt * 3600, 1 + lAt % 2).mHost;
            ZTSIncident& lrIncident = lrBatch.mIncidents.mIncidents.emplace_back();
            lrIncident.mId = 1;
            lrIncident.mLast = lAt * 60 * ZTSecond;
            for (unsigned int lRow = 0; lRow <= lAt; ++lRow) {
                lrIncident.mEvidence.push_back({1, 7, ZTTestPort(lRow), {}, "", 0, lAt + 1});
            }
            lrBatch.mIncidents.mTo = lAt + 1;
        }
        return lMade;
    }

    static std::int64_t countEvents(const ZTSStoreBatch& acrBatch) {
        std::int64_t lEvents = 0;
        for (const ZTSStoreRow& lrRow : acrBatch.mRows) {
            lEvents += static_cast<std::int64_t>(lrRow.mAdded);
        }
        return lEvents;
    }

    std::string describe(const std::string& acrWhat, unsigned int aFailing) const {
        std::string lText = acrWhat + " " + std::to_string(aFailing);
        for (const std::string& lrError : mErrors) {
            lText += "; " + lrError;
        }
        return lText;
    }

    void begin() {
        for (const auto& lrFile : std::filesystem::directory_iterator(mDirectory.getPath())) {
            std::filesystem::remove(lrFile);
        }
        mEvents = mWritten = 0;
        mErrors.clear();
    }

    /// Fails the first of these calls, then the second, until a run meets no fault.
    void failEach(const std::string& acrWhat, std::initializer_list<ZTEFileWork> aWork, bool aIsForGood,
                  bool aIsFull) {
        bool lHasFailed = true;
        for (unsigned int lFailing = 1; lHasFailed;
             lFailing += 1 + ZTTestRounds(lFailing / (ZTIsSanitized ? 1 : 4), 0U)) {
            begin();
            {
                ZTCFaultyVfs lFaults(aWork, lFailing, aIsForGood);
                if (aIsFull) {
                    lFaults.fill();
                }
                runScript();
                lHasFailed = lFaults.hasFailed();
            }
            checkStore();
            ASSERT_FALSE(HasFailure()) << describe(acrWhat, lFailing) << (aIsForGood ? ", for good" : "");
        }
    }

    const ZTCTestDirectory mDirectory{sQuick()};
    const std::string mPath = mDirectory / "history.db";
    const std::vector<ZTSStoreBatch> mMade = makeBatches();
    std::int64_t mEvents = 0;
    std::int64_t mWritten = 0;  ///< batches
    std::vector<std::string> mErrors;
};

// SQLite's memory, which fails on demand.
sqlite3_mem_methods sMemory;
unsigned int sUntilFailure = 0;
bool sIsForGood = false;
bool sHasFailed = false;

bool sMayAllocate() {
    if (sUntilFailure == 0 || (sUntilFailure > 1 && --sUntilFailure != 0)) {
        return true;
    }
    sHasFailed = true;
    sUntilFailure = sIsForGood ? 1 : 0;
    return false;
}

void sUseFailingMemory() {
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &sMemory);
    sqlite3_mem_methods lFailing = sMemory;
    lFailing.xMalloc = [](int aSize) { return sMayAllocate() ? sMemory.xMalloc(aSize) : nullptr; };
    lFailing.xRealloc = [](void* apBlock, int aSize) {
        return sMayAllocate() ? sMemory.xRealloc(apBlock, aSize) : nullptr;
    };
    ASSERT_EQ(sqlite3_config(SQLITE_CONFIG_MALLOC, &lFailing), SQLITE_OK);
    sqlite3_initialize();
}

}  // namespace

TEST_F(StoreFaults, WhatFailsOnceIsDoneAgain) {
    using enum ZTEFileWork;
    failEach("write", {Write}, false, false);
    failEach("part of a write", {Write}, false, true);
    failEach("sync, truncation", {Sync, Truncate}, false, false);
    failEach("open, delete", {Open, Delete}, false, false);
    failEach("shared memory", {ShmMap, ShmLock}, false, false);
    failEach("read, size", {Read, Size}, false, false);
}

TEST_F(StoreFaults, WhatFailsForGoodLeavesWhatWasWritten) {
    using enum ZTEFileWork;
    failEach("write", {Write}, true, false);
    failEach("a full disk", {Write}, true, true);
    failEach("sync, truncation", {Sync, Truncate}, true, false);
    failEach("all", {Open, Delete, Read, Write, Truncate, Sync, ShmMap, ShmLock, Size}, true, false);
}

// Pages that were half written when the disk was full, or the power went, stand in the log.
TEST_F(StoreFaults, HalfPagesAreMadeWholeFromTheLog) {
    std::map<std::string, std::string> lFiles;
    {
        ZTCStoreWriter lWriter(getOptions());
        for (const ZTSStoreBatch& lrBatch : mMade) {
            lWriter.write(lrBatch);
            mEvents += countEvents(lrBatch);
            ++mWritten;
        }
        ZTBringLogIn(mPath);
        for (const char* const lpEnd : {"", "-wal", "-shm", "-lock"}) {
            lFiles[lpEnd] = readFile(mPath + lpEnd);
        }
    }
    const std::string& lrLog = lFiles["-wal"];
    for (std::size_t lFrame = 32; lFrame < lrLog.size(); lFrame += 24 + 4096) {
        const std::size_t lPage = static_cast<unsigned char>(lrLog[lFrame + 3]) - std::size_t{1};
        lFiles[""].replace(lPage * 4096 + 2048, 2040, 2040, 'x');
    }
    for (const auto& [lrEnd, lrBytes] : lFiles) {
        writeFile(mPath + lrEnd, lrBytes);
    }
    EXPECT_EQ(lFiles[""][2048], 'x') << "the first one, too";
    checkStore();
}

TEST_F(StoreFaults, MemoryThatIsNotThereIsNoDamage) {
    // In a child: SQLite takes another memory only as long as nobody has used it.
    ZTCTestChild lChild([&] {
        sUseFailingMemory();
        for (const bool lIsForGood : {false, true}) {
            unsigned int lFailing = 1;
            do {
                begin();
                sHasFailed = false;
                sIsForGood = lIsForGood;
                sUntilFailure = lFailing;
                runScript();
                sUntilFailure = 0;
                checkStore();
                ASSERT_FALSE(HasFailure()) << describe("memory", lFailing);
                lFailing += 1 + ZTTestRounds(lFailing / (ZTIsSanitized ? 2 : 8), 0U);
            } while (sHasFailed);
        }
    });
    EXPECT_EQ(lChild.waitForEnd(ZTTestRounds(120U, 3000U)), 0) << lChild.getOut() << lChild.getErr();
}

TEST_F(StoreFaults, MemoryOfOursThatIsNotThereIsNoDamageEither) {
    for (unsigned int lFailing = 1, lHasFailed = 1; lHasFailed != 0;
         lFailing += 1 + ZTTestRounds(lFailing / (ZTIsSanitized ? 2 : 8), 0U)) {
        begin();
        {
            FailingAllocator lAllocator(lFailing);
            runScript();
            lHasFailed = lAllocator.hasFailed() ? 1 : 0;
        }
        checkStore();
        ASSERT_FALSE(HasFailure()) << describe("allocation", lFailing);
    }
}

// The log has it then, though the writer was told that it failed: whoever opens it next finds it there.
TEST_F(StoreFaults, ACommitThatOnlyTheLogsIndexLacksIsNotDoneTwice) {
    ZTCTestBatches lBatches;
    lBatches.mData = 16000;
    ZTSStoreBatch lBatch = lBatches.make(1200);  // more than a part of the index has room for
    lBatch.mLosses = {{1, 2, "agent", "limit", 5, {}}};
    lBatch.mHost = mMade[0].mHost;
    lBatch.mIncidents = mMade[0].mIncidents;
    lBatch.mNumber = 7;
    unsigned int lWasThere = 0;
    bool lHasFailed = true;
    for (unsigned int lFailing = 1; lHasFailed && lFailing < 20; ++lFailing) {
        begin();
        {
            ZTCFaultyVfs lFaults({ZTEFileWork::ShmMap}, lFailing, true);
            std::optional<SQLite::Database> lReader;  // which is there last, and leaves the log as it is
            try {
                ZTCStoreWriter lWriter(getOptions());
                lReader.emplace(mPath);
                lReader->execAndGet("SELECT count(*) FROM records");
                lWriter.write(lBatch);
            } catch (const SQLite::Exception& lrError) {
                mErrors.emplace_back(lrError.what());
            } catch (const ZTCStoreError& lrError) {
                mErrors.emplace_back(lrError.what());
            }
            lHasFailed = lFaults.hasFailed();
        }
        mEvents = countEvents(lBatch);
        mWritten = 1;
        {
            ZTCStoreWriter lWriter(getOptions());
            SQLite::Database lStore = openStoreToRead(mPath);
            const auto lRows = ZTAskStore(lStore, "SELECT count(*) FROM records");
            lWasThere += lHasFailed && lRows != 0 ? 1 : 0;
            lWriter.write(lBatch);
            EXPECT_EQ(lWriter.getSize().mRecords, lBatch.mRows.size());
            EXPECT_EQ(ZTAskStore(lStore, "SELECT sum(events) FROM losses"), 5);
        }
        checkStore();
        ASSERT_FALSE(HasFailure()) << describe("shared memory", lFailing);
    }
    EXPECT_GT(lWasThere, 0U);
}

TEST_F(StoreFaults, ASlowDiskIsNoFault) {
    {
        ZTCFaultyVfs lFaults({ZTEFileWork::Sync}, 0);
        lFaults.delay(std::chrono::milliseconds(5));
        runScript();
        EXPECT_GT(lFaults.getCalls(), 5U);
    }
    EXPECT_EQ(mErrors.size(), 0U);
    EXPECT_GT(mEvents, 0);
    checkStore();
}
