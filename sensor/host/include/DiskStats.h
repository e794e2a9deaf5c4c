// What disks have done and what they are doing, from /proc/diskstats.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Counts since the disk came; they may wrap, the milliseconds at 32 bits.
struct ZTSDiskStats {
    std::string mDisk;
    std::uint64_t mCompleted = 0;     ///< reads, writes, discards and flushes
    std::uint64_t mMilliseconds = 0;  ///< that these took, together
    std::uint64_t mInFlight = 0;
};

/// What is no line of it is left out; partitions and what can have no path (loop, ram, zram, sr, fd, nbd)
/// too. Throws std::bad_alloc.
std::vector<ZTSDiskStats> readDiskStats(std::string_view aText);
/// Nothing: it cannot be read now. Throws std::bad_alloc.
std::optional<std::string> readDiskStatsFile(const std::string& acrRoot);
