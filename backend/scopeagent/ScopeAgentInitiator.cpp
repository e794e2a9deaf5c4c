#include "ScopeAgentInitiator.h"

namespace {

constexpr char sFile[] = "ScopeAgentInitiator";

}  // namespace

void ZTCScopeAgentInitiator::addRegEvent(const ZTCPointer<ZTCScopeEvent>& acrEvent, unsigned int aHandle) {
    const unsigned short lKeyform = acrEvent->getKeyform();
    try {
        mRegisteredEvents.insert(lKeyform, aHandle);
    } catch (const ZTCExistsEx&) {
        Log(ZTLL_Error, sFile, "addRegEvent FAILED due duplicated keyform %d has been detected",
            int{lKeyform});
        mRegisteredEvents.get(lKeyform) = aHandle;
    }
}
