#include "HostRetention.h"

#include <algorithm>
#include <limits>

namespace {

constexpr int sRows = 500;             // in a round, of each
constexpr std::int64_t sNames = 2000;  // that are looked at in a round
constexpr int sMostGone = 20000;       // LUNs that are not there any more, and maps
constexpr std::uint64_t sMeasureBytes = 32;
constexpr int sBaselineDays = 35;
constexpr char sRetiredMeasures[] = "retired_measures";

std::string sOldOf(const std::string& acrTable, const std::string& acrTime, const std::string& acrWhich) {
    return "DELETE FROM " + acrTable + " WHERE id IN (SELECT id FROM " + acrTable + " WHERE " + acrTime +
           " < ?1" + acrWhich + " ORDER BY " + acrTime + " LIMIT ?2)";
}

std::string sGoneOf(const std::string& acrTable, const std::string& acrKey) {
    const std::string lGone = " FROM " + acrTable + " WHERE here = 0";
    return "DELETE FROM " + acrTable + " WHERE " + acrKey + " IN (SELECT " + acrKey + lGone +
           " AND seen < max(?1, coalesce((SELECT seen" + lGone + " ORDER BY seen DESC LIMIT 1 OFFSET " +
           std::to_string(sMostGone) + "), 0)) LIMIT ?2)";
}

// All of a minute or an hour that had begun by then.
std::string sMeasuresOf(const std::string& acrTable, const std::string& acrLength) {
    return "DELETE FROM " + acrTable +
           " WHERE (time, measured, measure) IN (SELECT time, measured, measure FROM " + acrTable +
           " WHERE time < ?1 / 1000000000 / " + acrLength + " * " + acrLength +
           " ORDER BY time, measured, measure LIMIT ?2)";
}

// The hour of the oldest sums.
std::string sOldestOf(const std::string& acrTimes) {
    return "SELECT coalesce(min(time), 9223372036854775807) / 3600 * 3600 FROM (" + acrTimes + ")";
}

}  // namespace

ZTCHostRetention::Names::Names(SQLite::Database& arDatabase, const std::string& acrTable,
                               const std::string& acrOldest)
    : mLastId(arDatabase, ("SELECT max(id) FROM " + acrTable).c_str()),
      mOldest(arDatabase, acrOldest.c_str()),
      mRemove(arDatabase, ("DELETE FROM " + acrTable + " WHERE id > ?1 AND id <= ?2 AND last < ?3").c_str()) {
}

ZTCHostRetention::ZTCHostRetention(SQLite::Database& arDatabase)
    : mMembers(
          arDatabase, "member",
          sOldestOf("SELECT (SELECT min(time) FROM minutes WHERE minutes.axis = axis.id) AS time FROM axis "
                    "UNION ALL SELECT (SELECT min(time) FROM hours WHERE hours.axis = axis.id) FROM axis")),
      mMeasured(arDatabase, "measured",
                sOldestOf("SELECT min(time) AS time FROM measure_minutes UNION ALL SELECT min(time) FROM "
                          "measure_hours")),
      mOldest(
          arDatabase,
          "SELECT min(time) FROM (SELECT min(first) AS time FROM fpins UNION ALL SELECT * FROM (SELECT first "
          "FROM stalls WHERE over = 1 ORDER BY first LIMIT 1) UNION ALL SELECT min(time) * 1000000000 FROM "
          "measure_hours UNION ALL SELECT min(closed) FROM incidents WHERE closed IS NOT NULL AND kept = 0 UNION "
          "ALL SELECT min(time) FROM changes UNION ALL SELECT min(first) FROM losses)"),
      mMeasureCount(arDatabase, "SELECT value FROM meta WHERE name = 'measures'"),
      mCount(arDatabase,
             "INSERT INTO meta VALUES (?, ?) ON CONFLICT DO UPDATE SET value = value + excluded.value"),
      // Days that are known, so that a clock that was once ahead takes none with it.
      mOldBaselines(
          arDatabase,
          "DELETE FROM baselines WHERE day <= (SELECT DISTINCT day FROM baselines ORDER BY day DESC "
          "LIMIT 1 OFFSET ?)") {
    mRules.emplace_back(arDatabase, "retired_fpins", sOldOf("fpins", "first", ""));
    mRules.emplace_back(arDatabase, "retired_stalls",
                        sOldOf("stalls", "first", " AND last < ?1 AND over = 1"));
    // Each has rows of evidence.
    mRules.emplace_back(
        arDatabase, "retired_incidents",
        "DELETE FROM incidents WHERE id IN (SELECT id FROM incidents WHERE closed IS NOT NULL AND "
        "kept = 0 AND closed < ?1 ORDER BY closed LIMIT ?2 / 20)");
    mRules.emplace_back(arDatabase, nullptr, sOldOf("requests", "time", " AND done <> 0"));
    mRules.emplace_back(arDatabase, nullptr, sGoneOf("luns", "name"));
    mRules.emplace_back(arDatabase, nullptr, sGoneOf("maps", "map"));
    mMeasures.emplace_back(arDatabase, sRetiredMeasures, sMeasuresOf("measure_minutes", "60"));
    mMeasures.emplace_back(arDatabase, sRetiredMeasures, sMeasuresOf("measure_hours", "3600"));
}

