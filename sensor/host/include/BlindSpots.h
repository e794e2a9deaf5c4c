// What a host cannot see, from what it has been seen to have.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "HostNews.h"
#include "Ports.h"

/// What is known by now; each is told by whoever knows it.
struct ZTSSight {
    bool mIsAgentHere = false;
    /// libdfc-fchost's own figures, by name; nothing: another provider, or none.
    std::optional<std::map<std::string, std::uint64_t>> mLibrary;
    bool mHasCheckConditions = false;  ///< a check condition, queue full or busy was ever told
    std::string mNoTransport;          ///< why no transport messages can be had; empty: they can
    std::string mNoUevents;
    std::uint64_t mFpins = 0;             ///< ever seen
    std::vector<ZTSBlindSpot> mCounters;  ///< ZTCPortCounters::listBlindSpots
    std::size_t mMaps = 0;
    std::size_t mInferredMaps = 0;  ///< with a path that nobody has told of
    std::size_t mLuns = 0;          ///< of Fibre Channel
    std::string mNoMultipathd;      ///< why it has not answered the last time; empty: it has
    bool mHasDiskStats = true;
};

/// Sorted. A driver of which it is known that it posts no FPINs is a row of a table here.
std::vector<ZTSBlindSpot> listBlindSpots(const ZTSSight& acrSight, const ZTSHostPorts& acrPorts);
