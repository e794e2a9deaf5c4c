#include "ScopeAgentEventCatalogue.h"

namespace {

constexpr char sFile[] = "ScopeAgentEventCatalogue";

}  // namespace

ZTCScopeAgentEventCatalogue::ZTCScopeAgentEventCatalogue() {
    const ZTCTraceScope lTrace(sFile);
    constexpr unsigned int lLine = __LINE__;  // not the table's: the records name this file
#define ZT_KIND(Name, ...)                                                              \
    Log(ZTLL_Information, sFile,                                                        \
        ZTCLogFormat<>("Inserting " #Name " ScopeEvent into Events Catalogue", lLine)); \
    insert(makePointerAs<ZTCScopeEvent, ZTC##Name##ScopeEvent>());
#include "ScopeAgentEventFacts.def"
#undef ZT_KIND
}

void ZTCScopeAgentEventCatalogue::insert(const Event& acrEvent) {
    orNoMemory([&] { mEventList.push_back(acrEvent); });
    mEvents.insert(acrEvent->getKeyform(), acrEvent);
}
