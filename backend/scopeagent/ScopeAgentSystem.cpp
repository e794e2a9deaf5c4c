#include "ScopeAgentSystem.h"

#include <climits>
#include <iostream>

#include "Clib.h"
#include "LibdfcCallbacks.h"
#include "NamedPipeReaderServer.h"
#include "NamedPipeWriterServer.h"
#include "ScopeAgentCommandHandler.h"
#include "ScopeAgentEventFacts.h"
#include "ScopeAgentHeartbeatHandler.h"
#include "ScopeAgentStatistics.h"
#include "ScopeWire.h"
#include "Settings.h"

namespace {

constexpr char sFile[] = "ScopeAgentSystem";
constexpr char sRuntimeDirVariable[] = "ZT_VRX_SENSOR_DIR";
constexpr unsigned char sCommandPipeMode = 2;
constexpr unsigned char sOutputPipeMode = 1;

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
    OsReturnLargeBlocks();  // what a large fetch needs is not kept for the next one
    sCreateRtdir();
}

// An option: its kind (1: a flag, 2: a value follows) and its text.
struct OptionRow {
    unsigned char mKind;
    const char* mpOption;
};
constexpr OptionRow sOptions[] = {{1, "-h"}, {1, "-v"}, {1, "-s"}, {2, "-D"}, {2, "-l"},
                                  {2, "-d"}, {2, "-c"}, {1, "-S"}, {2, "-b"}};

// Makes and opens the pipe of a new server, and puts that into the next slot.
template <class Server, class Interface>
void sMakeServer(ZTCIdTable<Interface>& arTable, const ZTCString& acrPath, unsigned char aMode,
                 const ZTCLogFormat<>& acrOpening) {
    auto* const lpServer = new (std::nothrow) Server(acrPath, aMode);
    const ZTCPointer<Interface> lServer(lpServer, ZTPST_Individual, ZTPMT_New);
    lpServer->create(0);
    Log(ZTLL_Trace, sFile, acrOpening);
    lpServer->open(0);
    arTable.append(lServer);
}

// Closes and removes the pipe of the server in a slot; one that holds something else, or nothing, is passed
// over. A thread that was left behind may use it yet: then it is only removed.
template <class Server, class Interface>
void sDestroyServer(ZTCIdTable<Interface>& arTable, bool aIsLeft) {
    if (arTable.numberOfElements() == 0) {
        return;
    }
    auto* const lpServer = dynamic_cast<Server*>(arTable[0].get());
    if (lpServer == nullptr) {
        return;
    }
    if (!aIsLeft) {
        lpServer->close(0);
    }
    lpServer->destroy(0);
}

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
    mCommandPipePath = getRuntimeDirStr() + ZTWireCommandPipe;
    mOutputPipePath = getRuntimeDirStr() + ZTWireOutputPipe;
    setPidFilePathStr(getRuntimeDirStr() + ZTWirePidFile);

    ZTCSystem::preInit();
    Log(ZTLL_Information, sFile, "Creating instance manager");
    mInstanceManager = makePointer<ZTCProcessInstanceManager>(getPidFilePathStr());
    Log(ZTLL_Information, sFile, "Creating Version...");
    mVersion = makePointer<ZTCVersion>(2U, 3U, 0U, 5U);
}

void ZTCScopeAgentSystem::init() {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Information, sFile, "Performing ScopeAgent system data initialization");
    ZTCSystem::init();
    showStatistics();
    initLibdfc();
    initConditionals();
    initCommandIpc();
    initOutputIpc();
    initScopeAgentHandlers();
    initThreadComponents();
}

void ZTCScopeAgentSystem::showStatistics() {
    ZTNameStatistics();
    ZTSetStatistic(ZTS_HeldBytesLimit, TotalDataLimit);
    const auto lRefresh = [](void* apSystem) {
        static_cast<ZTCScopeAgentSystem*>(apSystem)->refreshStatistics();
    };
    mStatisticsFile.show((getRuntimeDirStr() + ZTWireStatistics).get(), lRefresh, this);
}

void ZTCScopeAgentSystem::initConditionals() {
    Log(ZTLL_Information, sFile, "Creating HeartbeatHandler Conditional...");
    mConditionals.append(makePointer<ZTCConditional>());
    Log(ZTLL_Information, sFile, "Creating CommandHandler Conditional...");
    mConditionals.append(makePointer<ZTCConditional>());
}

