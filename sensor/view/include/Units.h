// The LUNs of a host as people ask for them: each once, with all paths to it and what stands above.
#pragma once

#include "StoreReader.h"
#include "ViewAsk.h"

/// A path as it was last seen; of what has no LUN, only the disk's name.
struct ZTSUnitPath {
    ZTSLun mLun;
    bool mIsHere = false;
    bool mIsUsable = false;
    ZTNanoseconds mSeen = 0;
    std::optional<ZTEPathSource> mSource{};  ///< nothing: it is no path of a map, or has gone
    std::string mWhy;                        ///< why it is not usable, as far as that is known
};

struct ZTSUnit {
    std::string mMap;          ///< the map's name; empty: it has none
    std::string mFormerMap{};  ///< that has gone, while its paths are there
    std::string mDisk;         ///< the map's disk, else the first path's
    std::string mMapWwid;
    bool mIsHere = false;
    ZTNanoseconds mSeen = 0;
    ZTNanoseconds mSince = 0;  ///< since when it has as many paths as it has; 0: not known
    std::uint32_t mUsable = 0;
    std::uint32_t mTotal = 0;
    bool mIsInferred = false;
    std::vector<ZTSUnitPath> mPaths;
    ZTSHit mHit;
    std::vector<ZTSStoredStall> mStalls;  ///< that are under way

    /// What its paths say of it: the first one that does. Null: none.
    const ZTSLun* findLun() const;
    /// It has paths on several ports, and nobody who would go from one to the next.
    bool lacksMap() const { return mIsHere && mMap.empty() && mTotal > 1; }
    /// The array has better paths than those that are left.
    bool isSlow() const;
    bool isLocal() const;
    bool lacksPaths() const { return mIsHere && mUsable < mTotal; }
    /// What has gone is in none.
    bool isInTrouble() const { return lacksPaths() || !mStalls.empty() || lacksMap() || isSlow(); }
    /// What people call it: the map, else the disk.
    const std::string& getName() const { return mMap.empty() ? mDisk : mMap; }
};

struct ZTSUnits {
    std::string mHost;
    ZTPortLabels mLabels;
    std::vector<ZTSUnit> mUnits;               ///< the worst first, what has gone last
    std::vector<ZTSStoredStall> mOtherStalls;  ///< of disks that are none of these
    std::vector<ZTSBlindSpot> mBlindSpots;     ///< of paths and stalls
    bool mIsNow = false;                       ///< vrx-sn runs
    ZTNanoseconds mWritten = 0;                ///< when it wrote last; 0: never
};

/// Those that the options take. Throws ZTCViewUsage and ZTCStoreError.
ZTSUnits readUnits(ZTCStoreReader& arReader, const ZTSHistoryAsk& acrOptions);

/// What the missing ones of some paths, and none of the others, have in common: "fabric left, array1/A".
/// Empty: nothing. Fit to be shown.
std::string commonText(const std::vector<const ZTSUnitPath*>& acrPaths, const ZTPortLabels& acrLabels);

/// As JSON: a document, or a line a LUN.
std::string unitsJson(const ZTSUnits& acrUnits, bool aAsLines);
