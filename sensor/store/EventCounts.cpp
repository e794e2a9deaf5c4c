#include "EventCounts.h"

#include "StoreRows.h"

namespace {

constexpr std::int64_t sSeriesToLookAt = 20'000;
constexpr std::size_t sFewSeries = 512;
constexpr std::int64_t sBehindAll = std::numeric_limits<std::int64_t>::max();

// Rows whose columns are a time, what tells rows of one time apart, how many, and whose they are, if that is
// something else. The parameters ?1 and ?2 are those of the row behind which it goes on, ?3 is the end.
class Rows {
  public:
    Rows(ZTCStoreReader& arReader, const std::string& acrSql)
        : mrReader(arReader), mStatement(storeCall(arReader.getPath(), [&] {
              return SQLite::Statement(arReader.getDatabase(), acrSql);
          })) {}

    /// Of a statement that has a ?4.
    void choose(std::int64_t aValue) { mStatement.bind(4, aValue); }
    /// False: there are more than so many.
    bool read(std::int64_t aFrom, std::int64_t aTo, std::uint64_t& arLeft, const ZTTakeCount& acrTake) {
        return storeCall(mrReader.getPath(), [&] {
            mTime = aFrom - 1;
            mId = sBehindAll;
            for (bool lIsMore = true; lIsMore && arLeft != 0;) {
                lIsMore = readSome(aTo, arLeft, acrTake);
            }
            return arLeft != 0;
        });
    }

  private:
    bool readSome(std::int64_t aTo, std::uint64_t& arLeft, const ZTTakeCount& acrTake) {
        ZTCStoreSlice lSlice(mrReader);
        mStatement.bind(1, mTime);
        mStatement.bind(2, mId);
        mStatement.bind(3, aTo);
        const bool lHasOwner = mStatement.getColumnCount() > 3;
        bool lIsMore = false;
        while ((lIsMore = mStatement.executeStep()) && --arLeft != 0) {
            mTime = mStatement.getColumn(0).getInt64();
            mId = mStatement.getColumn(1).getInt64();
            acrTake(mTime, lHasOwner ? mStatement.getColumn(3).getInt64() : mId, numberAt(mStatement, 2));
            if (lSlice.isEnough()) {
                break;
            }
        }
        mStatement.reset();
        return lIsMore;
    }

    ZTCStoreReader& mrReader;
    SQLite::Statement mStatement;
    std::int64_t mTime = 0;
    std::int64_t mId = 0;
};

// More than may be read is one.
bool sRead(ZTCStoreReader& arReader, const std::string& acrSql, const ZTSCountSpan& acrSpan,
           std::optional<std::int64_t> aChoice, const ZTTakeCount& acrTake) {
    Rows lRows(arReader, acrSql);
    aChoice ? lRows.choose(*aChoice) : void();
    std::uint64_t lLeft = acrSpan.mMost + 1;
    return lRows.read(acrSpan.mFrom, acrSpan.mTo, lLeft, acrTake);
}

ZTTakeCount sOfNanoseconds(const ZTTakeCount& acrTake) {
    return [&acrTake](std::int64_t aTime, std::int64_t aId, std::uint64_t aEvents) {
        acrTake(aTime / ZTSecond, aId, aEvents);
    };
}

// A place in an index alone is cheap: what would be too much is not read.
class RecordCount {
  public:
    RecordCount(ZTCStoreReader& arReader, const std::string& acrFrom)
        : mrReader(arReader), mStatement(storeCall(arReader.getPath(), [&] {
              return SQLite::Statement(arReader.getDatabase(), "SELECT count(*) FROM (SELECT 1" + acrFrom +
                                                                   " first >= ?1 AND first < ?2 LIMIT ?3)");
          })) {}

    void choose(std::int64_t aSeries) { mStatement.bind(4, aSeries); }
    std::uint64_t count(const ZTSCountSpan& acrSpan, std::uint64_t aMost) {
        return storeCall(mrReader.getPath(), [&] {
            const ZTCStoreSlice lSlice(mrReader);
            mStatement.bind(1, acrSpan.mFrom * ZTSecond);
            mStatement.bind(2, acrSpan.mTo * ZTSecond);
            mStatement.bind(3, static_cast<std::int64_t>(aMost));
            mStatement.executeStep();
            const std::uint64_t lCount = numberAt(mStatement, 0);
            mStatement.reset();
            return lCount;
        });
    }

