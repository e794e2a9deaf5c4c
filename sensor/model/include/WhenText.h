// Moments as people write them, in the forms of systemd.time(7): "-2h", "yesterday", "2026-11-21 08:00".
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "SensorTime.h"

/// How a zone's clocks stand at a moment.
struct ZTSZoneTime {
    std::int64_t mOffset = 0;  ///< seconds ahead of UTC
    std::string mName;         ///< "CET"
};
/// Tells that of a moment, in seconds since 1970.
using ZTZone = std::function<ZTSZoneTime(std::int64_t)>;

ZTSZoneTime zoneOfUtc(std::int64_t aSeconds);
/// The process's own zone.
ZTSZoneTime zoneOfProcess(std::int64_t aSeconds);

/// What readWhen() takes, for who has written something else.
inline constexpr char ZTWhenForms[] =
    "-2h, '1d 3h ago', today, 'yesterday 08:00', '2026-11-21 08:00', 2026-11-21T08:00:00Z or @1700000000";

/// Reads a moment. A day and a time are those of the zone, unless UTC, an offset or the zone's own name
/// stands behind them. A time that the zone's clocks show twice is the first one, and one that they skip is
/// as long behind the skip's begin as it says. Nothing: it is no moment, or none from 1970 to 2262.
std::optional<ZTNanoseconds> readWhen(std::string_view aText, ZTNanoseconds aNow, const ZTZone& acrZone);
