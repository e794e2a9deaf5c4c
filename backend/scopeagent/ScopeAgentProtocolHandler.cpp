#include "ScopeAgentProtocolHandler.h"

#include <algorithm>
#include <cstdio>

#include "EncodableStream.h"
#include "LogRecord.h"
#include "ScopeAgentSystem.h"
#include "ScopeAgentTarget.h"

namespace {

constexpr char sFile[] = "ScopeAgentProtocolHandler";
constexpr unsigned int sInitialResponseSize = 1024;
constexpr unsigned int sLabelRoom = 128;
constexpr unsigned int sManyRecords = 4096;

// A registration's statuses that count as success beside 0.
constexpr unsigned int sLeastTolerated = 5;
constexpr unsigned int sMostTolerated = 7;

constexpr std::uintptr_t sDfcArgument = 0xffff;

// The events that are registered by mask. "Failed to register ..." and "Registered ..." name them
// differently.
struct DfcEventRow {
    unsigned int mMask;
    unsigned int mSize;
    ZT_dfc_callback mpCallback;
    const char* mpRegisteredName;
    const char* mpFailedName;
    ZTCLogLevel mFailureLevel;
    bool mIsRequired;  ///< without it the collection is not started
};
constexpr DfcEventRow sDfcEvents[] = {
    {ZT_DFC_RSCN, 1024, ZTCScopeAgentProtocolHandler::ScopeCb_DfcRscn, "RSCN", "RSCN", ZTLL_Error, true},
    {ZT_DFC_TEMPERATURE, 0, ZTCScopeAgentProtocolHandler::ScopeCb_DfcTemp, "Temperature Event", "TEMPERATURE",
     ZTLL_Warning, false},
    {ZT_DFC_LINK, ZT_DFC_LINK_CONTEXT, ZTCScopeAgentProtocolHandler::ScopeCb_DfcLink, "LINK", "LINK",
     ZTLL_Error, true},
};

constexpr bool areAllMasksThere() {
    for (unsigned int lMask = 0; lMask < 256; ++lMask) {
        const bool lIsThere = std::any_of(std::begin(sDfcEvents), std::end(sDfcEvents),
                                          [=](const DfcEventRow& acrRow) { return acrRow.mMask == lMask; });
        if (lIsThere != isMaskOfAKind(lMask)) {
            return false;
        }
    }
    return true;
}
static_assert(areAllMasksThere(), "one row a kind that is registered by a mask");

const char* sNode(const ZTCScopeAgentInitiator& acrInitiator) {
    return acrInitiator.getNodeName()->getStringForm().get();
}
const char* sPort(const ZTCScopeAgentInitiator& acrInitiator) {
    return acrInitiator.getPortName()->getStringForm().get();
}

// A command, read from its first byte.
class CommandStream : private ZTCBufferStream, public ZTCEncodableInStream {
  public:
    explicit CommandStream(const ZTCPointer<ZTCBuffer>& acrCommand)
        : ZTCBufferStream(acrCommand), ZTCEncodableInStream(static_cast<ZTCBufferStream&>(*this)) {}

    template <class Value>
    Value read() {
        Value lValue{};
        *this >> lValue;
        return lValue;
    }

    ZTCWorldWideName readName() {
        ZTCWorldWideName lName;
        lName.decode(*this);
        return lName;
    }

    using ZTCEncodableInStream::take;
};

// Who handles which command, in the order of the codes.
using Handler = void (ZTCScopeAgentProtocolHandler::*)(const ZTCPointer<ZTCBuffer>&, ZTCPointer<ZTCBuffer>&);
struct HandlerRow {
    ZTEScopeAgentCommand mCommand;
    Handler mHandle;
};
constexpr HandlerRow sHandlers[] = {
    {ZTSSCAC_StartScope, &ZTCScopeAgentProtocolHandler::handleStartScopeCommand},
    {ZTSSCAC_GetScopeData, &ZTCScopeAgentProtocolHandler::handleGetScopeDataCommand},
    {ZTSSCAC_Stop, &ZTCScopeAgentProtocolHandler::handleStopCommand},
    {ZTSSCAC_RegisterTargets, &ZTCScopeAgentProtocolHandler::handleRegisterTargetsCommand},
    {ZTSSCAC_ShutDown, &ZTCScopeAgentProtocolHandler::handleShutDownCommand},
    {ZTSSCAC_CollectionPeriod, &ZTCScopeAgentProtocolHandler::handleSetCollectionPeriodCommand},
};
constexpr bool areInOrder() {
    for (unsigned int lCode = 0; lCode < std::size(sHandlers); ++lCode) {
        if (sHandlers[lCode].mCommand != lCode) {
            return false;
        }
    }
    return std::size(sHandlers) == ZTSSCAC_Count;
}
static_assert(areInOrder(), "one row a command, at the place of its code");

}  // namespace

