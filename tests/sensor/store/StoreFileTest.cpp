// A store is opened the one right way, by whom it is, and nobody else's file is touched.
#include <grp.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "../../../sensor/store/PageSums.h"
#include "Schema.h"
#include "StoreBatches.h"
#include "StoreFile.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

class StoreFile : public ::testing::Test {
  protected:
    // It has what a new one has.
    void expectAsNew(SQLite::Database& arStore) const {
        openStoreToWrite(mDirectory / "new.db");
        arStore.exec("ATTACH '" + (mDirectory / "new.db") + "' AS new");
        for (const char* const lpOne : {"main", "new"}) {
            const std::string lOther = lpOne == std::string("main") ? "new" : "main";
            EXPECT_EQ(
                ZTAskStore(arStore, "SELECT count(*) FROM (SELECT name, sql FROM " + std::string(lpOne) +
                                        ".sqlite_schema EXCEPT SELECT name, sql FROM " + lOther +
                                        ".sqlite_schema)"),
                0);
        }
    }
    /// What openStoreToWrite() or openStoreToRead() says; empty: it opens.
    template <class Open>
    static std::string refusal(const Open& acrOpen, const std::string& acrPath, ZTEStoreFault aFault) {
        try {
            acrOpen(acrPath);
            return "";
        } catch (const ZTCStoreError& lrError) {
            EXPECT_EQ(lrError.getFault(), aFault) << lrError.what();
            EXPECT_EQ(countIn(lrError.what(), "\n"), 0U);
            return lrError.what();
        }
    }
    std::string refusal(const std::string& acrPath, ZTEStoreFault aFault) const {
        EXPECT_NE(refusal(openStoreToRead, acrPath, aFault), "");
        return refusal(openStoreToWrite, acrPath, aFault);
    }
    std::size_t countFiles() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(mDirectory.getPath()), {}));
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
};

std::string sStoreOf(SQLite::Database& arStore) {
    return arStore.execAndGet("SELECT value FROM meta WHERE name = 'store'").getString();
}

// A file as an older version made it, with something in it.
void sMakeOld(const std::string& acrPath, std::size_t aVersion, const std::string& acrRows) {
    SQLite::Database lOld(acrPath, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, 0, usePageSums());
    int lReserved = static_cast<int>(ZTPageSumSize);
    sqlite3_file_control(lOld.getHandle(), "main", SQLITE_FCNTL_RESERVE_BYTES, &lReserved);
    lOld.exec("PRAGMA page_size = 4096; PRAGMA auto_vacuum = INCREMENTAL");
    lOld.exec(ZTStoreSchema);
    for (const char* const lpStep : ZTStoreSteps.first(aVersion - 1)) {
        lOld.exec(lpStep);
    }
    lOld.exec(acrRows +
              "INSERT INTO meta VALUES ('store', 'a-uuid'), ('made', 5), ('last_write', 9), ('host', "
              "'db7'); PRAGMA user_version = " +
              std::to_string(aVersion) + "; PRAGMA application_id = " + std::to_string(ZTStoreApplication));
    lOld.exec("PRAGMA journal_mode = WAL");
}

}  // namespace

TEST_F(StoreFile, StaysTheSameStore) {
    std::string lStore;
    for (unsigned int lRun = 0; lRun < 2; ++lRun) {
        ZTSOpenedStore lOpened = openStoreToWrite(mPath);
        EXPECT_EQ(lOpened.mSetAside, "");
        EXPECT_TRUE(lStore.empty() || lStore == sStoreOf(lOpened.mDatabase));
        lStore = sStoreOf(lOpened.mDatabase);
        EXPECT_EQ(lStore.size(), 36U);
        EXPECT_EQ(lOpened.mDatabase.execAndGet("PRAGMA auto_vacuum").getInt(), 2);
    }
    SQLite::Database lForeign("file:" + mPath + "?mode=ro", SQLite::OPEN_READONLY | SQLite::OPEN_URI, 0,
                              "unix");
    EXPECT_EQ(sStoreOf(lForeign), lStore);
    EXPECT_EQ(lForeign.execAndGet("PRAGMA integrity_check").getString(), "ok");
}

TEST_F(StoreFile, IsWrittenByOneProcess) {
    const ZTSOpenedStore lOpened = openStoreToWrite(mPath);
    const std::string lText = refusal(openStoreToWrite, mPath, ZTEStoreFault::Unusable);
    EXPECT_TRUE(contains(lText, "process " + std::to_string(getpid()) + " (zt-tests)")) << lText;
    EXPECT_EQ(refusal(openStoreToRead, mPath, ZTEStoreFault::Unusable), "");
}

