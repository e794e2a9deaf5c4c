// The history as it is read beside whoever writes it.
#include <numeric>

#include "RecordScan.h"
#include "StoreFollow.h"
#include "TestStore.h"
#include "TimeScan.h"

namespace {

using Ids = std::vector<std::uint64_t>;
using Order = ZTCRecordScan::Order;

// Ten series of three kinds, two ports and five targets; every record is a second after the one before it,
// and as long as its number's last digit.
struct Store {
    explicit Store(int aRecords = 0) {
        for (int lId = 1; lId <= 10; ++lId) {
            const char* const lpKinds[] = {"plogi", "queue_full", "rscn"};
            const int lNumbers[][2] = {{1, 1}, {4, 1}, {1, 32}};
            mStore.addSeries(lId, lpKinds[lId % 3], lNumbers[lId % 3][0], lNumbers[lId % 3][1],
                             lId % 2 == 0 ? "00" : "01", lId % 5 == 0 ? "" : "0" + std::to_string(lId % 5),
                             lId % 2 == 0 ? "A" : "B");
        }
        mStore.exec("BEGIN EXCLUSIVE; COMMIT");
        for (int lId = 1; lId <= aRecords; ++lId) {
            mStore.addRecord(lId, lId % 10 + 1, 1000 + lId, 1000 + lId + lId % 10, lId);
        }
        mStore.closeTo(aRecords - 1);
    }
    Ids read(const ZTSHistoryFilter& acrFilter, Order aOrder = Order::OldestFirst) {
        ZTCStoreReader lReader(mPath);
        ZTCRecordScan lScan(lReader, acrFilter, lReader.readPlace(), aOrder);
        std::vector<ZTSStoredRecord> lRecords;
        while (lScan.read(lRecords)) {
        }
        Ids lIds;
        for (const ZTSStoredRecord& lrRecord : lRecords) {
            lIds.push_back(lrRecord.mId);
        }
        return lIds;
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    ZTCTestStore mStore{mPath};
};

ZTSWwn portOf(const char* apText) {
    return *ZTSWwn::fromText(apText);
}

// Of records 1 to the last one those that a condition is true of.
template <class Condition>
Ids idsOf(int aLast, const Condition& acrIsMeant) {
    Ids lIds;
    for (int lId = 1; lId <= aLast; ++lId) {
        acrIsMeant(lId) ? lIds.push_back(static_cast<std::uint64_t>(lId)) : void();
    }
    return lIds;
}

TEST(StoreReader, TakesWhatEachFilterMeansInBothOrders) {
    constexpr int lLast = 200;
    Store lStore(lLast);
    const auto lSeriesOf = [](int aId) { return aId % 10 + 1; };
    ZTSHistoryFilter lTime;
    lTime.mSince = 1100 * ZTSecond;
    lTime.mUntil = 1150 * ZTSecond;
    ZTSHistoryFilter lKinds;
    lKinds.mKinds = {{1, 32}, {9, 9}};
    ZTSHistoryFilter lPorts;
    lPorts.mInitiators = {portOf("10:00:00:25:b5:01:00:01")};
    lPorts.mTargets = {portOf("50:06:01:60:3b:20:11:03"), portOf("50:06:01:60:3b:20:11:04")};
    ZTSHistoryFilter lFabric = lTime;
    lFabric.mFabric = "A";
    ZTSHistoryFilter lNothing;
    lNothing.mKinds = {{9, 9}};
    // One series in ten: by its own index.
    ZTSHistoryFilter lOne = lTime;
    lOne.mTargets = {portOf("50:06:01:60:3b:20:11:02")};
    lOne.mInitiators = {portOf("10:00:00:25:b5:01:00:00")};
    const auto lIsThen = [](int aId) { return aId + aId % 10 >= 100 && aId <= 150; };
    const std::pair<ZTSHistoryFilter, Ids> lRows[] = {
        {{}, idsOf(lLast, [](int) { return true; })},
        {lTime, idsOf(lLast, lIsThen)},
        {lKinds, idsOf(lLast, [&](int aId) { return lSeriesOf(aId) % 3 == 2; })},
        {lPorts, idsOf(lLast,
                       [&](int aId) {
                           const int lSeries = lSeriesOf(aId);
                           return lSeries % 2 == 1 && (lSeries % 5 == 3 || lSeries % 5 == 4);
                       })},
        {lFabric, idsOf(lLast, [&](int aId) { return lIsThen(aId) && lSeriesOf(aId) % 2 == 0; })},
        {lOne, idsOf(lLast, [&](int aId) { return lIsThen(aId) && lSeriesOf(aId) == 2; })},
        {lNothing, {}}};
    for (const auto& [lrFilter, lrIds] : lRows) {
        EXPECT_EQ(lStore.read(lrFilter), lrIds);
        EXPECT_EQ(lStore.read(lrFilter, Order::NewestFirst), Ids(lrIds.rbegin(), lrIds.rend()));
        ZTCStoreReader lReader(lStore.mPath);
        for (const std::size_t lCount : {std::size_t{1}, std::size_t{7}, lrIds.size() + 1}) {
            const auto lBegin = findNewest(lReader, lrFilter, lReader.readPlace(), lCount);
            ASSERT_EQ(lBegin.has_value(), lCount <= lrIds.size());
            EXPECT_TRUE(!lBegin || lBegin->mId == lrIds[lrIds.size() - lCount]);
        }
    }
}

// What the clock was set back for, what begins at the same moment, and more than a slice of both.
TEST(StoreReader, GoesOnWhereASliceHasEnded) {
    constexpr int lLast = 10'000;
    Store lStore;
    lStore.mStore.exec(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000)"
        " INSERT INTO records SELECT i, i % 10 + 1, i / 6000 * -1000 + 5000, 6000, 1, zeroblob(i % 3) FROM n");
    lStore.mStore.exec(
        "UPDATE series SET records = 1000; UPDATE meta SET value = 9000 WHERE name = 'longest'");
    Ids lAll(lLast);
    std::iota(lAll.begin(), lAll.end(), 1U);
    std::rotate(lAll.begin(), lAll.begin() + 5999, lAll.end());
    EXPECT_EQ(lStore.read({}), lAll);
    ZTSHistoryFilter lFew;
    lFew.mTargets = {portOf("50:06:01:60:3b:20:11:02")};
    std::erase_if(lAll, [](std::uint64_t aId) { return aId % 10 != 1 && aId % 10 != 6; });
    EXPECT_EQ(lStore.read(lFew), lAll);
    EXPECT_EQ(lStore.read(lFew, Order::NewestFirst), Ids(lAll.rbegin(), lAll.rend()));
}

TEST(StoreReader, ReadsLossesAndChangesOfATime) {
    Store lStore(3);
    lStore.mStore.exec(
        "INSERT INTO losses VALUES (1, 0, 5000, 'agent', 'limit', 7, NULL),"
        " (2, 10, 20, 'agent', 'killed', NULL, 9), (3, 30, 30, 'sensor', 'buffer', 1, NULL);"
        "INSERT INTO changes VALUES (1, 5, 'agent', 'vrx-sca, process 3', 'came', '', '', ''),"
        " (2, 25, 'port', '10:00:00:25:b5:01:00:01', 'changed', 'state', 'Online', 'Linkdown'),"
        " (3, 26, 'remote_port', '50:06:01:60:3b:20:11:02', 'went', '', '', '')");
    ZTCStoreReader lReader(lStore.mPath);
    ZTSHistoryFilter lFilter;
    lFilter.mSince = 21;
    lFilter.mUntil = 29;
    const auto lRead = [&](auto aScan, auto aItems) {
        while (aScan.read(aItems)) {
        }
        return aItems;
    };
    const auto lLosses = lRead(ZTCLossScan(lReader, lFilter, lReader.readPlace()), std::vector<ZTSLoss>());
    ASSERT_EQ(lLosses.size(), 1U);
    lStore.mStore.exec("INSERT INTO meta VALUES ('longest_loss', 5000)");
    EXPECT_EQ(lRead(ZTCLossScan(lReader, lFilter, lReader.readPlace()), std::vector<ZTSLoss>()).size(), 1U);
    EXPECT_EQ(lLosses[0].mEvents, 7U);
    EXPECT_EQ(lLosses[0].mAtMost, std::nullopt);
    EXPECT_EQ(lRead(ZTCChangeScan(lReader, lFilter, lReader.readPlace()), std::vector<ZTSChange>()).size(),
              2U);
    lFilter.mSince = 0;
    lFilter.mInitiators = {portOf("10:00:00:25:b5:01:00:01")};
    const auto lChanges =
        lRead(ZTCChangeScan(lReader, lFilter, lReader.readPlace()), std::vector<ZTSChange>());
    ASSERT_EQ(lChanges.size(), 2U);
    EXPECT_EQ(lChanges[0].mWhat, "agent");
    EXPECT_EQ(lChanges[1].mAfter, "Linkdown");
}

TEST(StoreReader, SumsAndTotalsAreThoseOfTheTables) {
    Store lStore(20);
    lStore.mStore.exec(
        "INSERT INTO member (id, axis, name) VALUES (1, 1, 'plogi'), (2, 1, 'rscn'), (3, 2, 'x');"
        "INSERT INTO hours VALUES (1, 3600, 1, 10), (1, 3600, 2, 20), (1, 7200, 1, 30), (2, 3600, 3, 99);"
        "INSERT INTO minutes SELECT 1, 60 * t, 2, t FROM (WITH RECURSIVE n(t) AS (SELECT 1 UNION ALL SELECT"
        " t + 1 FROM n WHERE t < 20000) SELECT t FROM n);"
        "INSERT INTO loss_totals VALUES ('agent', 'limit', 5, 2)");
    ZTCStoreReader lReader(lStore.mPath);
    const auto lHours = lReader.readSums(ZTEStoreAxis::Kind, ZTEStoreBin::Hour, 3600, 7200);
    ASSERT_EQ(lHours.size(), 2U);
    EXPECT_EQ(lHours[1].mMember + std::to_string(lHours[1].mEvents), "rscn20");
    std::uint64_t lSum = 0;
    for (const ZTSStoreSum& lrSum : lReader.readSums(ZTEStoreAxis::Kind, ZTEStoreBin::Minute, 0, 1'200'001)) {
        lSum += lrSum.mEvents;
    }
    EXPECT_EQ(lSum, 20'000U * 20'001U / 2);
    std::uint64_t lEvents = 0;
    for (const ZTSStoredSeries& lrSeries : lReader.readSeries()) {
        lEvents += lrSeries.mEvents;
    }
    EXPECT_EQ(lEvents, 210U);
    EXPECT_EQ(lReader.readLossTotals().at(0).mUnknown, 2U);
}

// Records as "id" or, while they are open, "id+".
std::string newsOf(ZTCStoreFollow& arFollow, ZTCStoreReader& arReader) {
    ZTCStoreFollow::News lNews;
    while (arFollow.read(arReader, lNews)) {
    }
    std::string lText;
    for (const ZTSStoredRecord& lrRecord : lNews.mRecords) {
        lText += std::to_string(lrRecord.mId) + (lrRecord.mIsOpen ? "+ " : " ");
    }
    return lText + std::string(lNews.mLosses.size(), 'L') + std::string(lNews.mChanges.size(), 'C');
}

TEST(StoreReader, FollowsRowsUntilTheyHaveClosed) {
    Store lStore(5);  // of which one is open
    ZTCStoreReader lReader(lStore.mPath);
    ZTCStoreFollow lFollow({}, lReader.readPlace());
    EXPECT_TRUE(lReader.hasChanged());
    EXPECT_FALSE(lReader.hasChanged());
    EXPECT_EQ(newsOf(lFollow, lReader), "");
    lStore.mStore.addRecord(6, 1, 500, 501, 1);
    lStore.mStore.addRecord(7, 1, 2000, 2001, 1);
    EXPECT_TRUE(lReader.hasChanged());
    EXPECT_EQ(newsOf(lFollow, lReader), "6+ 7+ ");
    lStore.mStore.closeTo(6);
    EXPECT_EQ(newsOf(lFollow, lReader), "5 6 ");
    lStore.mStore.addRecord(8, 1, 2000, 2001, 1);
    lStore.mStore.addRecord(9, 1, 2000, 2001, 1);
    lStore.mStore.closeTo(8);
    lStore.mStore.exec(
        "INSERT INTO losses VALUES (1, 0, 5000, 'agent', 'limit', 7, NULL);"
        "INSERT INTO changes VALUES (1, 5, 'agent', '', 'came', '', '', '')");
    EXPECT_EQ(newsOf(lFollow, lReader), "7 8 9+ LC");
    EXPECT_EQ(newsOf(lFollow, lReader), "");
    EXPECT_FALSE(lReader.isReplaced());
    // A store that was set aside, and the one in its place.
    std::filesystem::rename(lStore.mPath, lStore.mPath + ".damaged");
    EXPECT_TRUE(lReader.isReplaced());
    EXPECT_EQ(newsOf(lFollow, lReader), "");
}

// While somebody writes, readers see whole transactions, and never hold up a checkpoint for long.
TEST(StoreReader, ReadsInSlicesBesideAWriter) {
    Store lStore(100);
    std::atomic<bool> lIsOver = false;
    std::thread lReaders([&] {
        inThreads(4, [&](unsigned int) {
            while (!lIsOver) {
                ZTCStoreReader lReader(lStore.mPath);
                ZTCRecordScan lScan(lReader, {}, lReader.readPlace());
                std::vector<ZTSStoredRecord> lRecords;
                while (lScan.read(lRecords)) {
                }
                EXPECT_GE(lRecords.size(), 100U);
                EXPECT_TRUE(std::is_sorted(
                    lRecords.begin(), lRecords.end(),
                    [](const auto& acrLeft, const auto& acrRight) { return acrLeft.mId < acrRight.mId; }));
            }
        });
    });
    for (int lId = 101; lId <= 400; ++lId) {
        lStore.mStore.addRecord(lId, 1, 1000 + lId, 1001 + lId, 1);
    }
    EXPECT_TRUE(waitUntil([&] {
        try {
            lStore.mStore.exec("PRAGMA wal_checkpoint(TRUNCATE)");
            return std::filesystem::file_size(lStore.mPath + "-wal") == 0;
        } catch (const SQLite::Exception&) {
            return false;
        }
    }));
    lIsOver = true;
    lReaders.join();
}

}  // namespace