void ZTCScopeAgentProtocolHandler::process(const Buffer& acrCommand, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    const auto lCode = CommandStream(acrCommand).read<unsigned char>();
    Log(ZTLL_Trace, sFile, "Command to handle: %u", unsigned{lCode});
    ZT_ASSERT_NAMED(lCode < ZTSSCAC_Count, "false", __LINE__, sFile);
    (this->*sHandlers[lCode].mHandle)(acrCommand, arResponse);
}

void ZTCScopeAgentProtocolHandler::handleStartScopeCommand(const Buffer& acrCommand, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    CommandStream lStream(acrCommand);
    const auto lType = lStream.read<unsigned char>();
    ZT_ASSERT(lType == ZTSSCAC_StartScope, __LINE__, sFile);
    mpScopeAgentSystem->setDataCeiling(lStream.read<unsigned int>());
    for (const auto& [lBoard, lInitiator] : mpScopeAgentSystem->getInitiators()) {
        for (const auto& lrEvent : mpScopeAgentSystem->getEventCatalogue()->getEventList()) {
            if (!registerEvent(*lInitiator, lrEvent)) {
                createFailedResponse(ZTSSCAE_RegistrationFailed, arResponse);
                return;
            }
        }
    }
    createSuccessResponse(arResponse);
}

bool ZTCScopeAgentProtocolHandler::registerEvent(ZTCScopeAgentInitiator& arInitiator,
                                                 const ZTCPointer<ZTCScopeEvent>& acrEvent) {
    return acrEvent->getCategory() != 0 ? registerGenericEvent(arInitiator, acrEvent)
                                        : registerDfcEvent(arInitiator, acrEvent);
}

bool ZTCScopeAgentProtocolHandler::registerGenericEvent(ZTCScopeAgentInitiator& arInitiator,
                                                        const ZTCPointer<ZTCScopeEvent>& acrEvent) {
    unsigned int lHandle = 0;
    const unsigned int lStatus = mpScopeAgentSystem->getLibdfc()->LIBDFC_ZtapiRegEvent(
        arInitiator.getBoard(), arInitiator.getPortName(), acrEvent, mpScopeAgentSystem, &lHandle,
        ScopeCb_Generic);
    if (lStatus != 0 && (lStatus < sLeastTolerated || lStatus > sMostTolerated)) {
        Log(ZTLL_Error, sFile, "Failed to register event (%u, %u) for Initiator <%s, %s> - Error %u",
            acrEvent->getCategory(), acrEvent->getSubcategory(), sNode(arInitiator), sPort(arInitiator),
            lStatus);
        return false;
    }
    Log(ZTLL_Notice, sFile, "Registered event (%u, %u) for Initiator <%s, %s>", acrEvent->getCategory(),
        acrEvent->getSubcategory(), sNode(arInitiator), sPort(arInitiator));
    arInitiator.addRegEvent(acrEvent, lHandle);
    return true;
}

