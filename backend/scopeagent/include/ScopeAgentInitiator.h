// A local adapter port, and the events that are registered on it.
#pragma once

#include "ScopeEvent.h"
#include "WorldWideName.h"
#include "ZTMap.h"

/// The names never change; the registered events are the command thread's.
class ZTCScopeAgentInitiator {
  public:
    /// Shares the names. aBoard: the adapter as the vendor library counts them.
    ZTCScopeAgentInitiator(unsigned int aBoard, const ZTCPointer<ZTCWorldWideName>& acrNodeName,
                           const ZTCPointer<ZTCWorldWideName>& acrPortName)
        : mBoard(aBoard), mNodeName(acrNodeName), mPortName(acrPortName) {}
    virtual ~ZTCScopeAgentInitiator() = default;

    unsigned int getBoard() const { return mBoard; }
    const ZTCPointer<ZTCWorldWideName>& getNodeName() const { return mNodeName; }
    /// The name under which events are registered.
    const ZTCPointer<ZTCWorldWideName>& getPortName() const { return mPortName; }

    /// Remembers the handle of an event's registration; one that the event had is replaced, with an error
    /// record.
    void addRegEvent(const ZTCPointer<ZTCScopeEvent>& acrEvent, unsigned int aHandle);
    void clearRegEvents() { mRegisteredEvents.clear(); }
    /// Handles by keyform.
    const ZTMap<unsigned short, unsigned int>& getRegisteredEvents() const { return mRegisteredEvents; }

  private:
    unsigned int mBoard;
    ZTCPointer<ZTCWorldWideName> mNodeName;
    ZTCPointer<ZTCWorldWideName> mPortName;
    ZTMap<unsigned short, unsigned int> mRegisteredEvents;
};
