// The names file: what people call the ports of their site.
//
//     # WWPN                 NAME         what else is known of it
//     50:06:01:60:3b:20:1a:2f array1-A0   array=array1 controller=A fabric=left switch="sw 3/14"
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Ports.h"

struct ZTSNamesMistake {
    std::size_t mLine;  ///< from 1
    std::string mText;  ///< fit to be shown
};

struct ZTSNamesFile {
    ZTPortLabels mLabels;
    std::vector<ZTSNamesMistake> mMistakes;  ///< the first ones
    std::size_t mMoreMistakes = 0;           ///< besides
};

inline constexpr std::size_t ZTLongestLabel = 64;  ///< of a name or another word, in bytes
inline constexpr std::size_t ZTMostLabels = 16384;
inline constexpr std::size_t ZTMostNamesMistakes = 20;

/// Takes the lines that are right; each of the others is a mistake. Throws std::bad_alloc alone.
ZTSNamesFile readPortLabels(std::string_view aText);
