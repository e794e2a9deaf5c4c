#include "ScopeAgentSystem.h"

#include <climits>
#include <iostream>

#include "Clib.h"
#include "Settings.h"

namespace {

constexpr char sFile[] = "ScopeAgentSystem";
constexpr char sRuntimeDirVariable[] = "ZT_VRX_SENSOR_DIR";
constexpr char sPidFileName[] = "/vrx-sca.pid";

constexpr unsigned int sMaxRuntimeDir = PATH_MAX;
constinit char sRuntimeDir[sMaxRuntimeDir] = "";

void sCreateRtdir() {
    constexpr int lMode = 0x777;  // hexadecimal: the bits are octal 3567
    Log(ZTLL_Trace, sFile, "Trying to create '%s'", sRuntimeDir);
    try {
        ClibMkdir(sRuntimeDir, lMode);
    } catch (const ZTCExistsEx&) {
        Log(ZTLL_Warning, sFile, "'%s' already exists... continuing", sRuntimeDir);
    }
}

// The directory made here is not the one that is used: that one must be there, made by who runs the agent.
void sInitGlobals() {
    ClibStrcpy(sRuntimeDir, "/tmp");
    setLogCode(ZTLogCodeDefault);
    setHbTimeout(ZTHbTimeoutDefault);
    sCreateRtdir();
}

// An option: its kind (1: a flag, 2: a value follows) and its text.
struct OptionRow {
    unsigned char mKind;
    const char* mpOption;
};
constexpr OptionRow sOptions[] = {{1, "-h"}, {1, "-v"}, {1, "-s"}, {2, "-D"}, {2, "-l"},
                                  {2, "-d"}, {2, "-c"}, {1, "-S"}, {2, "-b"}};

}  // namespace

ZTCScopeAgentSystem::ZTCScopeAgentSystem(const ZTCString& acrName) : ZTCSystem(acrName) {}

void ZTCScopeAgentSystem::preInit() {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Information, sFile, "Performing ScopeAgent system initialization");
    sInitGlobals();

    const bool lIsSet = getenv(sRuntimeDirVariable) != nullptr;
    ZT_ASSERT_NAMED(lIsSet, "pVrxSensorDir!=NULL", __LINE__, sFile);
    char lVrxSensorDir[sMaxRuntimeDir];
    ClibGetenv(sRuntimeDirVariable, lVrxSensorDir);
    setRuntimeDirStr(lVrxSensorDir);
    setPidFilePathStr(getRuntimeDirStr() + sPidFileName);

    ZTCSystem::preInit();
    Log(ZTLL_Information, sFile, "Creating instance manager");
    mInstanceManager = makePointer<ZTCProcessInstanceManager>(getPidFilePathStr());
    Log(ZTLL_Information, sFile, "Creating Version...");
    mVersion = makePointer<ZTCVersion>(2U, 3U, 0U, 5U);
}

void ZTCScopeAgentSystem::setCmdLineArgDescs() {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Information, sFile, "Setting Command line argument descs");
    for (const OptionRow& lrOption : sOptions) {
        addArgDesc(lrOption.mKind, lrOption.mpOption);
    }
}

void ZTCScopeAgentSystem::processConfigFile() {
    const ZTCTraceScope lTrace(sFile);
    throw ZTCNotImplementedEx("Not Implemented", 13);
}

// -l is an option but not told of here, and -S is told of but does nothing: both on purpose.
void ZTCScopeAgentSystem::displayHelp() {
    unsigned int lLogCode = 0;
    unsigned int lHbTimeout = 0;
    getLogCode(lLogCode);
    getHbTimeout(lHbTimeout);
    std::cout << getName().get() << " -[hvsDldc] VALUE" << std::endl
              << "  -h             : Shows this help" << std::endl
              << "  -v             : Prints version" << std::endl
              << "  -s             : Shut down running ScopeAgent" << std::endl
              << "  -D true|false  : Run as daemon (default: true)" << std::endl
              << "  -d {number}    : Debug level - OR of numbers from 0-7 (default: " << lLogCode << ")"
              << std::endl
              << "  -c {filename}  : Specify config file (default: " << getConfFilePathStr().get() << ")"
              << std::endl
              << "  -S             : Run ScopeAgent in Sniffer Mode" << std::endl
              << "  -b {number}    : Heartbeat Timeout (default: " << lHbTimeout << ")" << std::endl;
}
