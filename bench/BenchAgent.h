// An agent in this process, without its threads and pipes: what the event benchmarks feed and empty.
#pragma once

#include "LibdfcCallbacks.h"
#include "ScopeAgentSystem.h"

namespace ztbench {

/// Allocations of this thread so far, through new, malloc and realloc.
std::uint64_t allocations();

/// The one agent, over the simulated library, with the log open.
ZTCScopeAgentSystem& agent();

/// An event as the vendor library delivers it.
class Event {
  public:
    static constexpr unsigned int MaxPayload = 32;

    Event(unsigned int aCategory, unsigned int aSubcategory, unsigned int aPayload)
        : mCategory(aCategory),
          mSubcategory(aSubcategory),
          mEvent{1, ZT_EVENT_HEADER + aPayload, aPayload == 0 ? nullptr : &mDescriptor} {}
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    /// Makes the first name in the payload another one.
    void setName(std::uint64_t aName) { memcpy(mPayload + 4, &aName, sizeof aName); }
    void deliver(unsigned int aBoard = 0) const {
        static const ZT_generic_callback sCallback =
            LibdfcWrap(ZTCScopeAgentProtocolHandler::ScopeCb_Generic);
        sCallback(aBoard, {}, mCategory, mSubcategory, nullptr, &mEvent);
    }

  private:
    unsigned int mCategory;
    unsigned int mSubcategory;
    unsigned char mPayload[MaxPayload]{};
    ZT_event_descriptor mDescriptor{0, mPayload};
    ZT_event mEvent;
};

/// Has the agent make the response of a fetch.
ZTCPointer<ZTCBuffer> fetch();

}  // namespace ztbench
