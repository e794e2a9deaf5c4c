// What the agent does with a command. Every command gets exactly one response.
#pragma once

#include "Buffer.h"
#include "ScopeAgentRecordList.h"
#include "ScopeEvent.h"
#include "ScopeWire.h"
#include "libdfc_provider.h"

class ZTCScopeAgentInitiator;
class ZTCScopeAgentSystem;

/// The commands: command thread only. A message too short for its command, or a name that cannot be decoded,
/// is the stream's exception, and no response.
class ZTCScopeAgentProtocolHandler {
  public:
    using Buffer = ZTCPointer<ZTCBuffer>;

    explicit ZTCScopeAgentProtocolHandler(ZTCScopeAgentSystem* apScopeAgentSystem)
        : mpScopeAgentSystem(apScopeAgentSystem) {}
    virtual ~ZTCScopeAgentProtocolHandler() = default;

    /// Handles the command and makes arResponse its response. An unknown code is a broken sensor: a fatal
    /// assertion.
    virtual void process(const Buffer& acrCommand, Buffer& arResponse);

    virtual void handleStartScopeCommand(const Buffer& acrCommand, Buffer& arResponse);
    virtual void handleGetScopeDataCommand(const Buffer& acrCommand, Buffer& arResponse);
    virtual void handleStopCommand(const Buffer& acrCommand, Buffer& arResponse);
    virtual void handleRegisterTargetsCommand(const Buffer& acrCommand, Buffer& arResponse);
    /// Checks the period, and changes nothing.
    virtual void handleSetCollectionPeriodCommand(const Buffer& acrCommand, Buffer& arResponse);
    /// Makes the response, then throws ZTCShutDownEx.
    virtual void handleShutDownCommand(const Buffer& acrCommand, Buffer& arResponse);

    virtual void createSuccessResponse(Buffer& arResponse);
    virtual void createFailedResponse(unsigned short aFailureCode, Buffer& arResponse);

    /// Frees what the last fetch took from the collection. It can wait until the response has been written.
    void releaseFetchedData();

    // The vendor library's callbacks, on its own threads: what they deliver becomes a record of the process's
    // agent, unless the collected data has reached its limit or the board is not known.

    /// For the kinds with a category. The context is not used.
    static void ScopeCb_Generic(std::uint32_t aBoard, HBA_wwn aPort, std::uint32_t aCategory,
                                std::uint32_t aSubcategory, void* apContext, const ZT_event* apEvent);
    /// apContext: the registration context, whose first 8 bytes are the port's name.
    static void ScopeCb_DfcLink(std::uint32_t aBoard, const void* apContext, std::uint32_t aLength);
    /// apPayload: the ELS payload, as long as its own length field says.
    static void ScopeCb_DfcRscn(std::uint32_t aBoard, const void* apPayload, std::uint32_t aLength);
    static void ScopeCb_DfcTemp(std::uint32_t aBoard, const void* apData, std::uint32_t aLength);

  private:
    bool registerEvent(ZTCScopeAgentInitiator& arInitiator, const ZTCPointer<ZTCScopeEvent>& acrEvent);
    bool registerGenericEvent(ZTCScopeAgentInitiator& arInitiator, const ZTCPointer<ZTCScopeEvent>& acrEvent);
    bool registerDfcEvent(ZTCScopeAgentInitiator& arInitiator, const ZTCPointer<ZTCScopeEvent>& acrEvent);
    void unregisterEvent(const ZTCScopeAgentInitiator& acrInitiator, const ZTCScopeEvent& acrEvent,
                         unsigned int aHandle);
    void encodeFetchedData(ZTCEncodableOutStream& arStream);

    ZTCScopeAgentSystem* mpScopeAgentSystem;
    ZTCScopeAgentRecordLists mFetched;
};
