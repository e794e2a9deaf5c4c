#include "Storage.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace {

constexpr std::size_t sMostShown = 8;  // of what stands above

std::vector<std::string> sSorted(const std::set<std::string>& acrNames) {
    return {acrNames.begin(), acrNames.end()};
}

bool sHasPath(const ZTSMap& acrMap, std::string_view aDisk) {
    return std::any_of(acrMap.mPaths.begin(), acrMap.mPaths.end(),
                       [&](const ZTSPath& acrPath) { return acrPath.mDisk == aDisk; });
}

}  // namespace

std::string ZTSLun::getName() const {
    if (mInitiator == ZTSWwn() || mTarget == ZTSWwn()) {
        return mAddress;
    }
    return fmt::format("{} LUN {} seen from {}", mTarget.toText(), mLun, mInitiator.toText());
}

std::uint32_t ZTSMap::countUsable() const {
    return static_cast<std::uint32_t>(std::count_if(
        mPaths.begin(), mPaths.end(), [](const ZTSPath& acrPath) { return acrPath.mIsUsable; }));
}

bool ZTSMap::isInferred() const {
    return std::any_of(mPaths.begin(), mPaths.end(),
                       [](const ZTSPath& acrPath) { return acrPath.mSource == ZTEPathSource::Ports; });
}

std::string ZTSHit::toText() const {
    const auto& lrNames = !mMounts.empty() ? mMounts : !mVolumes.empty() ? mVolumes : mMaps;
    const std::size_t lShown = std::min(lrNames.size(), sMostShown);
    std::string lText = fmt::format("{}", fmt::join(lrNames.begin(), lrNames.begin() + lShown, ", "));
    return lShown == lrNames.size() ? lText : fmt::format("{} and {} more", lText, lrNames.size() - lShown);
}

const ZTSLun* ZTSHostStorage::findDisk(std::string_view aDisk) const {
    const auto lAt =
        std::find_if(mLuns.begin(), mLuns.end(), [&](const ZTSLun& acrLun) { return acrLun.mDisk == aDisk; });
    return lAt != mLuns.end() && !aDisk.empty() ? &*lAt : nullptr;
}

const ZTSMap* ZTSHostStorage::findMap(std::string_view aDisk) const {
    const auto lAt = std::find_if(mMaps.begin(), mMaps.end(), [&](const ZTSMap& acrMap) {
        return acrMap.mDisk == aDisk || sHasPath(acrMap, aDisk);
    });
    return lAt != mMaps.end() && !aDisk.empty() ? &*lAt : nullptr;
}

ZTSHit ZTSHostStorage::hitBy(std::string_view aDisk) const {
    std::set<std::string> lMaps, lVolumes, lMounts;
    std::set<std::string_view> lSeen{aDisk};
    std::vector<std::string_view> lDisks{aDisk};
    if (const ZTSMap* const lpMap = findMap(aDisk); lpMap != nullptr) {
        lMaps.insert(lpMap->mName);
        if (lSeen.insert(lpMap->mDisk).second) {
            lDisks.emplace_back(lpMap->mDisk);
        }
    }
    for (std::size_t lNext = 0; lNext < lDisks.size(); ++lNext) {
        const std::string_view lDisk = lDisks[lNext];
        for (const ZTSVolume& lrVolume : mVolumes) {
            const bool lIsAbove =
                std::find(lrVolume.mOver.begin(), lrVolume.mOver.end(), lDisk) != lrVolume.mOver.end();
            if (lIsAbove || lrVolume.mDisk == lDisk) {
                lVolumes.insert(lrVolume.mName);
            }
            if (lIsAbove && lSeen.insert(lrVolume.mDisk).second) {
                lDisks.emplace_back(lrVolume.mDisk);
            }
        }
        for (const ZTSMount& lrMount : mMounts) {
            if (lrMount.mDisk == lDisk) {
                lMounts.insert(lrMount.mPoint);
            }
        }
    }
    return {sSorted(lMaps), sSorted(lVolumes), sSorted(lMounts)};
}
