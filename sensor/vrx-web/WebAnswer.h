// What is answered to a request.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A plain value: any thread. What every answer has beside it (security, length, date) the server adds.
struct ZTSWebAnswer {
    unsigned int mStatus = 200;
    const char* mpType = "application/json";
    /// Never null; shared by all who are answered the same.
    std::shared_ptr<const std::string> mpBody = std::make_shared<const std::string>();
    std::vector<std::pair<const char*, std::string>> mHeaders{};
};

ZTSWebAnswer answerJson(std::string aBody, unsigned int aStatus = 200);
/// {"error": "one line"}, whatever bytes the text holds.
ZTSWebAnswer answerError(unsigned int aStatus, const std::string& acrText);
