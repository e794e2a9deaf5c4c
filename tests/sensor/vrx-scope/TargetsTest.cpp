// Targets that the agent will not find, because another has the same address or the same name.
#include <nlohmann/json.hpp>

#include "ScopeProgram.h"
#include "Targets.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr char sOne[] = "50:06:01:60:3b:20:11:0c", sTwo[] = "50:06:01:60:3b:20:11:0d",
               sThree[] = "50:06:01:60:3b:20:11:0e", sNode[] = "50:06:01:60:bb:20:11:0c";

TEST(Targets, TellsWhichHideOthers) {
    const struct {
        std::vector<std::string> mWords;
        std::vector<std::string> mLines;
    } lRows[] = {
        {{sNode, sOne, "010a00", sNode, sTwo, "0x010a01"}, {}},
        {{sNode, sTwo, "010a00", sNode, sThree, "0x010A00", sNode, sOne, "010a00"},
         {std::string("010a00 is the address of ") + sTwo + ", " + sThree + " and " + sOne +
          ": in each fabric"}},
        {{sNode, sOne, "010b00", sNode, sOne, "010a00"},
         {std::string(sOne) + " is there 2 times, at 010b00 and 010a00: its events"}},
        {{sNode, sOne, "010a00", sNode, sOne, "010a00"},
         {std::string(sOne) + " is there 2 times, at 010a00 and 010a00"}},
        {{sNode, sOne, "010a00", sNode, sTwo, "010a00", sNode, sTwo, "010a00"},
         {std::string("010a00 is the address of ") + sOne + " and " + sTwo,
          std::string(sTwo) + " is there 2 times"}},
    };
    for (const auto& lrRow : lRows) {
        const auto lLines = hiddenTargetsText(findHiddenTargets(readTargets(lrRow.mWords)));
        ASSERT_EQ(lLines.size(), lrRow.mLines.size());
        for (std::size_t lAt = 0; lAt < lLines.size(); ++lAt) {
            EXPECT_TRUE(lLines[lAt].starts_with(lrRow.mLines[lAt])) << lLines[lAt];
        }
    }
}

// All of them are registered: what is said of them is what the agent does.
TEST(Targets, RegistersThoseThatItTellsOf) {
    ZTSScopeStand lStand;
    std::string lFile;
    for (const char* const lpPort : {sTwo, sOne}) {
        for (unsigned int lAddress = 0; lAddress < 10; ++lAddress) {
            lFile += std::string(sNode) + " " + lpPort + " 010a0" + std::to_string(lAddress) + "\n";
        }
    }
    writeFile(lStand.mDirectory / "ports", lFile);
    const ZTSScopeResult lLoaded =
        runScope(lStand.mrDirectory, {"targets", "load", lStand.mDirectory / "ports", "--json"});
    EXPECT_EQ(lLoaded.mStatus, 0);
    EXPECT_EQ(countIn(lLoaded.mErr, "\n"), 9U);
    EXPECT_TRUE(contains(lLoaded.mErr, "\nvrx-scope: and 4 more like these\n")) << lLoaded.mErr;
    const Json lDocument = Json::parse(lLoaded.mOut);
    EXPECT_EQ(lDocument["same_address"].size(), 10U);
    EXPECT_EQ(lDocument["same_address"][3].dump(),
              std::string(R"({"port_id":"010a03","port_names":[")") + sTwo + R"(",")" + sOne + "\"]}");
    EXPECT_EQ(lDocument["same_port_name"][0]["port_ids"][9], "010a09");
    lStand.mSim.play("rscn pages=0x010a03");
    lStand.mSim.play(std::string("plogi from=") + sOne);
    const Json lFetched = Json::parse(askScope(lStand.mrDirectory, {"fetch", "--json"}));
    EXPECT_EQ(lFetched["records"][0]["target"]["port_name"], sTwo) << lFetched;
    EXPECT_EQ(lFetched["records"][1]["target"]["port_name"], sOne) << lFetched;
}

}  // namespace
