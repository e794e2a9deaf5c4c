// What there is to ask for: a row a path (docs/api.md).
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "WebAnswer.h"
#include "WebHistory.h"
#include "WebRequest.h"

/// Answers by the history, in one of the threads that may wait for it. Throws ZTCWebRefusal, ZTCViewUsage
/// (400), ZTCViewMissing (404), ZTCStoreError (503), std::bad_alloc (503).
using ZTWebAnswering = ZTSWebAnswer (*)(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);

struct ZTSWebRoute {
    std::string_view mPath;  ///< what ends in "/" takes one more part behind it: "/api/v1/incidents/"
    ZTWebAnswering mpAnswer;
    std::span<const std::string_view> mParameters;  ///< that it knows; any other one is refused
};

/// Null: there is no such path among those of the history's.
const ZTSWebRoute* findWebRoute(std::string_view aPath);
std::span<const ZTSWebRoute> listWebRoutes();
/// Throws ZTCWebRefusal for a parameter that the route does not know, or that stands there twice where once
/// is enough.
void checkWebParameters(const ZTSWebRoute& acrRoute, const ZTSWebRequest& acrRequest);

// One source each: WebPorts.cpp, WebPaths.cpp, WebChanges.cpp, WebRecords.cpp, WebTimeline.cpp,
// WebIncidents.cpp, WebHost.cpp (FPINs, stalls, losses), WebMeasures.cpp.
ZTSWebAnswer answerPorts(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerPaths(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerChanges(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerRecords(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerTimeline(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerIncidents(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerIncident(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerFpins(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerStalls(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerLosses(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
ZTSWebAnswer answerMeasures(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest);
