// What is counted and summed over time, by minute and by hour.
#pragma once

#include "Measures.h"
#include "Statement.h"

class ZTCMeasureTables {
  public:
    explicit ZTCMeasureTables(SQLite::Database& arDatabase);

    /// Adds them to the sums that are there.
    void write(const ZTCMeasures& acrMeasures);
    /// The transaction has failed, or rows of the table measured have gone.
    void forget();

  private:
    struct Measured {
        std::int64_t mId = 0;
        std::int64_t mLast = 0;
    };
    struct Kind {
        std::int64_t mId = 0;
        bool mIsMost = false;
    };
    struct Table {
        Table(SQLite::Database& arDatabase, const std::string& acrName);
        ZTCStatement mAdd, mMost, mNew;
    };

    Measured& findMeasured(const ZTSMeasured& acrWhose);
    const Kind& findKind(const std::string& acrName);
    void add(Table& arTable, const ZTCMeasures::Key& acrKey, std::uint64_t aValue);

    std::map<ZTSMeasured, Measured> mMeasured;
    std::map<std::string, Kind> mKinds;
    std::uint64_t mNewRows = 0;
    Table mMinutes, mHours;
    ZTCStatement mFindMeasured, mMakeMeasured, mUseMeasured, mFindKind, mMakeKind, mCount;
};
