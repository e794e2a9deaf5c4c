// Batches for a store, and whether its sums are those of its records.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <deque>
#include <random>
#include <string>
#include <vector>

#include "StoreBatch.h"
#include "StoreFile.h"

/// A name of a port.
inline ZTSWwn ZTTestPort(std::uint64_t aNumber) {
    ZTSWwn lName{{0x50, 0, 0, 0, 0, 0, 0, 0}};
    for (std::size_t lByte = 0; lByte < 4; ++lByte) {
        lName.mBytes[7 - lByte] = static_cast<std::uint8_t>(aNumber >> 8 * lByte);
    }
    return lName;
}

/// Rows as the buffer hands them over: new ones, and open ones that have grown.
class ZTCTestBatches {
  public:
    explicit ZTCTestBatches(unsigned int aSeed = 1) : mRandom(aSeed) {}

    std::uint64_t mNextId = 1;
    ZTNanoseconds mTime = 1'700'000'000 * ZTSecond;
    ZTNanoseconds mStep = ZTSecond;  ///< from a row to the next
    unsigned int mRemotes = 20;
    std::size_t mData = 24;
    std::size_t mOpen = 50;     ///< rows that may grow
    std::uint64_t mEvents = 0;  ///< of all batches so far

    ZTSStoreBatch make(unsigned int aRows) {
        ZTSStoreBatch lBatch;
        for (ZTSStoreRow& lrRow : mRows) {
            if (below(3) == 0) {
                grow(lrRow);
                lBatch.mRows.push_back(lrRow);
            }
        }
        for (unsigned int lRow = 0; lRow < aRows; ++lRow) {
            lBatch.mRows.push_back(makeRow());
            mRows.push_back(lBatch.mRows.back());
        }
        while (mRows.size() > mOpen) {
            lBatch.mClosedTo = mRows.front().mId;
            mRows.pop_front();
        }
        return lBatch;
    }

  private:
    unsigned int below(unsigned int aEnd) { return static_cast<unsigned int>(mRandom() % aEnd); }

    ZTSStoreRow makeRow() {
        ZTSStoreRow lRow;
        lRow.mId = mNextId++;
        mTime += mStep;
        ZTSRecord& lrRecord = lRow.mRecord;
        lrRecord.mFirst = lrRecord.mLast = mTime;
        lrRecord.mOccurrences = lRow.mAdded = 1 + below(5);
        lrRecord.mData.assign(mData, static_cast<std::uint8_t>(lRow.mId));
        ZTSSeries& lrSeries = lrRecord.mSeries;
        const unsigned int lPort = below(2);
        lrSeries.mInitiator = {ZTTestPort(100 + lPort), ZTTestPort(lPort)};
        lrSeries.mFabric = lPort == 0 ? "" : "B";
        lrSeries.mCategory = static_cast<std::uint8_t>(1 + below(3));
        lrSeries.mSubcategory = static_cast<std::uint8_t>(below(40));
        if (const unsigned int lRemote = below(mRemotes); lRemote != 0) {
            lrSeries.mRemote = ZTTestPort(1000 + lRemote);
            if (lRemote % 2 == 0) {
                lrSeries.mTarget = {ZTTestPort(5000 + lRemote), *lrSeries.mRemote};
            }
        }
        mEvents += lRow.mAdded;
        return lRow;
    }

    void grow(ZTSStoreRow& arRow) {
        arRow.mIsNew = false;
        arRow.mAdded = 1 + below(100);
        arRow.mRecord.mOccurrences += arRow.mAdded;
        arRow.mRecord.mLast += ZTSecond / 2;
        arRow.mRecord.mData.push_back(1);
        mEvents += arRow.mAdded;
    }

    std::mt19937 mRandom;
    std::deque<ZTSStoreRow> mRows;
};

/// What the store says to a query of one number. NULL is 0.
inline std::int64_t ZTAskStore(SQLite::Database& arStore, const std::string& acrQuery) {
    return arStore.execAndGet(acrQuery).getInt64();
}

/// How many sums are not those of the records; of minutes and hours those from this second on.
inline std::int64_t ZTCountWrongSums(SQLite::Database& arStore, std::int64_t aFrom = 0) {
    const auto lWrongIn = [&](const std::string& acrTable, const std::string& acrLength) {
        const std::string lFrom = std::to_string(aFrom);
        return ZTAskStore(
            arStore,
            "WITH part (axis, name, first, events) AS ("
            "SELECT 1, kind, records.first, occurrences FROM records JOIN series ON series.id = series UNION ALL "
            "SELECT 2, initiator, records.first, occurrences FROM records JOIN series ON series.id = series "
            "UNION ALL SELECT 3, remote, records.first, occurrences FROM records JOIN series ON series.id = series "
            "UNION ALL SELECT 4, fabric, records.first, occurrences FROM records JOIN series ON series.id = series),"
            "again AS (SELECT axis, first / 1000000000 / " +
                acrLength + " * " + acrLength +
                " AS time, member.id AS member, sum(events) AS events FROM part JOIN member USING (axis, name) "
                "GROUP BY 1, 2, 3),"
                "stands AS (SELECT axis, time, member, events FROM " +
                acrTable + ") SELECT (SELECT count(*) FROM (SELECT * FROM again WHERE time >= " + lFrom +
                " EXCEPT SELECT * FROM stands)) + (SELECT count(*) FROM (SELECT * FROM stands WHERE time >= " +
                lFrom + " EXCEPT SELECT * FROM again))");
    };
    // Of series alone nothing is known of what was retired.
    const std::int64_t lSeries = ZTAskStore(
        arStore,
        "SELECT (SELECT count(*) FROM series LEFT JOIN (SELECT series, count(*) AS records, sum(occurrences) AS "
        "events, min(first) AS first, max(last) AS last FROM records GROUP BY series) AS again ON series = "
        "series.id WHERE series.events < again.events OR series.records < again.records OR series.first > "
        "again.first OR series.last < again.last) + "
        "((SELECT coalesce(sum(events), 0) FROM series) <> (SELECT coalesce(sum(occurrences), 0) FROM records) + "
        "coalesce((SELECT value FROM meta WHERE name = 'retired_events'), 0)) + "
        "((SELECT coalesce(sum(records), 0) FROM series) <> (SELECT count(*) FROM records) + "
        "coalesce((SELECT value FROM meta WHERE name = 'retired_records'), 0))");
    const std::int64_t lSeriesHours = ZTAskStore(
        arStore,
        "WITH again AS (SELECT first / 3600000000000 * 3600 AS time, series, sum(occurrences) FROM records GROUP BY "
        "1, 2), both AS (SELECT * FROM (SELECT * FROM again EXCEPT SELECT * FROM series_hours) UNION ALL SELECT * "
        "FROM (SELECT * FROM series_hours EXCEPT SELECT * FROM again)) SELECT count(*) FROM both WHERE time >= " +
            std::to_string(aFrom));
    return lWrongIn("minutes", "60") + lWrongIn("hours", "3600") + lSeries + lSeriesHours;
}

/// Brings of the log into the file what can be brought; a writer does so when it is long. Throws
/// ZTCStoreError.
inline void ZTBringLogIn(const std::string& acrPath) {
    SQLite::Database lStore = openStoreAgain(acrPath);
    try {
        lStore.exec("SELECT name FROM meta LIMIT 1; PRAGMA wal_checkpoint(PASSIVE)");
    } catch (const SQLite::Exception& lrError) {
        throw toStoreError(lrError, acrPath);
    }
}
