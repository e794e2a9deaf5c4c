#include "ScopeAgentCommandHandler.h"

#include "ScopeAgentProtocolHandler.h"
#include "ScopeAgentSystem.h"

namespace {

constexpr char sFile[] = "ScopeAgentCommandHandler";
constexpr char sProcedure[] = "CommandHandlerThreadProcedure";
constexpr unsigned int sCommandReader = 0;
constexpr unsigned int sResponseWriter = 0;

void sReadCommand(ZTCScopeAgentSystem& arSystem, ZTCPointer<ZTCBuffer>& arCommand) {
    arSystem.getProtocolHelper()->read(arSystem.getReader(sCommandReader), arCommand, 0);
}

void sProcessCommand(ZTCScopeAgentSystem& arSystem, const ZTCPointer<ZTCBuffer>& acrCommand,
                     ZTCPointer<ZTCBuffer>& arResponse) {
    arSystem.getScopeAgentProtocolHandler()->process(acrCommand, arResponse);
}

void sOutputResponse(ZTCScopeAgentSystem& arSystem, const ZTCPointer<ZTCBuffer>& acrResponse) {
    arSystem.getProtocolHelper()->write(arSystem.getWriter(sResponseWriter), acrResponse, 0);
}

void sReadAndProcessCommand(ZTCScopeAgentSystem& arSystem) {
    const ZTCTraceScope lTrace(sFile);
    ZTCPointer<ZTCBuffer> lCommand;
    sReadCommand(arSystem, lCommand);
    ZTAddToStatistic(ZTS_Commands);
    ZTCPointer<ZTCBuffer> lResponse;
    try {
        sProcessCommand(arSystem, lCommand, lResponse);
    } catch (const ZTCShutDownEx&) {
        sOutputResponse(arSystem, lResponse);
        throw;
    }
    sOutputResponse(arSystem, lResponse);
    arSystem.getScopeAgentProtocolHandler()->releaseFetchedData();
}

void sServe(ZTCScopeAgentSystem& arSystem, const ZTCScopeAgentCommandHandler& acrHandler) {
    while (!acrHandler.isSetForExit()) {
        LogBy(sProcedure, ZTLL_Information, sFile, "Waiting for control availability...");
        try {
            arSystem.waitForActivity(sCommandReader, acrHandler.getTimeout());
        } catch (const ZTCTimeOutEx&) {
            continue;
        }
        if (acrHandler.isSetForExit()) {
            LogBy(sProcedure, ZTLL_Information, sFile, "Command handler thread is set for exit ...");
            return;
        }
        sReadAndProcessCommand(arSystem);
    }
}

}  // namespace

ZTCScopeAgentCommandHandler::ZTCScopeAgentCommandHandler(ZTCSystemInterface* apSystem, unsigned int aTimeout)
    : ZTCThreadComponent(CommandHandlerThreadProcedure, "ScopeAgentCommandHandler", apSystem),
      ZTCTimedWaitThreadComponent(CommandHandlerThreadProcedure, "ScopeAgentCommandHandler", apSystem,
                                  aTimeout) {
    const ZTCTraceScope lTrace(sFile);
}

void* CommandHandlerThreadProcedure(void* lpArgs) {
    const ZTCTraceScope lTrace(sFile);
    ZT_ASSERT(0 != lpArgs, __LINE__, sFile);
    void** const lpBlock = static_cast<void**>(lpArgs);
    auto* const lpScopeAgentSystem =
        dynamic_cast<ZTCScopeAgentSystem*>(static_cast<ZTCSystemInterface*>(lpBlock[1]));
    ZT_ASSERT(0 != lpScopeAgentSystem, __LINE__, sFile);
    auto* const lCommandHandler =
        dynamic_cast<ZTCScopeAgentCommandHandler*>(static_cast<ZTCThreadComponent*>(lpBlock[0]));
    ZT_ASSERT(0 != lCommandHandler, __LINE__, sFile);
    try {
        sServe(*lpScopeAgentSystem, *lCommandHandler);
    } catch (const ZTCQuitThreadEx& lrException) {
        // A kind of ZTCHaltEx that ends this thread alone; the misspelling is the message's own.
        Log(ZTLL_Highest, sFile, "Exiting ScopeAgentCommandHnadler thread (thread-only): %s",
            lrException.what());
    } catch (const ZTCException& lrException) {
        Log(ZTLL_Highest, sFile, "Exiting ScopeAgentCommandHandler thread with error : %s",
            lrException.what());
        lpScopeAgentSystem->makeThreadsToExit();
    }
    return nullptr;
}
