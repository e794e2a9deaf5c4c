#include "Sums.h"

#include <algorithm>
#include <tuple>

namespace {

constexpr std::int64_t sMinute = 60;
constexpr std::int64_t sHour = 3600;
constexpr std::size_t sKnownMembers = 10000;
constexpr std::size_t sUnjoined = 4096;  // sums that may stand there before equal ones become one

std::string sAddTo(const std::string& acrTable, const std::string& acrValues) {
    return "INSERT INTO " + acrTable + " VALUES (" + acrValues +
           ") ON CONFLICT DO UPDATE SET events = events + excluded.events";
}

}  // namespace

ZTCSums::ZTCSums(SQLite::Database& arDatabase)
    : mFindMember(arDatabase, "SELECT id FROM member WHERE axis = ? AND name = ?"),
      mMakeMember(arDatabase, "INSERT INTO member (axis, name) VALUES (?, ?) RETURNING id"),
      mUseMember(arDatabase, "UPDATE member SET last = ?2 WHERE id = ?1 AND last < ?2"),
      mAddMinute(arDatabase, sAddTo("minutes", "?, ?, ?, ?").c_str()),
      mAddHour(arDatabase, sAddTo("hours", "?, ?, ?, ?").c_str()),
      mAddSeriesHour(arDatabase, sAddTo("series_hours", "?, ?, ?").c_str()) {}

std::int64_t ZTCSums::findMember(ZTEAxis aAxis, const std::string& acrName) {
    const auto lAt = mMembers.find({aAxis, acrName});
    if (lAt != mMembers.end()) {
        return lAt->second;
    }
    const auto lAxis = static_cast<int>(aAxis);
    std::optional<std::int64_t> lMember = mFindMember.findNumber(lAxis, acrName);
    if (!lMember) {
        lMember = mMakeMember.findNumber(lAxis, acrName);
    }
    if (mMembers.size() >= sKnownMembers) {
        mMembers.clear();
    }
    mMembers[{aAxis, acrName}] = *lMember;
    return *lMember;
}

void ZTCSums::add(ZTNanoseconds aTime, const ZTAxisMembers& acrMembers, std::uint64_t aEvents) {
    const std::int64_t lMinute = aTime / ZTSecond / sMinute * sMinute;
    for (std::size_t lAxis = 0; lAxis < ZTAxes; ++lAxis) {
        mMinutes.push_back({static_cast<std::uint8_t>(lAxis + 1), lMinute, acrMembers[lAxis], aEvents});
    }
    if (mMinutes.size() >= std::max(sUnjoined, mJoinAt)) {
        join(mMinutes);
        mJoinAt = 2 * mMinutes.size();
    }
}

void ZTCSums::join(std::vector<Sum>& arSums) {
    const auto lPlaceOf = [](const Sum& acrSum) {
        return std::tuple(acrSum.mAxis, acrSum.mTime, acrSum.mMember);
    };
    std::sort(arSums.begin(), arSums.end(),
              [&](const Sum& acrOne, const Sum& acrOther) { return lPlaceOf(acrOne) < lPlaceOf(acrOther); });
    auto lEnd = arSums.begin();
    for (const Sum& lrSum : arSums) {
        if (lEnd != arSums.begin() && lPlaceOf(*(lEnd - 1)) == lPlaceOf(lrSum)) {
            (lEnd - 1)->mEvents += lrSum.mEvents;
        } else {
            *lEnd++ = lrSum;
        }
    }
    arSums.erase(lEnd, arSums.end());
}

void ZTCSums::flush() {
    join(mMinutes);
    const auto lInto = [this](ZTCStatement& arTable) {
        for (const Sum& lrSum : mMinutes) {
            arTable.run(lrSum.mAxis, lrSum.mTime, lrSum.mMember, lrSum.mEvents);
        }
    };
    lInto(mAddMinute);
    for (Sum& lrSum : mMinutes) {
        lrSum.mTime = lrSum.mTime / sHour * sHour;
    }
    join(mMinutes);
    lInto(mAddHour);
    for (const Sum& lrSum : mMinutes) {
        noteUse(lrSum.mMember, lrSum.mTime);
    }
    mMinutes.clear();
    mJoinAt = 0;
}

// Behind it a member is needed no longer once sums of that hour have gone.
void ZTCSums::noteUse(std::int64_t aMember, std::int64_t aHour) {
    if (mLastHours.size() >= sKnownMembers) {
        mLastHours.clear();
    }
    std::int64_t& lrLast = mLastHours[aMember];
    if (lrLast < aHour) {
        mUseMember.run(aMember, aHour);
        lrLast = aHour;
    }
}

void ZTCSums::forget() {
    mLastHours.clear();
    mMinutes.clear();
    mMembers.clear();
    mJoinAt = 0;
}