void ZTCScopeAgentSystem::initCommandIpc() {
    Log(ZTLL_Trace, sFile, "Creating ScopeAgent Command Reader IPC...");
    sMakeServer<ZTCNamedPipeReaderServer>(mReaders, mCommandPipePath, sCommandPipeMode,
                                          "Opening ScopeAgent Command Reader IPC...");
}

void ZTCScopeAgentSystem::initOutputIpc() {
    Log(ZTLL_Information, sFile, "Creating Output IPC...");
    sMakeServer<ZTCNamedPipeWriterServer>(mWriters, mOutputPipePath, sOutputPipeMode,
                                          "Opening Response Pipe Writer Server...");
}

void ZTCScopeAgentSystem::initScopeAgentHandlers() {
    Log(ZTLL_Trace, sFile, "Creating ScopeAgent Protocol Handler...");
    mProtocolHandler = makePointer<ZTCScopeAgentProtocolHandler>(this);
    Log(ZTLL_Trace, sFile, "Creating Scope Event Catalogue...");
    mEventCatalogue = makePointer<ZTCScopeAgentEventCatalogue>();
}

void ZTCScopeAgentSystem::initThreadComponents() {
    ZTCSystemInterface* const lpSystem = this;
    ZT_ASSERT(lpSystem != __null, __LINE__, sFile);
    initHeartbeatHandler();
    initCommandHandler();
}

void ZTCScopeAgentSystem::initHeartbeatHandler() {
    unsigned int lTimeout = 0;
    getHbTimeout(lTimeout);
    Log(ZTLL_Notice, sFile, "Creating the Heartbeat Handler Thread object...Timeout = %u", lTimeout);
    mThreadComponents.append(
        makePointerAs<ZTCThreadComponent, ZTCScopeAgentHeartbeatHandler>(this, lTimeout));
}

void ZTCScopeAgentSystem::initCommandHandler() {
    Log(ZTLL_Information, sFile, "Creating Command Handler Thread object...");
    mThreadComponents.append(
        makePointerAs<ZTCThreadComponent, ZTCScopeAgentCommandHandler>(this, ZTCommandWaitSeconds));
}

void ZTCScopeAgentSystem::destroy() {
    const ZTCTraceScope lTrace(sFile);
    const bool lHaveLeft = ZTCLibdfcAbs::waitForCallbacks();
    reportLosses();
    if (lHaveLeft) {
        finishStatistics();
    }
    mStatisticsFile.withdraw();
    destroyCommandIpc();
    destroyOutputIpc();
    Log(ZTLL_Trace, sFile, "Performing common system data destruction");
    ZTCSystem::destroy();
}

void ZTCScopeAgentSystem::abandonStart() {
    mStatisticsFile.withdraw();
    ZTCSystem::abandonStart();
}

void ZTCScopeAgentSystem::postDestroy() {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Trace, sFile, "Performing common system destruction");
    ZTCSystem::postDestroy();
}

void ZTCScopeAgentSystem::destroyCommandIpc() {
    Log(ZTLL_Information, sFile, "Closing and Destroying Command Pipe...");
    sDestroyServer<ZTCNamedPipeReaderServer>(mReaders, hasLeftThreads());
}

void ZTCScopeAgentSystem::destroyOutputIpc() {
    Log(ZTLL_Information, sFile, "Closing and Destroying Output Pipe...");
    sDestroyServer<ZTCNamedPipeWriterServer>(mWriters, hasLeftThreads());
}

