#include "Log.h"
#include "ScopeAgentEventFacts.h"
#include "ScopeAgentEvents.h"
#include "ScopeAgentSystem.h"
#include "SystemMain.h"

namespace {

constexpr char sFile[] = "ScopeAgentCallbacks";

// The events that come by mask are stamped with the codes of their kinds.
constexpr const ZTSScopeEventFacts& sLink = ZTScopeEventFacts[ZTSEK_BoardLinkatte];
constexpr const ZTSScopeEventFacts& sRscn = ZTScopeEventFacts[ZTSEK_ElsRscn];
constexpr const ZTSScopeEventFacts& sTemperature = ZTScopeEventFacts[ZTSEK_BoardTemperature];

using BadBoardText = ZTCLogFormat<unsigned int>;

ZTCScopeAgentSystem& sSystem() {
    return *static_cast<ZTCScopeAgentSystem*>(getSystemObject());
}

// Whether an event goes on: it does not at the limit, or when its board is not known. What is logged here
// names the callback, which gives the text about the board.
bool sIsLetIn(ZTCScopeAgentSystem& arSystem, unsigned int aBoard, unsigned int aCategory,
              unsigned int aSubcategory, const BadBoardText& acrBadBoard) {
    if (arSystem.isTotalLimitOnScopeDataReached()) {
        LogBy(acrBadBoard.mpFunction, ZTLL_Notice, sFile,
              "Ignoring the event as the limit on the total Event Data");
        arSystem.countLost(ZTSAL_Limit, aCategory, aSubcategory);
        return false;
    }
    if (!arSystem.isKnownBoard(aBoard)) {
        Log(ZTLL_Notice, sFile, acrBadBoard, aBoard);
        arSystem.countLost(ZTSAL_UnknownBoard, aCategory, aSubcategory);
        return false;
    }
    return true;
}

// Nothing of ours is thrown on: the caller is the vendor library.
void sProcess(ZTCScopeAgentSystem& arSystem, ZTCLogMask aMask, const char* apCallback,
              const ZTCCallbackEventData& acrEvent) {
    try {
        sProcessScopeEvent(arSystem, aMask, acrEvent);
    } catch (const ZTCException& lrException) {
        arSystem.countLost(ZTSAL_NoMemory, acrEvent.mCategory, acrEvent.mSubcategory);
        LogBy(apCallback, ZTLL_Error, sFile, "Error: %s, processing event callback", lrException.what());
    }
}

// The name of the board's port, for an event that comes without one.
const unsigned char* sPortOf(const ZTCScopeAgentSystem& acrSystem, unsigned int aBoard) {
    return acrSystem.getInitiators().get(aBoard)->getPortName()->getBinaryForm();
}

}  // namespace

void ZTCScopeAgentProtocolHandler::ScopeCb_Generic(std::uint32_t aBoard, HBA_wwn aPort,
                                                   std::uint32_t aCategory, std::uint32_t aSubcategory,
                                                   void* /*apContext*/, const ZT_event* apEvent) {
    const ZTCLogMask lMask;
    const ZTCTraceScope lTrace(lMask, sFile);
    if (lMask.has(ZTLL_Trace)) {  // the name costs something to print
        Log(ZTLL_Trace, sFile, "Invoking Generic callback with boardId: %u, hba wwn: %s, Cat: %u, subCat: %u",
            aBoard, ZTCWorldWideName::Text(aPort.wwn).get(), aCategory, aSubcategory);
    }
    ZTCScopeAgentSystem& lrSystem = sSystem();
    if (!sIsLetIn(lrSystem, aBoard, aCategory, aSubcategory,
                  "Ignoring the DfcLink event callback as boardid %d is bad")) {
        return;
    }
    const unsigned char* lpData = nullptr;
    unsigned int lLength = 0;
    if (apEvent->descriptor != nullptr) {
        lpData = apEvent->descriptor->payload;
        lLength = apEvent->total_length - ZT_EVENT_HEADER;
        Log(ZTLL_Trace, sFile, "Data = %p", lpData);
    }
    sProcess(lrSystem, lMask, __func__, {aBoard, aPort.wwn, aCategory, aSubcategory, lpData, lLength, lMask});
}

void ZTCScopeAgentProtocolHandler::ScopeCb_DfcLink(std::uint32_t aBoard, const void* apContext,
                                                   std::uint32_t /*aLength*/) {
    const ZTCLogMask lMask;
    const ZTCTraceScope lTrace(lMask, sFile);
    Log(ZTLL_Trace, sFile, "Invoking LINK callback with boardId: %u", aBoard);
    ZTCScopeAgentSystem& lrSystem = sSystem();
    if (sIsLetIn(lrSystem, aBoard, sLink.mCategory, sLink.mSubcategory,
                 "Ignoring the DfcLink event callback as boardid %d is bad")) {
        sProcess(lrSystem, lMask, __func__,
                 {aBoard, static_cast<const unsigned char*>(apContext), sLink.mCategory, sLink.mSubcategory,
                  nullptr, 0, lMask});
    }
}

void ZTCScopeAgentProtocolHandler::ScopeCb_DfcRscn(std::uint32_t aBoard, const void* apPayload,
                                                   std::uint32_t aLength) {
    const ZTCLogMask lMask;
    const ZTCTraceScope lTrace(lMask, sFile);
    Log(ZTLL_Trace, sFile, "Invoking RSCN callback with boardId: %u", aBoard);
    ZTCScopeAgentSystem& lrSystem = sSystem();
    if (sIsLetIn(lrSystem, aBoard, sRscn.mCategory, sRscn.mSubcategory,
                 "Ignoring the DfcRscn event callback as boardid %d is bad")) {
        sProcess(lrSystem, lMask, __func__,
                 {aBoard, sPortOf(lrSystem, aBoard), sRscn.mCategory, sRscn.mSubcategory,
                  static_cast<const unsigned char*>(apPayload), aLength, lMask});
    }
}

void ZTCScopeAgentProtocolHandler::ScopeCb_DfcTemp(std::uint32_t aBoard, const void* /*apData*/,
                                                   std::uint32_t /*aLength*/) {
    const ZTCLogMask lMask;
    const ZTCTraceScope lTrace(lMask, sFile);
    Log(ZTLL_Trace, sFile, "Invoking TEMPERATURE callback with boardId: %u", aBoard);
    ZTCScopeAgentSystem& lrSystem = sSystem();
    if (sIsLetIn(lrSystem, aBoard, sTemperature.mCategory, sTemperature.mSubcategory,
                 "Ignoring the DfcTemp event callback as boardid %d is bad")) {
        sProcess(lrSystem, lMask, __func__,
                 {aBoard, sPortOf(lrSystem, aBoard), sTemperature.mCategory, sTemperature.mSubcategory,
                  nullptr, 0, lMask});
    }
}
