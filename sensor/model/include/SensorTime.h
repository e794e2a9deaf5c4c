// Moments, as the agent tells and the store keeps them.
#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>

/// A moment, counted from 1970-01-01T00:00:00Z.
struct ZTSSensorTime {
    std::uint64_t mSeconds = 0;
    std::uint32_t mNanoseconds = 0;  ///< below 1,000,000,000

    auto operator<=>(const ZTSSensorTime&) const = default;
};

/// Nanoseconds since 1970, by the host's clock. It ends in 2262.
using ZTNanoseconds = std::int64_t;
inline constexpr ZTNanoseconds ZTSecond = 1'000'000'000;

/// Moments behind the end of its numbers are that end.
inline ZTNanoseconds toNanoseconds(const ZTSSensorTime& acrTime) {
    constexpr std::uint64_t lLast = 9'223'372'035;
    const auto lSeconds = static_cast<ZTNanoseconds>(std::min(acrTime.mSeconds, lLast));
    return lSeconds * ZTSecond + acrTime.mNanoseconds % ZTSecond;
}
/// Moments before 1970 are its begin.
inline ZTSSensorTime toSensorTime(ZTNanoseconds aTime) {
    const auto lTime = static_cast<std::uint64_t>(std::max<ZTNanoseconds>(aTime, 0));
    return {lTime / ZTSecond, static_cast<std::uint32_t>(lTime % ZTSecond)};
}
