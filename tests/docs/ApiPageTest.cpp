// docs/api.md: its paths, parameters, answers and refusals are those of the program.
#include <nlohmann/json.hpp>

#include "StoryStore.h"
#include "TestPages.h"
#include "WebProgram.h"
#include "WebRoutes.h"
#include "WebState.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr char sPage[] = "docs/api.md";
constexpr char sMore[] = "...";

// The small host that the page asks.
struct Host {
    Host() { ZTWriteShownStory(mDirectory / "history.db"); }

    const ZTCTestDirectory mDirectory;
};
struct Program : Host, ZTCWebRun {
    Program() : ZTCWebRun(mDirectory / "history.db") {}
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
    const Program lProgram;
    std::set<const ZTSWebRoute*> lShown;
    for (const Example& lrExample : readExamples()) {
        const ZTSWebRoute* const lpRoute =
            findWebRoute(lrExample.mTarget.substr(0, lrExample.mTarget.find('?')));
        if (lpRoute != nullptr) {
            const ZTSWebReply lReply = lProgram.get(lrExample.mTarget);
            EXPECT_TRUE(isAsShown(Json::parse(lrExample.mBody, nullptr, false),
                                  Json::parse(lReply.mBody, nullptr, false)))
                << lrExample.mTarget << "\n"
                << lReply.mBody;
            lShown.insert(lpRoute);
        }
    }
    for (const ZTSWebRoute& lrRoute : listWebRoutes()) {
        EXPECT_TRUE(lShown.contains(&lrRoute)) << lrRoute.mPath << " has no example";
    }
}

TEST(ApiPage, ShowsWhatIsSaidOfHealth) {
    constexpr ZTNanoseconds lMoment = 1'795'248'000 * ZTSecond;  // 2026-11-21 08:00
    ZTSWebState lState;
    lState.mWriting =
        "vrx-sn has not been able to write the history since 2026-11-21 08:00:00.000 UTC: its journal says why";
    lState.mSince = lMoment;
    lState.mLastFetch = lMoment + 300 * ZTSecond;
    lState.mPeriodMs = 1000;
    lState.mHasAgent = true;
    const std::vector<Example> lExamples = readExamples();
    const auto lHealth = std::ranges::find(lExamples, "/healthz", &Example::mTarget);
    ASSERT_NE(lHealth, lExamples.end());
    EXPECT_EQ(Json::parse(lHealth->mBody, nullptr, false), Json::parse(*answerHealth(lState).mpBody));
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
    const Program lProgram;
    for (const ZTTestTexts& lrRow : rowsOf(sPage, "request | status | error")) {
        const std::string lTarget = matchesIn(lrRow.at(0), "`(.*)`").at(0)[0];
        const ZTSWebReply lReply = lProgram.get(lTarget);
        EXPECT_EQ(std::to_string(lReply.mStatus), lrRow.at(1)) << lTarget;
        const Json lError = Json::parse(lReply.mBody, nullptr, false);
        EXPECT_EQ("`" + lError.value("error", "") + "`", lrRow.at(2)) << lTarget;
    }
}

TEST(ApiPage, HasTheColumnsOfCsv) {
    const Program lProgram;
    std::string lHeading;
    std::string lRow;
    const std::string lTarget = "/api/v1/records?limit=1&format=";
    const Json lRecord = Json::parse(lProgram.get(lTarget + "ndjson").mBody);
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
    EXPECT_EQ(lProgram.get(lTarget + "csv").mBody, lHeading + "\r\n" + lRow + "\r\n");
}

}  // namespace
