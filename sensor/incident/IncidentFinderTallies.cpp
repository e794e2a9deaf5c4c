#include "IncidentFinderTallies.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::int64_t sDay = 86400;

std::size_t sAt(ZTESign aSign) {
    return static_cast<std::size_t>(aSign);
}

}  // namespace

std::size_t ZTCTallies::Hash::operator()(const std::pair<ZTESign, ZTSWwn>& acrKey) const {
    std::uint64_t lWord = 0;
    std::memcpy(&lWord, acrKey.second.mBytes.data(), sizeof lWord);
    lWord = (lWord ^ sAt(acrKey.first) << 56) * 0x9e3779b97f4a7c15;
    return lWord ^ lWord >> 32;
}

void ZTCTallies::setRules(const ZTSIncidentRules& acrRules) {
    mTimes = acrRules.mTimes;
    mOpenings = {};
    mLongest = {};
    for (const ZTSClassRow& lrRow : acrRules.mClasses) {
        for (const ZTSOpening& lrOpening : lrRow.mOpenings) {
            if (lrRow.mIsOn && lrOpening.mSign != ZTESign::Count) {
                const std::size_t lAt = sAt(lrOpening.mSign);
                mOpenings[lAt].push_back({lrRow.mClass, lrRow.mHasBaseline, lrOpening});
                mLongest[lAt] = std::max<std::int64_t>(mLongest[lAt], lrOpening.mWithin);
            }
        }
    }
}

ZTSTally* ZTCTallies::find(ZTESign aSign, const ZTSWwn& acrPort) {
    if (mOpenings[sAt(aSign)].empty() || rowOf(aSign).mWeight == ZTEWeight::State) {
        return nullptr;
    }
    ZTSTally& lrTally = mTallies[{aSign, acrPort}];
    lrTally.mSign = aSign;
    lrTally.mPort = acrPort;
    return &lrTally;
}

ZTSTally::Day& ZTCTallies::dayOf(ZTSTally& arTally, std::int64_t aDay) {
    auto& lrDays = arTally.mDays;
    auto lAt = lrDays.end();
    while (lAt != lrDays.begin() && std::prev(lAt)->mDay >= aDay) {
        --lAt;
    }
    if (lAt == lrDays.end() || lAt->mDay != aDay) {
        mKnownDays.insert(aDay);
        arTally.mOrdinaryDay = -1;
        lAt = lrDays.insert(lAt, {aDay, 0});
        while (lrDays.front().mDay + mTimes.mBaselineDays < aDay) {
            lrDays.pop_front();
            lAt = lrDays.end() - 1;
        }
    }
    return *lAt;
}

void ZTCTallies::add(ZTSTally& arTally, ZTNanoseconds aTime, std::uint64_t aEvents, bool aCounts,
                     std::vector<ZTEIncidentClass>& arReached) {
    const std::int64_t lSecond = aTime / ZTSecond;
    auto& lrSeconds = arTally.mSeconds;
    if (lrSeconds.empty() || lrSeconds.back().mSecond < lSecond) {
        lrSeconds.push_back({lSecond, 0});
    }
    lrSeconds.back().mEvents += aEvents;
    arTally.mSum += aEvents;
    const std::int64_t lNow = lrSeconds.back().mSecond;
    while (lrSeconds.front().mSecond <= lNow - mLongest[sAt(arTally.mSign)]) {
        arTally.mSum -= lrSeconds.front().mEvents;
        lrSeconds.pop_front();
        if (lrSeconds.empty()) {
            break;
        }
    }
    if (aCounts) {
        dayOf(arTally, lSecond / sDay).mEvents += aEvents;
        arTally.mIsChanged = true;
    }
    for (const Opening& lrOpening : mOpenings[sAt(arTally.mSign)]) {
        if (isReached(arTally, lrOpening, lNow) &&
            !(lrOpening.mHasBaseline && isOrdinary(arTally, lSecond / sDay))) {
            arReached.push_back(lrOpening.mClass);
        }
    }
}

