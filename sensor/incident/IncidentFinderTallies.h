// How much there is of what kind at which port: within the seconds of an opening, and a day.
#pragma once

#include <array>
#include <deque>
#include <set>
#include <unordered_map>

#include "Sign.h"

/// Of one kind of sign at one port.
struct ZTSTally {
    struct Second {
        std::int64_t mSecond;
        std::uint64_t mEvents;
    };
    struct Day {
        std::int64_t mDay;
        std::uint64_t mEvents;
    };
    ZTESign mSign = ZTESign::Count;
    ZTSWwn mPort;
    std::deque<Second> mSeconds;     ///< as far back as the longest opening of the kind looks
    std::uint64_t mSum = 0;          ///< of these
    std::deque<Day> mDays;           ///< the oldest first; the last one may be today
    std::int64_t mOrdinaryDay = -1;  ///< for which the next is known
    std::uint64_t mOrdinary = 0;     ///< fewer of that day are nothing
    bool mIsChanged = false;         ///< since it was last asked for
};

/// Throws std::bad_alloc.
class ZTCTallies {
  public:
    /// The rules live as long, and are the same until the next call.
    void setRules(const ZTSIncidentRules& acrRules);

    /// Null: nobody counts such a sign.
    ZTSTally* find(ZTESign aSign, const ZTSWwn& acrPort);
    /// aCounts: the day's sum does not have it yet. Adds the classes that are opened by so many.
    void add(ZTSTally& arTally, ZTNanoseconds aTime, std::uint64_t aEvents, bool aCounts,
             std::vector<ZTEIncidentClass>& arReached);

    void setBaselines(const std::vector<ZTSBaseline>& acrBaselines);
    std::vector<ZTSBaseline> takeBaselines();
    /// Nothing that was before that is needed any more.
    void forget(ZTNanoseconds aBefore);
    /// What was counted of late was counted by another clock.
    void forgetSeconds();
    std::size_t getBytes() const;

  private:
    struct Opening {
        ZTEIncidentClass mClass;
        bool mHasBaseline;
        ZTSOpening mOpening;
    };
    struct Hash {
        std::size_t operator()(const std::pair<ZTESign, ZTSWwn>& acrKey) const;
    };

    bool isReached(const ZTSTally& acrTally, const Opening& acrOpening, std::int64_t aSecond) const;
    bool isOrdinary(ZTSTally& arTally, std::int64_t aDay) const;
    std::uint64_t findOrdinary(const ZTSTally& acrTally, std::int64_t aDay) const;
    ZTSTally::Day& dayOf(ZTSTally& arTally, std::int64_t aDay);

    ZTSIncidentTimes mTimes;
    std::array<std::vector<Opening>, static_cast<std::size_t>(ZTESign::Count)> mOpenings;
    std::array<std::int64_t, static_cast<std::size_t>(ZTESign::Count)> mLongest{};
    std::unordered_map<std::pair<ZTESign, ZTSWwn>, ZTSTally, Hash> mTallies;
    std::set<std::int64_t> mKnownDays;  // something was counted on these
};
