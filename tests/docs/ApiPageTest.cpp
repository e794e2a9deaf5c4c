// docs/api.md: its paths, parameters, answers and refusals are those of the program.
#include "StoryStore.h"
#include "TestPages.h"
#include "WebAsk.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr char sPage[] = "docs/api.md";
constexpr char sMore[] = "...";

// The small host that the page asks.
struct Host {
    Host() { ZTWriteShownStory(mDirectory / "history.db"); }

    const ZTCTestDirectory mDirectory;
    ZTCWebHistory mHistory{mDirectory / "history.db"};
};

// Whether an answer is what the page shows: all of it, or what stands before "...".
bool isAsShown(const Json& acrShown, const Json& acrAnswer) {
    if (acrShown.is_object() && acrAnswer.is_object()) {
        const bool lIsPart = acrShown.contains(sMore);
        for (const auto& [lrName, lrValue] : acrShown.items()) {
            if (lrName != sMore &&
                (!acrAnswer.contains(lrName) || !isAsShown(lrValue, acrAnswer.at(lrName)))) {
                return false;
            }
        }
        return lIsPart ? acrAnswer.size() >= acrShown.size() : acrAnswer.size() == acrShown.size();
    }
    if (acrShown.is_array() && acrAnswer.is_array()) {
        const bool lIsPart = !acrShown.empty() && acrShown.back() == sMore;
        const std::size_t lCount = acrShown.size() - (lIsPart ? 1 : 0);
        return (lIsPart ? acrAnswer.size() > lCount : acrAnswer.size() == lCount) &&
               std::equal(acrShown.begin(), acrShown.begin() + static_cast<std::ptrdiff_t>(lCount),
                          acrAnswer.begin(), isAsShown);
    }
    return acrShown == acrAnswer;
}

struct Example {
    std::string mTarget;
    std::string mBody;
};

// What stands between the page's fences: a request, and its answer.
std::vector<Example> readExamples() {
    std::vector<Example> lExamples;
    std::istringstream lPage(sourceOf(sPage));
    bool lIsIn = false;
    for (std::string lLine; std::getline(lPage, lLine);) {
        if (lLine.starts_with("GET /")) {
            lExamples.push_back({lLine.substr(4), ""});
        } else if (lLine.starts_with("```")) {
            lIsIn = lLine == "```json";
        } else if (lIsIn && !lExamples.empty()) {
            (lExamples.back().mBody += lLine) += '\n';
        }
    }
    return lExamples;
}

TEST(ApiPage, ShowsEachAnswerAsItIs) {
    Host lHost;
    std::set<const ZTSWebRoute*> lShown;
    for (const Example& lrExample : readExamples()) {
        const ZTSWebRoute* const lpRoute =
            findWebRoute(lrExample.mTarget.substr(0, lrExample.mTarget.find('?')));
        if (lpRoute != nullptr) {
            const Json lPage = Json::parse(lrExample.mBody, nullptr, false);
            const ZTSWebAsked lAsked = ZTAskWeb(lHost.mHistory, lrExample.mTarget);
            EXPECT_TRUE(isAsShown(lPage, lAsked.mJson)) << lrExample.mTarget << "\n" << lAsked.mJson.dump(1);
            lShown.insert(lpRoute);
        }
    }
    for (const ZTSWebRoute& lrRoute : listWebRoutes()) {
        EXPECT_TRUE(lShown.contains(&lrRoute)) << lrRoute.mPath << " has no example";
    }
}

TEST(ApiPage, HasThePathsAndTheirParameters) {
    ZTTestMap lCode;
    for (const ZTSWebRoute& lrRoute : listWebRoutes()) {
        std::string& lrParameters = lCode["`" + std::string(lrRoute.mPath) + "`"];
        for (const std::string_view lName : lrRoute.mParameters) {
            lrParameters += (lrParameters.empty() ? "`" : ", `") + std::string(lName) + "`";
        }
    }
    EXPECT_EQ(mapOf(sPage, "path | parameters", 0, 1), lCode);
}

TEST(ApiPage, HasWhatIsRefused) {
    Host lHost;
    for (const ZTTestTexts& lrRow : rowsOf(sPage, "request | status | error")) {
        const std::string lTarget = matchesIn(lrRow.at(0), "`(.*)`").at(0)[0];
        const ZTSWebAsked lAsked = ZTAskWeb(lHost.mHistory, lTarget);
        EXPECT_EQ(std::to_string(lAsked.mAnswer.mStatus), lrRow.at(1)) << lTarget;
        EXPECT_EQ("`" + lAsked.mJson.value("error", "") + "`", lrRow.at(2)) << lTarget;
    }
}

TEST(ApiPage, HasTheColumnsOfCsv) {
    Host lHost;
    std::string lHeading;
    std::string lRow;
    const std::string lTarget = "/api/v1/records?limit=1&format=";
    const Json lRecord = Json::parse(*ZTAnswerWeb(lHost.mHistory, lTarget + "ndjson").mpBody);
    for (const ZTTestTexts& lrColumn : rowsOf(sPage, "column | of the record")) {
        const std::string lName = matchesIn(lrColumn.at(0), "`(.*)`").at(0)[0];
        std::string lPlace = "/" + matchesIn(lrColumn.at(1), "`(.*)`").at(0)[0];
        std::ranges::replace(lPlace, '.', '/');
        const Json lValue = lRecord.value(Json::json_pointer(lPlace), Json());
        (lHeading += lHeading.empty() ? "" : ",") += lName;
        lRow += lRow.empty() ? "" : ",";
        lRow += lValue.is_null() ? ""
                : lValue.is_object()
                    ? "\"" + std::regex_replace(lValue.dump(), std::regex("\""), "\"\"") + "\""
                : lValue.is_string() ? lValue.get<std::string>()
                                     : lValue.dump();
    }
    EXPECT_EQ(*ZTAnswerWeb(lHost.mHistory, lTarget + "csv").mpBody, lHeading + "\r\n" + lRow + "\r\n");
}

}  // namespace
