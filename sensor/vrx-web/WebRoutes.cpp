#include "WebRoutes.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "ShownText.h"

namespace {

using Names = std::span<const std::string_view>;

constexpr std::string_view sOfTime[] = {"since", "until", "limit"};
constexpr std::string_view sOfChanges[] = {"since", "until", "limit", "what"};
constexpr std::string_view sOfRecords[] = {"since",  "until",    "limit", "cursor", "kind",  "initiator",
                                           "target", "incident", "host",  "fabric", "format"};
constexpr std::string_view sOfIncidents[] = {"since", "until", "limit", "state", "class"};
constexpr std::string_view sOfTimeline[] = {"since",     "until",  "bins",   "by",  "kind",
                                            "initiator", "target", "fabric", "host"};
constexpr std::string_view sOfMeasures[] = {"since", "until", "bins", "name", "initiator", "target", "by"};

constexpr ZTSWebRoute sRoutes[] = {{"/api/v1/ports", answerPorts, {}},
                                   {"/api/v1/paths", answerPaths, {}},
                                   {"/api/v1/changes", answerChanges, sOfChanges},
                                   {"/api/v1/records", answerRecords, sOfRecords},
                                   {"/api/v1/timeline", answerTimeline, sOfTimeline},
                                   {"/api/v1/incidents", answerIncidents, sOfIncidents},
                                   {"/api/v1/incidents/", answerIncident, {}},
                                   {"/api/v1/fpins", answerFpins, sOfTime},
                                   {"/api/v1/stalls", answerStalls, sOfTime},
                                   {"/api/v1/losses", answerLosses, sOfTime},
                                   {"/api/v1/measures", answerMeasures, sOfMeasures}};

// Any of several values is meant.
constexpr std::string_view sRepeated[] = {"kind", "initiator", "target", "state", "class", "what", "name"};

template <class List>
bool sHas(const List& acrList, std::string_view aName) {
    return std::ranges::find(acrList, aName) != std::end(acrList);
}

bool sIsAt(const ZTSWebRoute& acrRoute, std::string_view aPath) {
    if (!acrRoute.mPath.ends_with('/')) {
        return aPath == acrRoute.mPath;
    }
    const bool lIsBelow = aPath.starts_with(acrRoute.mPath) && aPath.size() > acrRoute.mPath.size();
    return lIsBelow && aPath.find('/', acrRoute.mPath.size()) == std::string_view::npos;
}

std::string sKnownText(Names aNames) {
    std::string lText = aNames.empty() ? "none" : "";
    for (const std::string_view lName : aNames) {
        (lText += lText.empty() ? "" : ", ") += lName;
    }
    return lText;
}

}  // namespace

const ZTSWebRoute* findWebRoute(std::string_view aPath) {
    const auto* const lpRoute =
        std::ranges::find_if(sRoutes, [&](const ZTSWebRoute& acrRoute) { return sIsAt(acrRoute, aPath); });
    return lpRoute != std::end(sRoutes) ? lpRoute : nullptr;
}

std::span<const ZTSWebRoute> listWebRoutes() {
    return sRoutes;
}

void checkWebParameters(const ZTSWebRoute& acrRoute, const ZTSWebRequest& acrRequest) {
    for (const ZTSWebParameter& lrParameter : acrRequest.mParameters) {
        if (!sHas(acrRoute.mParameters, lrParameter.mName)) {
            throw ZTCWebRefusal("there is no parameter '" + toShownText(lrParameter.mName.substr(0, 64)) +
                                "' here, but " + sKnownText(acrRoute.mParameters));
        }
        const bool lIsTwice =
            std::ranges::count(acrRequest.mParameters, lrParameter.mName, &ZTSWebParameter::mName) > 1;
        if (lIsTwice && !sHas(sRepeated, lrParameter.mName)) {
            throw ZTCWebRefusal("the parameter '" + lrParameter.mName + "' stands there twice");
        }
    }
}
