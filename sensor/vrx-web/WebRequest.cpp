#include "WebRequest.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "ShownText.h"
#include "Utf8.h"

namespace {

constexpr std::size_t sMostParameters = 64;
constexpr std::size_t sLongest = 256;  // bytes of a name or a value, decoded

// What somebody has sent, in a line that is answered.
std::string sQuoted(std::string_view aText) {
    constexpr std::size_t lMost = 64;
    return "'" + toShownText(aText.substr(0, lMost)) + (aText.size() > lMost ? "...'" : "'");
}

int sDigitOf(char aSign) {
    const auto lIsFrom = [aSign](char aFirst, char aLast) { return aSign >= aFirst && aSign <= aLast; };
    return lIsFrom('0', '9')   ? aSign - '0'
           : lIsFrom('a', 'f') ? aSign - 'a' + 10
           : lIsFrom('A', 'F') ? aSign - 'A' + 10
                               : -1;
}

std::string sDecoded(std::string_view aText) {
    std::string lText;
    lText.reserve(std::min(aText.size(), sLongest + 1));
    for (std::size_t lAt = 0; lAt < aText.size() && lText.size() <= sLongest; ++lAt) {
        if (aText[lAt] != '%') {
            lText += aText[lAt] == '+' ? ' ' : aText[lAt];
            continue;
        }
        const int lHigh = lAt + 2 < aText.size() ? sDigitOf(aText[lAt + 1]) : -1;
        const int lLow = lAt + 2 < aText.size() ? sDigitOf(aText[lAt + 2]) : -1;
        if (lHigh < 0 || lLow < 0) {
            throw ZTCWebRefusal("a parameter has a '%' without two hexadecimal digits behind it");
        }
        lText += static_cast<char>(16 * lHigh + lLow);
        lAt += 2;
    }
    return lText;
}

// One line of text: only that is put into answers, and compared with what the history has.
void sCheckText(std::string_view aText) {
    if (aText.size() > sLongest) {
        throw ZTCWebRefusal(fmt::format("a parameter has more than {} bytes", sLongest));
    }
    constexpr std::uint32_t lDelete = 0x7f;
    constexpr std::uint32_t lBehindControls = 0xa0;  // of the second set, which begins with the sign above
    while (!aText.empty()) {
        const ZTSCharacter lFirst = firstCharacterOf(aText);
        if (lFirst.mLength == 0) {
            throw ZTCWebRefusal("a parameter is no UTF-8");
        }
        if (lFirst.mCode < ' ' || (lFirst.mCode >= lDelete && lFirst.mCode < lBehindControls)) {
            throw ZTCWebRefusal("a parameter has a control character");
        }
        aText.remove_prefix(lFirst.mLength);
    }
}

ZTSWebParameter sReadParameter(std::string_view aText) {
    const std::size_t lNameEnd = std::min(aText.find('='), aText.size());
    ZTSWebParameter lParameter{sDecoded(aText.substr(0, lNameEnd)),
                               sDecoded(aText.substr(std::min(lNameEnd + 1, aText.size())))};
    sCheckText(lParameter.mName);
    sCheckText(lParameter.mValue);
    return lParameter;
}

}  // namespace

std::vector<ZTSWebParameter> readWebParameters(std::string_view aQuery) {
    std::vector<ZTSWebParameter> lParameters;
    while (!aQuery.empty()) {
        const std::size_t lEnd = std::min(aQuery.find('&'), aQuery.size());
        if (lEnd != 0) {
            if (lParameters.size() == sMostParameters) {
                throw ZTCWebRefusal(fmt::format("there are more than {} parameters", sMostParameters));
            }
            lParameters.push_back(sReadParameter(aQuery.substr(0, lEnd)));
        }
        aQuery.remove_prefix(std::min(lEnd + 1, aQuery.size()));
    }
    return lParameters;
}

const std::string& textOf(const ZTSWebRequest& acrRequest, std::string_view aName) {
    static const std::string sNone;
    for (const ZTSWebParameter& lrParameter : acrRequest.mParameters) {
        if (lrParameter.mName == aName) {
            return lrParameter.mValue;
        }
    }
    return sNone;
}

std::vector<std::string> textsOf(const ZTSWebRequest& acrRequest, std::string_view aName) {
    std::vector<std::string> lTexts;
    for (const ZTSWebParameter& lrParameter : acrRequest.mParameters) {
        if (lrParameter.mName == aName && !lrParameter.mValue.empty()) {
            lTexts.push_back(lrParameter.mValue);
        }
    }
    return lTexts;
}

std::uint64_t numberOf(const ZTSWebRequest& acrRequest, std::string_view aName, std::uint64_t aElse,
                       std::uint64_t aMost) {
    const std::string& lrText = textOf(acrRequest, aName);
    if (lrText.empty()) {
        return aElse;
    }
    std::uint64_t lNumber = 0;
    const char* const lpEnd = lrText.data() + lrText.size();
    const auto lRead = std::from_chars(lrText.data(), lpEnd, lNumber);
    if (lRead.ec != std::errc() || lRead.ptr != lpEnd || lNumber == 0 || lNumber > aMost) {
        throw ZTCWebRefusal(fmt::format("{} {} is no number from 1 to {}", aName, sQuoted(lrText), aMost));
    }
    return lNumber;
}

std::string_view choiceOf(const ZTSWebRequest& acrRequest, std::string_view aName,
                          std::span<const std::string_view> aChoices) {
    const std::string& lrText = textOf(acrRequest, aName);
    const auto lAt = lrText.empty() ? aChoices.begin() : std::ranges::find(aChoices, lrText);
    if (lAt == aChoices.end()) {
        throw ZTCWebRefusal(
            fmt::format("{} {} is none of {}", aName, sQuoted(lrText), fmt::join(aChoices, ", ")));
    }
    return *lAt;
}

ZTSHistoryAsk historyAskOf(const ZTSWebRequest& acrRequest) {
    ZTSHistoryAsk lAsk;
    lAsk.mSince = textOf(acrRequest, "since");
    lAsk.mUntil = textOf(acrRequest, "until");
    lAsk.mKinds = textsOf(acrRequest, "kind");
    lAsk.mInitiators = textsOf(acrRequest, "initiator");
    lAsk.mTargets = textsOf(acrRequest, "target");
    lAsk.mFabric = textOf(acrRequest, "fabric");
    lAsk.mHost = textOf(acrRequest, "host");
    return lAsk;
}
