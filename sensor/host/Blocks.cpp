#include "Blocks.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "BlockName.h"

namespace {

enum Attribute : unsigned char { A_Device, A_Name, A_Uuid };
constexpr const char* sAttributes[] = {"dev", "dm/name", "dm/uuid"};
constexpr std::string_view sMapUuid = "mpath-";
constexpr std::size_t sMostBeneath = 1024;  // of one, paths too
constexpr std::size_t sMostPartitions = 256;
constexpr unsigned int sLooksWithout = 3;  // until it is believed that a map has no paths

// No path leads to these.
constexpr std::array<std::string_view, 6> sPlain{"loop", "ram", "zram", "sr", "fd", "nbd"};

bool sIsPlain(std::string_view aName) {
    return std::any_of(sPlain.begin(), sPlain.end(), [&](std::string_view aKind) {
        return aName.starts_with(aKind) && aName.size() > aKind.size() && aName[aKind.size()] >= '0' &&
               aName[aKind.size()] <= '9';
    });
}

// sdb before sdaa.
bool sIsBefore(const std::string& acrOne, const std::string& acrOther) {
    return std::pair(acrOne.size(), std::string_view(acrOne)) <
           std::pair(acrOther.size(), std::string_view(acrOther));
}

// The names in a folder that are block devices, sorted. Nothing: they cannot be known now.
std::optional<std::vector<std::string>> sNamesIn(const std::string& acrFolder, std::string_view aBegin,
                                                 std::size_t aMost) {
    std::vector<std::string> lNames;
    const bool lIsListed = eachSysfsName(acrFolder, [&](const char* apName, std::uint64_t) {
        const std::string_view lName(apName);
        if (lName.starts_with(aBegin) && isBlockName(lName) && lNames.size() < aMost) {
            lNames.emplace_back(lName);
        }
    });
    std::sort(lNames.begin(), lNames.end());
    return lIsListed ? std::optional(std::move(lNames)) : std::nullopt;
}

void sSet(std::string& arText, const std::optional<std::string_view>& acrRead) {
    if (acrRead) {
        arText = *acrRead;
    }
}

void sSet(ZTDeviceNumber& arDevice, const std::optional<std::string_view>& acrRead) {
    if (acrRead) {
        arDevice = readDeviceNumber(*acrRead);
    }
}

}  // namespace

bool ZTCBlocks::Block::isMap() const {
    return mUuid.starts_with(sMapUuid);
}

bool ZTCBlocks::isWhole() const {
    return mRound.isWhole() && std::ranges::none_of(mRound.getItems(), [](const auto& acrItem) {
               return acrItem.second.mValue.isMap() && acrItem.second.mValue.mLooks < sLooksWithout;
           });
}

ZTCBlocks::ZTCBlocks(const std::string& acrRoot) : mPath(acrRoot + "/sys/block/") {}

void ZTCBlocks::take(const ZTSUevent& acrEvent) {
    const ZTSBlockName lName = blockIn(acrEvent.mPath);
    // That a path has failed says nothing of the map itself.
    if (lName.mDisk.empty() || sIsPlain(lName.mDisk) || acrEvent.find("DM_ACTION").starts_with("PATH_")) {
        return;
    }
    const std::string lDisk(lName.mDisk);
    if (lName.mIsWhole && acrEvent.mAction == "remove") {
        mRound.haveGone(lDisk);
    } else if (!mRound.makeDue(lDisk, 1)) {
        mRound.makeListDue();
    }
}

void ZTCBlocks::list() {
    mHasChanged |= !mRound.isListed();  // what the list does not have has gone
    mHasChanged |= mRound.listIfDue(mPath, [](const char* apName) {
        return isBlockName(apName) && !sIsPlain(apName) ? std::optional<std::string>(apName) : std::nullopt;
    });
}

void ZTCBlocks::readDue(const ZTCSlice& acrSlice, unsigned int aQuarters) {
    mRound.readDue(acrSlice, aQuarters,
                   [this](const std::string& acrDisk, Block& arBlock) { return read(acrDisk, arBlock); });
}

// Of a path nothing changes but by coming and going.
void ZTCBlocks::readRound(const ZTCSlice& acrSlice, unsigned int aQuarters) {
    mRound.readRound(acrSlice, aQuarters, [this](const std::string& acrDisk, Block& arBlock) {
        return arBlock.mIsPath && arBlock.mDevice != 0 ? ZTESysfsRead::Whole : read(acrDisk, arBlock);
    });
}

