// What a fetch brought, or what a file holds of one.
#pragma once

#include <chrono>
#include <optional>

#include "EventBlock.h"
#include "SensorMessages.h"

struct ZTSFetched {
    using Time = std::chrono::system_clock::time_point;

    std::optional<Time> mTime;  ///< when it came; nothing: not known any more
    ZTSensorScopeData mData;

    std::uint64_t countRecords() const { return ::countRecords(mData); }
    std::uint64_t countEvents() const { return ::countEvents(mData); }
};

/// A record's block as fields.
inline std::optional<ZTEventGroup> fieldsOf(const ZTSSensorRecord& acrRecord) {
    return decodeEventBlock(acrRecord.mCategory, acrRecord.mSubcategory, acrRecord.mData);
}
