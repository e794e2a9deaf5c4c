// Somebody asks vrx-sn for something: by a row of the store, whether it runs or not.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "StoreBatches.h"
#include "StoreReader.h"
#include "StoreRequest.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

class StoreRequest : public ::testing::Test {
  protected:
    ZTSStoreOptions getOptions() const { return {.mPath = mPath, .mHostName = "host"}; }
    std::int64_t ask(const std::string& acrQuery) const {
        SQLite::Database lStore = openStoreToRead(mPath);
        return ZTAskStore(lStore, acrQuery);
    }
    void add(const std::string& acrText) const {
        addStoreRequest(
            mPath, {.mTime = 7, .mWho = "root", .mWhat = "note", .mSubject = "array1", .mText = acrText});
    }
    std::string refusal(ZTEStoreFault aFault) const {
        try {
            add("refused");
            return "";
        } catch (const ZTCStoreError& lrError) {
            EXPECT_EQ(lrError.getFault(), aFault) << lrError.what();
            EXPECT_EQ(countIn(lrError.what(), "\n"), 0U);
            return lrError.what();
        }
    }
    /// In a process of its own, that has begun before this one opens the store.
    ZTCTestChild addLater() const {
        return ZTCTestChild([this] {
            ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(mDirectory / "go"); }));
            add("of another process");
        });
    }
    void expectWhole(std::int64_t aNotes) const {
        EXPECT_EQ(ask("SELECT count(*) FROM changes WHERE what = 'note'"), aNotes);
        EXPECT_EQ(ask("SELECT count(*) FROM requests WHERE done = 0"), 0);
        ZTCStoreWriter lWriter(getOptions());
        EXPECT_EQ(lWriter.getStart().mSetAside, "");
        EXPECT_FALSE(lWriter.getStart().mIsMended) << "every page has its sum";
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
};

}  // namespace

TEST_F(StoreRequest, ANoteBecomesAChangeBesideTheWriter) {
    ZTCTestChild lOther([this] {
        ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(mDirectory / "go"); }));
        add("of another process");
        add("'; and another");
    });
    {
        ZTCStoreWriter lWriter(getOptions());
        ZTCTestBatches lBatches;
        EXPECT_TRUE(lWriter.takeRequests().empty());
        writeFile(mDirectory / "go", "");
        std::vector<ZTSStoreRequest> lTaken;
        EXPECT_TRUE(waitUntil([&] {
            lWriter.write(lBatches.make(10));
            lWriter.checkpoint();
            for (ZTSStoreRequest& lrRequest : lWriter.takeRequests()) {
                lTaken.push_back(std::move(lrRequest));
            }
            return lTaken.size() == 2;
        }));
        EXPECT_EQ(lOther.waitForEnd(), 0) << lOther.getOut() << lOther.getErr();
        EXPECT_EQ(lTaken.at(0).mText, "of another process");
        EXPECT_EQ(lTaken.at(1).mId, 2U);
        EXPECT_TRUE(ZTCStoreReader(mPath).readRequests().empty());
        EXPECT_EQ(ask("SELECT count(*) FROM changes WHERE time = 7 AND name = 'root' AND event = 'noted' AND "
                      "attribute = 'array1' AND after LIKE '%other%'"),
                  2);
        EXPECT_EQ(ask("SELECT sum(occurrences) FROM records"), lBatches.mEvents);
        lWriter.finish();
    }
    expectWhole(2);
}

