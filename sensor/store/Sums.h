// The sums by minute and by hour that stand beside the records.
#pragma once

#include <array>
#include <map>
#include <unordered_map>
#include <vector>

#include "SensorTime.h"
#include "Statement.h"

/// What sums are kept by. The values are the ids of the table axis.
enum class ZTEAxis : std::uint8_t { Kind = 1, Initiator, Target, Fabric };
inline constexpr std::size_t ZTAxes = 4;
/// Of each axis, in its order, the row of the table member.
using ZTAxisMembers = std::array<std::int64_t, ZTAxes>;

/// Adds a transaction's events up before they go into the tables.
class ZTCSums {
  public:
    explicit ZTCSums(SQLite::Database& arDatabase);

    /// The row of the table member with this name, made if there is none.
    std::int64_t findMember(ZTEAxis aAxis, const std::string& acrName);
    void add(ZTNanoseconds aTime, const ZTAxisMembers& acrMembers, std::uint64_t aEvents);
    /// Of a series in an hour, which begins at that second. Into its table at once.
    void addToSeries(std::int64_t aHour, std::int64_t aSeries, std::uint64_t aEvents) {
        mAddSeriesHour.run(aHour, aSeries, aEvents);
    }
    /// What was added, into the tables.
    void flush();
    /// Forgets what was added, and what was found: the transaction has failed.
    void forget();

  private:
    void noteUse(std::int64_t aMember, std::int64_t aHour);

    struct Sum {
        std::uint8_t mAxis;
        std::int64_t mTime;  ///< seconds
        std::int64_t mMember;
        std::uint64_t mEvents;
    };
    static void join(std::vector<Sum>& arSums);

    std::vector<Sum> mMinutes;  ///< one after the other, mostly of few minutes
    std::size_t mJoinAt = 0;
    std::map<std::pair<ZTEAxis, std::string>, std::int64_t> mMembers;
    std::unordered_map<std::int64_t, std::int64_t> mLastHours;  ///< that are known of members
    ZTCStatement mFindMember, mMakeMember, mUseMember, mAddMinute, mAddHour, mAddSeriesHour;
};
