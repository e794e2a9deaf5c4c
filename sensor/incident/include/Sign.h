// A sign: something that was seen, as incidents are made of it, wherever it came from.
#pragma once

#include <string>
#include <vector>

#include "IncidentRules.h"
#include "SensorTime.h"
#include "Wwn.h"

/// Zeros and empty texts: that does not apply. A plain value: any thread.
struct ZTSSign {
    ZTESign mSign = ZTESign::Count;
    ZTNanoseconds mFirst = 0;  ///< when it began, as far as that is known
    ZTNanoseconds mLast = 0;
    std::uint64_t mEvents = 1;
    ZTSWwn mInitiator;
    ZTSWwn mRemote;
    std::string mFabric;  ///< the initiator's
    /// What tells it from others of its kind: "2/04/0a", the name of a counter, a descriptor's event, a
    /// process.
    std::string mDetail;
    std::string mDisk;               ///< the map, volume or disk that it is about, by its name
    std::vector<std::string> mMaps;  ///< of a stall: the maps beneath
    std::uint32_t mLeft = 0;         ///< of paths
    std::uint32_t mTotal = 0;
    std::uint8_t mCategory = 0;  ///< of a record; 0: it is none
    std::uint8_t mSubcategory = 0;

    bool operator==(const ZTSSign&) const = default;
};
