// How many commands disks complete, and how long these take.
#pragma once

#include <unordered_map>

#include "DiskStats.h"
#include "Measures.h"
#include "Storage.h"

/// Measures "commands", "command_us" (their sum; by command_us / commands the mean) and "slowest_us" (the
/// mean of the slowest look): of each initiator and remote port by minute, of each LUN's path by hour. One
/// thread.
class ZTCDiskTimes {
  public:
    void look(const std::vector<ZTSDiskStats>& acrStats, const ZTSHostStorage& acrStorage,
              ZTNanoseconds aTime, ZTCMeasures& arMeasures);

  private:
    struct Disk {
        std::uint64_t mCompleted = 0;
        std::uint64_t mMilliseconds = 0;
        std::uint64_t mLook = 0;
    };
    std::unordered_map<std::string, Disk> mDisks;
    std::uint64_t mLook = 0;
};
