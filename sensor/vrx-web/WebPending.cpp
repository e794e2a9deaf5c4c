// Stands in for what is not there yet.
#include "WebMetrics.h"
#include "WebRoutes.h"
#include "WebStream.h"

// ---- WebRequest, WebRoutes ----

std::vector<ZTSWebParameter> readWebParameters(std::string_view /*aQuery*/) {
    return {};
}

const ZTSWebRoute* findWebRoute(std::string_view aPath) {
    for (const ZTSWebRoute& lrRoute : listWebRoutes()) {
        if (lrRoute.mPath == aPath || (lrRoute.mPath.ends_with('/') && aPath.starts_with(lrRoute.mPath))) {
            return &lrRoute;
        }
    }
    return nullptr;
}

std::span<const ZTSWebRoute> listWebRoutes() {
    static const ZTSWebRoute sRoutes[] = {
        {"/api/v1/ports", &answerPorts, {}},         {"/api/v1/paths", &answerPaths, {}},
        {"/api/v1/changes", &answerChanges, {}},     {"/api/v1/records", &answerRecords, {}},
        {"/api/v1/timeline", &answerTimeline, {}},   {"/api/v1/incidents", &answerIncidents, {}},
        {"/api/v1/incidents/", &answerIncident, {}}, {"/api/v1/fpins", &answerFpins, {}},
        {"/api/v1/stalls", &answerStalls, {}},       {"/api/v1/losses", &answerLosses, {}},
        {"/api/v1/measures", &answerMeasures, {}}};
    return sRoutes;
}

void checkWebParameters(const ZTSWebRoute& /*acrRoute*/, const ZTSWebRequest& /*acrRequest*/) {}

#define ZT_PENDING(name)                                                               \
    ZTSWebAnswer name(ZTCWebHistory& arHistory, const ZTSWebRequest& /*acrRequest*/) { \
        arHistory.getReader();                                                         \
        return answerError(503, #name " is not there yet");                            \
    }

// ---- WebPorts, WebPaths, WebChanges, WebRecords, WebIncidents, WebHost ----
ZT_PENDING(answerPorts)
ZT_PENDING(answerPaths)
ZT_PENDING(answerChanges)
ZT_PENDING(answerRecords)
ZT_PENDING(answerIncidents)
ZT_PENDING(answerIncident)
ZT_PENDING(answerFpins)
ZT_PENDING(answerStalls)
ZT_PENDING(answerLosses)

// ---- WebTimeline, WebMeasures ----
ZT_PENDING(answerTimeline)
ZT_PENDING(answerMeasures)

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
