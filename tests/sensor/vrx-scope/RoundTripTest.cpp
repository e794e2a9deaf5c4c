// Every kind of record from the library's callback to JSON, and no record lost on the way.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>

#include "ScopeProgram.h"

namespace {

using Json = nlohmann::ordered_json;

const std::string sScenarios = ZT_SOURCE_DIR "/libdfc/sim/scenarios/";
const std::string sGolden = ZT_SOURCE_DIR "/tests/sensor/vrx-scope/golden/";

// The scenario as fast as it goes: no time is waited for, and storms are ten times as dense. Each is told how
// many events it has, for one that is told how long it lasts leaves out what a slow machine is late with.
std::string hasten(std::string aScenario) {
    aScenario = std::regex_replace(aScenario, std::regex(R"(\nwait \d.*)"), "");
    const std::regex lStorm(R"(rate=(\d+) for=(\d+)s)");
    for (std::smatch lMatch; std::regex_search(aScenario, lMatch, lStorm);) {
        const std::string lTimes = std::to_string(std::stoul(lMatch[1]) * std::stoul(lMatch[2]));
        aScenario =
            lMatch.prefix().str() + "rate=" + lMatch[1].str() + "0 times=" + lTimes + lMatch.suffix().str();
    }
    return aScenario + "\nwait storms";
}

// Records that differ in their times alone become one: how a storm's events are cut into records is a matter
// of time. There are thousands of lines: only what is different is parsed.
std::string sumsOf(const std::string& acrLines) {
    std::map<std::string, std::uint64_t> lSums;
    std::istringstream lLines(acrLines);
    for (std::string lLine; std::getline(lLines, lLine);) {
        const auto lTake = [&](const std::string& acrName) {
            const std::size_t lAt = lLine.find(acrName) + acrName.size();
            const std::size_t lSize = lLine.find(',', lAt) - lAt;
            const std::string lValue = lLine.substr(lAt, lSize);
            lLine.replace(lAt, lSize, "null");
            return lValue;
        };
        const std::string lOccurrences = lTake("\"occurrences\":");
        std::string lFirst = lTake("\"first\":");
        std::string lLast = lTake("\"last\":");
        EXPECT_LE(lFirst, lLast);
        for (std::string* const lpTime : {&lFirst, &lLast}) {
            std::replace_if(
                lpTime->begin(), lpTime->end(), [](char aChar) { return aChar >= '0' && aChar <= '9'; }, '0');
            EXPECT_EQ(*lpTime, "\"0000-00-00T00:00:00.000000000Z\"");
        }
        lSums[lLine] += std::stoull(lOccurrences);
    }
    std::string lText;
    for (const auto& [lrRecord, lSum] : lSums) {
        Json lRecord = Json::parse(lrRecord);
        lRecord["occurrences"] = lSum;
        lText += lRecord.dump() + "\n";
    }
    return lText;
}

struct GoldenRow {
    const char* mpScenario;
    std::uint64_t mSent;  // calls of the agent's callbacks
    bool mIsFetchedMeanwhile;
};
void PrintTo(const GoldenRow& acrRow, std::ostream* apStream) {
    *apStream << acrRow.mpScenario;
}

class Golden : public ::testing::TestWithParam<GoldenRow> {};

TEST_P(Golden, RecordsOfAScenarioBecomeTheirJson) {
    const GoldenRow& lrRow = GetParam();
    ZTSTestStand lStand;
    const std::string& lrDirectory = lStand.mDirectory.getPath();
    const ZTCTestDirectory lElsewhere;
    const std::string lFile = lElsewhere / "answers";
    { const ZTCTestSensor lGone(std::move(lStand.mSensor)); }
    askScope(lrDirectory, {"targets", "add", "50:06:01:60:bb:20:11:0c", "500601603b20110c", "010a00"});
    askScope(lrDirectory, {"start"});
    std::optional<ZTCScopeRun> lRecorder;
    if (lrRow.mIsFetchedMeanwhile) {
        lRecorder.emplace(lrDirectory, ZTCTestChild::Arguments{"record", lFile, "--every", "0.1"});
        EXPECT_TRUE(waitUntil([&] { return !readFile(lFile).empty(); }));
    }
    lStand.mSim.play(hasten(readFile(sScenarios + lrRow.mpScenario + ".scenario")));
    if (lRecorder) {
        lRecorder->interrupt();
        EXPECT_EQ(lRecorder->waitForEnd(), 0) << lRecorder->getErr();
    }
    askScope(lrDirectory, {"record", lFile});
    EXPECT_EQ(lStand.mSim.getSent(), lrRow.mSent);
    const std::string lLines = askScope(lrDirectory, {"decode", lFile, "--ndjson"});
    const std::string lDocument = askScope(lrDirectory, {"decode", lFile, "--json"});
    const Json lParsed = Json::parse(lDocument);
    EXPECT_EQ(lParsed.dump(2) + "\n", lDocument);
    EXPECT_EQ(lParsed["records"].size(), countIn(lLines, "\n"));
    const std::string lLine = lLines.substr(0, lLines.find('\n'));
    EXPECT_EQ(Json::parse(lLine).dump(), lLine);
    const std::string lSums = sumsOf(lLines);
    const std::string lGolden = sGolden + lrRow.mpScenario + ".ndjson";
    if (getenv("ZT_UPDATE_GOLDEN") != nullptr) {
        writeFile(lGolden, lSums);
    }
    EXPECT_EQ(lSums, readFile(lGolden));
    askScope(lrDirectory, {"shutdown"});
    lStand.mAgent.expectEnd();
}

INSTANTIATE_TEST_SUITE_P(Scenario, Golden,
                         ::testing::Values(GoldenRow{"every-kind", 30, false},
                                           GoldenRow{"link-flap", 166, false},
                                           GoldenRow{"fabric-reconfiguration", 123, false},
                                           GoldenRow{"slow-drain", 5264, true}),
                         [](const auto& acrInfo) {
                             std::string lName = acrInfo.param.mpScenario;
                             std::erase(lName, '-');
                             return lName;
                         });

}  // namespace