bool ZTCScopeAgentProtocolHandler::registerDfcEvent(ZTCScopeAgentInitiator& arInitiator,
                                                    const ZTCPointer<ZTCScopeEvent>& acrEvent) {
    const auto* const lpRow =
        std::find_if(std::begin(sDfcEvents), std::end(sDfcEvents),
                     [&](const auto& acrRow) { return acrRow.mMask == acrEvent->getSubcategory(); });
    if (lpRow == std::end(sDfcEvents)) {
        Log(ZTLL_Trace, sFile, "Ignore other events for now");
        return true;
    }
    const unsigned int lHandle = mpScopeAgentSystem->getLibdfc()->LIBDFC_DfcRegEvent(
        arInitiator.getBoard(), lpRow->mMask, sDfcArgument, lpRow->mSize, lpRow->mpCallback);
    if (lHandle == 0) {
        constexpr unsigned int lStatus = 0;  // the library gives none, and the message has its place for one
        Log(lpRow->mFailureLevel, sFile, "Failed to register %s for Initiator <%s, %s> - Error %u",
            lpRow->mpFailedName, sNode(arInitiator), sPort(arInitiator), lStatus);
        return !lpRow->mIsRequired;
    }
    Log(ZTLL_Notice, sFile, "Registered %s for Initiator <%s, %s>", lpRow->mpRegisteredName,
        sNode(arInitiator), sPort(arInitiator));
    arInitiator.addRegEvent(acrEvent, lHandle);
    return true;
}

void ZTCScopeAgentProtocolHandler::handleGetScopeDataCommand(const Buffer& acrCommand, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    const auto lType = CommandStream(acrCommand).read<unsigned char>();
    ZT_ASSERT(lType == ZTSSCAC_GetScopeData, __LINE__, sFile);
    ZTCScopeAgentSystem& lrSystem = *mpScopeAgentSystem;
    ZTCBufferExpOutStream lStream(sInitialResponseSize);
    lStream << static_cast<unsigned char>(ZTSSCAR_ScopeData) << lrSystem.getRecordListCount();
    releaseFetchedData();
    mFetched = lrSystem.makeRecordLists();
    const std::uint64_t lNow = ztlog::now();
    {
        const ZTCScopedLock lLock(lrSystem.getScopeDataLock());
        lrSystem.clearPrevScopeData();
        lrSystem.resetRecordLists(mFetched, lNow);
    }
    lrSystem.reportLosses();
    try {
        encodeFetchedData(lStream);
    } catch (const ZTCException&) {
        // They are gone, as if the sensor had not read them.
        for (const auto& [lBoard, lList] : mFetched) {
            ZTCScopeAgentLosses::count(ZTSAL_NoMemory, lList->getOccurrences());
        }
        releaseFetchedData();
        throw;
    }
    arResponse = lStream.getBuffer();
}

void ZTCScopeAgentProtocolHandler::encodeFetchedData(ZTCEncodableOutStream& arStream) {
    unsigned int lTotal = 0;
    for (const auto& [lBoard, lList] : mFetched) {
        const auto* const lpInitiator = mpScopeAgentSystem->getInitiators().find(lList->getBoard());
        if (lpInitiator == nullptr) {
            Log(ZTLL_Error, sFile, "Bad boardid %d detected during handle GetScopeDataCommand command",
                lList->getBoard());
            ZTCScopeAgentLosses::count(ZTSAL_UnknownBoard, lList->getOccurrences());
            lList->clear();
            continue;
        }
        char lLabel[sLabelRoom];
        snprintf(lLabel, sizeof lLabel, "%s.%s", sNode(**lpInitiator), sPort(**lpInitiator));
        arStream << ZTCString(lLabel);
        const unsigned int lCount = lList->getRecordCount();
        lTotal += lCount;
        lList->encode(arStream);
        Log(ZTLL_Notice, sFile, "Wrote <%u> Scope records from record-list", lCount);
    }
    Log(ZTLL_Notice, sFile, "Wrote total <%u> Scope Events", lTotal);
}

void ZTCScopeAgentProtocolHandler::releaseFetchedData() {
    unsigned int lTotal = 0;
    for (const auto& [lBoard, lList] : mFetched) {
        lTotal += lList->getRecordCount();
    }
    mFetched.clear();
    if (lTotal > sManyRecords) {
        OsReleaseMemory();
    }
}

