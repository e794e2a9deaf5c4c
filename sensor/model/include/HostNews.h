// What the host has told since it was last asked: what goes from those who look at it into the history.
#pragma once

#include <optional>
#include <vector>

#include "Fpin.h"
#include "Measures.h"
#include "Stall.h"
#include "Storage.h"
#include "Windows.h"

/// Something that this host cannot tell of. While it stands, silence is no health.
struct ZTSBlindSpot {
    std::string mWhat;    ///< "scsi_errors", "fpins", "counters", "paths", "stalls", "names", "uevents"
    std::string mWhere;   ///< "host3", a port's name; empty: all of the host
    std::string mWhy;     ///< half a sentence: "the driver posts none"
    bool mIsSure = true;  ///< false: none has come yet, which may be why

    auto operator<=>(const ZTSBlindSpot&) const = default;
};

/// Plain values: any thread.
struct ZTSHostNews {
    std::vector<ZTSFpin> mFpins;
    std::vector<ZTSStall> mStalls;                         ///< that have begun, or are over
    ZTCMeasures mMeasures;                                 ///< what has been added
    std::optional<ZTSHostStorage> mStorage;                ///< all of it as it is now
    std::optional<std::vector<ZTSBlindSpot>> mBlindSpots;  ///< all of them
    std::optional<std::vector<ZTSWindow>> mWindows;        ///< all of them

    bool isEmpty() const;
    std::size_t getBytes() const;
    /// What came later. Of the newest FPINs those that say the same within ten seconds become one, a stall
    /// that is over its begin.
    void join(ZTSHostNews aMore);
    /// FPINs that say the same become one, whenever they came, and sums of minutes those of hours. Throws
    /// std::bad_alloc: nothing has changed but some of the sums.
    void coarsen();
};
