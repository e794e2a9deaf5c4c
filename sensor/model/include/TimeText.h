// Moments as text.
#pragma once

#include <chrono>
#include <string>

#include "SensorTime.h"

ZTSSensorTime toSensorTime(std::chrono::system_clock::time_point aTime);
std::chrono::system_clock::time_point fromSensorTime(const ZTSSensorTime& acrTime);

/// RFC 3339 in UTC, to the nanosecond: "2026-11-21T14:00:00.000000000Z". An empty text for a moment beyond
/// the year 9999.
std::string isoText(const ZTSSensorTime& acrTime);

/// For people, to the millisecond: "2026-11-21 14:00:00.000 UTC", in UTC or the local zone. As isoText
/// beyond.
std::string plainText(const ZTSSensorTime& acrTime, bool aInUtc);
/// The same without the day and the zone, when they are those of another moment.
std::string plainTextBehind(const ZTSSensorTime& acrTime, const ZTSSensorTime& acrBefore, bool aInUtc);
