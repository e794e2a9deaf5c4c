// How the paths stand, as multipathd knows them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

struct ZTSMultipathdPath {
    std::string mDisk;  ///< "sdb"
    std::string mMap;   ///< "mpatha"
    bool mIsUsable = false;
};

/// Asks it at its socket, within the time, whatever is at the other end; a root's own is a Unix socket at
/// ROOT/run/multipathd.socket. Nothing: acrWhyNot says why, in half a sentence.
std::optional<std::vector<ZTSMultipathdPath>> askMultipathd(const std::string& acrRoot,
                                                            std::chrono::milliseconds aTime,
                                                            std::string& arWhyNot);
/// What it answers to "show paths raw format", a line each. What is no such line is left out.
std::vector<ZTSMultipathdPath> readMultipathdPaths(std::string_view aText);
