#include "WebLists.h"

namespace {

constexpr auto sAll = [](const auto& /*acrItem*/) { return true; };

}  // namespace

ZTSWebAnswer answerFpins(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    return answerNewest<ZTSStoredFpin>(arHistory, acrRequest, "fpins", sAll);
}

ZTSWebAnswer answerStalls(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    return answerNewest<ZTSStoredStall>(arHistory, acrRequest, "stalls", sAll);
}

ZTSWebAnswer answerLosses(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    return answerNewest<ZTSLoss>(arHistory, acrRequest, "losses", sAll);
}
