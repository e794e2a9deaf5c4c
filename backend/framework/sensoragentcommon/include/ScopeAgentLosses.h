// What was lost, by reason.
#pragma once

#include <array>

#include "Statistics.h"

/// The reasons why an event did not become, or add to, a record: their names, and what they are called
/// outside.
#define ZT_SCOPE_LOSSES(LOSS)                                                        \
    LOSS(Limit, limit)                /* all collected data had reached its limit */ \
    LOSS(UnknownBoard, unknown_board) /* no adapter of that number is known */       \
    LOSS(TooShort, too_short)         /* its payload is shorter than its kind's */   \
    LOSS(UnknownKind, unknown_kind)   /* no kind has its category and subcategory */ \
    LOSS(NoMemory, no_memory)         /* an allocation failed on its way */          \
    LOSS(Malformed, malformed)        /* the vendor library delivered what cannot be */

enum ZTEScopeAgentLoss : unsigned char {
#define ZT_LOSS(Name, Label) ZTSAL_##Name,
    ZT_SCOPE_LOSSES(ZT_LOSS)
#undef ZT_LOSS
        ZTSAL_Count
};
static_assert(ZTRowOf(ZTS_Lost, ZTSAL_Count) == ZTS_Fetches, "a row a reason");

/// The counts are the rows of the statistics; an object knows what it has told of them.
class ZTCScopeAgentLosses {
  public:
    using Counts = std::array<unsigned int, ZTSAL_Count>;

    /// Any thread.
    static void count(ZTEScopeAgentLoss aLoss, unsigned int aOccurrences = 1) {
        ZTStatistic(ZTRowOf(ZTS_Lost, aLoss)).fetch_add(aOccurrences, std::memory_order_relaxed);
    }

    /// Those since the last call, or since the object was made. One thread at a time.
    Counts take();
    /// Writes one notice with them, when any is not 0.
    void report();

  private:
    static std::array<std::uint64_t, ZTSAL_Count> now();

    std::array<std::uint64_t, ZTSAL_Count> mTold = now();
};