bool ZTCTallies::isReached(const ZTSTally& acrTally, const Opening& acrOpening, std::int64_t aSecond) const {
    const std::uint64_t lTimes = acrOpening.mOpening.mTimes;
    if (lTimes <= 1) {
        return true;
    }
    if (acrTally.mSum < lTimes || mLongest[sAt(acrTally.mSign)] == acrOpening.mOpening.mWithin) {
        return acrTally.mSum >= lTimes;
    }
    std::uint64_t lSum = 0;
    for (const ZTSTally::Second& lrSecond : acrTally.mSeconds) {
        lSum += lrSecond.mSecond > aSecond - acrOpening.mOpening.mWithin ? lrSecond.mEvents : 0;
    }
    return lSum >= lTimes;
}

bool ZTCTallies::isOrdinary(ZTSTally& arTally, std::int64_t aDay) const {
    if (arTally.mOrdinaryDay != aDay) {
        arTally.mOrdinary = findOrdinary(arTally, aDay);
        arTally.mOrdinaryDay = aDay;
    }
    const auto lDay = std::ranges::find(arTally.mDays, aDay, &ZTSTally::Day::mDay);
    return (lDay != arTally.mDays.end() ? lDay->mEvents : 0) < arTally.mOrdinary;
}

// A day on which something else was counted, and nothing of this, counts as none.
std::uint64_t ZTCTallies::findOrdinary(const ZTSTally& acrTally, std::int64_t aDay) const {
    const std::int64_t lFirst = aDay - mTimes.mBaselineDays;
    const auto lKnown = std::distance(mKnownDays.lower_bound(lFirst), mKnownDays.lower_bound(aDay));
    std::vector<std::uint64_t> lDays(static_cast<std::size_t>(lKnown));
    std::size_t lAt = 0;
    for (const ZTSTally::Day& lrDay : acrTally.mDays) {
        if (lrDay.mDay >= lFirst && lrDay.mDay < aDay && lAt < lDays.size()) {
            lDays[lAt++] = lrDay.mEvents;
        }
    }
    if (lDays.size() < mTimes.mBaselineLeast || lDays.empty()) {
        return 0;
    }
    const auto lMiddle = lDays.begin() + static_cast<std::ptrdiff_t>(lDays.size() / 2);
    std::nth_element(lDays.begin(), lMiddle, lDays.end());
    return *lMiddle * mTimes.mBaselineTimes;
}

void ZTCTallies::setBaselines(const std::vector<ZTSBaseline>& acrBaselines) {
    for (const ZTSBaseline& lrBaseline : acrBaselines) {
        const auto lSign = findSign(lrBaseline.mKind);
        mKnownDays.insert(lrBaseline.mDay);
        if (ZTSTally* const lpTally = lSign ? find(*lSign, lrBaseline.mPort) : nullptr) {
            dayOf(*lpTally, lrBaseline.mDay).mEvents = lrBaseline.mEvents;
        }
    }
}

std::vector<ZTSBaseline> ZTCTallies::takeBaselines() {
    std::vector<ZTSBaseline> lBaselines;
    for (auto& [lrKey, lrTally] : mTallies) {
        if (lrTally.mIsChanged) {
            for (const ZTSTally::Day& lrDay : lrTally.mDays) {
                // What is older cannot have changed; of late rows the day before may have.
                if (lrDay.mDay + 1 >= lrTally.mDays.back().mDay) {
                    lBaselines.push_back(
                        {lrDay.mDay, rowOf(lrTally.mSign).mpName, lrTally.mPort, lrDay.mEvents});
                }
            }
            lrTally.mIsChanged = false;
        }
    }
    std::ranges::sort(lBaselines, {}, [](const ZTSBaseline& acrOne) {
        return std::tie(acrOne.mDay, acrOne.mKind, acrOne.mPort);
    });
    return lBaselines;
}

void ZTCTallies::forget(ZTNanoseconds aBefore) {
    const std::int64_t lFirst = aBefore / ZTSecond / sDay - mTimes.mBaselineDays;
    mKnownDays.erase(mKnownDays.begin(), mKnownDays.lower_bound(lFirst));
    for (auto& [lrKey, lrTally] : mTallies) {
        while (!lrTally.mDays.empty() && lrTally.mDays.front().mDay < lFirst) {
            lrTally.mDays.pop_front();
        }
    }
}

void ZTCTallies::forgetSeconds() {
    for (auto& [lrKey, lrTally] : mTallies) {
        lrTally.mSeconds.clear();
        lrTally.mSum = 0;
    }
}

std::size_t ZTCTallies::getBytes() const {
    return mTallies.size() * (sizeof(ZTSTally) + 2 * 576);
}
