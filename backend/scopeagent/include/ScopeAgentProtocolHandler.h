// What the agent does with a command. Every command gets exactly one response.
#pragma once

#include "Buffer.h"
#include "ScopeAgentProtocol.h"

class ZTCScopeAgentSystem;

/// Command thread only. A message too short for its command, or a name that cannot be decoded, is the
/// stream's exception, and no response.
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

  private:
    ZTCScopeAgentSystem* mpScopeAgentSystem;
};
