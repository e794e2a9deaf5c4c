// Finds what belongs to disks, for those who ask of many.
#pragma once

#include <string_view>
#include <unordered_map>

#include "Storage.h"

/// Of a storage that stays, unchanged, as long as this. Throws std::bad_alloc.
class ZTCStorageIndex {
  public:
    explicit ZTCStorageIndex(const ZTSHostStorage& acrStorage);

    /// Each as ZTSHostStorage has it.
    const ZTSLun* findDisk(std::string_view aDisk) const;
    const ZTSMap* findMap(std::string_view aDisk) const;
    const ZTSVolume* findVolume(std::string_view aDisk) const;
    ZTSHit hitBy(std::string_view aDisk) const;

  private:
    template <class Value>
    using Table = std::unordered_map<std::string_view, const Value*>;
    template <class Value>
    using Tables = std::unordered_multimap<std::string_view, const Value*>;

    Table<ZTSLun> mLuns;
    Table<ZTSMap> mMaps;  // by their disks and by those of their paths
    Table<ZTSVolume> mVolumes;
    Tables<ZTSVolume> mAbove;
    Tables<ZTSMount> mMounts;
};
