// A store that a test fills by itself, as vrx-sn would.
#pragma once

#include "StoreFile.h"
#include "TestSupport.h"

/// Writes beside those who read. Times are seconds since 1970.
class ZTCTestStore {
  public:
    explicit ZTCTestStore(const std::string& acrPath) : mStore(openStoreToWrite(acrPath)) {
        exec("INSERT OR REPLACE INTO meta VALUES ('host', 'db7'), ('closed_to', 0), ('longest', 0)");
    }

    void exec(const std::string& acrSql) { mStore.mDatabase.exec(acrSql); }

    /// The series of a kind that a port of the host saw of one beyond the fabric; the last byte of each is
    /// given. Its id is its number.
    void addSeries(int aId, const char* apKind, int aCategory, int aSubcategory,
                   const std::string& acrInitiator, const std::string& acrRemote,
                   const std::string& acrFabric = "A") {
        exec("INSERT INTO series VALUES (" + std::to_string(aId) + ", '" + apKind + "', " +
             std::to_string(aCategory) + ", " + std::to_string(aSubcategory) + ", '10:00:00:25:b5:01:00:" +
             acrInitiator + "', '20:00:00:25:b5:01:00:" + acrInitiator + "', '" + acrFabric + "', '" +
             (acrRemote.empty() ? "" : "50:06:01:60:3b:20:11:" + acrRemote) + "', '', '', 0, 0, 0, 0)");
    }
    void addRecord(int aId, int aSeries, double aFirst, double aLast, int aOccurrences,
                   const std::string& acrData = "x'01000000'") {
        const std::string lFirst = std::to_string(static_cast<std::int64_t>(aFirst * 1e9));
        const std::string lLast = std::to_string(static_cast<std::int64_t>(aLast * 1e9));
        const std::string lEvents = std::to_string(aOccurrences);
        exec("BEGIN; INSERT INTO records VALUES (" + std::to_string(aId) + ", " + std::to_string(aSeries) +
             ", " + lFirst + ", " + lLast + ", " + lEvents + ", " + acrData +
             "); UPDATE series SET events = events + " + lEvents + ", first = CASE records WHEN 0 THEN " +
             lFirst + " ELSE min(first, " + lFirst + ") END, last = max(last, " + lLast +
             "), records = records + 1 WHERE id = " + std::to_string(aSeries) +
             "; UPDATE meta SET value = max(value, " + lLast + " - " + lFirst +
             ") WHERE name = 'longest'; COMMIT");
    }
    void closeTo(int aId) {
        exec("UPDATE meta SET value = " + std::to_string(aId) + " WHERE name = 'closed_to'");
    }

  private:
    ZTSOpenedStore mStore;
};
