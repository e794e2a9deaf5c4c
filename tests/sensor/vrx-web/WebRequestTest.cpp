// What stands behind "?", and which paths there are.
#include "TestSupport.h"
#include "WebRequest.h"
#include "WebRoutes.h"

namespace {

std::string shown(const std::vector<ZTSWebParameter>& acrParameters) {
    std::string lText;
    for (const ZTSWebParameter& lrParameter : acrParameters) {
        lText += "[" + lrParameter.mName + "|" + lrParameter.mValue + "]";
    }
    return lText;
}

std::string read(const std::string& acrQuery) {
    try {
        return shown(readWebParameters(acrQuery));
    } catch (const ZTCWebRefusal& lrRefusal) {
        return lrRefusal.what();
    }
}

TEST(WebRequest, ReadsParametersOrRefusesThemInOneLine) {
    const std::string lLong(256, 'x');
    std::string lMany = "a=1";
    for (int lAt = 1; lAt < 64; ++lAt) {
        lMany += "&a=1";
    }
    const std::pair<std::string, std::string> lCases[] = {
        {"", ""},
        {"a=1&b=2", "[a|1][b|2]"},
        {"&&a&=&b=", "[a|][|][b|]"},
        {"a=b=c&%61=%41+%2b%2B", "[a|b=c][a|A ++]"},
        {"name=%c3%a4%f0%9f%99%82", "[name|\u00e4\U0001f642]"},
        {"a=%", "a parameter has a '%' without two hexadecimal digits behind it"},
        {"a=%4", "a parameter has a '%' without two hexadecimal digits behind it"},
        {"%4g=1", "a parameter has a '%' without two hexadecimal digits behind it"},
        {"a=%00", "a parameter has a control character"},
        {"a=x%0d%0aSet-Cookie:", "a parameter has a control character"},
        {"a=%c2%85", "a parameter has a control character"},
        {"%7f", "a parameter has a control character"},
        {"a=%ff", "a parameter is no UTF-8"},
        {"a=%c0%af", "a parameter is no UTF-8"},     // a longer form of '/'
        {"a=%ed%a0%80", "a parameter is no UTF-8"},  // half of a pair
        {"a=" + lLong, "[a|" + lLong + "]"},
        {"a=" + lLong + "x", "a parameter has more than 256 bytes"},
        {lLong + "xy=1", "a parameter has more than 256 bytes"},
        {lMany + "&", read(lMany)},
        {lMany + "&a", "there are more than 64 parameters"}};
    for (const auto& [lrQuery, lrResult] : lCases) {
        EXPECT_EQ(read(lrQuery), lrResult) << lrQuery;
    }
    // Nothing is read behind the end of the bytes.
    for (const std::string lText : {"a=%4", "a=%", "a=%c3"}) {
        const std::vector<char> lExact(lText.begin(), lText.end());
        EXPECT_THROW(readWebParameters({lExact.data(), lExact.size()}), ZTCWebRefusal);
    }
}

TEST(WebRequest, FindsWhatAParameterSays) {
    constexpr std::string_view lChoices[] = {"json", "csv"};
    const ZTSWebRequest lRequest{
        "/", readWebParameters("limit=7&kind=a&kind=&kind=b&format=csv&since=&big=1001"), ""};
    EXPECT_EQ(numberOf(lRequest, "limit", 5, 1000), 7U);
    EXPECT_EQ(numberOf(lRequest, "since", 5, 1000), 5U);
    EXPECT_EQ(textsOf(lRequest, "kind"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(textOf(lRequest, "none"), "");
    EXPECT_EQ(choiceOf(lRequest, "format", lChoices), "csv");
    EXPECT_EQ(choiceOf(lRequest, "none", lChoices), "json");
    EXPECT_THROW(choiceOf(lRequest, "limit", lChoices), ZTCWebRefusal);
    EXPECT_THROW(numberOf(lRequest, "big", 5, 1000), ZTCWebRefusal);
    for (const char* const lpNumber : {"0", "-1", "1x", " 1", "99999999999999999999", "0x10"}) {
        const ZTSWebRequest lOdd{"/", {{"limit", lpNumber}}, ""};
        EXPECT_THROW(numberOf(lOdd, "limit", 5, 1000), ZTCWebRefusal) << lpNumber;
    }
}

TEST(WebRoutes, AreThoseOfTheirPathsAndTakeTheirParametersOnce) {
    for (const ZTSWebRoute& lrRoute : listWebRoutes()) {
        const std::string lPath(lrRoute.mPath);
        EXPECT_EQ(findWebRoute(lPath.ends_with('/') ? lPath + "12" : lPath), &lrRoute);
    }
    for (const char* const lpPath :
         {"", "/", "/api", "/api/v1/", "/api/v1/port", "/api/v1/portsx", "/api/v1/ports/", "/API/V1/ports",
          "/api/v1/incidents/", "/api/v1/incidents/1/2", "/api/v1/../v1/ports", "/api/v1/%70orts"}) {
        EXPECT_EQ(findWebRoute(lpPath), nullptr) << lpPath;
    }
    const auto lCheck = [](const char* apPath, const char* apQuery) {
        const ZTSWebRequest lRequest{apPath, readWebParameters(apQuery), ""};
        try {
            checkWebParameters(*findWebRoute(apPath), lRequest);
        } catch (const ZTCWebRefusal& lrRefusal) {
            return std::string(lrRefusal.what());
        }
        return std::string();
    };
    EXPECT_EQ(lCheck("/api/v1/records", "kind=a&kind=b&initiator=a&initiator=b&target=c&target=d&limit=1"),
              "");
    EXPECT_EQ(lCheck("/api/v1/records", "limit=1&kind=a&limit=1"),
              "the parameter 'limit' stands there twice");
    EXPECT_EQ(lCheck("/api/v1/ports", "limit=1"), "there is no parameter 'limit' here, but none");
    EXPECT_EQ(lCheck("/api/v1/fpins", "Limit=1"),
              "there is no parameter 'Limit' here, but since, until, limit");
}

}  // namespace
