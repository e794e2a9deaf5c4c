// The command line of a system: what the options that the framework knows mean, and what they set.
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "Settings.h"
#include "System.h"

namespace {

constexpr char sFile[] = "CommandLine";

constexpr unsigned int sMaxLogCode = 255;
constexpr unsigned int sMaxHbTimeout = 86400;  // a day
constexpr char sLogLimitVariable[] = "ZT_LOG_LIMIT";
constexpr unsigned int sLogLimitDefault = 64;
constexpr unsigned int sMaxLogLimit = 1024 * 1024;  // MiB: a terabyte

using Setting = ZTCPointer<ZTCMultiType>;

Setting sFlagOf(const char* /*apValue*/) {
    return makePointer<ZTCMultiType>(true);
}

// An empty pointer from here on means: the value is not valid.

Setting sBooleanOf(const char* apValue) {
    const bool lTrue = ClibStrcmp(apValue, "true") == 0;
    if (!lTrue && ClibStrcmp(apValue, "false") != 0) {
        return {};
    }
    return makePointer<ZTCMultiType>(lTrue);
}

std::optional<unsigned int> sRead(const char* apValue, unsigned int aLeast, unsigned int aMost) {
    unsigned int lNumber = 0;
    const char* const lpEnd = apValue + strlen(apValue);
    const auto lParsed = std::from_chars(apValue, lpEnd, lNumber);
    if (lParsed.ec != std::errc() || lParsed.ptr != lpEnd || lNumber < aLeast || lNumber > aMost) {
        return {};
    }
    return lNumber;
}

Setting sNumberOf(const char* apValue, unsigned int aLeast, unsigned int aMost) {
    const std::optional<unsigned int> lNumber = sRead(apValue, aLeast, aMost);
    return lNumber ? makePointer<ZTCMultiType>(*lNumber) : Setting();
}

Setting sLogCodeOf(const char* apValue) {
    return sNumberOf(apValue, 0, sMaxLogCode);
}

Setting sHbTimeoutOf(const char* apValue) {
    return sNumberOf(apValue, 1, sMaxHbTimeout);
}

// Made absolute, because a daemon leaves the directory that it was started in.
Setting sPathOf(const char* apValue) {
    char lPath[PATH_MAX]{};
    if (apValue[0] != '/' && getcwd(lPath, sizeof lPath) == nullptr) {
        return {};
    }
    const std::string lWhole = apValue[0] == '/' ? std::string(apValue) : std::string(lPath) + "/" + apValue;
    if (apValue[0] == '\0' || lWhole.size() >= PATH_MAX) {
        return {};
    }
    return makePointer<ZTCMultiType>(lWhole.c_str());
}

// What the framework does with an option. The setting keeps the option's text as its name.
struct OptionRow {
    char mLetter;
    const char* mpValidValue;  // as an error names it; null: none is taken
    Setting (*mpRead)(const char* apValue);
};

constexpr OptionRow sOptionRows[] = {
    {'h', nullptr, sFlagOf},
    {'v', nullptr, sFlagOf},
    {'s', nullptr, sFlagOf},
    {'D', "true or false", sBooleanOf},
    {'l', "a file name", sPathOf},
    {'d', "a number from 0 to 255", sLogCodeOf},
    {'c', "a file name", sPathOf},
    {'S', nullptr, sFlagOf},
    {'b', "a number of seconds from 1 to 86400", sHbTimeoutOf},
};

const OptionRow* sRowOf(int aLetter) {
    for (const OptionRow& lrRow : sOptionRows) {
        if (lrRow.mLetter == aLetter) {
            return &lrRow;
        }
    }
    return nullptr;
}

}  // namespace

void ZTCSystem::addArgDesc(unsigned char aKind, const char* apOption) {
    ZTCCmdLineArgDesc lDesc{};
    lDesc.mKind = aKind;
    strncpy(lDesc.mOption, apOption, sizeof lDesc.mOption - 1);
    orNoMemory([&] { mArgDescs.push_back(lDesc); });
}

void ZTCSystem::setCmdLineArgDescs() {}

void ZTCSystem::processCommandLine(int argc, char** argv) {
    const ZTCTraceScope lTrace(sFile);
    setCmdLineArgDescs();
    std::string lOptions =
        "+:";  // ends at the first word that is no option; tells a missing value from a bad option
    for (const ZTCCmdLineArgDesc& lrDesc : mArgDescs) {
        lOptions += lrDesc.mOption[1];
        lOptions += lrDesc.mKind == 2 ? ":" : "";
    }
    char lText[512];
    optind = 0;
    opterr = 0;
    for (int lLetter = 0; (lLetter = getopt(argc, argv, lOptions.c_str())) != -1;) {
        if (lLetter == ':') {
            const OptionRow* const lpRow = sRowOf(optopt);
            snprintf(lText, sizeof lText, "option -%c needs a value: %s", optopt,
                     lpRow != nullptr && lpRow->mpValidValue != nullptr ? lpRow->mpValidValue : "any");
            exitOnBadOption(lText);
        }
        if (lLetter == '?') {
            snprintf(lText, sizeof lText, "unknown option -%c (-h lists the options)", optopt);
            exitOnBadOption(lText);
        }
        takeOption(static_cast<char>(lLetter), optarg);
    }
    if (optind < argc) {
        snprintf(lText, sizeof lText, "unexpected argument '%.200s' (-h lists the options)", argv[optind]);
        exitOnBadOption(lText);
    }
    applySettings();
}

