#include "Storage.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "StorageIndex.h"

namespace {

constexpr std::size_t sMostShown = 8;  // of what stands above

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
    const std::span lShown(lrNames.data(), std::min(lrNames.size(), sMostShown));
    const std::string lText = fmt::format("{}", fmt::join(lShown, ", "));
    const std::size_t lMore = lrNames.size() - lShown.size();
    return lMore == 0 ? lText : fmt::format("{} and {} more", lText, lMore);
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
    return ZTCStorageIndex(*this).hitBy(aDisk);
}
