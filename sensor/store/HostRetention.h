// What of what the host told is to go, and its going.
#pragma once

#include <deque>

#include "SensorTime.h"
#include "Statement.h"

/// Removes rows, in the transaction of its caller, a few in a round. What goes is counted.
class ZTCHostRetention {
  public:
    explicit ZTCHostRetention(SQLite::Database& arDatabase);

    /// FPINs, stalls, incidents, measures and requests of before that moment, and what had gone by then.
    /// Returns how many rows.
    int removeOlder(ZTNanoseconds aTime);
    /// The time of the first of them.
    std::optional<ZTNanoseconds> findOldest() { return mOldest.findNumber(); }
    /// The oldest measures, where there are more than have room in so many bytes. False: there are not.
    bool limitMeasures(std::uint64_t aBytes);
    /// What no sum refers to any more: names on axes, and whose measures were. What was ordinary weeks ago.
    /// How many have gone is added to a count. False: it has been at all of them.
    bool removeUnused(std::uint64_t& arGone);

  private:
    struct Rule {
        Rule(SQLite::Database& arDatabase, const char* apCount, const std::string& acrSql)
            : mpCount(apCount), mRemove(arDatabase, acrSql.c_str()) {}
        const char* mpCount;  ///< of meta; null: none
        ZTCStatement mRemove;
    };
    /// A table of names that sums refer to.
    struct Names {
        Names(SQLite::Database& arDatabase, const std::string& acrTable, const std::string& acrOldest);
        ZTCStatement mLastId, mOldest, mRemove;
        std::int64_t mTo = 0;  ///< it has been at
    };

    int run(Rule& arRule, ZTNanoseconds aTime);
    static bool removeUnused(Names& arNames, std::uint64_t& arGone);

    std::deque<Rule> mRules, mMeasures;
    Names mMembers, mMeasured;
    ZTCStatement mOldest, mMeasureCount, mCount, mOldBaselines;
};
