#include "IncidentFinderMaps.h"

#include <algorithm>

#include "StorageIndex.h"

namespace {

void sAdd(std::vector<std::string>& arTexts, const std::vector<std::string>& acrMore) {
    for (const std::string& lrText : acrMore) {
        const auto lAt = std::ranges::lower_bound(arTexts, lrText);
        if (!lrText.empty() && (lAt == arTexts.end() || *lAt != lrText)) {
            arTexts.insert(lAt, lrText);
        }
    }
}

void sAdd(ZTSIncidentHits& arHits, const ZTSIncidentHits& acrMore) {
    sAdd(arHits.mLuns, acrMore.mLuns);
    sAdd(arHits.mDisks, acrMore.mDisks);
    sAdd(arHits.mMaps, acrMore.mMaps);
    sAdd(arHits.mVolumes, acrMore.mVolumes);
    sAdd(arHits.mMounts, acrMore.mMounts);
}

void sAdd(ZTSIncidentHits& arHits, const ZTSHit& acrMore) {
    sAdd(arHits.mMaps, acrMore.mMaps);
    sAdd(arHits.mVolumes, acrMore.mVolumes);
    sAdd(arHits.mMounts, acrMore.mMounts);
}

void sAdd(ZTSIncidentHits& arHits, const ZTSLun& acrLun) {
    sAdd(arHits.mLuns, {acrLun.mWwid.empty() ? acrLun.getName() : acrLun.mWwid});
    sAdd(arHits.mDisks, {acrLun.mDisk});
}

}  // namespace

void ZTCFinderMaps::take(const ZTSHostStorage& acrStorage) {
    const ZTCStorageIndex lIndex(acrStorage);
    std::map<std::string, Map> lMaps;
    for (const ZTSMap& lrMap : acrStorage.mMaps) {
        Map& lrKnown = lMaps[lrMap.mName];
        if (lrMap.countUsable() < lrMap.mTotal) {
            lrKnown = mMaps[lrMap.mName];
        }
        sAdd(lrKnown.mHits, lIndex.hitBy(lrMap.mDisk));
        for (const ZTSPath& lrPath : lrMap.mPaths) {
            if (const ZTSLun* const lpLun = lIndex.findDisk(lrPath.mDisk)) {
                lrKnown.mPairs.emplace(lpLun->mInitiator, lpLun->mTarget);
                sAdd(lrKnown.mHits, *lpLun);
            }
        }
    }
    mMaps.swap(lMaps);
    mOthers.clear();
    for (const ZTSVolume& lrVolume : acrStorage.mVolumes) {
        sAdd(mOthers[lrVolume.mName], lIndex.hitBy(lrVolume.mDisk));
    }
    for (const ZTSLun& lrLun : acrStorage.mLuns) {
        if (lrLun.mInitiator != ZTSWwn()) {
            mFabrics[lrLun.mInitiator] = lrLun.mFabric;
        }
        if (lIndex.findMap(lrLun.mDisk) == nullptr) {
            for (const std::string& lrName : {lrLun.getName(), lrLun.mDisk}) {
                sAdd(mOthers[lrName], lIndex.hitBy(lrLun.mDisk));
                sAdd(mOthers[lrName], lrLun);
            }
        }
    }
    mByInitiator.clear();
    for (const auto& [lrName, lrMap] : mMaps) {
        for (const auto& [lrInitiator, lrRemote] : lrMap.mPairs) {
            mByInitiator[lrInitiator][lrRemote].insert(lrName);
        }
    }
}

std::set<std::string> ZTCFinderMaps::findMaps(const ZTSWwn& acrInitiator, const ZTSWwn& acrRemote) const {
    std::set<std::string> lMaps;
    for (const auto& [lrInitiator, lrRemotes] : mByInitiator) {
        for (const auto& [lrRemote, lrNames] : lrRemotes) {
            if ((acrInitiator == ZTSWwn() || acrInitiator == lrInitiator) &&
                (acrRemote == ZTSWwn() || acrRemote == lrRemote)) {
                lMaps.insert(lrNames.begin(), lrNames.end());
            }
        }
    }
    return lMaps;
}

const std::set<ZTCFinderMaps::Pair>* ZTCFinderMaps::findPairs(const std::string& acrMap) const {
    const auto lAt = mMaps.find(acrMap);
    return lAt != mMaps.end() ? &lAt->second.mPairs : nullptr;
}

void ZTCFinderMaps::addHits(const std::string& acrName, ZTSIncidentHits& arHits) const {
    if (const auto lAt = mMaps.find(acrName); lAt != mMaps.end()) {
        sAdd(arHits, lAt->second.mHits);
    } else if (const auto lOther = mOthers.find(acrName); lOther != mOthers.end()) {
        sAdd(arHits, lOther->second);
    } else {
        sAdd(arHits.mDisks, {acrName});
    }
}

std::set<ZTSWwn> ZTCFinderMaps::findInitiators(const std::string& acrFabric) const {
    std::set<ZTSWwn> lInitiators;
    for (const auto& [lrInitiator, lrFabric] : mFabrics) {
        if (!acrFabric.empty() && lrFabric == acrFabric) {
            lInitiators.insert(lrInitiator);
        }
    }
    return lInitiators;
}

std::size_t ZTCFinderMaps::getBytes() const {
    std::size_t lBytes = 0;
    for (const auto& [lrName, lrMap] : mMaps) {
        lBytes += sizeof(Map) + 64 + lrMap.mPairs.size() * 160 + lrMap.mHits.mLuns.size() * 96;
    }
    return lBytes + mOthers.size() * 512;
}