void ZTCScopeAgentProtocolHandler::handleStopCommand(const Buffer& /*acrCommand*/, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    const ZTCScopeAgentEventCatalogue& lrCatalogue = *mpScopeAgentSystem->getEventCatalogue();
    for (const auto& [lBoard, lInitiator] : mpScopeAgentSystem->getInitiators()) {
        for (const auto& [lKeyform, lHandle] : lInitiator->getRegisteredEvents()) {
            const auto* const lpEvent = lrCatalogue.getEvents().find(lKeyform);
            if (lpEvent == nullptr) {
                Log(ZTLL_Error, sFile, "Bad event keyform %d has beed detected in map of registered events",
                    int{lKeyform});
                continue;
            }
            unregisterEvent(*lInitiator, **lpEvent, lHandle);
        }
        lInitiator->clearRegEvents();
    }
    createSuccessResponse(arResponse);
}

void ZTCScopeAgentProtocolHandler::unregisterEvent(const ZTCScopeAgentInitiator& acrInitiator,
                                                   const ZTCScopeEvent& acrEvent, unsigned int aHandle) {
    const ZTCLibdfcAbs& lrLibdfc = *mpScopeAgentSystem->getLibdfc();
    if (acrEvent.getCategory() == 0) {
        lrLibdfc.LIBDFC_DfcUnregEvent(acrInitiator.getBoard(), aHandle);
        return;
    }
    const unsigned int lStatus =
        lrLibdfc.LIBDFC_ZtapiUnregEvent(acrInitiator.getBoard(), acrInitiator.getPortName(), aHandle);
    if (lStatus != 0) {
        Log(ZTLL_Warning, sFile, "Failed to Unregister event (%u, %u) for Initiator <%s, %s> - Error %u",
            acrEvent.getCategory(), acrEvent.getSubcategory(), sNode(acrInitiator), sPort(acrInitiator),
            lStatus);
    }
}

void ZTCScopeAgentProtocolHandler::handleRegisterTargetsCommand(const Buffer& acrCommand,
                                                                Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    CommandStream lStream(acrCommand);
    const auto lType = lStream.read<unsigned char>();
    ZT_ASSERT(ZTSSCAC_RegisterTargets == lType, __LINE__, sFile);
    const auto lCount = lStream.read<unsigned int>();
    if (lCount == 0) {
        createFailedResponse(ZTSSCAE_BadArgument, arResponse);
        return;
    }
    for (unsigned int lAt = 0; lAt < lCount; ++lAt) {
        const ZTCWorldWideName lNodeName = lStream.readName();
        const ZTCWorldWideName lPortName = lStream.readName();
        const ZTCScopeAgentTarget lTarget(lNodeName, lPortName, lStream.read<unsigned int>());
        mpScopeAgentSystem->addFcTarget(lTarget);
        mpScopeAgentSystem->addWwpnTarget(lTarget);
    }
    createSuccessResponse(arResponse);
}

void ZTCScopeAgentProtocolHandler::handleSetCollectionPeriodCommand(const Buffer& acrCommand,
                                                                    Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    CommandStream lStream(acrCommand);
    const auto lType = lStream.read<unsigned char>();
    ZT_ASSERT(ZTSSCAC_CollectionPeriod == lType, __LINE__, sFile);
    if (lStream.read<unsigned int>() == 0) {
        createFailedResponse(ZTSSCAE_BadArgument, arResponse);
        return;
    }
    Log(ZTLL_Notice, sFile, "The limit set is %u", ZTCScopeAgentSystem::TotalDataLimit);
    createSuccessResponse(arResponse);
}

void ZTCScopeAgentProtocolHandler::handleShutDownCommand(const Buffer& /*acrCommand*/, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    mpScopeAgentSystem->closeLibdfc();
    createSuccessResponse(arResponse);
    throw ZTCShutDownEx("Shutting down ScopeAgent");
}

void ZTCScopeAgentProtocolHandler::createSuccessResponse(Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    ZTCBufferExpOutStream lStream(sInitialResponseSize);
    lStream << static_cast<unsigned char>(ZTSSCAR_Success) << int{0};
    arResponse = lStream.getBuffer();
}

void ZTCScopeAgentProtocolHandler::createFailedResponse(unsigned short aFailureCode, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    Log(ZTLL_Trace, sFile, "Creating Failed Response...");
    ZTCBufferExpOutStream lStream(sInitialResponseSize);
    lStream << static_cast<unsigned char>(ZTSSCAR_Failure) << aFailureCode;
    arResponse = lStream.getBuffer();
}
