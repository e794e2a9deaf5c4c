// How many commands disks complete, and how long these take.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "DiskStats.h"
#include "Measures.h"
#include "Storage.h"

/// Measures "commands", "command_us" (their sum; by command_us / commands the mean) and "slowest_us" (the
/// mean of the slowest look): of each initiator and remote port by minute, of each LUN's path by hour. The
/// latter are kept back for a minute of looks, for they are many. One thread. Throws std::bad_alloc: then the
/// next call adds what this one did not.
class ZTCDiskTimes {
  public:
    void look(const std::vector<ZTSDiskStats>& acrStats, const ZTSHostStorage& acrStorage,
              ZTNanoseconds aTime, ZTCMeasures& arMeasures);
    /// Adds what is kept back: this is the end.
    void end(ZTNanoseconds aTime, ZTCMeasures& arMeasures);

  private:
    struct Sum {
        std::uint64_t mCommands = 0;
        std::uint64_t mMilliseconds = 0;
        std::uint64_t mSlowest = 0;  // microseconds

        void add(const Sum& acrMore);
        /// Calls the function with each measure's name and its value.
        void tell(const auto& acrDo) const;
    };
    struct Disk {
        std::uint64_t mCompleted = 0;
        std::uint64_t mMilliseconds = 0;
        std::uint64_t mLook = 0;
        std::uint64_t mTurn = 0;
        Sum mNew;   // since the last look
        Sum mKept;  // before, and not in the measures of its LUN yet
        ZTSMeasured mWhose;
        std::uint64_t mLun = 0;
    };

    static void count(Disk& arDisk, const ZTSDiskStats& acrStats);
    static void addToHour(const Disk& acrDisk, const Sum& acrSum, ZTNanoseconds aTime,
                          ZTCMeasures& arMeasures);
    void addByPorts(const ZTSHostStorage& acrStorage, ZTNanoseconds aTime, ZTCMeasures& arMeasures);
    void setLun(Disk& arDisk, const ZTSLun& acrLun, ZTNanoseconds aTime);
    void tell(ZTNanoseconds aTime, ZTCMeasures aMeasures, ZTCMeasures& arMeasures, const auto& acrIsDue);

    std::unordered_map<std::string, Disk> mDisks;
    std::uint64_t mLook = 0;
    ZTCMeasures mLeft;  // of disks that are others now
};
