#include "LossLines.h"

#include <new>

namespace {

constexpr std::chrono::seconds sEvery(10);

}  // namespace

void ZTCLossLines::take(const std::vector<ZTSLoss>& acrLosses,
                        std::chrono::steady_clock::time_point aNow) noexcept try {
    for (const ZTSLoss& lrLoss : acrLosses) {
        mLosses[lrLoss.mSource + " " + lrLoss.mReason] += lrLoss.mEvents.value_or(0);
    }
    if (mLosses.empty() || aNow < mNext) {
        return;
    }
    mNext = aNow + sEvery;
    std::string lText;
    for (const auto& [lrReason, lEvents] : mLosses) {
        lText += (lText.empty() ? "" : ", ") + lrReason + " " +
                 (lEvents != 0 ? std::to_string(lEvents) : "unknown");
    }
    mLosses.clear();
    mrLog.note(ZTSL_Warning, "events were lost: %s", lText.c_str());
} catch (const std::bad_alloc&) {
    // The history has them all the same.
}
