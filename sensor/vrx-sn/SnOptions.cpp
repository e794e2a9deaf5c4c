#include "SnOptions.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>

#include "ServiceOptions.h"

namespace {

constexpr char sDefaultConfig[] = "/etc/vrx-sca/vrx-sn.conf";
constexpr char sDefaultNames[] = "/etc/vrx-sca/names";

constexpr std::uint64_t sLeastBytes = std::uint64_t{1} << 20;
constexpr double sLongest = 3600;  // seconds
constexpr std::size_t sMostWindows = 1000;
// The options that may stand there more than once.
constexpr char sWindow[] = "window";
constexpr char sIncident[] = "incident";

// As they are given: what is in units of people's.
struct Given {
    ZTSSnOptions mOptions;
    double mEvery = 1;
    double mFold = 10;
    std::string mKeepBytes = "8G";
    std::vector<std::string> mWindows;
    std::vector<std::string> mRules;
    std::string mConfig;
};

// What is looked at once, at the start.
constexpr std::pair<const char*, std::string ZTSSnOptions::*> sFixed[] = {
    {"--dir", &ZTSSnOptions::mDirectory},
    {"--store", &ZTSSnOptions::mStore},
    {"--host", &ZTSSnOptions::mHostName},
    {"--root", &ZTSSnOptions::mRoot}};

bool sIsThere(const char* apPath) {
    return access(apPath, F_OK) == 0;
}

std::string sNameOfHost() {
    char lName[256] = "";
    gethostname(lName, sizeof lName - 1);
    return lName[0] != '\0' ? lName : "localhost";
}

// Nothing if it is none.
std::optional<std::uint64_t> sBytesOf(const std::string& acrText) {
    constexpr char lUnits[] = "KMG";
    const std::size_t lDigits = std::min(acrText.find_first_not_of("0123456789"), acrText.size());
    const std::string lUnit = acrText.substr(lDigits);
    const char* const lpUnit = lUnit.empty() ? lUnits : strchr(lUnits, lUnit[0]);
    if (lDigits == 0 || lDigits > 18 || lUnit.size() > 1 || lpUnit == nullptr) {
        return std::nullopt;
    }
    const auto lShift = lUnit.empty() ? 0U : 10U * static_cast<unsigned int>(lpUnit - lUnits + 1);
    const std::uint64_t lNumber = std::stoull(acrText.substr(0, lDigits));
    constexpr auto lMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return lNumber <= lMost >> lShift ? std::optional(lNumber << lShift) : std::nullopt;
}

// ---- What is allowed: each returns what is wrong, or nothing ----

CLI::Validator sSeconds(double aLeast) {
    return {[aLeast](const std::string& acrText) {
                double lValue = 0;
                const bool lIsNumber = CLI::detail::lexical_cast(acrText, lValue);
                return lIsNumber && lValue >= aLeast && lValue <= sLongest
                           ? std::string()
                           : fmt::format("'{}' is not {} to {} seconds", acrText, aLeast, sLongest);
            },
            "SECONDS"};
}

std::string sCheckBytes(const std::string& acrText) {
    const std::optional<std::uint64_t> lBytes = sBytesOf(acrText);
    return lBytes && *lBytes >= sLeastBytes
               ? ""
               : "'" + acrText + "' is no number of bytes from 1M on, with K, M, G or none behind it";
}

std::string sCheckName(const std::string& acrText) {
    const bool lIsPlain =
        std::all_of(acrText.begin(), acrText.end(), [](char aSign) { return aSign > ' ' && aSign < 127; });
    return !acrText.empty() && acrText.size() <= 253 && lIsPlain ? "" : "'" + acrText + "' is no host's name";
}

// It is run without a shell of anybody's, so its path is whole.
std::string sCheckCommand(const std::string& acrText) {
    const std::string lProgram = acrText.substr(0, acrText.find(' '));
    struct stat lStatus {};
    return lProgram.starts_with('/') && stat(lProgram.c_str(), &lStatus) == 0 && S_ISREG(lStatus.st_mode) &&
                   access(lProgram.c_str(), X_OK) == 0
               ? ""
               : "'" + lProgram + "' is no program by its whole path";
}

std::string sCheckWindow(const std::string& acrText) {
    try {
        parseWindow(acrText);
        return "";
    } catch (const std::runtime_error& lrError) {
        return lrError.what();
    }
}

std::string sCheckRule(const std::string& acrText) {
    try {
        ZTSIncidentRules lRules = getDefaultRules();
        applyRule(lRules, acrText);
        return "";
    } catch (const std::runtime_error& lrError) {
        return lrError.what();
    }
}

void sDescribe(CLI::App& arProgram, Given& arGiven) {
    ZTSSnOptions& lrOptions = arGiven.mOptions;
    arProgram.set_version_flag("--version", "vrx-sn v" ZT_SENSOR_VERSION, "the version");
    arProgram.add_option("--dir", lrOptions.mDirectory, "the agent's runtime directory")
        ->type_name("DIR")
        ->envname("ZT_VRX_SENSOR_DIR");
    const auto lAdd = [&](const char* apName, auto& arValue, const char* apType, const char* apText) {
        return arProgram.add_option(apName, arValue, apText)->type_name(apType);
    };
    lAdd("--store", lrOptions.mStore, "FILE", "the history (/var/lib/vrx-sn/history.db)")
        ->check(checkNotEmpty);
    lAdd("--every", arGiven.mEvery, "SECONDS", "from fetch to fetch (1)")->check(sSeconds(0.05));
    lAdd("--ceiling", lrOptions.mCeiling, "BYTES", "up to so many bytes a record's data grows (4096)")
        ->check(CLI::Range(0U, 262144U));
    lAdd("--fold", arGiven.mFold, "SECONDS", "what repeats within that time is one row (10)")
        ->check(sSeconds(0));
    lAdd("--keep-days", lrOptions.mKeepDays, "N", "how long records are kept (90)")
        ->check(CLI::Range(1U, 36500U));
    lAdd("--keep-bytes", arGiven.mKeepBytes, "N", "how large the history grows, with K, M or G (8G)")
        ->check(sCheckBytes);
    lAdd("--names", lrOptions.mNames, "FILE", "what ports are called (/etc/vrx-sca/names, if it is there)");
    lAdd("--host", lrOptions.mHostName, "NAME", "the host whose history it is (its name)")->check(sCheckName);
    lAdd("--on-incident", lrOptions.mOnIncident, "COMMAND", "a program by its whole path, with its arguments")
        ->check(sCheckCommand);
    lAdd("--window", arGiven.mWindows, "WINDOW", "a maintenance window: WHAT FROM UNTIL [TEXT]")
        ->allow_extra_args(false)
        ->take_all()
        ->check(sCheckWindow);
    lAdd("--incident", arGiven.mRules, "RULE", "by which rules incidents are found: \"overload off\"")
        ->allow_extra_args(false)
        ->take_all()
        ->check(sCheckRule);
    lAdd("--config", arGiven.mConfig, "FILE", "the configuration (/etc/vrx-sca/vrx-sn.conf, if it is there)")
        ->configurable(false);
    lAdd("--root", lrOptions.mRoot, "DIR", "where sys and proc are looked for (/)")->check(checkNotEmpty);
}

ZTSSnOptions sFinish(Given& arGiven) {
    ZTSSnOptions& lrOptions = arGiven.mOptions;
    if (lrOptions.mDirectory.empty()) {
        throw ZTCServiceUsage("--dir or ZT_VRX_SENSOR_DIR has to name the agent's runtime directory");
    }
    const auto lToTime = [](double aSeconds) {
        return std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(aSeconds));
    };
    lrOptions.mEvery = lToTime(arGiven.mEvery);
    lrOptions.mFold = lToTime(arGiven.mFold);
    lrOptions.mKeepBytes = sBytesOf(arGiven.mKeepBytes).value();
    if (arGiven.mWindows.size() > sMostWindows) {
        throw ZTCServiceUsage(fmt::format("there are more than {} windows", sMostWindows));
    }
    for (const std::string& lrWindow : arGiven.mWindows) {
        lrOptions.mWindows.push_back(parseWindow(lrWindow));
    }
    for (const std::string& lrRule : arGiven.mRules) {
        applyRule(lrOptions.mRules, lrRule);
    }
    if (lrOptions.mHostName.empty()) {
        lrOptions.mHostName = sNameOfHost();
    }
    if (lrOptions.mNames.empty() && sIsThere(sDefaultNames)) {
        lrOptions.mNames = sDefaultNames;
    }
    return lrOptions;
}

