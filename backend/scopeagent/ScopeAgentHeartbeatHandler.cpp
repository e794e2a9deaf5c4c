#include "ScopeAgentHeartbeatHandler.h"

#include "ScopeAgentSystem.h"
#include "ScopeWire.h"

namespace {

constexpr char sFile[] = "ScopeAgentHeartbeatHandler";
constexpr unsigned int sConditional[] = {0};

// Lives as long as the program: the threads of a process that ends may still use it.
const ZTCString& sThreadName() {
    static const ZTCString& srName = *new ZTCString("ScopeAgentHeartbeatThread");
    return srName;
}

}  // namespace

ZTCScopeAgentHeartbeatHandler::ZTCScopeAgentHeartbeatHandler(ZTCSystemInterface* apSystem,
                                                             unsigned int aTimeout)
    : ZTCThreadComponent(ScopeAgentHeartbeatThread, sThreadName(), apSystem),
      ZTCConditionWaitThreadComponent(ScopeAgentHeartbeatThread, sThreadName(), apSystem, sConditional,
                                      std::size(sConditional)),
      ZTCTimedWaitThreadComponent(ScopeAgentHeartbeatThread, sThreadName(), apSystem, aTimeout),
      ZTCConditionTimedWaitThreadComponent(ScopeAgentHeartbeatThread, sThreadName(), apSystem, sConditional,
                                           std::size(sConditional), aTimeout) {
    const ZTCTraceScope lTrace(sFile);
    const ZTCPointer<ZTCString> lSensorPidFile(
        makePointer<ZTCString>(apSystem->getRuntimeDirStr() + ZTWireSensorPidFile));
    const ZTCPointer<ZTCString> lOwnPidFile(makePointer<ZTCString>(apSystem->getPidFilePathStr()));
    mSetHeartbeat = makePointer<ZTCSetHeartbeat>(lOwnPidFile);
    mCheckHeartbeat = makePointer<ZTCCheckHeartbeat>(lSensorPidFile, apSystem);
}

void* ScopeAgentHeartbeatThread(void* lpArgs) {
    const ZTCTraceScope lTrace(sFile);
    ZT_ASSERT(0 != lpArgs, __LINE__, sFile);
    void** const lpBlock = static_cast<void**>(lpArgs);
    auto* const lpHandler =
        dynamic_cast<ZTCScopeAgentHeartbeatHandler*>(static_cast<ZTCThreadComponent*>(lpBlock[0]));
    auto* const lpSystem = dynamic_cast<ZTCScopeAgentSystem*>(static_cast<ZTCSystemInterface*>(lpBlock[1]));
    if (lpHandler == nullptr || lpSystem == nullptr) {
        Log(ZTLL_Abnormal, sFile, "Dynamic cast of base class failed, error. Exiting the thread abnormally.");
        return nullptr;
    }
    while (!lpHandler->isSetForExit()) {
        Log(ZTLL_Trace, sFile, "Going to wait for %u seconds", lpHandler->getTimeout());
        try {
            lpSystem->timedWait(sConditional[0], lpHandler->getTimeout());
        } catch (const ZTCTimeOutEx&) {
            Log(ZTLL_Trace, sFile, "The heartbeat's period is over");
        }
        if (lpHandler->isSetForExit()) {
            // An ordinary end, at the highest level so that it is always in the log.
            Log(ZTLL_Highest, sFile, "Exiting Heartbeat Handler Thread as it is marked for exit.");
            return nullptr;
        }
        Log(ZTLL_Trace, sFile, "Updating the status");
        try {
            lpHandler->getSetHeartbeat().SetHeartbeat();
        } catch (const ZTCClibUtimeFailedEx&) {
            Log(ZTLL_Highest, sFile, "Failed in updating the status");
            lpSystem->makeThreadsToExit();
            return nullptr;
        }
        Log(ZTLL_Trace, sFile, "Checking the status of Sensor");
        try {
            lpHandler->getCheckHeartbeat().CheckStatus();
            continue;
        } catch (const ZTCHeartbeatFailedEx&) {
            Log(ZTLL_Notice, sFile, "Checking the status of the actual sensor process/service");
        }
        try {
            lpHandler->getCheckHeartbeat().checkProcess();
            Log(ZTLL_Notice, sFile, "Sensor process still running, but not updating the heartbeat");
        } catch (const ZTCClibGetProcStatusFailedEx&) {
            Log(ZTLL_Highest, sFile, "Failed in getting the status of Sensor");
            lpSystem->makeThreadsToExit();
            return nullptr;
        }
    }
    return nullptr;
}
