// What somebody asks of the history, in words: from a command line, or in a request.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

/// What was asked for is not understood, in one line that says what is.
class ZTCViewUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What was asked for is not there, in one line.
class ZTCViewMissing : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Empty: nothing is said of that.
struct ZTSHistoryAsk {
    std::string mSince;
    std::string mUntil;
    std::vector<std::string> mKinds;
    std::vector<std::string> mInitiators;
    std::vector<std::string> mTargets;
    std::string mFabric;
    std::string mHost;
    std::uint64_t mLimit = 0;         ///< 0: no limit
    std::vector<std::string> mWhats;  ///< of changes: "port", "lun"
    std::vector<std::string> mMaps;   ///< maps, LUNs and what stands above
    const char* mpDash = "";          ///< what stands before a name where it was said: "--"
};

struct ZTSIncidentChoice {
    std::vector<std::string> mStates;
    std::vector<std::string> mClasses;
    bool mIsAll = false;  ///< however long ago they were closed
};