// It ended in order, or was killed with all in the log.
TEST_F(StoreRequest, WithoutAWriterItIsTakenAtTheNextStart) {
    std::int64_t lNotes = 0;
    for (const bool lIsInOrder : {true, false}) {
        const ZTSTestEnd lEnd = runChild([&] {
            ZTCStoreWriter lWriter(getOptions());
            ZTCTestBatches lBatches(7);
            lBatches.mNextId = lWriter.getStart().mNextId;
            lWriter.write(lBatches.make(100));
            lIsInOrder ? lWriter.finish() : void(kill(getpid(), SIGKILL));
        });
        EXPECT_EQ(lEnd.mStatus, lIsInOrder ? 0 : 128 + SIGKILL) << lEnd.mOut << lEnd.mErr;
        EXPECT_EQ(runChild([&] { add("between"); }).mStatus, 0);
        EXPECT_EQ(runChild([&] { add("twice"); }).mStatus, 0);
        EXPECT_EQ(ZTCStoreReader(mPath).readRequests().size(), 2U);
        ZTCStoreWriter lWriter(getOptions());
        EXPECT_EQ(lWriter.getStart().mSetAside, "");
        EXPECT_EQ(lWriter.getStart().mWasInUse, !lIsInOrder);
        EXPECT_EQ(lWriter.takeRequests().size(), 2U);
        lNotes += 2;
        lWriter.finish();
    }
    expectWhole(lNotes);
    EXPECT_EQ(ask("SELECT count(*) FROM records"), 200);
}

TEST_F(StoreRequest, EachWaitsForTheOther) {
    ZTCStoreWriter(getOptions()).finish();
    {
        const ZTSStoreAddition lAddition = openStoreToAdd(mPath);
        EXPECT_NO_THROW(openStoreToRead(mPath));
        EXPECT_NO_THROW(add("beside another one"));
        try {
            const ZTCStoreWriter lWriter(getOptions());
            ADD_FAILURE() << "it is being added to";
        } catch (const ZTCStoreError& lrError) {
            EXPECT_EQ(lrError.getFault(), ZTEStoreFault::Busy) << lrError.what();
        }
    }
    ZTCStoreWriter lWriter(getOptions());
    EXPECT_EQ(lWriter.takeRequests().size(), 1U);
    SQLite::Database lOther = openStoreAgain(mPath);
    lOther.exec("BEGIN IMMEDIATE");
    std::thread lThread([this] { EXPECT_NO_THROW(add("behind another")); });
    EXPECT_TRUE(lWriter.takeRequests().empty());
    lOther.exec("COMMIT");
    lThread.join();
    EXPECT_EQ(ZTCStoreReader(mPath).readRequests().size(), 1U);
    lOther.exec("BEGIN IMMEDIATE");
    EXPECT_THROW(lWriter.takeRequests(), ZTCStoreError);
    lOther.exec("COMMIT");
    EXPECT_EQ(lWriter.takeRequests().size(), 1U) << "nothing was lost";
}

TEST_F(StoreRequest, WhereItCannotBeOneLineSaysWhy) {
    EXPECT_TRUE(contains(refusal(ZTEStoreFault::Unusable), "is not there"));
    ZTCStoreWriter(getOptions()).finish();
    ASSERT_EQ(chmod(mPath.c_str(), 0644), 0);
    ASSERT_EQ(chmod((mPath + "-lock").c_str(), 0644), 0);
    ASSERT_EQ(chmod(mDirectory.getPath().c_str(), 0755), 0);
    const auto lAsNobody = [&](const char* apText, ZTEStoreFault aFault) {
        const ZTSTestEnd lEnd = runChild([&] {
            ASSERT_EQ(setresuid(4712, 4712, 4712), 0);
            const std::string lText = refusal(aFault);
            EXPECT_TRUE(contains(lText, apText)) << lText;
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
    };
    if (geteuid() == 0) {
        lAsNobody("no permission", ZTEStoreFault::Unusable);
        // Its folder cannot be written, and what stands beside the file is not there.
        ASSERT_EQ(chmod(mPath.c_str(), 0666), 0);
        lAsNobody("-lock cannot be written", ZTEStoreFault::Unusable);
        ASSERT_EQ(chmod((mPath + "-lock").c_str(), 0666), 0);
        std::filesystem::remove(mPath + "-wal");
        std::filesystem::remove(mPath + "-shm");
        lAsNobody("cannot be written", ZTEStoreFault::ReadOnly);
    }
    std::filesystem::resize_file(mPath, 5000);
    EXPECT_TRUE(contains(refusal(ZTEStoreFault::Damaged), "vrx-sn sees to it"));
    EXPECT_THROW(add(std::string(4097, 'x')), ZTCStoreError);
}
