// How many events of a kind a second are called back for.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

#include "ScsiKinds.h"

/// One thread. Each kind has as many at once as a second has, and gets them back in a second.
class ZTCScsiRate {
  public:
    using Time = std::chrono::steady_clock::time_point;

    explicit ZTCScsiRate(std::uint32_t aPerSecond) : mPrice(std::nano::den / aPerSecond) {}

    /// How many of so many events may be called back for.
    std::uint64_t take(ZTEScsiKind aKind, std::uint64_t aWanted, Time aNow) {
        const Time lFull = aNow + std::chrono::seconds(1);
        Time& lrSpent = mSpent[aKind];
        lrSpent = std::max(lrSpent, aNow);
        const auto lLeft = static_cast<std::uint64_t>((lFull - lrSpent) / mPrice);
        const std::uint64_t lTaken = std::min(aWanted, lLeft);
        lrSpent += static_cast<std::int64_t>(lTaken) * mPrice;
        return lTaken;
    }

  private:
    const std::chrono::nanoseconds mPrice;  // an event's part of a second, which still has no more of them
    std::array<Time, ZTSK_Count> mSpent{};  // until when what was taken is paid for
};