void ZTCScopeAgentSystem::initLibdfc() {
    const ZTCTraceScope lTrace(sFile);
    mLibdfc = makePointer<ZTCLibdfcAbs>();
    try {
        mLibdfc->LIBDFC_LoadLibrary();
        mLibdfc->LIBDFC_Init();
    } catch (const ZTCNotFoundEx&) {
        Log(ZTLL_Notice, sFile, "No Libdfc Found or Disabled.. ScopeAgent would exit");
        throw ZTCExitConditionEx("No Libdfc found");
    }
    const unsigned int lCount = mLibdfc->LIBDFC_GetNumberOfAdapters();
    if (lCount == 0) {
        refuseLibdfc("No VRX Adapters found.. ScopeAgent would exit");
    }
    if (!mLibdfc->LIBDFC_IsZtapiSupported()) {
        refuseLibdfc("Old incompatible driver found.. ScopeAgent would exit");
    }
    for (unsigned int lBoard = 0; lBoard < lCount; ++lBoard) {
        ZTCPointer<ZTCWorldWideName> lNode(makePointer<ZTCWorldWideName>());
        ZTCPointer<ZTCWorldWideName> lPort(makePointer<ZTCWorldWideName>());
        mLibdfc->LIBDFC_GetAdapterInfo(lBoard, lNode, lPort);
        Log(ZTLL_Notice, sFile, "Discovered VRX initiator <%s, %s>", lNode->getStringForm().get(),
            lPort->getStringForm().get());
        mInitiators.insert(lBoard, makePointer<ZTCScopeAgentInitiator>(lBoard, lNode, lPort));
    }
    resetRecordLists();
}

void ZTCScopeAgentSystem::refuseLibdfc(const ZTCLogFormat<>& acrReason) {
    mLibdfc->LIBDFC_Close();
    mLibdfc->LIBDFC_FreeLibrary();
    Log(ZTLL_Notice, sFile, acrReason);
    throw ZTCExitConditionEx(acrReason.mpText);
}

void ZTCScopeAgentSystem::closeLibdfc() {
    const ZTCTraceScope lTrace(sFile);
    mLibdfc->LIBDFC_Close();
    mLibdfc->LIBDFC_FreeLibrary();
}

void ZTCScopeAgentSystem::makeThreadsToExit() {
    ZTCLibdfcAbs::shutCallbacks();
    ZTCSystem::makeThreadsToExit();
}

void ZTCScopeAgentSystem::addFcTarget(const ZTCScopeAgentTarget& acrTarget) {
    const ZTCTraceScope lTrace(sFile);
    if (mCollection.addFcTarget(acrTarget)) {
        Log(ZTLL_Notice, sFile, "Registered Target <%s, %s, %u>",
            ZTCWorldWideName::Text(acrTarget.getNodeName()).get(),
            ZTCWorldWideName::Text(acrTarget.getPortName()).get(), acrTarget.getFcAddress());
    }
}

void ZTCScopeAgentSystem::addWwpnTarget(const ZTCScopeAgentTarget& acrTarget) {
    const ZTCTraceScope lTrace(sFile);
    if (mCollection.addWwpnTarget(acrTarget)) {
        Log(ZTLL_Notice, sFile, "Added Target <%s, %s, %u> to Wwpn Target Map",
            ZTCWorldWideName::Text(acrTarget.getNodeName()).get(),
            ZTCWorldWideName::Text(acrTarget.getPortName()).get(), acrTarget.getFcAddress());
    }
}

void ZTCScopeAgentSystem::countLost(ZTEScopeAgentLoss aLoss, unsigned int aCategory,
                                    unsigned int aSubcategory, unsigned int aOccurrences) {
    const ZTSScopeEventFacts* const lpFacts = ZTFindScopeEventFacts(aCategory & 0xff, aSubcategory & 0xff);
    if (lpFacts != nullptr) {
        mCollection.countLost(lpFacts->mKind, aOccurrences);
    }
    ZTCScopeAgentLosses::count(aLoss, aOccurrences);
}

void ZTCScopeAgentSystem::refreshStatistics() {
    ZTSetStatistic(ZTS_CallbacksInside, LibdfcGate().countInside());
    mCollection.refreshStatistics();
}

// Whoever reads the time is to find all else as it stays.
void ZTCScopeAgentSystem::finishStatistics() {
    mCollection.refreshStatistics();
    ZTStatistic(ZTS_EndedTime).store(ztlog::now(), std::memory_order_release);
}

bool ZTCScopeAgentSystem::isTotalLimitOnScopeDataReached() const {
    const unsigned int lSize = mCollection.getSize();
    if (lSize < TotalDataLimit) {
        return false;
    }
    Log(ZTLL_Notice, sFile, "Current size = %u", lSize);
    return true;
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
    throw ZTCNotImplementedEx("Not Implemented");
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
