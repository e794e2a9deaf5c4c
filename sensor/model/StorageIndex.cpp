#include "StorageIndex.h"

#include <algorithm>
#include <set>

namespace {

template <class Table>
auto* sFind(const Table& acrTable, std::string_view aDisk) {
    const auto lAt = acrTable.find(aDisk);
    return lAt != acrTable.end() ? lAt->second : nullptr;
}

template <class Tables, class Do>
void sEach(const Tables& acrTables, std::string_view aDisk, const Do& acrDo) {
    for (auto [lAt, lEnd] = acrTables.equal_range(aDisk); lAt != lEnd; ++lAt) {
        acrDo(*lAt->second);
    }
}

// Each once.
std::vector<std::string> sSorted(std::vector<std::string_view> aNames) {
    std::sort(aNames.begin(), aNames.end());
    return {aNames.begin(), std::unique(aNames.begin(), aNames.end())};
}

}  // namespace

ZTCStorageIndex::ZTCStorageIndex(const ZTSHostStorage& acrStorage) {
    mLuns.reserve(acrStorage.mLuns.size());
    for (const ZTSLun& lrLun : acrStorage.mLuns) {
        mLuns.emplace(lrLun.mDisk, &lrLun);
    }
    mLuns.erase(std::string_view());  // of those that are no disks
    for (const ZTSMap& lrMap : acrStorage.mMaps) {
        mMaps.emplace(lrMap.mDisk, &lrMap);
        for (const ZTSPath& lrPath : lrMap.mPaths) {
            mMaps.emplace(lrPath.mDisk, &lrMap);
        }
    }
    for (const ZTSVolume& lrVolume : acrStorage.mVolumes) {
        mVolumes.emplace(lrVolume.mDisk, &lrVolume);
        for (const std::string& lrOver : lrVolume.mOver) {
            mAbove.emplace(lrOver, &lrVolume);
        }
    }
    for (const ZTSMount& lrMount : acrStorage.mMounts) {
        mMounts.emplace(lrMount.mDisk, &lrMount);
    }
}

const ZTSLun* ZTCStorageIndex::findDisk(std::string_view aDisk) const {
    return sFind(mLuns, aDisk);
}

const ZTSMap* ZTCStorageIndex::findMap(std::string_view aDisk) const {
    return sFind(mMaps, aDisk);
}

const ZTSVolume* ZTCStorageIndex::findVolume(std::string_view aDisk) const {
    return sFind(mVolumes, aDisk);
}

ZTSHit ZTCStorageIndex::hitBy(std::string_view aDisk) const {
    std::vector<std::string_view> lMaps, lVolumes, lMounts;
    std::vector<std::string_view> lDisks{aDisk};
    std::set<std::string_view> lSeen{aDisk};
    const auto lGoOn = [&](std::string_view aAbove) {
        if (lSeen.insert(aAbove).second) {
            lDisks.push_back(aAbove);
        }
    };
    if (const ZTSMap* const lpMap = findMap(aDisk); lpMap != nullptr) {
        lMaps.push_back(lpMap->mName);
        lGoOn(lpMap->mDisk);
    }
    if (const ZTSVolume* const lpVolume = findVolume(aDisk); lpVolume != nullptr) {
        lVolumes.push_back(lpVolume->mName);
    }
    for (std::size_t lNext = 0; lNext < lDisks.size(); ++lNext) {
        const std::string_view lDisk = lDisks[lNext];
        sEach(mAbove, lDisk, [&](const ZTSVolume& acrVolume) {
            lVolumes.push_back(acrVolume.mName);
            lGoOn(acrVolume.mDisk);
        });
        sEach(mMounts, lDisk, [&](const ZTSMount& acrMount) { lMounts.push_back(acrMount.mPoint); });
    }
    return {sSorted(lMaps), sSorted(lVolumes), sSorted(lMounts)};
}
