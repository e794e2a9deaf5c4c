// What was lost since the last fetch, by reason.
#pragma once

#include <array>
#include <atomic>

/// Why an event did not become, or add to, a record.
enum ZTEScopeAgentLoss : unsigned char {
    ZTSAL_Limit,         ///< all collected data had reached its limit
    ZTSAL_UnknownBoard,  ///< no adapter of that number is known
    ZTSAL_TooShort,      ///< its payload is shorter than its kind's
    ZTSAL_UnknownKind,   ///< no kind has its category and subcategory
    ZTSAL_NoMemory,      ///< an allocation failed on its way
    ZTSAL_Malformed,     ///< the vendor library delivered what cannot be
    ZTSAL_Count
};

/// Any thread.
class ZTCScopeAgentLosses {
  public:
    void count(ZTEScopeAgentLoss aLoss, unsigned int aOccurrences = 1) {
        mLost[aLoss].fetch_add(aOccurrences, std::memory_order_relaxed);
    }
    /// Writes one notice with the counts since the last call, when any is not 0.
    void report();

  private:
    std::array<std::atomic<unsigned int>, ZTSAL_Count> mLost{};
};
