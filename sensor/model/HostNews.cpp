#include "HostNews.h"

#include <algorithm>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>

namespace {

constexpr ZTNanoseconds sSameFor = 10 * ZTSecond;
constexpr std::ptrdiff_t sNewest = 256;

std::size_t sBytesOf(const ZTSFpin& acrFpin) {
    return sizeof acrFpin + acrFpin.mPorts.size() * sizeof(ZTSWwn);
}
std::size_t sBytesOf(const ZTSStall& acrStall) {
    return sizeof acrStall + acrStall.mName.size() + acrStall.mHits.size();
}

void sFold(ZTSFpin& arFpin, const ZTSFpin& acrMore) {
    arFpin.mFirst = std::min(arFpin.mFirst, acrMore.mFirst);
    arFpin.mLast = std::max(arFpin.mLast, acrMore.mLast);
    arFpin.mTimes += acrMore.mTimes;
    arFpin.mCount += acrMore.mCount;
}

// Those that say the same have the same; so each is compared with few.
std::string sKeyOf(const ZTSFpin& acrFpin) {
    std::string lKey = acrFpin.mInitiator.toText() + acrFpin.mDescriptor + acrFpin.mEvent;
    return lKey + (acrFpin.mAttached ? acrFpin.mAttached->toText() : "") + std::to_string(acrFpin.mModifier);
}

// Only the newest are looked at: thousands wait where a disk stands still, and the store joins the rest.
void sJoin(std::vector<ZTSFpin>& arFpins, ZTSFpin&& arMore) {
    const auto lEnd = arFpins.rbegin() + std::min(std::ssize(arFpins), sNewest);
    const auto lAt = std::find_if(arFpins.rbegin(), lEnd, [&](const ZTSFpin& acrFpin) {
        return acrFpin.isSameAs(arMore) && arMore.mFirst - acrFpin.mFirst < sSameFor;
    });
    if (lAt == lEnd) {
        arFpins.push_back(std::move(arMore));
        return;
    }
    sFold(*lAt, arMore);
}

// Found by a table: where a fabric fails there are thousands.
void sJoin(std::vector<ZTSStall>& arStalls, std::vector<ZTSStall>&& arMore) {
    std::map<std::pair<std::string, ZTNanoseconds>, std::size_t> lPlaces;
    for (std::size_t lAt = 0; lAt < arStalls.size(); ++lAt) {
        lPlaces.try_emplace({arStalls[lAt].mDisk, arStalls[lAt].mFirst}, lAt);
    }
    for (ZTSStall& lrStall : arMore) {
        const auto [lAt, lIsNew] = lPlaces.try_emplace({lrStall.mDisk, lrStall.mFirst}, arStalls.size());
        if (lIsNew) {
            arStalls.push_back(std::move(lrStall));
        } else {
            arStalls[lAt->second] = std::move(lrStall);
        }
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
    sJoin(mStalls, std::move(aMore.mStalls));
    mMeasures.join(std::move(aMore.mMeasures));
    sReplace(mStorage, std::move(aMore.mStorage));
    sReplace(mBlindSpots, std::move(aMore.mBlindSpots));
    sReplace(mWindows, std::move(aMore.mWindows));
}

void ZTSHostNews::coarsen() {
    std::vector<ZTSFpin> lFpins;
    std::unordered_map<std::string, std::vector<std::size_t>> lPlaces;
    for (const ZTSFpin& lrFpin : mFpins) {
        std::vector<std::size_t>& lrPlaces = lPlaces[sKeyOf(lrFpin)];
        const auto lAt = std::find_if(lrPlaces.begin(), lrPlaces.end(),
                                      [&](std::size_t aPlace) { return lFpins[aPlace].isSameAs(lrFpin); });
        if (lAt != lrPlaces.end()) {
            sFold(lFpins[*lAt], lrFpin);
        } else {
            lrPlaces.push_back(lFpins.size());
            lFpins.push_back(lrFpin);
        }
    }
    mMeasures.coarsen();
    mFpins = std::move(lFpins);
}
