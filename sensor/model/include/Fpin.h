// What a fabric tells of its own performance: a descriptor of an FPIN.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "SensorTime.h"
#include "Wwn.h"

/// Those that say the same within a moment are one. Plain values: any thread.
struct ZTSFpin {
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    std::uint64_t mTimes = 1;
    ZTSWwn mInitiator;        ///< the local port that was told
    std::string mFabric;      ///< its own
    std::string mDescriptor;  ///< "link_integrity", "delivery", "peer_congestion", "congestion", else its tag
                              ///< "0x20007"
    std::string mEvent;       ///< "loss_of_signal", "credit_stall", "timeout", ..., else the number
    std::string mSeverity;    ///< of a congestion: "warning", "alarm", else the number; empty: it has none
    std::optional<ZTSWwn> mDetecting;  ///< the port that found it
    std::optional<ZTSWwn> mAttached;   ///< the port that is attached to that one
    std::uint32_t mModifier = 0;       ///< of the event
    std::uint32_t mThreshold = 0;      ///< of a link's integrity, in milliseconds
    std::uint32_t mPeriod = 0;         ///< of a congestion, in milliseconds
    std::uint64_t mCount = 0;          ///< of a link's integrity: errors, of all the times
    std::vector<ZTSWwn> mPorts;        ///< those that are affected, as the descriptor lists them

    bool operator==(const ZTSFpin&) const = default;
    /// Whether it says the same as another, whenever and how often.
    bool isSameAs(const ZTSFpin& acrOther) const;
};
