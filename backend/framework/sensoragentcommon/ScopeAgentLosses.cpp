#include "ScopeAgentLosses.h"

#include "Log.h"

namespace {

constexpr char sFile[] = "ScopeAgentLosses";

}  // namespace

std::array<std::uint64_t, ZTSAL_Count> ZTCScopeAgentLosses::now() {
    std::array<std::uint64_t, ZTSAL_Count> lCounts{};
    for (unsigned int lAt = 0; lAt < ZTSAL_Count; ++lAt) {
        lCounts[lAt] = ZTGetStatistic(ZTRowOf(ZTS_Lost, lAt));
    }
    return lCounts;
}

ZTCScopeAgentLosses::Counts ZTCScopeAgentLosses::take() {
    const auto lNow = now();
    Counts lNew{};
    for (unsigned int lAt = 0; lAt < ZTSAL_Count; ++lAt) {
        lNew[lAt] = static_cast<unsigned int>(lNow[lAt] - mTold[lAt]);
    }
    mTold = lNow;
    return lNew;
}

void ZTCScopeAgentLosses::report() {
    const Counts lLost = take();
    if (lLost != Counts{}) {
        Log(ZTLL_Notice, sFile,
            "Events lost since the last fetch: %u at the limit, %u of unknown boards, %u too short, %u of unknown kinds, %u for want of memory, %u malformed",
            lLost[ZTSAL_Limit], lLost[ZTSAL_UnknownBoard], lLost[ZTSAL_TooShort], lLost[ZTSAL_UnknownKind],
            lLost[ZTSAL_NoMemory], lLost[ZTSAL_Malformed]);
    }
}
