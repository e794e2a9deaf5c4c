// Every kind of record from the library's callback to JSON.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "ScopeProgram.h"

namespace {

using Json = nlohmann::ordered_json;

// The lines of records, their times looked at and left out.
std::string timelessOf(const std::string& acrLines) {
    std::istringstream lLines(acrLines);
    std::string lText;
    for (std::string lLine; std::getline(lLines, lLine);) {
        Json lRecord = Json::parse(lLine);
        EXPECT_EQ(lRecord.dump(), lLine);
        EXPECT_LE(lRecord["first"], lRecord["last"]);
        for (const char* const lpTime : {"first", "last"}) {
            const std::string lTime = std::exchange(lRecord[lpTime], nullptr).get<std::string>();
            EXPECT_EQ(std::regex_replace(lTime, std::regex("\\d"), "0"), "0000-00-00T00:00:00.000000000Z");
        }
        lText += lRecord.dump() + "\n";
    }
    return lText;
}

TEST(Golden, RecordsOfEveryKindBecomeTheirJson) {
    ZTSScopeStand lStand;
    const std::string& lrDirectory = lStand.mrDirectory;
    const ZTCTestDirectory lElsewhere;
    const std::string lFile = lElsewhere / "answers";
    askScope(lrDirectory, {"targets", "add", "50:06:01:60:bb:20:11:0c", "500601603b20110c", "010a00"});
    lStand.mSim.play(readFile(ZT_SOURCE_DIR "/libdfc/sim/scenarios/every-kind.scenario"));
    EXPECT_EQ(runScope(lrDirectory, {"record", lFile, "--every", "0.05", "--for", "0.1"}).mStatus, 0);
    askScope(lrDirectory, {"record", lFile});  // adds to it
    const std::string lLines = askScope(lrDirectory, {"decode", lFile, "--ndjson"});
    const std::string lDocument = askScope(lrDirectory, {"decode", lFile, "--json"});
    const Json lParsed = Json::parse(lDocument);
    EXPECT_EQ(lParsed.dump(2) + "\n", lDocument);
    EXPECT_EQ(lParsed["records"].size(), countIn(lLines, "\n"));
    const std::string lGolden = ZT_SOURCE_DIR "/tests/sensor/vrx-scope/golden/every-kind.ndjson";
    if (getenv("ZT_UPDATE_GOLDEN") != nullptr) {
        writeFile(lGolden, timelessOf(lLines));
    }
    EXPECT_EQ(timelessOf(lLines), readFile(lGolden));
    askScope(lrDirectory, {"shutdown"});
    lStand.mAgent.expectEnd();
}

}  // namespace
