#include "HostBacklog.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

namespace {

std::uint64_t sCount(const std::vector<ZTSFpin>& acrFpins) {
    std::uint64_t lTimes = 0;
    for (const ZTSFpin& lrFpin : acrFpins) {
        lTimes += lrFpin.mTimes;
    }
    return lTimes;
}

template <class Value>
void sReplace(std::optional<Value>& arValue, std::optional<Value>& arMore) noexcept {
    if (arMore) {
        arValue.swap(arMore);
    }
}

}  // namespace

void ZTCHostBacklog::take(ZTSHostNews aNews) noexcept {
    takeFpins(std::move(aNews.mFpins));
    takeStalls(std::move(aNews.mStalls));
    takeMeasures(std::move(aNews.mMeasures));
    sReplace(mNews.mStorage, aNews.mStorage);
    sReplace(mNews.mBlindSpots, aNews.mBlindSpots);
    sReplace(mNews.mWindows, aNews.mWindows);
}

// Thousands may wait, and come one by one: all of them are counted only where there may be no room.
void ZTCHostBacklog::takeFpins(std::vector<ZTSFpin>&& arFpins) noexcept {
    if (arFpins.empty()) {
        return;
    }
    mFpins += sCount(arFpins);
    try {
        ZTSHostNews lFpins;
        lFpins.mFpins = std::move(arFpins);
        mBytes += lFpins.getBytes();
        mNews.join(std::move(lFpins));
        if (countEventBytes() <= mLimit / 2) {
            return;
        }
    } catch (const std::bad_alloc&) {
        // Those that were not reached are lost.
    }
    dropFpins();
}

void ZTCHostBacklog::dropFpins() noexcept {
    dropWhatIsTooMuch(mNews.mFpins);
    const std::uint64_t lLeft = sCount(mNews.mFpins);
    mLost.mFpins += mFpins - lLeft;
    mFpins = lLeft;
}

// Without its end a stall would stand in the history for ever. Before one goes, those go that are not over,
// which are told again each minute, and FPINs.
void ZTCHostBacklog::takeStalls(std::vector<ZTSStall>&& arStalls) noexcept {
    if (arStalls.empty()) {
        return;
    }
    const std::size_t lCount = arStalls.size();
    try {
        ZTSHostNews lStalls;
        lStalls.mStalls = std::move(arStalls);
        mNews.join(std::move(lStalls));
    } catch (const std::bad_alloc&) {
        mLost.mStalls += lCount;
    }
    std::vector<ZTSStall>& lrStalls = mNews.mStalls;
    const std::size_t lBefore = lrStalls.size();
    const auto lOver = std::stable_partition(lrStalls.begin(), lrStalls.end(),
                                             [](const ZTSStall& acrStall) { return acrStall.mIsOver; });
    dropWhatIsTooMuch(lrStalls, static_cast<std::size_t>(lOver - lrStalls.begin()));
    dropFpins();
    dropWhatIsTooMuch(lrStalls);
    mLost.mStalls += lBefore - lrStalls.size();
}

void ZTCHostBacklog::countBytes() noexcept {
    mMeasureBytes = mNews.mMeasures.getBytes();
    mBytes = mNews.getBytes();
}

// Sums do not take the room of what has happened, nor that theirs.
std::size_t ZTCHostBacklog::countEventBytes() const {
    return mBytes - mMeasureBytes;
}

// From the end, until what is left fits, or so many are left.
template <class Thing>
void ZTCHostBacklog::dropWhatIsTooMuch(std::vector<Thing>& arThings, std::size_t aLeast) noexcept {
    const auto lIsTooMuch = [this] { return countEventBytes() > mLimit / 2; };
    countBytes();
    if (lIsTooMuch()) {
        makeCoarser();
    }
    while (lIsTooMuch() && arThings.size() > aLeast) {
        const std::size_t lKept = arThings.size() * (mLimit / 2) / countEventBytes();
        arThings.erase(arThings.begin() + static_cast<std::ptrdiff_t>(std::max(lKept, aLeast)),
                       arThings.end());
        countBytes();
    }
}

void ZTCHostBacklog::takeMeasures(ZTCMeasures&& arMeasures) noexcept {
    const std::size_t lCount = arMeasures.getValues().size();
    if (lCount == 0) {
        return;
    }
    const std::size_t lBytes = arMeasures.getBytes();
    const auto lHasRoom = [&] { return mNews.mMeasures.getBytes() + lBytes <= mLimit / 2; };
    try {
        if (!lHasRoom()) {
            makeCoarser();
        }
        if (!lHasRoom()) {
            throw std::bad_alloc();
        }
        mNews.mMeasures.join(std::move(arMeasures));
    } catch (const std::bad_alloc&) {
        mLost.mSums += lCount;
    }
    countBytes();
}

// It takes a while: only where there is something to fold.
void ZTCHostBacklog::makeCoarser() noexcept {
    if (mBytes - std::min(mBytes, mCoarseBytes) <= mLimit / 16) {
        return;
    }
    try {
        mNews.coarsen();
        countBytes();
        mCoarseBytes = mBytes;
    } catch (const std::bad_alloc&) {
        countBytes();  // some of the sums may be coarser
    }
}

std::vector<ZTSChange> ZTCHostBacklog::listLost(ZTNanoseconds aTime) const {
    std::vector<ZTSChange> lChanges;
    for (const auto& [lpName, lLost] :
         {std::pair("lost_fpins", mLost.mFpins), std::pair("lost_stalls", mLost.mStalls),
          std::pair("lost_sums", mLost.mSums)}) {
        if (lLost != 0) {
            lChanges.push_back({aTime, "sensor", "buffer", "changed", lpName, "0", std::to_string(lLost)});
        }
    }
    return lChanges;
}

ZTSHostNews ZTCHostBacklog::detach() noexcept {
    mLost = {};
    mFpins = 0;
    mBytes = mMeasureBytes = mCoarseBytes = 0;
    return std::exchange(mNews, {});
}
