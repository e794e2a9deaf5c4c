// What is counted for good stays, whatever goes of the rows that it was counted from.
#include <gtest/gtest.h>

#include "StoreBatches.h"
#include "StoreReader.h"
#include "StoreWriter.h"
#include "TestSupport.h"

namespace {

constexpr ZTNanoseconds sBegin = 1'700'000'000 * ZTSecond;

class TotalsTables : public ::testing::Test {
  protected:
    // A check condition of a port, with a block of so many bytes.
    ZTSStoreRow makeRow(unsigned int aPort, std::uint8_t aKey, std::uint64_t aEvents,
                        std::size_t aBytes = 20) {
        ZTSStoreRow lRow;
        lRow.mId = mNextId++;
        lRow.mRecord.mFirst = lRow.mRecord.mLast = sBegin;
        lRow.mRecord.mOccurrences = lRow.mAdded = aEvents;
        lRow.mRecord.mSeries.mInitiator.mPort = ZTTestPort(aPort);
        lRow.mRecord.mSeries.mCategory = lRow.mRecord.mSeries.mSubcategory = 4;
        lRow.mRecord.mData.resize(20);
        lRow.mRecord.mData[0] = 1;
        lRow.mRecord.mData[12] = aKey;
        lRow.mRecord.mData.resize(aBytes);
        return lRow;
    }
    static ZTSFpin makeFpin(std::uint64_t aAttached, std::uint64_t aTimes) {
        ZTSFpin lFpin;
        lFpin.mFirst = lFpin.mLast = sBegin;
        lFpin.mInitiator = ZTTestPort(1);
        lFpin.mDescriptor = "link_integrity";
        lFpin.mEvent = "link_failure";
        lFpin.mDetecting = ZTTestPort(7);
        lFpin.mAttached = aAttached != 0 ? ZTTestPort(aAttached) : ZTSWwn{};
        lFpin.mTimes = aTimes;
        return lFpin;
    }
    static ZTSIncident makeIncident(std::uint64_t aId, ZTEIncidentClass aClass) {
        ZTSIncident lIncident;
        lIncident.mId = aId;
        lIncident.mClass = aClass;
        lIncident.mState = ZTEIncidentState::Closed;
        lIncident.mOpened = lIncident.mLast = lIncident.mClosed = sBegin;
        return lIncident;
    }
    std::string readAll() const {
        ZTCStoreReader lReader(mPath);
        std::string lText;
        for (const ZTSSenseTotal& lrTotal : lReader.readSenseTotals()) {
            lText += (lrTotal.mSenseKey ? std::to_string(*lrTotal.mSenseKey) : "none") + "*" +
                     std::to_string(lrTotal.mEvents) + (lrTotal.mInitiator == ZTTestPort(1) ? " " : "' ");
        }
        for (const ZTSFpinTotal& lrTotal : lReader.readFpinTotals()) {
            lText += (!lrTotal.mTarget                    ? "nobody"
                      : *lrTotal.mTarget == ZTTestPort(7) ? "finder"
                                                          : "attached") +
                     std::string("*") + std::to_string(lrTotal.mTimes) + " ";
        }
        for (const ZTSIncidentTotal& lrTotal : lReader.readIncidentTotals()) {
            lText += lrTotal.mClass + "*" + std::to_string(lrTotal.mIncidents) + " ";
        }
        return lText;
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    std::uint64_t mNextId = 1;
};

}  // namespace

TEST_F(TotalsTables, StayOverRestartsAndRetention) {
    ZTSStoreOptions lOptions{
        .mPath = mPath, .mHostName = "db7", .mKeepDays = 1, .mClockTrust = std::chrono::seconds(0)};
    std::optional<ZTCStoreWriter> lWriter(std::in_place, lOptions);
    ZTSStoreBatch lBatch;
    lBatch.mRows = {makeRow(1, 3, 5), makeRow(1, 6, 1), makeRow(2, 6, 2), makeRow(1, 16, 3),
                    makeRow(1, 3, 4, 15)};
    lBatch.mRows.push_back(lBatch.mRows[0]);
    lBatch.mRows.back().mIsNew = false;
    lBatch.mRows.back().mAdded = 2;
    lBatch.mHost.mFpins = {makeFpin(9, 3), makeFpin(9, 1), makeFpin(0, 2)};
    lBatch.mIncidents.mIncidents = {makeIncident(1, ZTEIncidentClass::LinkFlap),
                                    makeIncident(2, ZTEIncidentClass::LinkFlap)};
    lWriter->write(lBatch);
    lBatch = {};
    lBatch.mRows = {makeRow(1, 3, 1)};
    lBatch.mHost.mFpins = {makeFpin(9, 1)};
    lBatch.mIncidents.mIncidents = {makeIncident(1, ZTEIncidentClass::PortDown),
                                    makeIncident(2, ZTEIncidentClass::LinkFlap)};
    lBatch.mClosedTo = mNextId;
    lWriter->write(lBatch);
    const std::string lTotals = "none*7 3*8 6*1 6*2' finder*2 attached*5 link_flap*2 port_down*1 ";
    EXPECT_EQ(readAll(), lTotals);
    lWriter.reset();
    lWriter.emplace(lOptions);
    while (lWriter->retire(sBegin + 100 * 24 * 3600 * ZTSecond)) {
    }
    EXPECT_EQ(ZTAskStore(ZTCStoreReader(mPath).getDatabase(),
                         "SELECT (SELECT count(*) FROM incidents) + (SELECT count(*) FROM fpins) + count(*) "
                         "FROM records"),
              1)
        << "the newest record stays";
    EXPECT_EQ(readAll(), lTotals);
}

// Ports that somebody makes up fill nothing.
TEST_F(TotalsTables, OfVeryManyPortsFpinsShareRows) {
    ZTCStoreWriter lWriter({.mPath = mPath, .mHostName = "db7"});
    ZTSStoreBatch lBatch;
    for (std::uint64_t lPort = 1; lPort <= 20'100; ++lPort) {
        lBatch.mHost.mFpins.push_back(makeFpin(lPort, 1));
    }
    lWriter.write(lBatch);
    ZTCStoreReader lReader(mPath);
    EXPECT_LE(lReader.readFpinTotals().size(), 20'001U);
    EXPECT_EQ(ZTAskStore(lReader.getDatabase(), "SELECT sum(times) FROM fpin_totals"), 20'100);
}
