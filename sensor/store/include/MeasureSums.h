// What was measured over time, for those who draw it: sums by the ids of what they are about.
#pragma once

#include "EventCounts.h"

/// Takes a sum of what is measured: whose, of what, and how much, by the ids of the tables.
using ZTTakeMeasure = std::function<void(std::int64_t aTime, std::int64_t aMeasured, std::int64_t aMeasure,
                                         std::uint64_t aValue)>;
bool readMeasureSums(ZTCStoreReader& arReader, ZTEStoreBin aBin, const ZTSCountSpan& acrSpan,
                     const ZTTakeMeasure& acrTake);

/// What is measured, and of whom, by the ids of the tables.
struct ZTSMeasuredRow {
    std::int64_t mId = 0;
    ZTSMeasured mWhose;
};
std::vector<ZTSMeasuredRow> readMeasured(ZTCStoreReader& arReader);
std::unordered_map<std::int64_t, std::string> readMeasureNames(ZTCStoreReader& arReader);
