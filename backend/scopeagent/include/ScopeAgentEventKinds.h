// The kinds of event that the agent collects, by their places in the catalogue's order, and their classes.
// Both are made of the rows of ScopeAgentEventFacts.def.
#pragma once

#include "Rscn.h"
#include "ScopeEvent.h"
#include "libdfc_provider.h"

/// The places of the kinds in the catalogue's order.
enum ZTEScopeEventKind : unsigned char {
#define ZT_KIND(Name, ...) ZTSEK_##Name,
#include "ScopeAgentEventFacts.def"
#undef ZT_KIND
    ZTSEK_Count
};

// The class of each kind, with the codes with which it is registered: of one that is registered by a mask
// that is category 0 and the mask.
#define ZT_BY_CODES 0
#define ZT_BY_MASK(Mask, ...) Mask
#define ZT_KIND(Name, Label, Category, Subcategory, Routine, Message, Minimum, TooShort, Block, Mask) \
    class ZTC##Name##ScopeEvent : public ZTCScopeEvent {                                              \
      public:                                                                                         \
        ZTC##Name##ScopeEvent()                                                                       \
            : ZTCScopeEvent((Mask) == 0 ? (Category) : 0, (Mask) == 0 ? (Subcategory) : (Mask)) {}    \
    };
#include "ScopeAgentEventFacts.def"
#undef ZT_KIND
#undef ZT_BY_CODES
#undef ZT_BY_MASK
