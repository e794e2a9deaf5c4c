#include "WebAccess.h"

#include "ConfigFile.h"

namespace {

// One that is just being written would have TLS spoken no more.
std::string sReadKey(const std::string& acrPath, const char* apWhat) {
    std::string lText = readConfigFile(acrPath, apWhat);
    if (lText.empty()) {
        throw ZTCServiceUsage("the " + std::string(apWhat) + " " + acrPath + " is empty");
    }
    return lText;
}

}  // namespace

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
        lAccess.mKeys = {sReadKey(acrOptions.mCertificate, "certificate"), sReadKey(acrOptions.mKey, "key")};
    }
    return lAccess;
}

ZTSWebSettings readWebSettings(const std::vector<std::string>& acrWords) {
    ZTSWebSettings lSettings;
    lSettings.mOptions = readWebOptions(acrWords);
    lSettings.mAccess = readWebAccess(lSettings.mOptions);
    return lSettings;
}
