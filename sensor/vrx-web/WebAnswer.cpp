#include "WebAnswer.h"

#include <nlohmann/json.hpp>

ZTSWebAnswer answerJson(std::string aBody, unsigned int aStatus) {
    ZTSWebAnswer lAnswer;
    lAnswer.mStatus = aStatus;
    lAnswer.mpBody = std::make_shared<const std::string>(std::move(aBody));
    return lAnswer;
}

ZTSWebAnswer answerError(unsigned int aStatus, const std::string& acrText) {
    constexpr auto lReplace = nlohmann::json::error_handler_t::replace;
    return answerJson(nlohmann::json{{"error", acrText}}.dump(-1, ' ', true, lReplace) + "\n", aStatus);
}
