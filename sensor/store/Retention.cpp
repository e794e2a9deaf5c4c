#include "Retention.h"

#include <algorithm>
#include <vector>

namespace {

// The clocks are looked at each few seconds; a clock that is slewed gains less than that in an hour.
constexpr ZTNanoseconds sStep = 5 * ZTSecond;
constexpr ZTNanoseconds sDay = 24 * 3600 * ZTSecond;
constexpr std::int64_t sMinute = 60;
constexpr std::int64_t sHour = 3600;
// Of the bytes that are kept, the part that is left free for what comes.
constexpr unsigned int sRoom = 32;
constexpr unsigned int sSums = 500;  // rows of an axis in a round
constexpr int sAxes = 4;
constexpr std::int64_t sSeries = 500;  // in a round

std::uint64_t sLiveBytes(const ZTSRetentionFacts& acrFacts) {
    return (acrFacts.mPages - acrFacts.mFreePages) * acrFacts.mPageSize;
}

// A few of an axis' oldest ones, and all of the same time.
std::string sRemoveFrom(const std::string& acrTable) {
    return "DELETE FROM " + acrTable +
           " WHERE axis = ?1 AND time < ?2 AND time <= coalesce((SELECT time FROM " + acrTable +
           " WHERE axis = ?1 AND time < ?2 ORDER BY time LIMIT 1 OFFSET ?3), ?2)";
}

const std::string sIsEmptySeries =
    " WHERE id BETWEEN ?1 AND ?2 AND remote NOT IN ('', '*') AND NOT EXISTS (SELECT 1 FROM records WHERE series = "
    "series.id)";

std::uint64_t sUnsigned(const SQLite::Column& acrColumn) {
    return static_cast<std::uint64_t>(acrColumn.getInt64());
}

}  // namespace

bool ZTCClockTrust::look(ZTNanoseconds aNow, std::chrono::steady_clock::time_point aSteady) {
    const ZTNanoseconds lOffset = aNow - std::chrono::nanoseconds(aSteady.time_since_epoch()).count();
    if (!mSince || lOffset - mOffset > sStep || mOffset - lOffset > sStep) {
        mSince = aSteady;
    }
    mOffset = lOffset;
    return aSteady - *mSince >= mTime;
}

ZTSRetentionPlan planRetention(const ZTSRetentionFacts& acrFacts) {
    const ZTSKeep& lrKeep = acrFacts.mKeep;
    const std::uint64_t lRoom = lrKeep.mBytes / sRoom;
    ZTSRetentionPlan lPlan;
    if (acrFacts.mIsClockTrusted) {
        lPlan.mOlderThan = acrFacts.mNow - lrKeep.mDays * sDay;
    }
    lPlan.mIsFull = sLiveBytes(acrFacts) > lrKeep.mBytes - lRoom;
    lPlan.mShrinks = !lPlan.mIsFull && acrFacts.mFreePages != 0 &&
                     acrFacts.mPages * acrFacts.mPageSize > lrKeep.mBytes + lRoom;
    return lPlan;
}

bool isAtLimit(const ZTSRetentionFacts& acrFacts) {
    return sLiveBytes(acrFacts) >= acrFacts.mKeep.mBytes;
}

