#include "ScopeAgentProtocolHandler.h"

#include "EncodableStream.h"
#include "ScopeAgentSystem.h"
#include "ScopeAgentTarget.h"

namespace {

constexpr char sFile[] = "ScopeAgentProtocolHandler";
constexpr unsigned int sInitialResponseSize = 1024;
constexpr unsigned int sShutDown = 19;

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

    ZTCPointer<ZTCWorldWideName> readName() {
        ZTCPointer<ZTCWorldWideName> lName(makePointer<ZTCWorldWideName>());
        lName->decode(*this);
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
    createSuccessResponse(arResponse);
}

void ZTCScopeAgentProtocolHandler::handleGetScopeDataCommand(const Buffer& acrCommand, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    const auto lType = CommandStream(acrCommand).read<unsigned char>();
    ZT_ASSERT(lType == ZTSSCAC_GetScopeData, __LINE__, sFile);
    constexpr unsigned int lRecordLists = 0;  // one an adapter, and no adapters are known yet
    ZTCBufferExpOutStream lStream(sInitialResponseSize);
    lStream << static_cast<unsigned char>(ZTSSCAR_ScopeData) << lRecordLists;
    arResponse = lStream.getBuffer();
    Log(ZTLL_Notice, sFile, "Wrote total <%u> Scope Events", 0U);
}

void ZTCScopeAgentProtocolHandler::handleStopCommand(const Buffer& /*acrCommand*/, Buffer& arResponse) {
    const ZTCTraceScope lTrace(sFile);
    createSuccessResponse(arResponse);
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
        const ZTCPointer<ZTCWorldWideName> lNodeName(lStream.readName());
        const ZTCPointer<ZTCWorldWideName> lPortName(lStream.readName());
        const auto lFcAddress = lStream.read<unsigned int>();
        const ZTCPointer<ZTCScopeAgentTarget> lTarget(
            makePointer<ZTCScopeAgentTarget>(lNodeName, lPortName, lFcAddress));
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
    throw ZTCShutDownEx("Shutting down ScopeAgent", sShutDown);
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
