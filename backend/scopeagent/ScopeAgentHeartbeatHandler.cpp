#include "ScopeAgentHeartbeatHandler.h"

#include "ScopeAgentSystem.h"

namespace {

constexpr char sFile[] = "ScopeAgentHeartbeatHandler";
constexpr char sSensorPidFileName[] = "/vrx-sn.pid";
constexpr unsigned int sConditional[] = {0};

// Lives as long as the program: the threads of a process that ends may still use it.
const ZTCString& threadName() {
    static const ZTCString& srName = *new ZTCString("ScopeAgentHeartbeatThread");
    return srName;
}

// Whether the agent goes on: its own heartbeat is set, the sensor's has been seen or its process is there.
bool sBeat(ZTCScopeAgentHeartbeatHandler& arHandler) {
    Log(ZTLL_Trace, sFile, "Updating the status");
    try {
        arHandler.getSetHeartbeat().SetHeartbeat();
    } catch (const ZTCClibUtimeFailedEx&) {
        Log(ZTLL_Highest, sFile, "Failed in updating the status");
        return false;
    }
    Log(ZTLL_Trace, sFile, "Checking the status of Sensor");
    try {
        arHandler.getCheckHeartbeat().CheckStatus();
        return true;
    } catch (const ZTCHeartbeatFailedEx&) {
        Log(ZTLL_Notice, sFile, "Checking the status of the actual sensor process/service");
    }
    try {
        arHandler.getCheckHeartbeat().checkProcess();
    } catch (const ZTCClibGetProcStatusFailedEx&) {
        Log(ZTLL_Highest, sFile, "Failed in getting the status of Sensor");
        return false;
    }
    Log(ZTLL_Notice, sFile, "Sensor process still running, but not updating the heartbeat");
    return true;
}

}  // namespace

ZTCScopeAgentHeartbeatHandler::ZTCScopeAgentHeartbeatHandler(ZTCSystemInterface* apSystem,
                                                             unsigned int aTimeout)
    : ZTCThreadComponent(ScopeAgentHeartbeatThread, threadName(), apSystem),
      ZTCConditionWaitThreadComponent(ScopeAgentHeartbeatThread, threadName(), apSystem, sConditional,
                                      std::size(sConditional)),
      ZTCTimedWaitThreadComponent(ScopeAgentHeartbeatThread, threadName(), apSystem, aTimeout),
      ZTCConditionTimedWaitThreadComponent(ScopeAgentHeartbeatThread, threadName(), apSystem, sConditional,
                                           std::size(sConditional), aTimeout) {
    const ZTCTraceScope lTrace(sFile);
    const ZTCPointer<ZTCString> lSensorPidFile(
        makePointer<ZTCString>(apSystem->getRuntimeDirStr() + sSensorPidFileName));
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
        if (!sBeat(*lpHandler)) {
            lpSystem->makeThreadsToExit();
            return nullptr;
        }
    }
    return nullptr;
}
