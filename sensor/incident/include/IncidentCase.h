// What is known of an incident while it is found: its signs, sorted by where they point, and what is not as
// it was. The story (IncidentStory.h) is told of it.
#pragma once

#include <map>
#include <set>

#include "Sign.h"
#include "Storage.h"

/// How far signs reach that belong together.
enum class ZTEFocus : unsigned char {
    Pair,        ///< an initiator and a remote port
    Initiator,   ///< a port of the host, or its link
    Remote,      ///< a port beyond the fabric
    Controller,  ///< all of its ports
    Array,
    Fabric,
    Disk,  ///< a map, volume or disk of which nothing else is known
    Host   ///< collecting itself
};
struct ZTSFocus {
    ZTEFocus mLevel = ZTEFocus::Host;
    ZTSWwn mInitiator;  ///< of Pair and Initiator
    ZTSWwn mRemote;     ///< of Pair and Remote
    std::string mName;  ///< "array1/A", "array1", a fabric, a disk

    auto operator<=>(const ZTSFocus&) const = default;
};

/// All signs of a kind at one place that say the same.
struct ZTSSignSum {
    ZTSSign mSign;  ///< with the first time, the last, and all events
    bool mIsTold = false;

    bool operator==(const ZTSSignSum&) const = default;
};

/// Signs that point at one place.
struct ZTSCluster {
    ZTSFocus mFocus;
    std::vector<ZTSSignSum> mSums;
};

/// A map of which paths are gone, or were.
struct ZTSCaseMap {
    std::uint32_t mLeft = 0;
    std::uint32_t mTotal = 0;
    std::uint32_t mLeast = 0;    ///< that there ever were in this incident
    ZTNanoseconds mSince = 0;    ///< the first path went
    ZTNanoseconds mAllGone = 0;  ///< no path was left; 0: some always were
    ZTNanoseconds mBack = 0;     ///< all were back; 0: not yet
    /// Those that are gone because of this: initiator and remote port, since when.
    std::map<std::pair<ZTSWwn, ZTSWwn>, ZTNanoseconds> mMissing;
};

/// One incident.
struct ZTSCase {
    std::uint64_t mId = 0;
    std::vector<ZTSCluster> mClusters;  ///< the oldest first: each is a cause
    /// Openings that were reached: so many of this sign at one place, so close to each other, and more than
    /// is ordinary there. Of what is a state each one is, and is not among them.
    std::set<std::pair<ZTEIncidentClass, ZTESign>> mReached;
    std::map<std::string, ZTSCaseMap> mMaps;  ///< by name
    std::map<ZTSWwn, ZTNanoseconds> mDown;    ///< the host's ports that are down or gone, since when
    std::map<std::pair<ZTSWwn, ZTSWwn>, ZTNanoseconds> mLostTargets;  ///< initiator, remote port
    std::map<std::string, ZTNanoseconds> mStalled;                    ///< disks that complete nothing
    ZTNanoseconds mAgentGone = 0;
    ZTSIncidentHits mHits;
    std::uint64_t mLosses = 0;
    ZTNanoseconds mOpened = 0;
    ZTNanoseconds mLast = 0;  ///< strong sign
};
