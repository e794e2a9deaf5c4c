#include "HostNews.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr ZTNanoseconds sSameFor = 10 * ZTSecond;

std::size_t sBytesOf(const ZTSFpin& acrFpin) {
    return sizeof acrFpin + acrFpin.mPorts.size() * sizeof(ZTSWwn);
}
std::size_t sBytesOf(const ZTSStall& acrStall) {
    return sizeof acrStall + acrStall.mName.size() + acrStall.mHits.size();
}

void sJoin(std::vector<ZTSFpin>& arFpins, ZTSFpin&& arMore) {
    const auto lAt = std::find_if(arFpins.rbegin(), arFpins.rend(), [&](const ZTSFpin& acrFpin) {
        return acrFpin.isSameAs(arMore) && arMore.mFirst - acrFpin.mFirst < sSameFor;
    });
    if (lAt == arFpins.rend()) {
        arFpins.push_back(std::move(arMore));
        return;
    }
    lAt->mLast = std::max(lAt->mLast, arMore.mLast);
    lAt->mTimes += arMore.mTimes;
    lAt->mCount += arMore.mCount;
}

void sJoin(std::vector<ZTSStall>& arStalls, ZTSStall&& arMore) {
    const auto lAt = std::find_if(arStalls.begin(), arStalls.end(), [&](const ZTSStall& acrStall) {
        return acrStall.mDisk == arMore.mDisk && acrStall.mFirst == arMore.mFirst;
    });
    if (lAt == arStalls.end()) {
        arStalls.push_back(std::move(arMore));
    } else {
        *lAt = std::move(arMore);
    }
}

template <class Value>
void sReplace(std::optional<Value>& arValue, std::optional<Value>&& arMore) {
    if (arMore) {
        arValue = std::move(arMore);
    }
}

}  // namespace

bool ZTSHostNews::isEmpty() const {
    return mFpins.empty() && mStalls.empty() && mMeasures.isEmpty() && !mStorage && !mBlindSpots && !mWindows;
}

std::size_t ZTSHostNews::getBytes() const {
    std::size_t lBytes = mMeasures.getBytes();
    for (const ZTSFpin& lrFpin : mFpins) {
        lBytes += sBytesOf(lrFpin);
    }
    for (const ZTSStall& lrStall : mStalls) {
        lBytes += sBytesOf(lrStall);
    }
    return lBytes;
}

void ZTSHostNews::join(ZTSHostNews aMore) {
    for (ZTSFpin& lrFpin : aMore.mFpins) {
        sJoin(mFpins, std::move(lrFpin));
    }
    for (ZTSStall& lrStall : aMore.mStalls) {
        sJoin(mStalls, std::move(lrStall));
    }
    mMeasures.join(aMore.mMeasures);
    sReplace(mStorage, std::move(aMore.mStorage));
    sReplace(mBlindSpots, std::move(aMore.mBlindSpots));
    sReplace(mWindows, std::move(aMore.mWindows));
}
