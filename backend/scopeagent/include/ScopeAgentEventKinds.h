// The kinds of event that the agent collects.
//
// To add one: a line here. The compiler then asks for its row in ScopeAgentEventFacts.h and, when it is
// registered by a mask, in ScopeAgentProtocolHandler.cpp; the boundary (LibdfcCallbacks.cpp) has a row for
// each mask as well.
#pragma once

#include "ScopeEvent.h"

/// One line a kind, in the catalogue's order: its name, its category and its subcategory. Category 0 marks
/// the kinds that the vendor library registers and delivers by a mask of their own; the mask is the
/// subcategory.
#define ZT_SCOPE_EVENT_KINDS(KIND) \
    KIND(ElsPlogi, 1, 1)           \
    KIND(ElsPrlo, 1, 2)            \
    KIND(ElsAdisc, 1, 4)           \
    KIND(ElsLsrjt, 1, 8)           \
    KIND(ElsLogo, 1, 16)           \
    KIND(ElsRscn, 0, 2)            \
    KIND(FabricFbsy, 2, 1)         \
    KIND(FabricPbsy, 2, 2)         \
    KIND(FabricFcprdchkerr, 2, 4)  \
    KIND(ScsiQfull, 4, 1)          \
    KIND(ScsiDevbsy, 4, 2)         \
    KIND(ScsiCheckcondition, 4, 4) \
    KIND(ScsiLunreset, 4, 8)       \
    KIND(ScsiTgtreset, 4, 16)      \
    KIND(ScsiBusreset, 4, 32)      \
    KIND(ScsiVarquedepth, 4, 64)   \
    KIND(BoardPortinterr, 8, 1)    \
    KIND(BoardLinkatte, 0, 1)      \
    KIND(BoardTemperature, 0, 32)  \
    KIND(AdapterArrival, 16, 1)

/// The places of the kinds in the catalogue's order.
enum ZTEScopeEventKind : unsigned char {
#define ZT_KIND(Name, Category, Subcategory) ZTSEK_##Name,
    ZT_SCOPE_EVENT_KINDS(ZT_KIND)
#undef ZT_KIND
        ZTSEK_Count
};

// The class of each kind.
#define ZT_KIND(Name, Category, Subcategory)                              \
    class ZTC##Name##ScopeEvent : public ZTCScopeEvent {                  \
      public:                                                             \
        ZTC##Name##ScopeEvent() : ZTCScopeEvent(Category, Subcategory) {} \
    };
ZT_SCOPE_EVENT_KINDS(ZT_KIND)
#undef ZT_KIND

/// The masks of the kinds that are registered by one.
constexpr bool isMaskOfAKind(unsigned int aMask) {
#define ZT_KIND(Name, Category, Subcategory) (Category == 0 && Subcategory == aMask) ||
    return ZT_SCOPE_EVENT_KINDS(ZT_KIND) false;
#undef ZT_KIND
}
