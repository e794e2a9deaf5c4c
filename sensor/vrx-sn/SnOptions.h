// What the command line and the configuration say.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

struct ZTSSnOptions {
    std::string mDirectory;  ///< the agent's runtime directory
    std::string mStore = "/var/lib/vrx-sn/history.db";
    std::chrono::milliseconds mEvery{1000};  ///< from fetch to fetch
    std::uint32_t mCeiling = 4096;           ///< of a record's data, in bytes
    std::chrono::milliseconds mFold{10000};
    unsigned int mKeepDays = 90;
    std::uint64_t mKeepBytes = std::uint64_t{8} << 30;
    std::string mNames;
    std::string mHostName;
    std::string mOnIncident;
    std::string mConfig;
    std::string mRoot = "/";
};
