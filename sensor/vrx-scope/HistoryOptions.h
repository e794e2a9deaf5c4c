// What the command line says of the history, and of all else that the store has.
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
    std::string mIncident;     ///< its id; empty: any, or none
    bool mFollows = false;
    bool mIsSummary = false;

    std::vector<std::string> mWhats;  ///< of changes: "port", "lun"
    std::vector<std::string> mMaps;   ///< maps, LUNs and what stands above
    bool mIsFull = false;             ///< each path of each
    std::vector<std::string> mNote;   ///< its words
    std::string mAbout;               ///< what the note is about
};
