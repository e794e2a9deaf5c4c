// The characters of UTF-8.
#pragma once

#include <cstdint>
#include <string_view>

struct ZTSCharacter {
    std::uint32_t mCode = 0;
    std::size_t mLength = 0;  ///< in bytes
};

/// The character that a text, which is not empty, begins with. A length of 0: it begins with none.
ZTSCharacter firstCharacterOf(std::string_view aText);
