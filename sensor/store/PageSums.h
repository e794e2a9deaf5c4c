// A check sum in every page of the store's main file, so that a flipped byte is never a wrong number.
#pragma once

#include <cstddef>

/// Bytes of a page, and of its sum, which are its last ones. SQLite reserves them.
inline constexpr std::size_t ZTPageSize = 4096;
inline constexpr std::size_t ZTPageSumSize = 8;

/// Whether it carries the sum of what it has and of where it stands, counted from 1.
bool hasPageSum(const unsigned char* apPage, std::size_t aNumber);
void putPageSum(unsigned char* apPage, std::size_t aNumber);

/// The name of SQLite's layer that puts sums into the pages it writes and looks at those it reads. It stands
/// over what is the default layer when a file is opened.
const char* usePageSums();
