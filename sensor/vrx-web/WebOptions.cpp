#include "WebOptions.h"

#include <CLI/CLI.hpp>

#include "ServiceOptions.h"
#include "WebGuard.h"
#include "WebListeners.h"

namespace {

constexpr char sDefaultConfig[] = "/etc/vrx-sca/vrx-web.conf";
constexpr char sDefaultListen[] = "127.0.0.1:9180";
constexpr std::size_t sMostListeners = 16;

std::string sCheckListen(const std::string& acrText) {
    try {
        readListenAddress(acrText);
        return "";
    } catch (const ZTCServiceUsage& lrError) {
        return lrError.what();
    }
}

std::string sCheckHost(const std::string& acrText) {
    return isWebHostName(acrText) ? "" : "'" + acrText + "' is no host's name";
}

void sDescribe(CLI::App& arProgram, ZTSWebOptions& arOptions) {
    arProgram.set_version_flag("--version", "vrx-web v" ZT_WEB_VERSION, "the version");
    const auto lAdd = [&](const char* apName, auto& arValue, const char* apType, const char* apText) {
        return arProgram.add_option(apName, arValue, apText)->type_name(apType);
    };
    const auto lAddMany = [&](const char* apName, auto& arValue, const char* apType, const char* apText) {
        return lAdd(apName, arValue, apType, apText)->allow_extra_args(false)->take_all();
    };
    lAdd("--store", arOptions.mStore, "FILE", "the history (/var/lib/vrx-sn/history.db)")
        ->check(checkNotEmpty);
    lAddMany("--listen", arOptions.mListen, "ADDRESS:PORT",
             "where it is served, or the path of a Unix socket (127.0.0.1:9180)")
        ->check(sCheckListen);
    lAdd("--certificate", arOptions.mCertificate, "FILE", "serve by TLS, with this certificate");
    lAdd("--key", arOptions.mKey, "FILE", "the certificate's key");
    lAdd("--token-file", arOptions.mTokenFile, "FILE", "only who has one of its lines is answered");
    lAddMany("--allow-host", arOptions.mAllowHosts, "NAME", "a name that it is called by")->check(sCheckHost);
    lAdd("--figures", arOptions.mFigures, "DIR", "where vrx-sn has its figures (/run/vrx-sn)")
        ->check(checkNotEmpty);
    lAdd("--config", arOptions.mConfig, "FILE",
         "the configuration (/etc/vrx-sca/vrx-web.conf, if it is there)")
        ->configurable(false);
}

void sFinish(ZTSWebOptions& arOptions) {
    if (arOptions.mListen.empty()) {
        arOptions.mListen = {sDefaultListen};
    }
    if (arOptions.mListen.size() > sMostListeners) {
        throw ZTCServiceUsage("there are more than 16 addresses to listen on");
    }
    if (arOptions.mCertificate.empty() != arOptions.mKey.empty()) {
        throw ZTCServiceUsage("--certificate and --key go together");
    }
}

// apConfig: the text of the configuration, null: of the file.
ZTSWebOptions sRead(const std::vector<std::string>& acrWords, const std::string* apConfig) {
    ZTSWebOptions lOptions;
    CLI::App lProgram("Serves the page, the interface and the metrics of what vrx-sn has written.",
                      "vrx-web");
    sDescribe(lProgram, lOptions);
    lOptions.mConfig = parseServiceOptions(lProgram, {sDefaultConfig, {"listen", "allow-host"}}, acrWords,
                                           lOptions.mConfig, apConfig);
    sFinish(lOptions);
    return lOptions;
}

}  // namespace

ZTSWebOptions readWebOptions(const std::vector<std::string>& acrWords) {
    return sRead(acrWords, nullptr);
}

ZTSWebOptions parseWebOptions(const std::vector<std::string>& acrWords, const std::string& acrConfig) {
    return sRead(acrWords, &acrConfig);
}

std::string listFixedChanges(const ZTSWebOptions& acrBefore, const ZTSWebOptions& acrNow) {
    const std::pair<const char*, bool> lRows[] = {
        {"--store", acrBefore.mStore != acrNow.mStore},
        {"--listen", acrBefore.mListen != acrNow.mListen},
        {"--figures", acrBefore.mFigures != acrNow.mFigures},
        // A listener stays plain, or TLS.
        {"--certificate", acrBefore.mCertificate.empty() != acrNow.mCertificate.empty()}};
    std::string lList;
    for (const auto& [lpName, lIsOther] : lRows) {
        lList += !lIsOther ? "" : lList.empty() ? lpName : std::string(", ") + lpName;
    }
    return lList;
}
