#include "WebLanes.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr std::size_t sMostWithCounts = 4 * ZTCWebLanes::Most;

}  // namespace

std::size_t ZTCWebLanes::find(const std::string& acrName) {
    const auto [lAt, lIsNew] = mByName.try_emplace(acrName, mLanes.size());
    if (lIsNew) {
        mLanes.push_back({.mName = acrName});
        if (mWithCounts < sMostWithCounts) {
            mLanes.back().mCounts.resize(mAll.size());
            ++mWithCounts;
        }
    }
    return lAt->second;
}

void ZTCWebLanes::add(std::size_t aLane, std::size_t aBin, std::uint64_t aEvents) {
    ZTSWebLane& lrLane = mLanes[aLane];
    lrLane.mEvents += aEvents;
    mAll[aBin] += aEvents;
    if (!lrLane.mCounts.empty()) {
        lrLane.mCounts[aBin] += aEvents;
    }
}

bool ZTCWebLanes::choose() {
    if (!mChosen.empty()) {
        return true;
    }
    mChosen.resize(mLanes.size());
    std::iota(mChosen.begin(), mChosen.end(), 0);
    std::ranges::stable_sort(mChosen, [this](std::size_t aOne, std::size_t aOther) {
        return mLanes[aOne].mEvents > mLanes[aOther].mEvents;
    });
    if (mChosen.size() > Most) {
        mChosen.resize(Most - 1);
    }
    if (std::ranges::none_of(mChosen, [this](std::size_t aLane) { return mLanes[aLane].mCounts.empty(); })) {
        return true;
    }
    for (ZTSWebLane& lrLane : mLanes) {
        lrLane.mEvents = 0;
        lrLane.mCounts = {};
    }
    for (const std::size_t lLane : mChosen) {
        mLanes[lLane].mCounts.resize(mAll.size());
    }
    mWithCounts = sMostWithCounts;
    std::ranges::fill(mAll, 0);
    return false;
}

std::vector<ZTSWebLane> ZTCWebLanes::take() {
    std::vector<ZTSWebLane> lLanes;
    ZTSWebLane lRest{.mName = {}, .mIsRest = true, .mEvents = 0, .mCounts = std::move(mAll)};
    for (const std::size_t lChosen : mChosen) {
        const ZTSWebLane& lrLane = lLanes.emplace_back(std::move(mLanes[lChosen]));
        std::ranges::transform(lRest.mCounts, lrLane.mCounts, lRest.mCounts.begin(), std::minus<>());
    }
    lRest.mEvents = std::accumulate(lRest.mCounts.begin(), lRest.mCounts.end(), std::uint64_t{0});
    if (lRest.mEvents != 0) {
        lLanes.push_back(std::move(lRest));
    }
    return lLanes;
}
