#include "HostBacklog.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

void ZTCHostBacklog::take(ZTSHostNews aNews) noexcept {
    takeEach(&ZTSHostNews::mFpins, aNews, mLost.mFpins, [](const ZTSFpin& acrFpin) { return acrFpin.mTimes; });
    takeEach(&ZTSHostNews::mStalls, aNews, mLost.mStalls, [](const ZTSStall&) { return std::uint64_t{1}; });
    takeMeasures(std::move(aNews.mMeasures));
    // What is left are pieces that are moved.
    mNews.join({{}, {}, {}, std::move(aNews.mStorage), std::move(aNews.mBlindSpots), std::move(aNews.mWindows)});
}

template <class Thing, class Count>
void ZTCHostBacklog::takeEach(std::vector<Thing> ZTSHostNews::*apThings, ZTSHostNews& arNews,
                              std::uint64_t& arLost, const Count& acrCount) noexcept {
    std::vector<Thing>& lrHere = mNews.*apThings;
    for (Thing& lrThing : arNews.*apThings) {
        const std::uint64_t lCount = acrCount(lrThing);
        const std::size_t lBefore = lrHere.size();
        try {
            ZTSHostNews lOne;
            (lOne.*apThings).push_back(std::move(lrThing));
            const std::size_t lBytes = lOne.getBytes();
            mNews.join(std::move(lOne));
            mBytes += lrHere.size() > lBefore ? lBytes : 0;
            if (lrHere.size() > lBefore && mBytes > mLimit && !makeRoom()) {
                arLost += acrCount(lrHere.back());
                lrHere.pop_back();
                mBytes = mNews.getBytes();
            }
        } catch (const std::bad_alloc&) {
            arLost += lCount;
        }
    }
}

void ZTCHostBacklog::takeMeasures(ZTCMeasures&& arMeasures) noexcept {
    const std::size_t lCount = arMeasures.getValues().size();
    if (lCount == 0) {
        return;
    }
    try {
        if (mBytes + arMeasures.getBytes() > mLimit && !makeRoom()) {
            throw std::bad_alloc();
        }
        mNews.mMeasures.join(std::move(arMeasures));
    } catch (const std::bad_alloc&) {
        mLost.mSums += lCount;
    }
    mBytes = mNews.getBytes();
}

// It takes a while: only where there is something to fold.
bool ZTCHostBacklog::makeRoom() {
    if (mBytes - std::min(mBytes, mCoarseBytes) <= mLimit / 8) {
        return false;
    }
    mNews.coarsen();
    mBytes = mCoarseBytes = mNews.getBytes();
    return mBytes <= mLimit;
}

std::vector<ZTSChange> ZTCHostBacklog::listLost(ZTNanoseconds aTime) const {
    std::vector<ZTSChange> lChanges;
    for (const auto& [lpName, lLost] : {std::pair("lost_fpins", mLost.mFpins),
                                        std::pair("lost_stalls", mLost.mStalls),
                                        std::pair("lost_sums", mLost.mSums)}) {
        if (lLost != 0) {
            lChanges.push_back({aTime, "sensor", "buffer", "changed", lpName, "0", std::to_string(lLost)});
        }
    }
    return lChanges;
}

ZTSHostNews ZTCHostBacklog::detach() noexcept {
    mLost = {};
    mBytes = mCoarseBytes = 0;
    return std::exchange(mNews, {});
}
