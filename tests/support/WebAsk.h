// Requests to the functions that answer them, without a server.
#pragma once

#include <nlohmann/json.hpp>

#include "ViewAsk.h"
#include "WebRoutes.h"

struct ZTSWebAsked {
    ZTSWebAnswer mAnswer;
    nlohmann::ordered_json mJson;

    const std::string& getText() const { return *mAnswer.mpBody; }
};

/// As a thread of vrx-web answers it: "/api/v1/records?limit=1".
inline ZTSWebAnswer ZTAnswerWeb(ZTCWebHistory& arHistory, const std::string& acrTarget) {
    const std::size_t lMark = std::min(acrTarget.find('?'), acrTarget.size());
    try {
        ZTSWebRequest lRequest{acrTarget.substr(0, lMark), {}, ""};
        const ZTSWebRoute* const lpRoute = findWebRoute(lRequest.mPath);
        if (lpRoute == nullptr) {
            return answerError(404, "there is no such path");
        }
        lRequest.mParameters =
            readWebParameters(std::string_view(acrTarget).substr(std::min(lMark + 1, acrTarget.size())));
        checkWebParameters(*lpRoute, lRequest);
        return lpRoute->mpAnswer(arHistory, lRequest);
    } catch (const ZTCWebRefusal& lrError) {
        return answerError(400, lrError.what());
    } catch (const ZTCViewUsage& lrError) {
        return answerError(400, lrError.what());
    } catch (const ZTCViewMissing& lrError) {
        return answerError(404, lrError.what());
    }
}

/// The same, as JSON; of lines and CSV only the text.
inline ZTSWebAsked ZTAskWeb(ZTCWebHistory& arHistory, const std::string& acrTarget) {
    ZTSWebAsked lAsked{ZTAnswerWeb(arHistory, acrTarget), {}};
    lAsked.mJson = nlohmann::ordered_json::parse(*lAsked.mAnswer.mpBody, nullptr, false);
    return lAsked;
}
