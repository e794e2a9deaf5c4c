// What the command line says of the history.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ZTSHistoryOptions {
    std::string mStore = "/var/lib/vrx-sn/history.db";
    std::string mSince;
    std::string mUntil;
    std::vector<std::string> mKinds;
    std::vector<std::string> mInitiators;
    std::vector<std::string> mTargets;
    std::string mFabric;
    std::string mHost;
    std::uint64_t mLimit = 0;  ///< 0: no limit
    bool mFollows = false;
    bool mIsSummary = false;
};
