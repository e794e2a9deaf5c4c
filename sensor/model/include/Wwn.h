// A world wide name, of a port or of a node.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// 8 bytes in Fibre Channel order. A plain value: any thread.
struct ZTSWwn {
    static constexpr std::size_t Size = 8;
    static constexpr std::size_t TextSize = 23;

    std::array<std::uint8_t, Size> mBytes{};

    auto operator<=>(const ZTSWwn&) const = default;

    /// Eight lower-case hex pairs with colons.
    std::string toText() const;
    /// Reads that form in upper or lower case, or 16 hex digits with or without 0x. Nothing if it is neither.
    static std::optional<ZTSWwn> fromText(std::string_view aText);
};

/// A port's node name and port name.
struct ZTSPortNames {
    ZTSWwn mNode;
    ZTSWwn mPort;

    auto operator<=>(const ZTSPortNames&) const = default;
};
