// The catalogue of the kinds of event that are registered with the vendor library.
#pragma once

#include <vector>

#include "Pointer.h"
#include "ScopeAgentEventKinds.h"
#include "ZTMap.h"

/// Not changed once it is made, and then read by any thread.
class ZTCScopeAgentEventCatalogue {
  public:
    using Event = ZTCPointer<ZTCScopeEvent>;

    /// With all kinds. Throws ZTCNoMemoryEx.
    ZTCScopeAgentEventCatalogue();
    virtual ~ZTCScopeAgentEventCatalogue() = default;

    /// Adds a kind. Throws ZTCExistsEx when there is one by its keyform, which stays; the list has both then.
    void insert(const Event& acrEvent);

    /// In the order in which they were added.
    const std::vector<Event>& getEventList() const { return mEventList; }
    /// By keyform.
    const ZTMap<unsigned short, Event>& getEvents() const { return mEvents; }

  private:
    ZTMap<unsigned short, Event> mEvents;
    std::vector<Event> mEventList;
};