ZTCRetention::ZTCRetention(SQLite::Database& arDatabase)
    : mPageSize(arDatabase, "PRAGMA page_size"),
      mPages(arDatabase, "PRAGMA page_count"),
      mFreePages(arDatabase, "PRAGMA freelist_count"),
      mLast(
          arDatabase,
          "SELECT min((SELECT max(id) FROM records) - 1, (SELECT value FROM meta WHERE name = 'closed_to'))"),
      mNextId(arDatabase, "SELECT min(id) FROM records WHERE id > ?"),
      mSome(arDatabase,
            "SELECT max(id), count(*), sum(occurrences) FROM (SELECT id, occurrences FROM records WHERE id "
            "BETWEEN ? AND ? ORDER BY id LIMIT ?)"),
      mRemoveSome(arDatabase, "DELETE FROM records WHERE id BETWEEN ? AND ?"),
      mOlder(arDatabase,
             "SELECT id, first, occurrences FROM records WHERE (first, id) > (?, ?) AND first < ? ORDER BY "
             "first, id LIMIT ?"),
      mRemove(arDatabase, "DELETE FROM records WHERE id = ?"),
      mCount(arDatabase,
             "INSERT INTO meta VALUES (?, ?) ON CONFLICT DO UPDATE SET value = value + excluded.value"),
      mBegin(arDatabase,
             "SELECT first FROM records WHERE first >= ? AND id > coalesce((SELECT last_id FROM kept WHERE "
             "first_id <= records.id ORDER BY first_id DESC LIMIT 1), 0) ORDER BY first LIMIT 1"),
      mOldMinutes(arDatabase, sRemoveFrom("minutes").c_str()),
      mOldHours(arDatabase, sRemoveFrom("hours").c_str()),
      mOldSeriesHours(arDatabase,
                      "DELETE FROM series_hours WHERE time < ?1 AND time <= coalesce((SELECT time FROM "
                      "series_hours WHERE time < ?1 ORDER BY time LIMIT 1 OFFSET ?2), ?1)"),
      mOldLosses(
          arDatabase,
          "DELETE FROM losses WHERE id IN (SELECT id FROM losses WHERE first < ?1 AND last < ?1 ORDER BY "
          "first LIMIT ?2)"),
      mOldChanges(
          arDatabase,
          "DELETE FROM changes WHERE id IN (SELECT id FROM changes WHERE time < ? ORDER BY time LIMIT "
          "?)"),
      mOldAgents(
          arDatabase,
          "DELETE FROM agents WHERE id IN (SELECT id FROM agents WHERE seen < ? AND id < (SELECT max(id) "
          "FROM agents) ORDER BY id LIMIT ?)"),
      mLastSeries(arDatabase, "SELECT max(id) - 1 FROM series"),
      mJoinSeries(
          arDatabase,
          ("INSERT INTO series (kind, category, subcategory, initiator, initiator_node, fabric, remote, "
           "target, target_node, events, records, first, last) SELECT kind, category, subcategory, "
           "initiator, initiator_node, fabric, '*', '', '', sum(events), sum(records), min(first), "
           "max(last) FROM series" +
           sIsEmptySeries +
           " GROUP BY category, subcategory, initiator, initiator_node, fabric ON CONFLICT DO UPDATE SET "
           "events = events + excluded.events, records = records + excluded.records, first = min(first, "
           "excluded.first), last = max(last, excluded.last)")
              .c_str()),
      mRemoveSeries(arDatabase, ("DELETE FROM series" + sIsEmptySeries).c_str()),
      mKept(arDatabase),
      mHost(arDatabase) {}

ZTSRetentionFacts ZTCRetention::look() {
    const auto lNumber = [](ZTCStatement& arFrom) {
        return static_cast<std::uint64_t>(arFrom.findNumber().value_or(0));
    };
    ZTSRetentionFacts lFacts;
    lFacts.mPageSize = lNumber(mPageSize);
    lFacts.mPages = lNumber(mPages);
    lFacts.mFreePages = lNumber(mFreePages);
    return lFacts;
}

std::int64_t ZTCRetention::findLast() {
    return mLast.findNumber().value_or(0);
}

std::optional<std::int64_t> ZTCRetention::findFirst() {
    std::optional<std::int64_t> lFirst = mNextId.findNumber(0);
    while (lFirst) {
        const std::optional<std::int64_t> lKeptTo = mKept.findEnd(*lFirst);
        if (!lKeptTo) {
            break;
        }
        lFirst = mNextId.findNumber(*lKeptTo);
    }
    return lFirst;
}

unsigned int ZTCRetention::removeFirst(unsigned int aRows) {
    const std::int64_t lLast = findLast();
    std::int64_t lFirst = 0;
    std::int64_t lTo = 0;
    unsigned int lRows = 0;
    std::uint64_t lEvents = 0;
    do {  // until none of them are kept
        lFirst = findFirst().value_or(INT64_MAX);
        if (lFirst > lLast) {
            return 0;
        }
        const std::int64_t lEnd = std::min(lLast, mKept.findNext(lFirst).value_or(INT64_MAX) - 1);
        mSome.forEach(
            [&](SQLite::Statement& arRow) {
                lTo = arRow.getColumn(0).getInt64();
                lRows = arRow.getColumn(1).getUInt();
                lEvents = sUnsigned(arRow.getColumn(2));
            },
            lFirst, lEnd, aRows);
    } while (mKept.keepEvidence(lFirst, lTo));
    mRemoveSome.run(lFirst, lTo);
    count(lRows, lEvents);
    return lRows;
}

