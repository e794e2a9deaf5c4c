// A record of the history: events that said the same.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "SensorTime.h"
#include "Wwn.h"

/// What the events of many records have in common: who saw it, what it was, and whom it concerns. Plain
/// values: any thread.
struct ZTSSeries {
    ZTSPortNames mInitiator;
    std::uint8_t mCategory = 0;
    std::uint8_t mSubcategory = 0;
    std::optional<ZTSPortNames> mTarget;  ///< the registered target, as the agent named it
    /// The port beyond the fabric: the registered target's, else the one that the event's block names, else
    /// the one that has an RSCN's address in the initiator's fabric.
    std::optional<ZTSWwn> mRemote;
    std::string mFabric;  ///< the initiator's; empty: not known

    auto operator<=>(const ZTSSeries&) const = default;
};

/// Times never run backwards: mFirst <= mLast.
struct ZTSRecord {
    ZTSSeries mSeries;
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    std::uint64_t mOccurrences = 0;
    std::vector<std::uint8_t> mData;  ///< the block of the kind (EventBlock.h)
};

/// Events that no record has.
struct ZTSLoss {
    ZTNanoseconds mFirst = 0;  ///< they were lost between these two
    ZTNanoseconds mLast = 0;
    std::string mSource;                   ///< who lost them: "agent", "library", "sensor"
    std::string mReason;                   ///< "limit", "killed", ... (docs/store.md)
    std::optional<std::uint64_t> mEvents;  ///< nothing: nobody knows how many
    std::optional<std::uint64_t> mAtMost;  ///< then they are no more than that, where that is known
};

/// Something that came, went, or became something else.
struct ZTSChange {
    ZTNanoseconds mTime = 0;
    std::string mWhat;       ///< "agent", "sensor", "store", "port", "remote_port"
    std::string mName;       ///< which one: a port's name, "vrx-sca, process 12"
    std::string mEvent;      ///< "came", "went", "changed"
    std::string mAttribute;  ///< what of it has changed: "state", "speed"; else empty
    std::string mBefore;
    std::string mAfter;

    bool operator==(const ZTSChange&) const = default;
};
