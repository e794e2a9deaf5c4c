// Integers in the byte order of the wire.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstring>

namespace ztwire {

template <std::integral Integer>
constexpr Integer swapped(Integer aValue) {
    if constexpr (std::endian::native == std::endian::big || sizeof(Integer) == 1) {
        return aValue;
    } else if constexpr (sizeof(Integer) == 2) {
        return static_cast<Integer>(__builtin_bswap16(static_cast<unsigned short>(aValue)));
    } else {
        static_assert(sizeof(Integer) == 4);
        return static_cast<Integer>(__builtin_bswap32(static_cast<unsigned int>(aValue)));
    }
}

/// Stores the value at apTo, which has room for it, and returns the address behind it.
template <std::integral Integer>
unsigned char* put(unsigned char* apTo, Integer aValue) {
    const Integer lWire = swapped(aValue);
    memcpy(apTo, &lWire, sizeof lWire);
    return apTo + sizeof lWire;
}

/// Stores bytes as they are and returns the address behind them.
inline unsigned char* put(unsigned char* apTo, const void* apBytes, std::size_t aLength) {
    memcpy(apTo, apBytes, aLength);
    return apTo + aLength;
}

/// Reads the value that stands at apFrom.
template <std::integral Integer>
Integer get(const unsigned char* apFrom) {
    Integer lWire;
    memcpy(&lWire, apFrom, sizeof lWire);
    return swapped(lWire);
}

}  // namespace ztwire