TEST_F(StoreFile, WhatIsNoStoreIsLeftAlone) {
    EXPECT_TRUE(contains(refusal(mDirectory.getPath(), ZTEStoreFault::Unusable), "is a folder"));
    EXPECT_TRUE(
        contains(refusal(mDirectory / "none/history.db", ZTEStoreFault::Unusable), "folder does not exist") ||
        HasFailure());
    EXPECT_EQ(mkfifo((mDirectory / "pipe").c_str(), 0600), 0);
    EXPECT_TRUE(contains(refusal(mDirectory / "pipe", ZTEStoreFault::Unusable), "no file"));
    SQLite::Database(mDirectory / "other.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("CREATE TABLE t (a)");
    for (const auto& [lrName, lrText] :
         {std::pair<std::string, std::string>{"text", "a list of things to buy\n"},
          {"long", std::string(10000, 'x')},
          {"other.db", readFile(mDirectory / "other.db")}}) {
        writeFile(mDirectory / lrName, lrText);
        EXPECT_TRUE(contains(refusal(mDirectory / lrName, ZTEStoreFault::Unusable), "is no store"));
        EXPECT_EQ(readFile(mDirectory / lrName), lrText);
    }
    EXPECT_EQ(countFiles(), 4U) << "nothing was put beside them";
}

TEST_F(StoreFile, AnEmptyFileBecomesAStore) {
    writeFile(mPath, "");
    EXPECT_TRUE(contains(refusal(openStoreToRead, mPath, ZTEStoreFault::Unusable), "is not there"));
    EXPECT_EQ(openStoreToWrite(mPath).mSetAside, "");
}

TEST_F(StoreFile, ANewerVersionIsRefusedAndKept) {
    openStoreToWrite(mPath).mDatabase.exec("PRAGMA user_version = 7");
    const std::string lBefore = readFile(mPath);
    EXPECT_TRUE(contains(refusal(mPath, ZTEStoreFault::Newer), "newer version"));
    EXPECT_EQ(readFile(mPath), lBefore);
}

// Nobody reads it before vrx-sn has been at it.
TEST_F(StoreFile, AFileOfVersionOneIsBroughtUpToDateWithAllThatItHas) {
    sMakeOld(
        mPath, 1,
        "INSERT INTO series VALUES (1, 'rscn', 1, 32, 'p', 'n', 'A', '', '', '', 7, 1, 3, 4);"
        "INSERT INTO records VALUES (1, 1, 3, 4, 7, x'00');"
        "INSERT INTO member VALUES (1, 1, 'rscn'), (2, 2, 'p'); INSERT INTO hours VALUES (1, 7200, 1, 7);"
        "INSERT INTO ports VALUES ('10:00:00:00:00:00:00:01', '', 'host3', 'Online', '', '', 5, 'A', 9, 1, "
        "8); INSERT INTO remote_ports VALUES ('10:00:00:00:00:00:00:01', '50:00:00:00:00:00:00:01', '', '', "
        "'', 7, 'A', 9, 1);");
    EXPECT_TRUE(contains(refusal(openStoreToRead, mPath, ZTEStoreFault::Busy), "older version"));
    EXPECT_TRUE(contains(refusal(openStoreToAdd, mPath, ZTEStoreFault::Busy), "older version"));
    for (unsigned int lRun = 0; lRun < 2; ++lRun) {
        ZTCStoreWriter lWriter({.mPath = mPath, .mHostName = "db7"});
        const ZTSStoreStart& lrStart = lWriter.getStart();
        EXPECT_EQ(lrStart.mStore + lrStart.mSetAside, "a-uuid");
        EXPECT_EQ(lrStart.mNextId, 2U);
        EXPECT_FALSE(lrStart.mStorage);
        ASSERT_TRUE(lrStart.mPorts);
        EXPECT_EQ(lrStart.mPorts->mLocal.at(0).mFirmware, "");
        EXPECT_FALSE(lrStart.mPorts->mRemote.at(0).mDevLossTmo);
        EXPECT_EQ(lWriter.getSize().mRecords, 1U);
    }
    SQLite::Database lStore = openStoreToRead(mPath);
    EXPECT_EQ(ZTAskStore(lStore, "SELECT group_concat(last, '') FROM member"), 72000);
    expectAsNew(lStore);
}

// Of the second version with records that are kept, and with what its host told; so its incidents begin with
// the next one.
TEST_F(StoreFile, AFileOfVersionTwoGetsIncidents) {
    sMakeOld(
        mPath, 2,
        "INSERT INTO series VALUES (1, 'rscn', 1, 32, '50:00:00:00:00:00:00:01', 'n', 'A', '', '', '', 9, 2, 3, "
        "5); INSERT INTO records VALUES (1, 1, 3, 4, 7, x'00'), (2, 1, 5, 5, 2, x'00');"
        "INSERT INTO kept VALUES (1, 1); INSERT INTO stalls VALUES (1, 3, 4, 0, 'sdb', '', '/data', 1, 'path');");
    ZTCStoreWriter lWriter({.mPath = mPath, .mHostName = "db7", .mClockTrust = std::chrono::seconds(0)});
    const ZTSStoreStart& lrStart = lWriter.getStart();
    EXPECT_EQ(lrStart.mStore + lrStart.mSetAside, "a-uuid");
    EXPECT_EQ(lrStart.mStalls.size(), 1U);
    EXPECT_EQ(lrStart.mIncidents.mNextId, 1U);
    EXPECT_EQ(lrStart.mIncidents.mTo, 0);
    ZTSStoreBatch lBatch;
    ZTSIncident& lrIncident = lBatch.mIncidents.mIncidents.emplace_back();
    lrIncident.mId = 1;
    lrIncident.mIsKept = true;
    lrIncident.mEvidence = {{1, 32, ZTTestPort(1), {}, "A", 5, 5}};
    lWriter.write(lBatch);
    ZTCStoreReader lReader(mPath);
    EXPECT_EQ(lReader.readEvidence(*lReader.readIncident(1), 0), std::vector<std::uint64_t>{2});
    while (lWriter.retire(1'700'000'000 * ZTSecond)) {
    }
    expectAsNew(lReader.getDatabase());
    EXPECT_EQ(ZTAskStore(lReader.getDatabase(), "SELECT count(*) FROM records"), 2);
}

// What is counted from now on counts what is there.
TEST_F(StoreFile, AFileOfVersionThreeGetsTotalsAndSumsBySeries) {
    const std::string lBlock = "x'010000005000000000000001";
    sMakeOld(
        mPath, 3,
        "INSERT INTO series VALUES (1, 'check_condition', 4, 4, 'p', 'n', 'A', '', '', '', 9, 2, 3, 5), (2, 'rscn', "
        "1, 32, 'p', 'n', 'A', '', '', '', 9, 2, 3, 5); INSERT INTO records VALUES (1, 1, 3, 4, 7, " +
            lBlock + "03000000'), (2, 1, 7200000000005, 7200000000005, 20, " + lBlock +
            "0b000000'), (3, 1, 5, 5, 1, " + lBlock + "03000000'), (4, 1, 5, 5, 400, " + lBlock +
            "03010000'), (5, 1, 5, 5, 5, x'00'), (6, 2, 7200000000006, 7200000000006, 70, x'00');"
            "INSERT INTO fpins VALUES (1, 3, 4, 5, 'p', 'A', 'd', 'e', '', 'found', 'at', 0, 0, 0, 0, ''), (2, 3, 4, "
            "6, 'p', 'A', 'd', 'e', '', 'found', '00:00:00:00:00:00:00:00', 0, 0, 0, 0, ''), (3, 3, 4, 1, 'p', 'A', "
            "'d', 'e', '', 'found', 'at', 0, 0, 0, 0, '');"
            "INSERT INTO incidents VALUES (1, 'x', 'open', '', 1, 1, NULL, NULL, NULL, 1, NULL, NULL, 0, '', NULL, "
            "'', '', '');");
    { ZTCStoreWriter lWriter({.mPath = mPath, .mHostName = "db7"}); }
    SQLite::Database lStore = openStoreToRead(mPath);
    const auto lList = [&](const std::string& acrWhat) {
        return lStore.execAndGet("SELECT group_concat(x, ' ') FROM (SELECT " + acrWhat + ")").getString();
    };
    EXPECT_EQ(lList("sense_key || '*' || events AS x FROM sense_totals WHERE initiator = 'p' ORDER BY 1"),
              "-1*405 11*20 3*8");
    EXPECT_EQ(lList("time || ':' || series || '*' || events AS x FROM series_hours"),
              "0:1*413 7200:1*20 7200:2*70");
    EXPECT_EQ(lList("target || '*' || times AS x FROM fpin_totals"), "at*6 found*6");
    EXPECT_EQ(lList("class || '*' || incidents AS x FROM incident_totals"), "x*1");
    expectAsNew(lStore);
}

TEST_F(StoreFile, StepsBringATableUpToDateOnceAndWhole) {
    SQLite::Database lStore = std::move(openStoreToWrite(mPath).mDatabase);
    std::vector<const char*> lGood(ZTStoreSteps.begin(), ZTStoreSteps.end());
    lGood.insert(lGood.end(),
                 {"ALTER TABLE meta ADD COLUMN note", "UPDATE meta SET note = 'x'; CREATE TABLE more (a)"});
    std::vector<const char*> lBad = lGood;
    lBad.back() = "CREATE TABLE more (a); no statement";
    EXPECT_THROW(bringStoreUpToDate(lStore, lBad), SQLite::Exception);
    EXPECT_EQ(lStore.execAndGet("PRAGMA user_version").getInt(), ZTStoreVersion);
    EXPECT_FALSE(lStore.tableExists("more"));
    for (unsigned int lTime = 0; lTime < 2; ++lTime) {
        bringStoreUpToDate(lStore, lGood);
        EXPECT_EQ(lStore.execAndGet("PRAGMA user_version").getInt(), ZTStoreVersion + 2);
        EXPECT_EQ(ZTAskStore(lStore, "SELECT count(*) FROM meta WHERE note = 'x'"), 2);
    }
}

TEST_F(StoreFile, ASettingAsideThatWasCutShortIsEndedAndTold) {
    { const ZTSOpenedStore lOpened = openStoreToWrite(mPath); }
    // Between the two renames, and before the new one was made.
    const std::string lAside = mPath + ".damaged-20260101T000000Z";
    std::filesystem::rename(mPath, lAside);
    writeFile(mPath + "-wal", "some of the log");
    writeFile(mPath + "-lock", "1 of-another-start\n" + lAside + "\n");
    EXPECT_EQ(openStoreToWrite(mPath).mSetAside, lAside);
    EXPECT_EQ(readFile(lAside + "-wal"), "some of the log");
    EXPECT_EQ(openStoreToWrite(mPath).mSetAside, "") << "it is told once";
    // Damage that is found in use.
    ZTSOpenedStore lOpened = beginStoreAnew(openStoreToWrite(mPath));
    EXPECT_TRUE(std::filesystem::exists(lOpened.mSetAside));
    EXPECT_EQ(lOpened.mDatabase.execAndGet("PRAGMA integrity_check").getString(), "ok");
    EXPECT_NE(refusal(openStoreToWrite, mPath, ZTEStoreFault::Unusable), "")
        << "the lock is held all the time";
}

// A user of the group may read FILE, FILE-wal and FILE-shm, and write none of them, nor the folder.
TEST_F(StoreFile, IsReadByAUserOfTheGroup) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be another user";
    }
    constexpr gid_t lGroup = 4711;
    ASSERT_EQ(chown(mDirectory.getPath().c_str(), 0, lGroup), 0);
    ASSERT_EQ(chmod(mDirectory.getPath().c_str(), 02750), 0);
    const auto lCount = [&](const char* apVfs) {
        const ZTSTestEnd lEnd = runChild([&] {
            ASSERT_EQ(setgroups(0, nullptr), 0);
            ASSERT_EQ(setresgid(lGroup, lGroup, lGroup), 0);
            ASSERT_EQ(setresuid(4712, 4712, 4712), 0);
            try {
                SQLite::Database lStore =
                    apVfs == nullptr ? openStoreToRead(mPath)
                                     : SQLite::Database("file:" + mPath + "?mode=ro",
                                                        SQLite::OPEN_READONLY | SQLite::OPEN_URI, 0, apVfs);
                printf("rows %d", static_cast<int>(ZTAskStore(lStore, "SELECT count(*) FROM kept")));
            } catch (const std::exception& lrError) {
                ADD_FAILURE() << lrError.what();
            }
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
        return lEnd.mOut.substr(lEnd.mOut.rfind("rows") == std::string::npos ? 0 : lEnd.mOut.rfind("rows"));
    };
    const auto lRun = [&](bool aIsKilled) {
        ZTSOpenedStore lOpened = openStoreToWrite(mPath);
        lOpened.mDatabase.exec("INSERT INTO kept VALUES (1, 2)");
        if (aIsKilled) {
            kill(getpid(), SIGKILL);
        }
    };
    umask(027);
    {
        ZTSOpenedStore lOpened = openStoreToWrite(mPath);
        EXPECT_EQ(lCount(nullptr), "rows 0") << "while it is written";
        lOpened.mDatabase.exec("INSERT INTO kept VALUES (1, 2)");
        EXPECT_EQ(lCount(nullptr), "rows 1");
        EXPECT_EQ(lCount("unix"), "rows 1");
    }
    EXPECT_EQ(lCount(nullptr), "rows 1") << "after an end in order";
    EXPECT_EQ(lCount("unix"), "rows 1");
    EXPECT_EQ(runChild([&] { lRun(true); }).mStatus, 128 + SIGKILL);
    EXPECT_EQ(lCount(nullptr), "rows 2") << "after a kill";
    EXPECT_EQ(lCount("unix"), "rows 2");
    struct stat lStatus {};
    for (const char* const lpEnd : {"", "-wal", "-shm", "-lock"}) {
        ASSERT_EQ(stat((mPath + lpEnd).c_str(), &lStatus), 0) << lpEnd;
        EXPECT_EQ(lStatus.st_mode & 07777, 0640U) << lpEnd;
        EXPECT_EQ(lStatus.st_gid, lGroup) << lpEnd;
    }
}
