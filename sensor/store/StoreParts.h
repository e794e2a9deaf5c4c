// What works on the file of a store that is written.
#pragma once

#include <algorithm>

#include "BatchTables.h"
#include "HostTables.h"
#include "IncidentTables.h"
#include "Retention.h"
#include "SeriesBook.h"
#include "StoreWriter.h"
#include "TotalsTables.h"
#include "Wal.h"

/// Series take a quarter of what is kept at most.
inline std::size_t limitOfSeries(std::size_t aLimit, std::uint64_t aKeepBytes) {
    constexpr std::uint64_t lSeries = 500;  // with its indexes
    return static_cast<std::size_t>(std::min<std::uint64_t>(aLimit, aKeepBytes / 4 / lSeries));
}

/// The lock and the file themselves are another's.
struct ZTSStoreParts {
    ZTSStoreParts(const ZTSStoreOptions& acrOptions, std::uint64_t aKeepBytes, SQLite::Database& arDatabase)
        : mDatabase(setUp(arDatabase)),
          mWal(mDatabase, acrOptions.mPath, acrOptions.mLogStays),
          mSums(mDatabase),
          mSeries(mDatabase, mSums, limitOfSeries(acrOptions.mSeriesLimit, aKeepBytes)),
          mTables(mDatabase),
          mTotals(mDatabase),
          mHost(mDatabase, mTotals),
          mIncidents(mDatabase, mTotals),
          mRetention(mDatabase),
          mBegin(mDatabase, "BEGIN IMMEDIATE"),
          mCommit(mDatabase, "COMMIT"),
          mGetMeta(mDatabase, "SELECT value FROM meta WHERE name = ?"),
          mSetMeta(mDatabase, "INSERT OR REPLACE INTO meta VALUES (?, ?)"),
          mMaxMeta(
              mDatabase,
              "INSERT INTO meta VALUES (?, ?) ON CONFLICT DO UPDATE SET value = max(value, excluded.value)"),
          mAddRow(mDatabase, "INSERT INTO records VALUES (?, ?, ?, ?, ?, ?)"),
          mGrowRow(mDatabase,
                   "UPDATE records SET last = ?2, occurrences = occurrences + ?3, data = ?4 WHERE id = ?1"),
          mCountRecords(
              mDatabase,
              "SELECT (SELECT sum(records) FROM series) - coalesce((SELECT value FROM meta WHERE name = "
              "'retired_records'), 0)") {}

    static SQLite::Database& setUp(SQLite::Database& arDatabase) {
        arDatabase.setBusyTimeout(5);  // the thread that calls does the waiting
        // A page that is written before its transaction ends may be written several times, all into the log.
        arDatabase.exec("PRAGMA cache_spill = OFF");
        return arDatabase;
    }

    SQLite::Database& mDatabase;
    ZTCWal mWal;
    ZTCSums mSums;
    ZTCSeriesBook mSeries;
    ZTCBatchTables mTables;
    ZTCTotalsTables mTotals;
    ZTCHostTables mHost;
    ZTCIncidentTables mIncidents;
    ZTCRetention mRetention;
    ZTCStatement mBegin, mCommit, mGetMeta, mSetMeta, mMaxMeta, mAddRow, mGrowRow, mCountRecords;
};
