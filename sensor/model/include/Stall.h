// A disk that has commands and completes none.
#pragma once

#include <string>

#include "SensorTime.h"

/// Plain values: any thread.
struct ZTSStall {
    ZTNanoseconds mFirst = 0;  ///< when it was seen to have commands first, and none has completed since
    ZTNanoseconds mLast = 0;   ///< when it was last seen so; once it is over: when something completed
    bool mIsOver = false;
    std::string mDisk;  ///< "sdb", "dm-3", as it was then
    std::string mName;  ///< the map's or volume's name, else the LUN's (ZTSLun::getName), else the disk's
    std::string mHits;  ///< what stood above it then (ZTSHit::toText)
    std::uint64_t mInFlight = 0;  ///< the most commands that waited
    std::string mKind;            ///< what waited, where it is known: "path", "map", "volume", "disk"

    bool operator==(const ZTSStall&) const = default;
};
