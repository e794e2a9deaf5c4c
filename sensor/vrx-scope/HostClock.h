// What a host's clock says of itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct timex;

/// A plain value: any thread.
struct ZTSHostClock {
    bool mIsSynchronised = false;
    std::int64_t mMaxError = 0;        ///< microseconds
    std::int64_t mEstimatedError = 0;  ///< microseconds
    std::int64_t mOffset = 0;          ///< nanoseconds that are still to be made up for

    bool operator==(const ZTSHostClock&) const = default;
};

/// As the kernel tells it now. Nothing: it does not.
std::optional<ZTSHostClock> readHostClock();
/// aState: what adjtimex returned.
ZTSHostClock toHostClock(const timex& acrTime, int aState);
/// "synchronised, wrong by 12.3 ms at most". One line.
std::string clockText(const std::optional<ZTSHostClock>& acrClock);