// apConfig: the text of the configuration, null: of the file.
ZTSSnOptions sRead(const std::vector<std::string>& acrWords, const std::string* apConfig) {
    Given lGiven;
    CLI::App lProgram("Collects what vrx-sca hands over, all the time, and keeps the history.", "vrx-sn");
    sDescribe(lProgram, lGiven);
    lGiven.mOptions.mConfig = parseServiceOptions(lProgram, {sDefaultConfig, {sWindow, sIncident}}, acrWords,
                                                  lGiven.mConfig, apConfig);
    return sFinish(lGiven);
}

}  // namespace

ZTSSnOptions readSnOptions(const std::vector<std::string>& acrWords) {
    return sRead(acrWords, nullptr);
}

ZTSSnOptions parseSnOptions(const std::vector<std::string>& acrWords, const std::string& acrConfig) {
    return sRead(acrWords, &acrConfig);
}

std::string listFixedChanges(const ZTSSnOptions& acrBefore, const ZTSSnOptions& acrNow) {
    std::string lList;
    for (const auto& [lpName, lpMember] : sFixed) {
        if (acrBefore.*lpMember != acrNow.*lpMember) {
            lList += (lList.empty() ? "" : ", ") + std::string(lpName);
        }
    }
    return lList;
}

void keepFixed(const ZTSSnOptions& acrBefore, ZTSSnOptions& arNow) {
    for (const auto& [lpName, lpMember] : sFixed) {
        arNow.*lpMember = acrBefore.*lpMember;
    }
}
