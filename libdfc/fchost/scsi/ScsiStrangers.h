// Failures of hosts that no look has found: of some that have just come, and of some that are none of ours.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "Boards.h"
#include "ScsiSource.h"

/// One thread. A Fibre Channel host's failures are kept until a look has found it; those of other hosts are
/// nobody's.
class ZTCScsiStrangers {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// acrRoot: where sysfs is mounted. aPatience: so long a failure is kept.
    ZTCScsiStrangers(const std::string& acrRoot, std::chrono::milliseconds aPatience)
        : mClass(acrRoot + "/class/"), mPatience(aPatience) {}

    /// Returns how many of its commands are lost: those of a host that has gone, and what there is no room
    /// for. Throws std::bad_alloc, with nothing kept.
    std::uint64_t take(const ZTSScsiFailure& acrFailure, Time aNow);
    bool isEmpty() const { return mKept.empty(); }
    /// Calls the function with each failure whose host has been found since. Returns how many commands are
    /// lost, whose host has not been found in time.
    template <class Tell>
    std::uint64_t settle(const ZTCFcBoards& acrBoards, Time aNow, const Tell& acrTell) {
        std::uint64_t lLost = 0;
        std::erase_if(mKept, [&](const Kept& acrKept) {
            const bool lIsFound = acrBoards.findHost(acrKept.mFailure.mKey.mHost).has_value();
            const bool lIsLate = !lIsFound && aNow >= acrKept.mUntil;
            if (lIsFound) {
                acrTell(acrKept.mFailure);
            }
            lLost += lIsLate ? acrKept.mFailure.mCount : 0;
            return lIsFound || lIsLate;
        });
        return lLost;
    }

  private:
    enum What : unsigned char { Ours, NotOurs, Gone };
    struct Kept {
        ZTSScsiFailure mFailure;
        Time mUntil;
    };
    What find(std::uint32_t aHost, Time aNow);

    const std::string mClass;
    const std::chrono::milliseconds mPatience;
    std::map<std::uint32_t, Time> mNotOurs;  // and when that was seen
    std::vector<Kept> mKept;
};
