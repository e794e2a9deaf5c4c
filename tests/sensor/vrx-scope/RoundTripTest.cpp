// Every kind of record from the library's callback to JSON, and no record lost on the way.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <regex>

#include "ScopeProgram.h"

namespace {

using Json = nlohmann::ordered_json;

const std::string sScenarios = ZT_SOURCE_DIR "/libdfc/sim/scenarios/";
const std::string sGolden = ZT_SOURCE_DIR "/tests/sensor/vrx-scope/golden/";

std::vector<Json> linesOf(const std::string& acrText) {
    std::vector<Json> lLines;
    std::istringstream lText(acrText);
    for (std::string lLine; std::getline(lText, lLine);) {
        lLines.push_back(Json::parse(lLine));
    }
    return lLines;
}

// Records that differ in their times alone become one: how a storm's events are cut into records is a matter
// of time.
std::string sumsOf(const std::string& acrLines) {
    static const std::regex sTime(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{9}Z)");
    std::map<std::string, std::uint64_t> lSums;
    for (Json lRecord : linesOf(acrLines)) {
        const std::string lFirst = lRecord["first"];
        const std::string lLast = lRecord["last"];
        EXPECT_TRUE(std::regex_match(lFirst, sTime) && std::regex_match(lLast, sTime) && lFirst <= lLast);
        const std::uint64_t lOccurrences = lRecord["occurrences"];
        for (const char* const lpMasked : {"first", "last", "occurrences"}) {
            lRecord[lpMasked] = nullptr;
        }
        lSums[lRecord.dump()] += lOccurrences;
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

class Golden : public ::testing::TestWithParam<GoldenRow> {};

TEST_P(Golden, RecordsOfAScenarioBecomeTheirJson) {
    const GoldenRow& lrRow = GetParam();
    ZTSTestStand lStand({}, readFile(sScenarios + lrRow.mpScenario + ".scenario"));
    const std::string& lrDirectory = lStand.mDirectory.getPath();
    const ZTCTestDirectory lElsewhere;
    const std::string lFile = lElsewhere / "answers";
    { const ZTCTestSensor lGone(std::move(lStand.mSensor)); }
    askScope(lrDirectory, {"targets", "add", "50:06:01:60:bb:20:11:0c", "500601603b20110c", "010a00"});
    askScope(lrDirectory, {"start"});
    {
        std::unique_ptr<ZTCScopeRun> lRecorder;
        if (lrRow.mIsFetchedMeanwhile) {
            lRecorder = std::make_unique<ZTCScopeRun>(
                lrDirectory, ZTCTestChild::Arguments{"record", lFile, "--every", "1"});
        }
        EXPECT_TRUE(waitUntil([&] { return lStand.mSim.getSent() >= lrRow.mSent; })) << lStand.mSim.getSent();
        if (lRecorder != nullptr) {
            lRecorder->interrupt();
            EXPECT_EQ(lRecorder->waitForEnd(), 0) << lRecorder->getErr();
        }
    }
    askScope(lrDirectory, {"record", lFile});
    EXPECT_EQ(lStand.mSim.getSent(), lrRow.mSent);
    const std::string lSums = sumsOf(askScope(lrDirectory, {"decode", lFile, "--ndjson"}));
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
