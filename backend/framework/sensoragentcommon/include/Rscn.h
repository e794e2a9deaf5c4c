// An RSCN as it comes: an ELS payload whose header and affected-port pages are words of 4 bytes, big-endian.
// The boundary to the vendor library and the dispatch go by the same facts.
#pragma once

/// The codes with which an RSCN arrives.
inline constexpr unsigned int ZTRscnCategory = 1;
inline constexpr unsigned int ZTRscnSubcategory = 32;

inline constexpr unsigned int ZTRscnPageSize = 4;  ///< of the header too
inline constexpr unsigned int ZTRscnLengthAt =
    2;                                          ///< 16 bits: the payload's length with its header, in bytes
inline constexpr unsigned int ZTRscnLeast = 8;  ///< bytes of a payload with one page
