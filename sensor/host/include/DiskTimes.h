// How many commands disks complete, and how long these take.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "DiskStats.h"
#include "Measures.h"
#include "Storage.h"

/// Measures "commands", "command_us" (their sum; by command_us / commands the mean) and "slowest_us" (the
/// mean of the slowest look): of each initiator and remote port by minute, of each LUN's path by hour. One
/// thread. Throws std::bad_alloc: then the next look counts what this one did not.
class ZTCDiskTimes {
  public:
    void look(const std::vector<ZTSDiskStats>& acrStats, const ZTSHostStorage& acrStorage,
              ZTNanoseconds aTime, ZTCMeasures& arMeasures);

  private:
    struct Ports {
        ZTSWwn mInitiator, mTarget;
        auto operator<=>(const Ports&) const = default;
    };
    struct Disk {
        std::uint64_t mCompleted = 0;
        std::uint64_t mMilliseconds = 0;
        std::uint64_t mLook = 0;
        // Since it was last added to the measures.
        std::uint64_t mNewCommands = 0;
        std::uint64_t mNewMilliseconds = 0;
        // Whose these are.
        Ports mPorts;
        std::uint64_t mLun = 0;
    };

    static void count(Disk& arDisk, const ZTSDiskStats& acrStats);

    std::unordered_map<std::string, Disk> mDisks;
    std::uint64_t mLook = 0;
};