int ZTCHostRetention::run(Rule& arRule, ZTNanoseconds aTime) {
    const int lGone = arRule.mRemove.run(aTime, sRows);
    if (lGone != 0 && arRule.mpCount != nullptr) {
        mCount.run(std::string(arRule.mpCount), lGone);
    }
    if (lGone != 0 && arRule.mpCount == sRetiredMeasures) {
        mCount.run(std::string("measures"), -lGone);
    }
    return lGone;
}

int ZTCHostRetention::removeOlder(ZTNanoseconds aTime) {
    int lGone = 0;
    for (std::deque<Rule>* const lpRules : {&mRules, &mMeasures}) {
        for (Rule& lrRule : *lpRules) {
            lGone += run(lrRule, aTime);
        }
    }
    return lGone;
}

bool ZTCHostRetention::limitMeasures(std::uint64_t aBytes) {
    const std::int64_t lRows = std::max<std::int64_t>(mMeasureCount.findNumber().value_or(0), 0);
    if (static_cast<std::uint64_t>(lRows) <= aBytes / sMeasureBytes) {
        return false;
    }
    constexpr std::int64_t lHour = 3600;
    const std::int64_t lOldest = *mMeasured.mOldest.findNumber();
    if (lOldest >= std::numeric_limits<ZTNanoseconds>::max() / ZTSecond - lHour) {
        mCount.run(std::string("measures"), -lRows);  // there are none, whatever was counted
        return false;
    }
    const ZTNanoseconds lEnd = (lOldest + lHour) * ZTSecond;
    int lGone = 0;
    for (Rule& lrRule : mMeasures) {
        lGone += run(lrRule, lEnd);
    }
    return lGone != 0;
}

bool ZTCHostRetention::removeUnused(Names& arNames, std::uint64_t& arGone) {
    const std::int64_t lLast = arNames.mLastId.findNumber().value_or(0);
    const std::int64_t lTo = std::min(lLast, arNames.mTo + sNames);
    const std::int64_t lOldest = *arNames.mOldest.findNumber();
    arGone += static_cast<std::uint64_t>(arNames.mRemove.run(arNames.mTo, lTo, lOldest));
    const bool lIsMore = lTo < lLast;
    arNames.mTo = lIsMore ? lTo : 0;
    return lIsMore;
}

bool ZTCHostRetention::removeUnused(std::uint64_t& arGone) {
    mOldBaselines.run(sBaselineDays);
    return removeUnused(mMembers, arGone) || removeUnused(mMeasured, arGone);
}