bool ZTCRetention::removeOlder(ZTNanoseconds aTime, unsigned int aRows, std::uint64_t& arGone) {
    struct Row {
        std::int64_t mId;
        std::uint64_t mEvents;
    };
    std::vector<Row> lRows;
    mOlder.forEach(
        [&](SQLite::Statement& arRow) {
            mSweepId = arRow.getColumn(0).getInt64();
            mSweepTime = arRow.getColumn(1).getInt64();
            lRows.push_back({mSweepId, sUnsigned(arRow.getColumn(2))});
        },
        mSweepTime, mSweepId, aTime, aRows);
    const bool lIsAll = lRows.size() < aRows;
    const std::int64_t lLast = findLast();
    std::erase_if(lRows, [&](const Row& acrRow) {
        return acrRow.mId > lLast || mKept.findEnd(acrRow.mId) || mKept.keepEvidence(acrRow.mId, acrRow.mId);
    });
    std::uint64_t lEvents = 0;
    for (const Row& lrRow : lRows) {
        mRemove.run(lrRow.mId);
        lEvents += lrRow.mEvents;
    }
    count(lRows.size(), lEvents);
    arGone += lRows.size();
    if (lIsAll) {
        mSweepTime = INT64_MIN;
        mSweepId = 0;
    }
    return !lIsAll;
}

bool ZTCRetention::removeSums(ZTNanoseconds aTime) {
    const std::int64_t lSeconds = aTime / ZTSecond;
    int lRemoved = mOldSeriesHours.run(lSeconds / sHour * sHour, sSums);
    for (int lAxis = 1; lAxis <= sAxes; ++lAxis) {
        lRemoved += mOldMinutes.run(lAxis, lSeconds / sMinute * sMinute, sSums);
        lRemoved += mOldHours.run(lAxis, lSeconds / sHour * sHour, sSums);
    }
    return removeTold(aTime) || lRemoved != 0;
}

bool ZTCRetention::removeTold(ZTNanoseconds aTime) {
    int lRemoved = mOldLosses.run(aTime, sSums);
    lRemoved += mOldChanges.run(aTime, sSums);
    lRemoved += mOldAgents.run(aTime, sSums);
    lRemoved += mHost.removeOlder(aTime);
    return lRemoved != 0;
}

bool ZTCRetention::removeOldestTold() {
    const std::optional<ZTNanoseconds> lOldest = mHost.findOldest();
    return lOldest && removeTold((*lOldest / ZTSecond / sHour + 1) * sHour * ZTSecond);
}

// The last one stays, so that no id is used again: readers know series by their ids.
bool ZTCRetention::joinSeries(std::uint64_t& arGone) {
    const std::int64_t lLast = mLastSeries.findNumber().value_or(0);
    const std::int64_t lTo = std::min(lLast, mJoinedTo + sSeries);
    mJoinSeries.run(mJoinedTo + 1, lTo);
    arGone += static_cast<std::uint64_t>(mRemoveSeries.run(mJoinedTo + 1, lTo));
    const bool lIsMore = lTo < lLast;
    mJoinedTo = lIsMore ? lTo : 0;
    return lIsMore;
}

std::optional<ZTNanoseconds> ZTCRetention::findBegin() {
    const std::optional<ZTNanoseconds> lBegin = mBegin.findNumber(mBeginFrom);
    mBeginFrom = lBegin.value_or(mBeginFrom);
    return lBegin;
}

void ZTCRetention::count(std::uint64_t aRecords, std::uint64_t aEvents) {
    if (aRecords != 0) {
        mCount.run(std::string("retired_records"), aRecords);
        mCount.run(std::string("retired_events"), aEvents);
    }
}
