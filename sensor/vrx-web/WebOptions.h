// What the command line and the configuration say.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ServiceUsage.h"

struct ZTSWebOptions {
    std::string mStore = "/var/lib/vrx-sn/history.db";
    std::vector<std::string>
        mListen;               ///< "127.0.0.1:9180", "[::1]:9180", "/run/vrx-web/web.sock"; never empty
    std::string mCertificate;  ///< empty: plain
    std::string mKey;
    std::string mTokenFile;  ///< empty: nobody is asked for one
    std::vector<std::string> mAllowHosts;
    std::string mFigures = "/run/vrx-sn";
    std::string mConfig;  ///< empty: there is none
};

/// How long things take at most.
struct ZTSWebPeriods {
    std::chrono::milliseconds mHead{10'000};  ///< from a connection's begin until its first request is there
    std::chrono::milliseconds mIdle{60'000};  ///< from an answer until the next request is there
    std::chrono::milliseconds mTaking{60'000};  ///< without that anything of an answer is taken
    std::chrono::milliseconds mRequest{5'000};  ///< until a request is answered
    std::chrono::milliseconds mToken{1'000};    ///< that a wrong token is kept waiting
    std::chrono::milliseconds mAlive{15'000};   ///< of silence on a stream
    std::chrono::milliseconds mTick{250};       ///< from look to look at all of these
};

/// What stands on the command line, else in the configuration. acrWords: behind the program's name. Throws
/// ZTCServiceUsage, ZTCServiceShown.
ZTSWebOptions readWebOptions(const std::vector<std::string>& acrWords);
/// The same with that text as the configuration, whatever lies where. Throws ZTCServiceUsage,
/// ZTCServiceShown.
ZTSWebOptions parseWebOptions(const std::vector<std::string>& acrWords, const std::string& acrConfig);

/// Which options that need a new start are others now: "--store, --listen". Empty: none.
std::string listFixedChanges(const ZTSWebOptions& acrBefore, const ZTSWebOptions& acrNow);
