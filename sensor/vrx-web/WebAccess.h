// What lets somebody in, as it lies in files: tokens, certificate and key.
#pragma once

#include <string>
#include <vector>

#include "WebDaemon.h"
#include "WebGuard.h"
#include "WebOptions.h"

struct ZTSWebAccess {
    ZTCWebTokens mTokens;  ///< none: nobody is asked for one
    ZTSWebKeys mKeys;      ///< empty: TLS is not spoken
};

/// Waits for the disk that they lie on. Throws ZTCServiceUsage.
ZTSWebAccess readWebAccess(const ZTSWebOptions& acrOptions);

/// All that is read anew when that is asked for.
struct ZTSWebSettings {
    ZTSWebOptions mOptions;
    ZTSWebAccess mAccess;
};
/// Throws ZTCServiceUsage, ZTCServiceShown.
ZTSWebSettings readWebSettings(const std::vector<std::string>& acrWords);
