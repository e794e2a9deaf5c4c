// Targets as people write them: node name, port name, Fibre Channel address.
#pragma once

#include <string>
#include <vector>

#include "SensorMessages.h"

/// Reads triples of words. Throws ZTCScopeUsage.
std::vector<ZTSSensorTarget> readTargets(const std::vector<std::string>& acrWords);
/// Reads a file, a target a line; # begins a comment, "-" is standard input. Throws ZTCScopeFailure.
std::vector<ZTSSensorTarget> loadTargets(const std::string& acrFile);

/// An address that several ports have, and a port that is there several times: in the order of the targets.
struct ZTSSameAddress {
    std::uint32_t mAddress;
    std::vector<ZTSWwn> mPorts;
};
struct ZTSSamePort {
    ZTSWwn mPort;
    std::vector<std::uint32_t> mAddresses;
};
/// Targets of which the agent finds the first alone: by an address, by a port name.
struct ZTSHiddenTargets {
    std::vector<ZTSSameAddress> mByAddress;
    std::vector<ZTSSamePort> mByPort;
};
ZTSHiddenTargets findHiddenTargets(const std::vector<ZTSSensorTarget>& acrTargets);
/// A line each.
std::vector<std::string> hiddenTargetsText(const ZTSHiddenTargets& acrHidden);
/// An address as people write it: "010a00".
std::string addressText(std::uint32_t aAddress);
