// How the paths stand, as multipathd knows them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct ZTSMultipathdPath {
    std::string mDisk;  ///< "sdb"
    std::string mMap;   ///< "mpatha"
    bool mIsUsable = false;
};

/// Asks it at its socket, within the time, whatever is at the other end; a root's own is a Unix socket at
/// ROOT/run/multipathd.socket. Nothing: arWhyNot says why, in half a sentence. Throws std::bad_alloc.
std::optional<std::vector<ZTSMultipathdPath>> askMultipathd(const std::string& acrRoot,
                                                            std::chrono::milliseconds aTime,
                                                            std::string& arWhyNot);
/// What it answers to "show paths raw format", a line each. What is no such line is left out, and paths that
/// are in no map too.
std::vector<ZTSMultipathdPath> readMultipathdPaths(std::string_view aText);
