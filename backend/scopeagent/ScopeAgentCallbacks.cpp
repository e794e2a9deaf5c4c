#include "Log.h"
#include "ScopeAgentEvents.h"
#include "ScopeAgentSystem.h"
#include "SystemMain.h"

namespace {

constexpr char sFile[] = "ScopeAgentCallbacks";

// The codes that an event arrives with, or is stamped with when it comes by mask.
struct Stamp {
    unsigned int mCategory;
    unsigned int mSubcategory;
};
constexpr Stamp sLink{8, 2};
constexpr Stamp sRscn{1, 32};
constexpr Stamp sTemperature{8, 4};

using BadBoardText = ZTCLogFormat<unsigned int>;

ZTCScopeAgentSystem& sSystem() {
    return *static_cast<ZTCScopeAgentSystem*>(getSystemObject());
}

// Apart from the road of an event that is not lost, which is the shorter for it.
[[gnu::noinline]] void sLose(ZTEScopeAgentLoss aLoss, Stamp aStamp) {
    sSystem().countLost(aLoss, aStamp.mCategory, aStamp.mSubcategory);
}

// Drops the event at the limit, or of a board that is not known; else has it processed. Nothing of ours is
// thrown on: the caller is the vendor library.
template <class MakeEvent>
void sPass(unsigned int aBoard, Stamp aStamp, const BadBoardText& acrBadBoard,
           const MakeEvent& acrMakeEvent) {
    ZTCScopeAgentSystem& lrSystem = sSystem();
    if (lrSystem.isTotalLimitOnScopeDataReached()) {
        Log(ZTLL_Notice, sFile, "Ignoring the event as the limit on the total Event Data");
        sLose(ZTSAL_Limit, aStamp);
        return;
    }
    if (!lrSystem.isKnownBoard(aBoard)) {
        PrintLogMessageWithTimeStamp<unsigned int>(ZTLL_Notice.mBit, ZTLL_Notice.mpTag, acrBadBoard.mLine,
                                                   acrBadBoard.mpFunction, sFile, acrBadBoard, aBoard);
        sLose(ZTSAL_UnknownBoard, aStamp);
        return;
    }
    try {
        sProcessScopeEvent(lrSystem, acrMakeEvent(lrSystem));
    } catch (const ZTCException& lrException) {
        sLose(ZTSAL_NoMemory, aStamp);
        Log(ZTLL_Error, sFile, "Error: %s, processing event callback", lrException.what());
    }
}

// An event by mask without a name of its own comes from the board's port.
ZTCCallbackEventData sMakeEvent(const ZTCScopeAgentSystem& acrSystem, unsigned int aBoard,
                                const Stamp& acrStamp, const void* apData, unsigned int aLength) {
    return {aBoard,
            acrSystem.getInitiators().get(aBoard)->getPortName()->getBinaryForm(),
            acrStamp.mCategory,
            acrStamp.mSubcategory,
            static_cast<const unsigned char*>(apData),
            aLength};
}

}  // namespace

void ZTCScopeAgentProtocolHandler::ScopeCb_Generic(std::uint32_t aBoard, HBA_wwn aPort,
                                                   std::uint32_t aCategory, std::uint32_t aSubcategory,
                                                   void* /*apContext*/, const ZT_event* apEvent) {
    const ZTCTraceScope lTrace(sFile);
    if (isLogged(ZTLL_Trace)) {  // the name costs something to print
        Log(ZTLL_Trace, sFile, "Invoking Generic callback with boardId: %u, hba wwn: %s, Cat: %u, subCat: %u",
            aBoard, ZTCWorldWideName::Text(aPort.wwn).get(), aCategory, aSubcategory);
    }
    sPass(aBoard, Stamp{aCategory, aSubcategory}, "Ignoring the DfcLink event callback as boardid %d is bad",
          [&](const ZTCScopeAgentSystem&) {
              const unsigned char* lpData = nullptr;
              unsigned int lLength = 0;
              if (apEvent->descriptor != nullptr) {
                  lpData = apEvent->descriptor->payload;
                  lLength = apEvent->total_length - ZT_EVENT_HEADER;
                  Log(ZTLL_Trace, sFile, "Data = %p", lpData);
              }
              return ZTCCallbackEventData(aBoard, aPort.wwn, aCategory, aSubcategory, lpData, lLength);
          });
}

void ZTCScopeAgentProtocolHandler::ScopeCb_DfcLink(std::uint32_t aBoard, const void* apContext,
                                                   std::uint32_t /*aLength*/) {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Trace, sFile, "Invoking LINK callback with boardId: %u", aBoard);
    sPass(aBoard, sLink, "Ignoring the DfcLink event callback as boardid %d is bad",
          [&](const ZTCScopeAgentSystem&) {
              return ZTCCallbackEventData(aBoard, static_cast<const unsigned char*>(apContext),
                                          sLink.mCategory, sLink.mSubcategory, nullptr, 0);
          });
}

void ZTCScopeAgentProtocolHandler::ScopeCb_DfcRscn(std::uint32_t aBoard, const void* apPayload,
                                                   std::uint32_t aLength) {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Trace, sFile, "Invoking RSCN callback with boardId: %u", aBoard);
    sPass(aBoard, sRscn, "Ignoring the DfcRscn event callback as boardid %d is bad",
          [&](const ZTCScopeAgentSystem& acrSystem) {
              return sMakeEvent(acrSystem, aBoard, sRscn, apPayload, aLength);
          });
}

void ZTCScopeAgentProtocolHandler::ScopeCb_DfcTemp(std::uint32_t aBoard, const void* /*apData*/,
                                                   std::uint32_t /*aLength*/) {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Trace, sFile, "Invoking TEMPERATURE callback with boardId: %u", aBoard);
    sPass(aBoard, sTemperature, "Ignoring the DfcTemp event callback as boardid %d is bad",
          [&](const ZTCScopeAgentSystem& acrSystem) {
              return sMakeEvent(acrSystem, aBoard, sTemperature, nullptr, 0);
          });
}
