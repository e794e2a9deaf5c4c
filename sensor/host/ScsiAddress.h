// The numbers that the kernel gives what SCSI hosts have: host, channel, target and LUN.
#pragma once

#include <charconv>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Reads a number behind what stands before it; takes both off.
template <class Number>
bool takeNumber(std::string_view& arText, std::string_view aBefore, Number& arNumber) {
    if (!arText.starts_with(aBefore)) {
        return false;
    }
    arText.remove_prefix(aBefore.size());
    const auto lParsed = std::from_chars(arText.begin(), arText.end(), arNumber);
    arText.remove_prefix(static_cast<std::size_t>(lParsed.ptr - arText.begin()));
    return lParsed.ec == std::errc();
}

struct ZTSScsiTarget {
    std::uint32_t mHost = 0, mChannel = 0, mTarget = 0;

    auto operator<=>(const ZTSScsiTarget&) const = default;
};

struct ZTSScsiAddress {
    ZTSScsiTarget mTarget;
    std::uint64_t mLun = 0;

    auto operator<=>(const ZTSScsiAddress&) const = default;

    std::string toText() const {
        return std::to_string(mTarget.mHost) + ":" + std::to_string(mTarget.mChannel) + ":" +
               std::to_string(mTarget.mTarget) + ":" + std::to_string(mLun);
    }
    /// "3:0:1:2".
    static std::optional<ZTSScsiAddress> fromText(std::string_view aText) {
        ZTSScsiAddress lAddress;
        ZTSScsiTarget& lrTarget = lAddress.mTarget;
        const bool lIsAddress =
            takeNumber(aText, "", lrTarget.mHost) && takeNumber(aText, ":", lrTarget.mChannel) &&
            takeNumber(aText, ":", lrTarget.mTarget) && takeNumber(aText, ":", lAddress.mLun);
        return lIsAddress && aText.empty() ? std::optional(lAddress) : std::nullopt;
    }
};
