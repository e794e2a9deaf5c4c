// How many events of a kind a second are called back for.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

#include "ScsiKinds.h"

/// One thread. A second begins with the first event of a kind that no other second has.
class ZTCScsiRate {
  public:
    using Time = std::chrono::steady_clock::time_point;

    explicit ZTCScsiRate(std::uint32_t aPerSecond) : mPerSecond(aPerSecond) {}

    /// How many of so many events may be called back for.
    std::uint64_t take(ZTEScsiKind aKind, std::uint64_t aWanted, Time aNow) {
        Second& lrSecond = mSeconds[aKind];
        if (aNow >= lrSecond.mEnd) {
            lrSecond = {aNow + std::chrono::seconds(1), mPerSecond};
        }
        const std::uint64_t lTaken = std::min(aWanted, lrSecond.mLeft);
        lrSecond.mLeft -= lTaken;
        return lTaken;
    }

  private:
    struct Second {
        Time mEnd{};
        std::uint64_t mLeft = 0;
    };

    const std::uint32_t mPerSecond;
    std::array<Second, ZTSK_Count> mSeconds{};
};
