// Stands in for what is not there yet.
#include "WebMetrics.h"
#include "WebRoutes.h"

// ---- WebTimeline, WebMeasures ----

ZTSWebAnswer answerTimeline(ZTCWebHistory& /*arHistory*/, const ZTSWebRequest& /*acrRequest*/) {
    return answerError(503, "not there yet");
}
ZTSWebAnswer answerMeasures(ZTCWebHistory& /*arHistory*/, const ZTSWebRequest& /*acrRequest*/) {
    return answerError(503, "not there yet");
}

// ---- WebMetrics ----

ZTCWebMetrics::ZTCWebMetrics(ZTCWebHealth& /*arHealth*/, std::string /*aSinks*/) {}
void ZTCWebMetrics::read(ZTCStoreReader& /*arReader*/) {}
ZTSWebAnswer ZTCWebMetrics::answer() const {
    return answerError(503, "not there yet");
}
