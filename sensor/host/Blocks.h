// The block devices of this host: disks, their partitions, and what device mapper makes of them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "MountTable.h"
#include "PathStates.h"
#include "Storage.h"
#include "SysfsRound.h"
#include "Uevent.h"

/// Part of ZTCHostStorage, and held as that is.
class ZTCBlocks {
  public:
    static constexpr std::size_t Most = 32768;

    explicit ZTCBlocks(const std::string& acrRoot);

    void take(const ZTSUevent& acrEvent);
    void lookAnew() { mRound.makeAllDue(); }
    void list();
    void readDue(const ZTCSlice& acrSlice, unsigned int aQuarters);
    void readRound(const ZTCSlice& acrSlice, unsigned int aQuarters);

    /// Since haveTold.
    bool hasChanged() const { return mHasChanged; }
    void haveTold() { mHasChanged = false; }
    bool isWhole() const;
    std::size_t countDue() const { return mRound.countDue(); }
    std::size_t getLeftOut() const { return mRound.getLeftOut(); }

    /// So many at most, sorted by name; arLeftOut: how many there are besides. A path that nobody has told of
    /// is as acrInfer finds its disk.
    std::vector<ZTSMap> listMaps(const ZTCPathStates& acrStates,
                                 const std::function<bool(const std::string&)>& acrInfer, std::size_t aMost,
                                 std::size_t& arLeftOut) const;
    /// What is a path of these maps has no partitions of its own from now on.
    std::vector<ZTSVolume> listVolumes(const std::vector<ZTSMap>& acrMaps);
    /// Those that are on a block device, sorted.
    std::vector<ZTSMount> listMounts(const std::vector<ZTSMounted>& acrMounted) const;

  private:
    struct Partition {
        std::string mDisk;
        ZTDeviceNumber mDevice = 0;

        bool operator==(const Partition&) const = default;
    };
    struct Block {
        ZTDeviceNumber mDevice = 0;
        std::string mName;  // of device mapper
        std::string mUuid;
        std::vector<std::string> mOver;
        std::vector<Partition> mPartitions;
        bool mIsPath = false;
        unsigned int mLooks = 0;  // that have found nothing beneath, as long as that may be a moment

        bool operator==(const Block&) const = default;
        bool isMap() const;
    };
    ZTESysfsRead read(const std::string& acrDisk, Block& arBlock);
    ZTSMap mapOf(const std::string& acrDisk, const Block& acrBlock, const ZTCPathStates& acrStates,
                 const std::function<bool(const std::string&)>& acrInfer) const;

    const std::string mPath;
    ZTCSysfsRound<std::string, Block> mRound{Most};
    bool mHasChanged = false;
};
