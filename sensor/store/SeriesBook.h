// Which row of the table series a record belongs to, and what all of that row's records sum up to.
#pragma once

#include <map>

#include "Record.h"
#include "Sums.h"

struct ZTSKnownSeries {
    std::int64_t mId = 0;
    ZTAxisMembers mMembers{};
    // What the running transaction adds.
    std::uint64_t mEvents = 0;
    std::uint64_t mRecords = 0;
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    bool mIsTouched = false;
    std::int64_t mHour = 0;  ///< in seconds; what of its events is not in the table yet
    std::uint64_t mHourEvents = 0;
};

/// Bounded: of those that come behind the limit all of a kind, initiator and fabric share a row, whose remote
/// is "*".
class ZTCSeriesBook {
  public:
    ZTCSeriesBook(SQLite::Database& arDatabase, ZTCSums& arSums, std::size_t aLimit);

    /// The series, made if there is none. It stays where it is until flush or forget.
    ZTSKnownSeries& find(const ZTSSeries& acrSeries);
    /// Adds a row, or what it has grown by, to its series and to the sums.
    void count(ZTSKnownSeries& arSeries, const ZTSRecord& acrRecord, std::uint64_t aEvents, bool aIsNew);
    void setLimit(std::size_t aLimit) { mLimit = aLimit; }
    /// Whether there is not much room for new ones.
    bool isNearLimit() { return getCount() > mLimit / 4 * 3; }
    void flush();
    void forget();

  private:
    void countHour(ZTSKnownSeries& arSeries, ZTNanoseconds aFirst, std::uint64_t aEvents);
    void flushHour(ZTSKnownSeries& arSeries);
    std::size_t getCount();
    ZTSKnownSeries load(const ZTSSeries& acrSeries);

    ZTCSums& mrSums;
    std::size_t mLimit;
    std::optional<std::size_t> mCount;  ///< of the table's rows; nothing: not known
    std::map<ZTSSeries, ZTSKnownSeries> mKnown;
    std::vector<ZTSKnownSeries*> mTouched;
    ZTCStatement mCountAll, mFind, mMake, mAdd;
};
