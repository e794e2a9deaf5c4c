// LUNs, the paths to them, and what stands above, as the store has them.
#pragma once

#include "KnownRows.h"
#include "SensorTime.h"
#include "Statement.h"
#include "StoreReader.h"

/// A host may have thousands of paths, of which one changes: only what differs is written.
class ZTCStorageTables {
  public:
    explicit ZTCStorageTables(SQLite::Database& arDatabase);

    /// All that there is now.
    void write(const ZTSHostStorage& acrStorage, ZTNanoseconds aNow);
    /// What there is at the start. What of it is gone when storage is first written, was seen last at that
    /// time.
    ZTSStoredStorage load(ZTNanoseconds aLastWrite);
    /// The transaction has failed.
    void forget() { mIsKnown = false; }

  private:
    ZTSStoredStorage learn();
    void writeLuns(const std::vector<ZTSLun>& acrLuns, ZTNanoseconds aNow, ZTNanoseconds aGone);
    void writeMaps(const std::vector<ZTSMap>& acrMaps, ZTNanoseconds aNow, ZTNanoseconds aGone);
    std::optional<ZTNanoseconds> findSince(const ZTSMap& acrMap, const ZTSMap* apBefore, ZTNanoseconds aNow);
    void writeVolumes(const std::vector<ZTSVolume>& acrVolumes);
    void writeMounts(const std::vector<ZTSMount>& acrMounts);

    SQLite::Database& mrDatabase;
    bool mIsKnown = false;
    ZTNanoseconds mTime = 0;        ///< of what the tables have; 0: nothing was ever written
    ZTNanoseconds mTimeBefore = 0;  ///< at the start
    ZTNanoseconds mLastWrite = 0;   ///< of somebody before
    ZTCKnownRows<ZTSLun> mLuns;
    ZTCKnownRows<ZTSMap> mMaps;
    ZTCKnownRows<ZTSVolume> mVolumes;
    ZTCKnownRows<ZTSMount> mMounts;
    ZTCStatement mSetTime, mSetLun, mLunGone, mSetMap, mMapGone, mChangeOfMap, mNoPaths, mAddPath, mSetVolume,
        mNoVolume, mNoOver, mAddOver, mSetMount, mNoMount;
};
