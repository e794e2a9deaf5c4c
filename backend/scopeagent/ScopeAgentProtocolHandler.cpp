#include "ScopeAgentProtocolHandler.h"

#include <algorithm>
#include <cstdio>

#include "EncodableStream.h"
#include "LogRecord.h"
#include "ScopeAgentSystem.h"
#include "ScopeAgentTarget.h"

namespace {

constexpr char sFile[] = "ScopeAgentProtocolHandler";
// The routines whose records these are, where a part of their work is a function of its own.
constexpr char sStartScope[] = "handleStartScopeCommand";
constexpr char sGetScopeData[] = "handleGetScopeDataCommand";
constexpr char sStop[] = "handleStopCommand";
constexpr unsigned int sInitialResponseSize = 1024;
constexpr unsigned int sLabelRoom = 128;

// A registration's statuses that count as success beside 0.
constexpr unsigned int sLeastTolerated = 5;
constexpr unsigned int sMostTolerated = 7;

constexpr std::uintptr_t sDfcArgument = 0xffff;

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
constexpr bool sAreInOrder() {
    for (unsigned int lCode = 0; lCode < std::size(sHandlers); ++lCode) {
        if (sHandlers[lCode].mCommand != lCode) {
            return false;
        }
    }
    return std::size(sHandlers) == ZTSSCAC_Count;
}
static_assert(sAreInOrder(), "one row a command, at the place of its code");

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
    mpScopeAgentSystem->getCollection().setDataCeiling(lStream.read<unsigned int>());
    for (const auto& [lBoard, lInitiator] : mpScopeAgentSystem->getInitiators()) {
        for (const auto& lrEvent : mpScopeAgentSystem->getEventCatalogue()->getEventList()) {
            if (!registerEvent(*lInitiator, lrEvent)) {
                createFailedResponse(ZTSSCAE_RegistrationFailed, arResponse);
                return;
            }
        }
    }
    ZTSetStatistic(ZTS_Collecting, 1);
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
        LogBy(sStartScope, ZTLL_Error, sFile,
              "Failed to register event (%u, %u) for Initiator <%s, %s> - Error %u", acrEvent->getCategory(),
              acrEvent->getSubcategory(), sNode(arInitiator), sPort(arInitiator), lStatus);
        return false;
    }
    LogBy(sStartScope, ZTLL_Notice, sFile, "Registered event (%u, %u) for Initiator <%s, %s>",
          acrEvent->getCategory(), acrEvent->getSubcategory(), sNode(arInitiator), sPort(arInitiator));
    arInitiator.addRegEvent(acrEvent, lHandle);
    return true;
}

bool ZTCScopeAgentProtocolHandler::registerDfcEvent(ZTCScopeAgentInitiator& arInitiator,
                                                    const ZTCPointer<ZTCScopeEvent>& acrEvent) {
    const auto* const lpFacts =
        std::find_if(std::begin(ZTScopeEventFacts), std::end(ZTScopeEventFacts), [&](const auto& acrFacts) {
            return acrFacts.mByMask.mMask != 0 && acrFacts.mByMask.mMask == acrEvent->getSubcategory();
        });
    if (lpFacts == std::end(ZTScopeEventFacts)) {
        LogBy(sStartScope, ZTLL_Trace, sFile, "Ignore other events for now");
        return true;
    }
    const ZTSScopeEventMask& lrByMask = lpFacts->mByMask;
    const unsigned int lHandle = mpScopeAgentSystem->getLibdfc()->LIBDFC_DfcRegEvent(
        arInitiator.getBoard(), lrByMask.mMask, sDfcArgument, lrByMask.mContext, lrByMask.mpCallback);
    if (lHandle == 0) {
        constexpr unsigned int lStatus = 0;  // the library gives none, and the message has its place for one
        LogBy(sStartScope, lrByMask.mIsRequired ? ZTLL_Error : ZTLL_Warning, sFile,
              "Failed to register %s for Initiator <%s, %s> - Error %u", lrByMask.mpFailedName,
              sNode(arInitiator), sPort(arInitiator), lStatus);
        return !lrByMask.mIsRequired;
    }
    LogBy(sStartScope, ZTLL_Notice, sFile, "Registered %s for Initiator <%s, %s>", lrByMask.mpRegisteredName,
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
    lStream << static_cast<unsigned char>(ZTSSCAR_ScopeData) << lrSystem.getCollection().getRecordListCount();
    releaseFetchedData();
    mFetched = lrSystem.getCollection().detach(lrSystem.getLibdfc()->LIBDFC_GetNumberOfAdapters());
    lrSystem.reportLosses();
    try {
        encodeFetchedData(lStream);
    } catch (const ZTCException&) {
        // They are gone, as if the sensor had not read them.
        for (const ZTCScopeAgentRecordList& lrList : mFetched) {
            ZTCScopeAgentLosses::count(ZTSAL_NoMemory, lrList.getOccurrences());
        }
        releaseFetchedData();
        throw;
    }
    arResponse = lStream.getBuffer();
}

void ZTCScopeAgentProtocolHandler::encodeFetchedData(ZTCEncodableOutStream& arStream) {
    std::size_t lSize = 0;
    for (const ZTCScopeAgentRecordList& lrList : mFetched) {
        lSize += sLabelRoom + lrList.getSize();
    }
    arStream.reserve(lSize);
    unsigned int lTotal = 0;
    std::uint64_t lEvents = 0;
    for (ZTCScopeAgentRecordList& lrList : mFetched) {
        const auto* const lpInitiator = mpScopeAgentSystem->getInitiators().find(lrList.getBoard());
        if (lpInitiator == nullptr) {
            LogBy(sGetScopeData, ZTLL_Error, sFile,
                  "Bad boardid %d detected during handle GetScopeDataCommand command", lrList.getBoard());
            ZTCScopeAgentLosses::count(ZTSAL_UnknownBoard, lrList.getOccurrences());
            lrList = ZTCScopeAgentRecordList(lrList.getBoard());
            continue;
        }
        char lLabel[sLabelRoom];
        snprintf(lLabel, sizeof lLabel, "%s.%s", sNode(**lpInitiator), sPort(**lpInitiator));
        arStream << ZTCString(lLabel);
        const unsigned int lCount = lrList.getRecordCount();
        lTotal += lCount;
        lEvents += lrList.getOccurrences();
        lrList.encode(arStream);
        LogBy(sGetScopeData, ZTLL_Notice, sFile, "Wrote <%u> Scope records from record-list", lCount);
    }
    ZTAddToStatistic(ZTS_FetchedEvents, lEvents);
    LogBy(sGetScopeData, ZTLL_Notice, sFile, "Wrote total <%u> Scope Events", lTotal);
}

void ZTCScopeAgentProtocolHandler::releaseFetchedData() {
    mpScopeAgentSystem->getCollection().release(mFetched);
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
    ZTSetStatistic(ZTS_Collecting, 0);
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
        LogBy(sStop, ZTLL_Warning, sFile,
              "Failed to Unregister event (%u, %u) for Initiator <%s, %s> - Error %u", acrEvent.getCategory(),
              acrEvent.getSubcategory(), sNode(acrInitiator), sPort(acrInitiator), lStatus);
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
