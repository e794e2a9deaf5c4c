// Names of block devices.
#pragma once

#include <algorithm>
#include <string_view>

struct ZTSBlockName {
    std::string_view mDisk;  ///< "sda"; empty: it is none
    bool mIsWhole = false;   ///< and no partition or anything else of it
};

/// What a path such as "/devices/.../block/sda/sda1" is of.
inline ZTSBlockName blockIn(std::string_view aPath) {
    constexpr std::string_view lFolder = "/block/";
    const std::size_t lAt = aPath.rfind(lFolder);
    if (lAt == std::string_view::npos) {
        return {};
    }
    const std::string_view lRest = aPath.substr(lAt + lFolder.size());
    const std::size_t lEnd = lRest.find('/');
    return {lRest.substr(0, lEnd), lEnd == std::string_view::npos};
}

/// Whether it can be one: no longer than the kernel's, and no blanks.
inline bool isBlockName(std::string_view aName) {
    constexpr std::size_t lLongest = 32;
    return !aName.empty() && aName.size() <= lLongest && aName[0] != '.' &&
           std::all_of(aName.begin(), aName.end(), [](char aSign) { return aSign > ' ' && aSign <= '~'; });
}
