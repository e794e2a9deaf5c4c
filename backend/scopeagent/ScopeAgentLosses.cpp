#include "ScopeAgentLosses.h"

#include "Log.h"

namespace {

constexpr char sFile[] = "ScopeAgentLosses";

}  // namespace

void ZTCScopeAgentLosses::report() {
    std::array<unsigned int, ZTSAL_Count> lLost;
    unsigned int lAny = 0;
    for (unsigned int lAt = 0; lAt < ZTSAL_Count; ++lAt) {
        lLost[lAt] = mLost[lAt].exchange(0, std::memory_order_relaxed);
        lAny |= lLost[lAt];
    }
    if (lAny != 0) {
        Log(ZTLL_Notice, sFile,
            "Events lost since the last fetch: %u at the limit, %u of unknown boards, %u too short, %u of "
            "unknown "
            "kinds, %u for want of memory, %u malformed",
            lLost[ZTSAL_Limit], lLost[ZTSAL_UnknownBoard], lLost[ZTSAL_TooShort], lLost[ZTSAL_UnknownKind],
            lLost[ZTSAL_NoMemory], lLost[ZTSAL_Malformed]);
    }
}