void ZTCSystem::takeOption(char aLetter, const char* apValue) {
    const OptionRow* const lpRow = sRowOf(aLetter);
    if (lpRow == nullptr) {
        return;  // the system's own
    }
    const Setting lSetting = lpRow->mpRead(apValue);
    if (!(lSetting != 0)) {
        char lText[512];
        snprintf(lText, sizeof lText, "option -%c: '%.200s' is not %s", aLetter, apValue,
                 lpRow->mpValidValue);
        exitOnBadOption(lText);
    }
    const char lName[] = {'-', aLetter, '\0'};
    setSetting(lName, lSetting);
    if (aLetter == 'h' || aLetter == 'v') {
        applySettings();  // the help shows what the options before it have set
        aLetter == 'h' ? displayHelpAndExit() : displayVersionAndExit();
    }
}

void ZTCSystem::exitOnBadOption(const char* apText) {
    discardLog();
    fprintf(stderr, "%s: %s\n", mName.get(), apText);
    exit(1);
}

void ZTCSystem::setSetting(const char* apName, const Setting& acrValue) {
    const ZTCString lName(apName);
    const ZTCScopedLock lLock(mMutex);
    if (mSettings.contains(lName)) {
        mSettings.get(lName) = acrValue;
    } else {
        mSettings.insert(lName, acrValue);
    }
}

const ZTCMultiType* ZTCSystem::findSetting(const char* apName) {
    const ZTCString lName(apName);
    const ZTCScopedLock lLock(mMutex);
    return mSettings.contains(lName) ? mSettings.get(lName).get() : nullptr;
}

void ZTCSystem::applySettings() {
    const ZTCTraceScope lTrace(sFile);
    if (const ZTCMultiType* const lpLogCode = findSetting("-d")) {
        setLogCode(lpLogCode->getNumber());
    }
    if (const ZTCMultiType* const lpSeconds = findSetting("-b")) {
        setHbTimeout(lpSeconds->getNumber());
    }
    if (const ZTCMultiType* const lpLogFile = findSetting("-l")) {
        setLogFilePath(lpLogFile->getText().get());
    }
    if (const ZTCMultiType* const lpConfFile = findSetting("-c")) {
        setConfFilePathStr(lpConfFile->getText());
    }
    const char* const lpLimit = getenv(sLogLimitVariable);
    const bool lIsSet = lpLimit != nullptr && *lpLimit != '\0';
    const auto lLimit = lIsSet ? sRead(lpLimit, 0, sMaxLogLimit) : sLogLimitDefault;
    if (!lLimit) {
        char lText[512];
        snprintf(lText, sizeof lText, "%s: '%.200s' is not a number of MiB from 0 to %u", sLogLimitVariable,
                 lpLimit, sMaxLogLimit);
        exitOnBadOption(lText);
    }
    setLogLimit(*lLimit);
}

bool ZTCSystem::isDaemonWanted() {
    const ZTCMultiType* const lpDaemon = findSetting("-D");
    return lpDaemon == nullptr || lpDaemon->getBool();
}

bool ZTCSystem::isStopWanted() {
    return findSetting("-s") != nullptr;
}

// The log is opened behind it: where its disk stands still, only this process has to wait for that.
void ZTCSystem::stopRunningInstanceAndExit() {
    int lStatus = 0;
    try {
        killRunningInstance();
    } catch (const ZTCException& lrException) {
        Log(ZTLL_Warning, sFile, "The running instance was not stopped: %s", lrException.what());
        fprintf(stderr, "%s: %s\n", mName.get(), lrException.what());
        lStatus = 1;
    }
    try {
        openLog();
    } catch (const ZTCException&) {
        discardLog();  // what there is to tell has been shown
    }
    leaveProcess(lStatus);
}

void ZTCSystem::processCommandLineArguments() {
    const ZTCTraceScope lTrace(sFile);
    if (findSetting("-c") != nullptr) {
        processConfigFile();
    }
}

void ZTCSystem::processConfigFile() {
    throw ZTCNotImplementedEx("Not Implemented");
}

void ZTCSystem::displayVersionAndExit() {
    discardLog();
    printf("%s v%s", mName.get(), mVersion->getText().get());
    exit(0);
}

void ZTCSystem::displayHelpAndExit() {
    discardLog();
    displayHelp();
    exit(0);
}

void ZTCSystem::displayHelp() {}
