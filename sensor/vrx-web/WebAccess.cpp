#include "WebAccess.h"

#include "ConfigFile.h"

ZTSWebAccess readWebAccess(const ZTSWebOptions& acrOptions) {
    ZTSWebAccess lAccess;
    if (!acrOptions.mTokenFile.empty()) {
        try {
            lAccess.mTokens = ZTCWebTokens(readConfigFile(acrOptions.mTokenFile, "token file"));
        } catch (const ZTCServiceUsage&) {
            throw;
        } catch (const std::runtime_error& lrError) {
            throw ZTCServiceUsage("the token file " + acrOptions.mTokenFile +
                                  " cannot be used: " + lrError.what());
        }
    }
    if (!acrOptions.mCertificate.empty()) {
        lAccess.mKeys = {readConfigFile(acrOptions.mCertificate, "certificate"),
                         readConfigFile(acrOptions.mKey, "key")};
    }
    return lAccess;
}

ZTSWebSettings readWebSettings(const std::vector<std::string>& acrWords) {
    ZTSWebSettings lSettings;
    lSettings.mOptions = readWebOptions(acrWords);
    lSettings.mAccess = readWebAccess(lSettings.mOptions);
    return lSettings;
}
