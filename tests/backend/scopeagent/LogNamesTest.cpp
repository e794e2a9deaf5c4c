// Records name the routine whose work they tell of, also where a part of it is a function of its own.
#include <regex>
#include <set>

#include "SimClient.h"

namespace {

const std::pair<const char*, std::set<std::string>> sRoutines[] = {
    {"initLibdfc", {"Discovered VRX initiator"}},
    {"initCommandIpc", {"Creating ScopeAgent Command Reader", "Opening ScopeAgent Command Reader"}},
    {"initOutputIpc", {"Creating Output IPC", "Opening Response Pipe Writer"}},
    {"CommandHandlerThreadProcedure", {"Waiting for control availability"}},
    {"handleStartScopeCommand", {"Registered event", "Registered RSCN", "Registered LINK"}},
    {"handleGetScopeDataCommand", {"Wrote <", "Wrote total <"}},
    {"sConsolidateEvents",
     {"Unknown ELS Event", "Unknown Category", "Unknown Board Evt", "Not enough data in ELS PLOGI",
      "Processing BUSRESET"}},
    {"sProcessRscnEvent", {"Not enough data in RSCN", "Got an RSCN"}},
    {"sConsolidateQFullEvents", {"Processing QFULL"}},
    {"sConsolidateRscnEvent", {"Processing Rscn"}},
    {"ScopeCb_Generic", {"Invoking Generic callback", "Ignoring the DfcLink"}},
    {"ScopeCb_DfcRscn", {"Invoking RSCN callback", "Ignoring the DfcRscn"}},
    {"setPrevScopeData", {"Entered", "Left"}},
    {"clearPrevScopeData", {"Entered"}},
    {"incrementOccurrences", {"Entered"}},
    {"addRecord", {"Entered"}},
};

TEST(LogNames, AreTheRoutinesOwn) {
    ZTSTestStand lStand({"-d", "255"});
    lStand.start();
    lStand.mSim.play(
        "queue-full times=2\nbus-reset\nrscn\nraw category=1 subcategory=3\nraw category=8 subcategory=8\n"
        "raw category=3 subcategory=1\nraw category=1 subcategory=1\nplogi board=77\nrscn board=2\n"
        "raw mask=2 bytes=61040008000102");
    lStand.fetch();
    lStand.stop();
    lStand.mAgent.stop();

    const std::regex lRecord("\\S+ \\S+ -.- [^ :]+:\\d+ (.*?): (.*)");
    std::map<std::string, std::string> lTexts;
    std::istringstream lLog(lStand.mAgent.getLog());
    for (std::string lLine; std::getline(lLog, lLine);) {
        std::smatch lMatch;
        ASSERT_TRUE(std::regex_match(lLine, lMatch, lRecord)) << lLine;
        EXPECT_TRUE(std::regex_match(lMatch[1].str(), std::regex("~?\\w+"))) << lLine;
        lTexts[lMatch[1]] += "\n" + lMatch[2].str();
    }
    for (const auto& [lpRoutine, lrTexts] : sRoutines) {
        for (const std::string& lrText : lrTexts) {
            EXPECT_TRUE(contains(lTexts[lpRoutine], "\n" + lrText)) << lpRoutine << ": " << lrText;
        }
    }
}

}  // namespace
