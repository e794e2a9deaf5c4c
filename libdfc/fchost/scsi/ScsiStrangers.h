// Failures of hosts that the last look has not found: of some that have just come, of some that have gone,
// and of some that are none of ours.
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

    enum Fate : unsigned char {
        Keeps,    ///< it is kept
        NoRoom,   ///< it would be
        Nobodys,  ///< its host is none of ours
        Gone,     ///< there is no host of that number
    };
    /// What becomes of a failure. Throws std::bad_alloc, with nothing kept.
    Fate take(const ZTSScsiFailure& acrFailure, Time aNow);
    /// Hosts may have come or gone.
    void noteChange() { mNotOurs.clear(); }
    bool isEmpty() const { return mKept.empty(); }
    /// Calls the function with each failure whose host has been found since, and with where that is. Returns
    /// how many commands are lost, whose host has not been found in time.
    template <class Tell>
    std::uint64_t settle(const ZTCFcBoards& acrBoards, Time aNow, const Tell& acrTell) {
        std::uint64_t lLost = 0;
        std::erase_if(mKept, [&](const Kept& acrKept) {
            const auto lPlace = acrBoards.findHost(acrKept.mFailure.mKey.mHost);
            const bool lIsFound = lPlace && lPlace->mIsThere;
            const bool lIsLate = !lIsFound && aNow >= acrKept.mUntil;
            if (lIsFound) {
                acrTell(acrKept.mFailure, *lPlace);
            }
            lLost += lIsLate ? acrKept.mFailure.mCount : 0;
            return lIsFound || lIsLate;
        });
        return lLost;
    }

  private:
    struct Kept {
        ZTSScsiFailure mFailure;
        Time mUntil;
    };
    Fate find(std::uint32_t aHost, Time aNow);

    const std::string mClass;
    const std::chrono::milliseconds mPatience;
    std::map<std::uint32_t, Time> mNotOurs;  // and when that was seen
    std::vector<Kept> mKept;
};
