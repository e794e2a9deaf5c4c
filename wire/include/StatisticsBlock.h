// The file of the agent's figures, or of a library's, to the byte (docs/statistics.md). Numbers are in the
// host's order.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

/// What mMagic has, without a zero at its end.
inline constexpr char ZTStatisticsMagic[] = "VRXSTAT1";

struct ZTSStatisticsRow {
    static constexpr unsigned int NameSize = 56;

    char mName[NameSize];  ///< ends in a zero
    std::atomic<std::uint64_t> mValue;
};

/// The header and the rows: the agent's is one page, so that a mapped file can take its place; a library's
/// has the same header and more rows. A reader goes by mRowCount and mRowSize.
struct ZTSStatisticsBlock {
    static constexpr unsigned int Size = 4096;
    static constexpr unsigned int HeaderSize = 64;
    static constexpr unsigned int MaxRows = (Size - HeaderSize) / sizeof(ZTSStatisticsRow);

    char mMagic[8];
    std::uint32_t mRowCount;
    std::uint32_t mRowSize;
    std::uint64_t mStart;  ///< nanoseconds since 1970
    std::uint64_t mProcess;
    std::atomic<std::uint32_t> mWake;
    unsigned char mZeros[28];
    ZTSStatisticsRow mRows[MaxRows];
};
static_assert(sizeof(ZTSStatisticsBlock) == ZTSStatisticsBlock::Size && sizeof(ZTSStatisticsRow) == 64 &&
              offsetof(ZTSStatisticsBlock, mWake) == 32 &&
              offsetof(ZTSStatisticsBlock, mRows) == ZTSStatisticsBlock::HeaderSize);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
