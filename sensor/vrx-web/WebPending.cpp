// Stands in for what is not there yet.
#include "WebMetrics.h"
#include "WebStream.h"

// ---- WebMetrics, WebState, WebStream ----

ZTSWebAnswer answerMetrics(ZTCWebHistory& /*arHistory*/, ZTCWebHealth& /*arHealth*/) {
    return answerError(503, "not there yet");
}

ZTCWebHealth::ZTCWebHealth(std::string aFigures) : mFigures(std::move(aFigures)) {}
void ZTCWebHealth::noteHistory(const std::string& acrWhy) {
    const std::lock_guard lLock(mMutex);
    mHistory = acrWhy;
}
ZTSWebState ZTCWebHealth::getState(ZTNanoseconds /*aNow*/) {
    return {};
}
ZTSWebAnswer answerHealth(const ZTSWebState& /*acrState*/) {
    return answerJson("{\"status\":\"ok\"}\n");
}

class ZTCWebStream::Impl {};
ZTCWebStream::ZTCWebStream(std::string /*aStore*/, ZTCWebHealth& /*arHealth*/,
                           std::function<void()> /*aHasNews*/) {}
ZTCWebStream::~ZTCWebStream() = default;
std::optional<ZTCWebStream::Place> ZTCWebStream::begin(const std::string& /*acrLastEventId*/) const {
    return Place{0};
}
ZTCWebStream::Taken ZTCWebStream::take(Place& /*arPlace*/) const {
    return {};
}
ZTCWebStream::CaughtUp ZTCWebStream::catchUp(ZTCWebHistory& /*arHistory*/,
                                             const std::string& /*acrLastEventId*/) const {
    return {};
}
