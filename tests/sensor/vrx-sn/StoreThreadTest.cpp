#include "ServiceLog.h"
#include "SnBuffer.h"
#include "SnFigures.h"
#include "StoreFile.h"
#include "StoreRequest.h"
#include "StoreThread.h"
#include "TestSupport.h"

namespace {

using namespace std::chrono_literals;

std::int64_t ask(const std::string& acrStore, const std::string& acrQuery) {
    SQLite::Database lStore = openStoreToRead(acrStore);
    return lStore.execAndGet(acrQuery).getInt64();
}

class StoreThread : public ::testing::Test {
  protected:
    void start() {
        ZTSStoreOptions lOptions;
        lOptions.mPath = mPath;
        lOptions.mHostName = "host";
        lOptions.mLogStays = mLogStays;
        mThread.emplace(
            lOptions, mBuffer, mFigures, mLog,
            [this](const ZTSStoreStart& acrStart) {
                mStart = acrStart;
                mHasStarted = true;
            },
            [this] { mHasFailed = true; });
    }
    void startWell() {
        start();
        mThread->waitUntilOpen(30s);
        EXPECT_TRUE(waitUntil([this] { return mHasStarted.exchange(false); }));
    }
    void lose(std::uint64_t aEvents) {
        mBuffer.takeLoss({ZTSecond, 2 * ZTSecond, "agent", "limit", aEvents, {}});
    }
    std::int64_t lost() const { return ask(mPath, "SELECT coalesce(sum(events), 0) FROM losses"); }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    ZTCSnFigures mFigures{""};
    ZTCServiceLog mLog{"vrx-sn"};
    ZTCSnBuffer mBuffer{{}};
    std::chrono::milliseconds mLogStays = 1min;
    ZTSStoreStart mStart;
    std::atomic<bool> mHasStarted{false};
    std::atomic<bool> mHasFailed{false};
    std::optional<ZTCStoreThread> mThread;
};

TEST_F(StoreThread, WhatIsTakenIsStoredAndAnEndIsInOrder) {
    lose(3);
    startWell();
    EXPECT_TRUE(mBuffer.waitUntilStored(30s));
    lose(4);
    EXPECT_TRUE(mThread->finish(30s));
    EXPECT_EQ(lost(), 7);
    EXPECT_GT(mFigures.get(ZTSN_Commits), 0U);
    mThread.reset();
    const std::string lStore = mStart.mStore;
    startWell();
    EXPECT_FALSE(mStart.mWasInUse);
    EXPECT_EQ(mStart.mStore, lStore);
    mThread.reset();  // given up, not ended
    startWell();
    EXPECT_TRUE(mStart.mWasInUse);
}

TEST_F(StoreThread, ARequestThatIsNotKnownIsSaid) {
    testing::internal::CaptureStderr();
    startWell();
    addStoreRequest(mPath, {.mTime = 7, .mWho = "root", .mWhat = "dance", .mSubject = "", .mText = ""});
    EXPECT_TRUE(
        waitUntil([this] { return ask(mPath, "SELECT count(*) FROM requests WHERE done = 0") == 0; }));
    EXPECT_TRUE(mThread->finish(30s));
    EXPECT_PRED2(contains, testing::internal::GetCapturedStderr(), "what is not known: dance");
    EXPECT_EQ(mFigures.get(ZTSN_Requests), 0U);
}

TEST_F(StoreThread, AStoreThatCanNeverBeUsedIsToldOnce) {
    startWell();
    EXPECT_TRUE(mThread->finish(30s));
    mThread.reset();
    openStoreAgain(mPath).exec("PRAGMA user_version = 1000");
    start();
    EXPECT_THROW(mThread->waitUntilOpen(30s), ZTCStoreError);
    EXPECT_TRUE(waitUntil([&] { return mHasFailed.load(); }));
    EXPECT_TRUE(mThread->finish(30s));
}

TEST_F(StoreThread, ALittleOfALogDoesNotStayBesideTheFile) {
    mLogStays = 20ms;
    startWell();
    lose(3);
    EXPECT_TRUE(waitUntil([&] {
        std::filesystem::copy_file(mPath, mPath + "2", std::filesystem::copy_options::overwrite_existing);
        try {
            return ask(mPath + "2", "SELECT sum(events) FROM losses") == 3;
        } catch (const std::exception&) {
            return false;  // in the middle of it
        }
    }));
}

TEST_F(StoreThread, SomebodysLockHoldsUpNobodyButIsNamed) {
    const std::string lMark = mDirectory / "locked";
    const std::string lGo = mDirectory / "go";
    // Begun before there are threads, one of which could hold a lock of SQLite's at that moment.
    std::optional<ZTCTestChild> lOther(std::function<void()>([&] {
        waitUntil([&] { return std::filesystem::exists(lGo); });
        SQLite::Database lStore(mPath, SQLite::OPEN_READWRITE, 30000);
        lStore.exec("BEGIN IMMEDIATE");
        writeFile(lMark, "");
        pause();
    }));
    startWell();
    writeFile(lGo, "");
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(lMark); }));
    lose(5);
    EXPECT_TRUE(waitUntil([&] { return !mThread->getTrouble().empty(); }));
    const std::string lTrouble = mThread->getTrouble();
    EXPECT_TRUE(contains(lTrouble, "process " + std::to_string(lOther->getProcess()))) << lTrouble;
    EXPECT_TRUE(contains(lTrouble, "KiB wait")) << lTrouble;
    mThread->tellTrouble();
    EXPECT_NE(mFigures.get(ZTSN_StoreStandsSince), 0U);
    EXPECT_FALSE(mThread->finish(300ms));
    lOther.reset();
    EXPECT_TRUE(mThread->finish(30s));
    EXPECT_EQ(mThread->getTrouble(), "");
    EXPECT_EQ(mFigures.get(ZTSN_StoreStandsSince), 0U);
    EXPECT_EQ(lost(), 5);
}

TEST_F(StoreThread, OneThatIsGivenUpEndsAllTheSame) {
    startWell();
    SQLite::Database lOther(mPath, SQLite::OPEN_READWRITE, 30000);
    lOther.exec("BEGIN IMMEDIATE");
    lose(5);
    EXPECT_FALSE(mThread->finish(0ms));
    mThread.reset();
    lOther.exec("ROLLBACK");
    EXPECT_EQ(lost(), 0);
}

TEST_F(StoreThread, AStoreThatIsTakenAwayOrDamagedIsBegunAnew) {
    startWell();
    ZTPortLabels lLabels;
    lLabels[ZTSWwn{}].mName = "a";
    mBuffer.takeLabels(lLabels);
    ASSERT_TRUE(mBuffer.waitUntilStored(30s));
    const std::int64_t lMade = ask(mPath, "SELECT value FROM meta WHERE name = 'made'");
    std::filesystem::rename(mPath, mPath + ".away");
    std::filesystem::remove(mPath + "-wal");
    std::filesystem::remove(mPath + "-shm");
    lose(6);
    ASSERT_TRUE(mBuffer.waitUntilStored(30s));
    EXPECT_TRUE(mThread->finish(30s));
    EXPECT_EQ(lost(), 6);
    EXPECT_EQ(ask(mPath, "SELECT count(*) FROM names"), 1);
    EXPECT_EQ(ask(mPath,
                  "SELECT first FROM losses WHERE source = 'sensor' AND reason = 'store' AND events IS "
                  "NULL AND last > first"),
              lMade);
}

}  // namespace