// A SCSI disk is over nothing, and what device mapper makes has no partitions.
ZTESysfsRead ZTCBlocks::read(const std::string& acrDisk, Block& arBlock) {
    const std::string lPath = mPath + acrDisk;
    ZTCSysfsFolder lFolder(lPath, sAttributes);
    Block lNew = arBlock;
    const bool lIsMapped = acrDisk.starts_with("dm-");
    sSet(lNew.mDevice, lFolder.read(A_Device));
    if (lIsMapped) {
        sSet(lNew.mName, lFolder.read(A_Name));
        sSet(lNew.mUuid, lFolder.read(A_Uuid));
    }
    if (!acrDisk.starts_with("sd")) {
        lNew.mOver = sNamesIn(lPath + "/slaves", "", sMostBeneath).value_or(std::move(lNew.mOver));
        if (lNew.isMap()) {
            std::sort(lNew.mOver.begin(), lNew.mOver.end(), sIsBefore);
        }
    }
    const auto lPartitions =
        lIsMapped || lNew.mIsPath ? std::nullopt : sNamesIn(lPath, acrDisk, sMostPartitions);
    if (lPartitions) {
        lNew.mPartitions.clear();
        for (const std::string& lrName : *lPartitions) {
            ZTCSysfsFolder lPartition(std::string(lPath).append("/").append(lrName), sAttributes);
            sSet(lNew.mPartitions.emplace_back(Partition{lrName}).mDevice, lPartition.read(A_Device));
        }
    }
    if (lNew.mDevice == 0 && !lFolder.isHere()) {
        return ZTESysfsRead::Gone;
    }
    if (lNew.mOver != arBlock.mOver && std::ranges::any_of(lNew.mOver, [this](const std::string& acrName) {
            return !mRound.getItems().contains(acrName);
        })) {
        mRound.makeListDue();  // it may have come since
    }
    // When device mapper makes one, it has nothing beneath for a moment.
    const bool lIsComing = lIsMapped && lNew.mOver.empty() && (lNew.mUuid.empty() || lNew.isMap());
    lNew.mLooks = lIsComing ? std::min(lNew.mLooks + 1, sLooksWithout) : sLooksWithout;
    mHasChanged |= lNew != arBlock;
    arBlock = std::move(lNew);
    return arBlock.mDevice != 0 && !lIsComing ? ZTESysfsRead::Whole : ZTESysfsRead::Partly;
}

std::vector<ZTSMap> ZTCBlocks::listMaps(const ZTCPathStates& acrStates,
                                        const std::function<bool(const std::string&)>& acrInfer,
                                        std::size_t aMost, std::size_t& arLeftOut) const {
    std::vector<ZTSMap> lMaps;
    for (const auto& [lrDisk, lrItem] : mRound.getItems()) {
        if (!lrItem.mIsRead || !lrItem.mValue.isMap() || lrItem.mValue.mLooks < sLooksWithout) {
            continue;
        }
        if (lMaps.size() == aMost) {
            ++arLeftOut;
        } else {
            lMaps.push_back(mapOf(lrDisk, lrItem.mValue, acrStates, acrInfer));
        }
    }
    std::sort(lMaps.begin(), lMaps.end(), [](const ZTSMap& acrOne, const ZTSMap& acrOther) {
        return std::tie(acrOne.mName, acrOne.mDisk) < std::tie(acrOther.mName, acrOther.mDisk);
    });
    return lMaps;
}

ZTSMap ZTCBlocks::mapOf(const std::string& acrDisk, const Block& acrBlock, const ZTCPathStates& acrStates,
                        const std::function<bool(const std::string&)>& acrInfer) const {
    ZTSMap lMap{acrDisk,
                acrBlock.mName.empty() ? acrDisk : acrBlock.mName,
                acrBlock.mUuid.substr(sMapUuid.size()),
                {},
                0};
    std::vector<std::size_t> lUntold;
    std::uint32_t lUsable = 0;
    std::size_t lGone = 0;
    const bool lIsAll = mRound.isListed() && mRound.getLeftOut() == 0;
    for (const std::string& lrPath : acrBlock.mOver) {
        // Device mapper holds on to what has gone: the table has it still, and a link that leads nowhere.
        const auto lAt = mRound.getItems().find(lrPath);
        const bool lIsHere = lAt != mRound.getItems().end();
        if (!lIsHere && lIsAll && !sIsPlain(lrPath)) {
            ++lGone;
            lMap.mPaths.push_back({lrPath, false, ZTEPathSource::Ports});
            continue;
        }
        const auto lTold = acrStates.find(lrPath, lIsHere ? lAt->second.mValue.mDevice : 0);
        if (!lTold) {
            lUntold.push_back(lMap.mPaths.size());
        }
        lMap.mPaths.push_back(lTold.value_or(ZTSPath{lrPath}));
        lUsable += lMap.mPaths.back().mIsUsable ? 1 : 0;
    }
    // How many are left is newer than any answer, and may say of the others that all are usable, or none.
    const auto lLeft = acrStates.countUsable(acrDisk);
    if (lLeft && (lUsable > *lLeft || lUsable + lUntold.size() + lGone < *lLeft)) {
        for (std::size_t lAt = 0; lAt < lMap.mPaths.size(); ++lAt) {
            const ZTSPath& lrPath = lMap.mPaths[lAt];
            if (lrPath.mSource == ZTEPathSource::Multipathd) {
                lUntold.push_back(lAt);
                lUsable -= lrPath.mIsUsable ? 1 : 0;
            }
        }
    }
    const bool lAreNone = lLeft && *lLeft == lUsable;
    const bool lAreAll = lLeft && *lLeft == lUsable + lUntold.size();
    for (const std::size_t lAt : lUntold) {
        ZTSPath& lrPath = lMap.mPaths[lAt];
        lrPath.mSource = lAreNone || lAreAll ? ZTEPathSource::Kernel : ZTEPathSource::Ports;
        lrPath.mIsUsable = lAreAll || (!lAreNone && acrInfer(lrPath.mDisk));
    }
    lMap.mTotal = static_cast<std::uint32_t>(lMap.mPaths.size() - lGone);
    return lMap;
}

