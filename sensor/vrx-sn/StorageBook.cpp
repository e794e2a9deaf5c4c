#include "StorageBook.h"

#include <algorithm>
#include <iterator>

#include "StorageChanges.h"

namespace {

const std::string& sKeyOf(const ZTSMap& acrMap) {
    return acrMap.mWwid.empty() ? acrMap.mName : acrMap.mWwid;
}

}  // namespace

// What may throw comes first, here and below.
void ZTCStorageBook::setStart(std::optional<ZTSHostStorage> aStorage, const std::vector<ZTSMap>& acrGone) {
    if (mIsStartKnown) {
        return;
    }
    Totals lTotals = mTotals;
    std::vector<ZTSChange> lChanges;
    raiseStored(lTotals, acrGone);
    if (aStorage) {
        raiseStored(lTotals, aStorage->mMaps);
    }
    if (hasLooked()) {
        ZTSHostStorage lNow = *mpStorage;
        apply(lTotals, lNow);
        if (aStorage) {
            apply(lTotals, *mFirst);
            lChanges = listStorageChanges(*aStorage, *mFirst, mFirstTime);
        }
        take(std::move(lNow), std::move(lTotals), std::move(lChanges));
        mFirst.reset();
    } else {
        mTotals = std::move(lTotals);
        mStart = std::move(aStorage);
    }
    mIsStartKnown = true;
}

void ZTCStorageBook::see(ZTSHostStorage aStorage, ZTNanoseconds aTime) {
    Totals lTotals = mTotals;
    raise(lTotals, aStorage.mMaps);
    limit(lTotals, aStorage);
    apply(lTotals, aStorage);
    std::vector<ZTSChange> lChanges;
    if (hasLooked()) {
        if (*mpStorage == aStorage) {
            return;
        }
        lChanges = listStorageChanges(*mpStorage, aStorage, aTime);
    } else if (mStart) {
        lChanges = listStorageChanges(*mStart, aStorage, aTime);
    } else if (!mIsStartKnown) {
        mFirst = aStorage;
        mFirstTime = aTime;
    }
    take(std::move(aStorage), std::move(lTotals), std::move(lChanges));
    mStart.reset();
}

void ZTCStorageBook::take(ZTSHostStorage aStorage, Totals aTotals, std::vector<ZTSChange> aChanges) {
    auto lpStorage = std::make_shared<const ZTSHostStorage>(std::move(aStorage));
    mChanges.reserve(mChanges.size() + aChanges.size());
    std::move(aChanges.begin(), aChanges.end(), std::back_inserter(mChanges));
    mTotals = std::move(aTotals);
    mpStorage = std::move(lpStorage);
    mHaveNews = true;
}

void ZTCStorageBook::raise(Totals& arTotals, const std::vector<ZTSMap>& acrMaps) {
    for (const ZTSMap& lrMap : acrMaps) {
        // While its table is made anew, a map has the disks that have gone beside those that are there now.
        const auto [lAt, lIsNew] = arTotals.try_emplace(sKeyOf(lrMap));
        Total& lrTotal = lAt->second;
        const auto lPaths = static_cast<std::uint32_t>(lIsNew ? lrMap.mPaths.size() : 0);
        lrTotal.mPaths = lrTotal.mIsAccepted ? std::max(lrTotal.mPaths, lrMap.countUsable())
                                             : std::max({lrTotal.mPaths, lrMap.mTotal, lPaths});
    }
}

// Of what the store had: a total that is less than the disks is one that was accepted.
void ZTCStorageBook::raiseStored(Totals& arTotals, const std::vector<ZTSMap>& acrMaps) {
    for (const ZTSMap& lrMap : acrMaps) {
        if (lrMap.mTotal != 0 && lrMap.mTotal < lrMap.mPaths.size()) {
            arTotals[sKeyOf(lrMap)] = {lrMap.mTotal, true};
        }
    }
    raise(arTotals, acrMaps);
}

void ZTCStorageBook::accept(const std::vector<std::string>& acrMaps, ZTNanoseconds aTime) {
    if (!hasLooked()) {
        return;
    }
    Totals lTotals = mTotals;
    ZTSHostStorage lStorage = *mpStorage;
    for (ZTSMap& lrMap : lStorage.mMaps) {
        if (std::ranges::find(acrMaps, lrMap.mName) != acrMaps.end()) {
            lrMap.mTotal = lrMap.countUsable();
            lTotals[sKeyOf(lrMap)] = {lrMap.mTotal, true};
        }
    }
    if (lStorage != *mpStorage) {
        take(lStorage, std::move(lTotals), listStorageChanges(*mpStorage, lStorage, aTime));
    }
}

void ZTCStorageBook::limit(Totals& arTotals, const ZTSHostStorage& acrStorage) {
    if (arTotals.size() > MostTotals) {
        Totals lHere;
        for (const ZTSMap& lrMap : acrStorage.mMaps) {
            lHere[sKeyOf(lrMap)] = arTotals[sKeyOf(lrMap)];
        }
        arTotals = std::move(lHere);
    }
}

void ZTCStorageBook::apply(const Totals& acrTotals, ZTSHostStorage& arStorage) {
    for (ZTSMap& lrMap : arStorage.mMaps) {
        const auto lAt = acrTotals.find(sKeyOf(lrMap));
        if (lAt != acrTotals.end()) {
            const auto [lPaths, lIsAccepted] = lAt->second;
            lrMap.mTotal = lIsAccepted ? lPaths : std::max(lrMap.mTotal, lPaths);
        }
    }
}