  private:
    ZTCStoreReader& mrReader;
    SQLite::Statement mStatement;
};

constexpr char sByTime[] = " FROM records INDEXED BY records_by_time WHERE";
constexpr char sBySeries[] = " FROM records INDEXED BY records_by_series WHERE series = ?4 AND";
constexpr char sRecords[] = "SELECT first, id, occurrences, series";
constexpr char sBehind[] = " first >= ?1 AND first < ?3 AND (first > ?1 OR id > ?2) ORDER BY first, id";

}  // namespace

bool readSums(ZTCStoreReader& arReader, ZTEStoreAxis aAxis, ZTEStoreBin aBin, const ZTSCountSpan& acrSpan,
              const ZTTakeCount& acrTake) {
    const std::string lTable = aBin == ZTEStoreBin::Minute ? "minutes" : "hours";
    return sRead(arReader,
                 "SELECT time, member, events FROM " + lTable +
                     " WHERE axis = ?4 AND (time, member) > (?1, ?2) AND time < ?3 ORDER BY time, member",
                 acrSpan, static_cast<std::int64_t>(aAxis), acrTake);
}

bool readSeriesSums(ZTCStoreReader& arReader, const ZTSCountSpan& acrSpan, const ZTTakeCount& acrTake) {
    return sRead(arReader,
                 "SELECT time, series, events FROM series_hours WHERE (time, series) > (?1, ?2) AND "
                 "time < ?3 ORDER BY time, series",
                 acrSpan, {}, acrTake);
}

bool readRecordCounts(ZTCStoreReader& arReader, const ZTSCountSpan& acrSpan, const ZTTakeCount& acrTake) {
    if (RecordCount(arReader, sByTime).count(acrSpan, acrSpan.mMost + 1) > acrSpan.mMost) {
        return false;
    }
    // What came meanwhile is some more.
    return sRead(arReader, std::string(sRecords) + sByTime + sBehind,
                 {acrSpan.mFrom * ZTSecond, acrSpan.mTo * ZTSecond, 2 * acrSpan.mMost}, {},
                 sOfNanoseconds(acrTake));
}

std::optional<std::vector<std::int64_t>> findFewSeries(ZTCStoreReader& arReader,
                                                       const ZTSHistoryFilter& acrFilter) {
    const auto lLast = storeCall(arReader.getPath(), [&] {
        return arReader.getDatabase().execAndGet("SELECT max(id) FROM series").getInt64();
    });
    if (lLast > sSeriesToLookAt) {
        return {};
    }
    std::vector<std::int64_t> lSeries;
    for (const ZTSStoredSeries& lrSeries : arReader.readSeries()) {
        acrFilter.takes(lrSeries.mSeries) ? lSeries.push_back(lrSeries.mId) : void();
    }
    return lSeries.size() <= sFewSeries ? std::optional(std::move(lSeries)) : std::nullopt;
}

bool readRecordCounts(ZTCStoreReader& arReader, const std::vector<std::int64_t>& acrSeries,
                      const ZTSCountSpan& acrSpan, const ZTTakeCount& acrTake) {
    RecordCount lCount(arReader, sBySeries);
    std::uint64_t lRecords = 0;
    for (const std::int64_t lSeries : acrSeries) {
        lCount.choose(lSeries);
        lRecords += lCount.count(acrSpan, acrSpan.mMost + 1 - lRecords);
        if (lRecords > acrSpan.mMost) {
            return false;
        }
    }
    Rows lRows(arReader, std::string(sRecords) + sBySeries + sBehind);
    std::uint64_t lLeft = 2 * acrSpan.mMost + 1;
    const ZTTakeCount lTake = sOfNanoseconds(acrTake);
    return std::all_of(acrSeries.begin(), acrSeries.end(), [&](std::int64_t aSeries) {
        lRows.choose(aSeries);
        return lRows.read(acrSpan.mFrom * ZTSecond, acrSpan.mTo * ZTSecond, lLeft, lTake);
    });
}

ZTCMemberNames::ZTCMemberNames(ZTCStoreReader& arReader)
    : mrReader(arReader), mFind(storeCall(arReader.getPath(), [&] {
          return SQLite::Statement(arReader.getDatabase(), "SELECT name FROM member WHERE id = ?");
      })) {}

std::string ZTCMemberNames::find(std::int64_t aMember) {
    return storeCall(mrReader.getPath(), [&] {
        mFind.bind(1, aMember);
        std::string lName = mFind.executeStep() ? textAt(mFind, 0) : "";
        mFind.reset();
        return lName;
    });
}