std::vector<ZTSVolume> ZTCBlocks::listVolumes(const std::vector<ZTSMap>& acrMaps) {
    std::unordered_set<std::string_view> lPaths;
    for (const ZTSMap& lrMap : acrMaps) {
        for (const ZTSPath& lrPath : lrMap.mPaths) {
            lPaths.insert(lrPath.mDisk);
        }
    }
    std::vector<ZTSVolume> lVolumes;
    std::vector<std::string> lNoPaths;
    mRound.each([&](const std::string& acrDisk, Block& arBlock) {
        const bool lWasPath = std::exchange(arBlock.mIsPath, lPaths.contains(acrDisk));
        if (arBlock.mIsPath) {
            arBlock.mPartitions.clear();
        } else if (lWasPath) {
            lNoPaths.push_back(acrDisk);
        }
        if (!arBlock.isMap() && !arBlock.mOver.empty()) {
            lVolumes.push_back({acrDisk, arBlock.mName.empty() ? acrDisk : arBlock.mName, arBlock.mOver});
        }
        for (const Partition& lrPartition : arBlock.mPartitions) {
            lVolumes.push_back({lrPartition.mDisk, lrPartition.mDisk, {acrDisk}});
        }
    });
    for (const std::string& lrDisk : lNoPaths) {
        mRound.makeDue(lrDisk, 1);  // its partitions are its own again
    }
    return lVolumes;
}

std::vector<ZTSMount> ZTCBlocks::listMounts(const std::vector<ZTSMounted>& acrMounted) const {
    std::unordered_map<ZTDeviceNumber, std::string_view> lByDevice;
    std::unordered_map<std::string, std::string_view> lBySource;
    for (const auto& [lrDisk, lrItem] : mRound.getItems()) {
        lByDevice.emplace(lrItem.mValue.mDevice, lrDisk);
        lBySource.emplace("/dev/" + lrDisk, lrDisk);
        lBySource.emplace("/dev/mapper/" + lrItem.mValue.mName, lrDisk);
        for (const Partition& lrPartition : lrItem.mValue.mPartitions) {
            lByDevice.emplace(lrPartition.mDevice, lrPartition.mDisk);
            lBySource.emplace("/dev/" + lrPartition.mDisk, lrPartition.mDisk);
        }
    }
    std::vector<ZTSMount> lMounts;
    for (const ZTSMounted& lrMounted : acrMounted) {
        std::string_view lDisk;
        if (const auto lAt = lByDevice.find(lrMounted.mDevice);
            lrMounted.mDevice != 0 && lAt != lByDevice.end()) {
            lDisk = lAt->second;
        } else if (const auto lSource = lBySource.find(lrMounted.mSource); lSource != lBySource.end()) {
            lDisk = lSource->second;
        }
        if (!lDisk.empty()) {
            lMounts.push_back({lrMounted.mPoint, std::string(lDisk), lrMounted.mType});
        }
    }
    const auto lKeyOf = [](const ZTSMount& acrMount) {
        return std::tie(acrMount.mPoint, acrMount.mDisk, acrMount.mType);
    };
    std::sort(lMounts.begin(), lMounts.end(),
              [&](const auto& acrOne, const auto& acrOther) { return lKeyOf(acrOne) < lKeyOf(acrOther); });
    lMounts.erase(std::unique(lMounts.begin(), lMounts.end()), lMounts.end());
    return lMounts;
}
