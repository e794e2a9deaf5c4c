#include "WebGuard.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace {

constexpr std::size_t sLongestName = 253;
constexpr std::size_t sShortestToken = 16;
constexpr std::string_view sBearer = "Bearer ";

bool sIsAlike(std::string_view aOne, std::string_view aOther) {
    return aOne.size() == aOther.size() && strncasecmp(aOne.data(), aOther.data(), aOne.size()) == 0;
}

bool sIsDigits(std::string_view aText) {
    return std::all_of(aText.begin(), aText.end(), [](char aSign) { return aSign >= '0' && aSign <= '9'; });
}

bool sIsAddress(int aFamily, std::string_view aText) {
    unsigned char lBytes[sizeof(in6_addr)];
    char lText[INET6_ADDRSTRLEN] = "";
    if (aText.size() >= sizeof lText) {
        return false;
    }
    std::copy(aText.begin(), aText.end(), lText);
    return inet_pton(aFamily, lText, lBytes) == 1;
}

// Without the port. Empty: what stands there is none.
std::string_view sNameOf(std::string_view aHost) {
    const std::size_t lEnd = aHost.starts_with('[') ? aHost.find(']') + 1 : aHost.find(':');
    const std::string_view lName = aHost.substr(0, lEnd);
    const std::string_view lRest = aHost.substr(lName.size());
    return lRest.empty() || (lRest[0] == ':' && lRest.size() <= 6 && sIsDigits(lRest.substr(1)))
               ? lName
               : std::string_view();
}

std::string_view sTrimmed(std::string_view aText) {
    constexpr std::string_view lBlanks = " \t\r";
    aText.remove_prefix(std::min(aText.find_first_not_of(lBlanks), aText.size()));
    return aText.substr(0, aText.find_last_not_of(lBlanks) + 1);
}

bool sIsVisible(std::string_view aText) {
    return std::all_of(aText.begin(), aText.end(), [](char aSign) { return aSign > ' ' && aSign < 127; });
}

// All bytes that there may be are looked at, whatever is there.
unsigned int sDifference(const std::string& acrToken, const char (&acrGiven)[ZTCWebTokens::Longest],
                         std::size_t aSize) {
    char lToken[ZTCWebTokens::Longest] = "";
    acrToken.copy(lToken, sizeof lToken);
    volatile unsigned int lDifference = acrToken.size() == aSize ? 0 : 1;
    for (std::size_t lAt = 0; lAt < sizeof lToken; ++lAt) {
        lDifference = lDifference | static_cast<unsigned char>(lToken[lAt] ^ acrGiven[lAt]);
    }
    return lDifference;
}

}  // namespace

bool isWebHostName(std::string_view aName) {
    return !aName.empty() && aName.size() <= sLongestName &&
           std::all_of(aName.begin(), aName.end(), [](unsigned char aSign) {
               return (isalnum(aSign) != 0 && aSign < 128) || aSign == '.' || aSign == '-' || aSign == '_';
           });
}

bool isAllowedHost(std::string_view aHost, const std::vector<std::string>& acrNames) {
    const std::string_view lName = sNameOf(aHost);
    if (lName.starts_with('[')) {
        return sIsAddress(AF_INET6, lName.substr(1, lName.size() - 2));
    }
    return sIsAddress(AF_INET, lName) || sIsAlike(lName, "localhost") ||
           std::any_of(acrNames.begin(), acrNames.end(),
                       [&](const std::string& acrName) { return sIsAlike(lName, acrName); });
}

bool isPlainTarget(std::string_view aTarget) {
    return aTarget.starts_with('/') && sIsVisible(aTarget) && aTarget.find('#') == std::string_view::npos;
}

ZTCWebTokens::ZTCWebTokens(std::string_view aText) {
    while (!aText.empty()) {
        const std::size_t lEnd = std::min(aText.find('\n'), aText.size());
        const std::string_view lToken = sTrimmed(aText.substr(0, lEnd));
        aText.remove_prefix(std::min(lEnd + 1, aText.size()));
        if (lToken.empty() || lToken[0] == '#') {
            continue;
        }
        if (lToken.size() < sShortestToken || lToken.size() > Longest || !sIsVisible(lToken)) {
            throw std::runtime_error("a token is " + std::to_string(sShortestToken) + " to " +
                                     std::to_string(Longest) + " visible characters in a line");
        }
        mTokens.emplace_back(lToken);
    }
    if (mTokens.empty() || mTokens.size() > Most) {
        throw std::runtime_error(mTokens.empty() ? "there is no token in it"
                                                 : "there are more than 100 tokens");
    }
}

bool ZTCWebTokens::isRight(std::string_view aAuthorization) const {
    if (!sIsAlike(aAuthorization.substr(0, sBearer.size()), sBearer)) {
        return false;
    }
    const std::string_view lGiven = sTrimmed(aAuthorization.substr(sBearer.size()));
    if (lGiven.size() > Longest) {
        return false;
    }
    char lBytes[Longest] = "";
    std::copy(lGiven.begin(), lGiven.end(), lBytes);
    unsigned int lRight = 0;
    for (const std::string& lrToken : mTokens) {
        lRight += sDifference(lrToken, lBytes, lGiven.size()) == 0 ? 1U : 0U;
    }
    return lRight > 0;
}
