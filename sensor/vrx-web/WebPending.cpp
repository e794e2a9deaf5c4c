// Stands in for what is not there yet.
#include "WebMetrics.h"

// ---- WebMetrics ----

ZTCWebMetrics::ZTCWebMetrics(ZTCWebHealth& /*arHealth*/, std::string /*aSinks*/) {}
void ZTCWebMetrics::read(ZTCStoreReader& /*arReader*/) {}
ZTSWebAnswer ZTCWebMetrics::answer() const {
    return answerError(503, "not there yet");
}
