// What the command line and the configuration say.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "IncidentRules.h"
#include "ServiceUsage.h"
#include "Windows.h"

struct ZTSSnOptions {
    std::string mDirectory;  ///< the agent's runtime directory
    std::string mStore = "/var/lib/vrx-sn/history.db";
    std::chrono::milliseconds mEvery{1000};  ///< from fetch to fetch
    std::uint32_t mCeiling = 4096;           ///< of a record's data, in bytes
    std::chrono::milliseconds mFold{10000};
    unsigned int mKeepDays = 90;
    std::uint64_t mKeepBytes = std::uint64_t{8} << 30;
    std::string mNames;  ///< empty: there are none
    std::string mHostName;
    std::string mOnIncident;
    ZTSIncidentRules mRules = getDefaultRules();  ///< of incidents
    std::vector<ZTSWindow> mWindows;
    std::string mConfig;  ///< empty: there is none
    std::string mRoot = "/";
};

/// What stands on the command line, else in the environment, else in the configuration. acrWords: behind the
/// program's name. Throws ZTCServiceUsage, ZTCServiceShown.
ZTSSnOptions readSnOptions(const std::vector<std::string>& acrWords);
/// The same with that text as the configuration, whatever lies where. Throws ZTCServiceUsage,
/// ZTCServiceShown.
ZTSSnOptions parseSnOptions(const std::vector<std::string>& acrWords, const std::string& acrConfig);

/// Which options that need a new start are others now: "--store, --dir". Empty: none.
std::string listFixedChanges(const ZTSSnOptions& acrBefore, const ZTSSnOptions& acrNow);
/// Makes those what they were.
void keepFixed(const ZTSSnOptions& acrBefore, ZTSSnOptions& arNow);
