// The kinds of event that the agent collects.
//
// To add one: a line here. The compiler then asks for its row in ScopeAgentEventFacts.h and, when it is
// registered by a mask, in ScopeAgentProtocolHandler.cpp; the boundary (LibdfcCallbacks.cpp) has a row for
// each mask as well.
#pragma once

#include "ScopeEvent.h"

/// One line a kind, in the catalogue's order: its name, its category, its subcategory, and what it is called
/// outside, in statistics as in documents. Category 0 marks the kinds that the vendor library registers and
/// delivers by a mask of their own; the mask is the subcategory.
#define ZT_SCOPE_EVENT_KINDS(KIND)                      \
    KIND(ElsPlogi, 1, 1, plogi)                         \
    KIND(ElsPrlo, 1, 2, prlo)                           \
    KIND(ElsAdisc, 1, 4, adisc)                         \
    KIND(ElsLsrjt, 1, 8, ls_rjt)                        \
    KIND(ElsLogo, 1, 16, logo)                          \
    KIND(ElsRscn, 0, 2, rscn)                           \
    KIND(FabricFbsy, 2, 1, fabric_busy)                 \
    KIND(FabricPbsy, 2, 2, port_busy)                   \
    KIND(FabricFcprdchkerr, 2, 4, fcp_read_check_error) \
    KIND(ScsiQfull, 4, 1, queue_full)                   \
    KIND(ScsiDevbsy, 4, 2, device_busy)                 \
    KIND(ScsiCheckcondition, 4, 4, check_condition)     \
    KIND(ScsiLunreset, 4, 8, lun_reset)                 \
    KIND(ScsiTgtreset, 4, 16, target_reset)             \
    KIND(ScsiBusreset, 4, 32, bus_reset)                \
    KIND(ScsiVarquedepth, 4, 64, queue_depth_change)    \
    KIND(BoardPortinterr, 8, 1, port_interrupt_error)   \
    KIND(BoardLinkatte, 0, 1, link)                     \
    KIND(BoardTemperature, 0, 32, temperature)          \
    KIND(AdapterArrival, 16, 1, adapter_arrival)

/// The places of the kinds in the catalogue's order.
enum ZTEScopeEventKind : unsigned char {
#define ZT_KIND(Name, Category, Subcategory, Label) ZTSEK_##Name,
    ZT_SCOPE_EVENT_KINDS(ZT_KIND)
#undef ZT_KIND
        ZTSEK_Count
};

// The class of each kind.
#define ZT_KIND(Name, Category, Subcategory, Label)                       \
    class ZTC##Name##ScopeEvent : public ZTCScopeEvent {                  \
      public:                                                             \
        ZTC##Name##ScopeEvent() : ZTCScopeEvent(Category, Subcategory) {} \
    };
ZT_SCOPE_EVENT_KINDS(ZT_KIND)
#undef ZT_KIND

/// The masks of the kinds that are registered by one.
constexpr bool isMaskOfAKind(unsigned int aMask) {
#define ZT_KIND(Name, Category, Subcategory, Label) (Category == 0 && Subcategory == aMask) ||
    return ZT_SCOPE_EVENT_KINDS(ZT_KIND) false;
#undef ZT_KIND
}
