// What the documents tell in tables is what the code has: numbers, blocks, messages, options.
#include "NamedPipe.h"
#include "ScopeAgentEventFacts.h"
#include "ScopeAgentSystem.h"
#include "ScopeWire.h"
#include "Settings.h"
#include "SimClient.h"
#include "TestPages.h"

namespace {

using Texts = ZTTestTexts;
using Map = ZTTestMap;

constexpr char sProtocol[] = "docs/protocol.md";
constexpr char sOperations[] = "docs/operations.md";

TEST(Documents, TheProtocolHasTheCodesOfTheCode) {
    for (const auto& [lLetter, lColumns] :
         {std::pair("C", "code | command"), std::pair("R", "status | response"),
          std::pair("E", "failure code | failure")}) {
        Map lCodes;
        for (const Texts& lrCode : matchesIn(sourceOf("wire/include/ScopeWire.h"),
                                             std::string("  ZTSSCA") + lLetter + "_(\\w+) = (\\d+)")) {
            lCodes[lrCode[0]] = lrCode[1];
        }
        EXPECT_EQ(mapOf(sProtocol, lColumns, 1, 0), lCodes);
    }
}

// Offset, width and role of what is in a block behind the 1.
std::string blockOf(const ZTSScopeEventFacts& acrFacts) {
    std::string lText;
    unsigned int lAt = 4;
    const auto lPut = [&](unsigned int aWidth, const char* apRole) {
        lText += std::to_string(lAt) + " " + std::to_string(aWidth) + " " + apRole + "\n";
        lAt += aWidth;
    };
    for (unsigned int lName = 0; lName < acrFacts.mBlock.mNames; ++lName) {
        lPut(ZTCWorldWideName::Size, "same");
    }
    for (int lWord = 0; lWord < acrFacts.mBlock.mSame + acrFacts.mBlock.mAdded; ++lWord) {
        lPut(4, lWord < acrFacts.mBlock.mSame ? "same" : "added");
    }
    for (int lSet = 0; lSet < acrFacts.mBlock.mSets; ++lSet) {
        lPut(4 + 256 / 8, "set");
    }
    return lText;
}

TEST(Documents, TheProtocolHasTheKindsAndTheirBlocks) {
    const std::string lKinds[] = {
#define ZT_KIND(Name, ...) #Name,
#include "ScopeAgentEventFacts.def"
#undef ZT_KIND
    };
    Map lCode;
    Map lCodeBlocks;
    for (const ZTSScopeEventFacts& lrFacts : ZTScopeEventFacts) {
        const std::string& lName = lKinds[lrFacts.mKind];
        const unsigned int lMask = lrFacts.mByMask.mMask;
        const std::string lRegistered = lMask != 0 ? "mask " + std::to_string(lMask) : "category";
        lCode[lName] = std::to_string(lrFacts.mCategory) + " " + std::to_string(lrFacts.mSubcategory) + " " +
                       lRegistered;
        lCodeBlocks[lName] = blockOf(lrFacts);
    }
    Map lPage;
    Map lPageBlocks;
    const Map lNames = mapOf(sProtocol, "category | subcategory | kind", 2, 3);
    for (const Texts& lrCells : rowsOf(sProtocol, "category | subcategory | kind")) {
        lPage[lrCells.at(3)] = lrCells.at(0) + " " + lrCells.at(1) + " " + lrCells.at(4);
        lPageBlocks[lrCells.at(3)];
    }
    std::vector<Texts> lNow;
    for (const Texts& lrCells : rowsOf(sProtocol, "kind | offset")) {
        lNow = lrCells.at(0).empty() ? lNow : matchesIn(lrCells[0], "(`\\w+`)");
        for (const Texts& lrKind : lNow) {
            lPageBlocks[lNames.at(lrKind[0])] +=
                lrCells.at(1) + " " + lrCells.at(2) + " " + lrCells.at(4) + "\n";
        }
    }
    EXPECT_EQ(lPage, lCode);
    EXPECT_EQ(lPageBlocks, lCodeBlocks);
}

TEST(Documents, TheProtocolHasTheLimitsOfTheCode) {
    char lMagic[16];
    snprintf(lMagic, sizeof lMagic, "%#x", ZTWireMagic);
    EXPECT_TRUE(contains(mapOf(sProtocol, "offset | width | field | what it is", 2, 3)["magic"], lMagic));
#define ZT_ROW(constant) {"`" #constant "`", std::to_string(constant)}
    EXPECT_EQ(mapOf(sProtocol, "limit | value", 2, 1),
              (Map{ZT_ROW(ZTWireHeaderSize), ZT_ROW(ZTWireMaxCommand), ZT_ROW(ZTSecondsOf(ZTP_MessagePause)),
                   ZT_ROW(ZTCNamedPipe::Capacity), ZT_ROW(ZTCScopeAgentSystem::TotalDataLimit),
                   ZT_ROW(ZTCLibdfcAbs::MaxAdapters), ZT_ROW(ZTHbTimeoutDefault)}));
#undef ZT_ROW
}

TEST(Documents, EveryLineOfTheLibraryForTheKernelIsExplained) {
    std::set<std::string> lPage;
    for (const Texts& lrCells : rowsOf(sOperations, "line | what it means | what to do")) {
        lPage.insert(matchesIn(lrCells.at(0), "^`(.*)`$").at(0)[0]);
    }
    std::set<std::string> lCode;
    std::string lSources;
    for (const auto& lrFile : std::filesystem::recursive_directory_iterator(ZT_SOURCE_DIR "/libdfc/fchost")) {
        lSources += lrFile.path().extension() == ".cpp" ? readFile(lrFile.path()) : "";
    }
    for (const Texts& lrCall : matchesIn(lSources, "(?:note\\(|lTell\\(|snprintf\\(lWhat)([^;]*);")) {
        for (const Texts& lrText : matchesIn(lrCall[0], "((?:\"(?:[^\"\\\\]|\\\\.)*\"\\s*)+)")) {
            lCode.insert(joined(lrText[0]));
        }
    }
    lCode.erase("%llu %s");  // before each sum
    EXPECT_EQ(lPage, lCode);
}

// The literals that sources of some folders give to the log, and to troubles that are told there.
std::set<std::string> logLinesOf(const Texts& acrFolders) {
    const std::string lLiterals = "((?:\"(?:[^\"\\\\]|\\\\.)*\"\\s*)+)";
    std::set<std::string> lLines;
    for (const std::string& lrFolder : acrFolders) {
        for (const auto& lrFile : std::filesystem::directory_iterator(ZT_SOURCE_DIR + lrFolder)) {
            const std::string lSource = lrFile.is_regular_file() ? readFile(lrFile.path()) : "";
            for (const char* const lpCall : {"[.]note\\([^;]*?,\\s*", "\\w\\(a?r?Log,\\s*"}) {
                for (const Texts& lrText : matchesIn(lSource, lpCall + lLiterals)) {
                    lLines.insert(joined(lrText[0]));
                }
            }
        }
    }
    return lLines;
}

TEST(Documents, EveryLineOfTheServicesIsExplained) {
    for (const auto& [lPage, lFolder] :
         {std::pair("docs/sensor.md", "/sensor/vrx-sn"), std::pair("docs/web.md", "/sensor/vrx-web")}) {
        SCOPED_TRACE(lPage);
        std::set<std::string> lExplained;
        for (const char* const lpColumns : {"message | what it means", "trouble | what it means"}) {
            for (const Texts& lrCells : rowsOf(lPage, lpColumns)) {
                lExplained.insert(matchesIn(lrCells.at(0), "^`(.*)`$").at(0)[0]);
            }
        }
        EXPECT_EQ(lExplained, logLinesOf({lFolder, "/sensor/service"}));
    }
}

// The messages of one side of the page's conversation.
Texts messagesBehind(const char* apMark) {
    std::string lBytes;
    for (const Texts& lrLine :
         matchesIn(sourceOf(sProtocol), std::string("\n") + apMark + "((?: [0-9a-f]{2})+) ")) {
        lBytes += bytesOf(lrLine[0]);
    }
    Texts lMessages;
    for (std::size_t lAt = 0; lAt < lBytes.size(); lAt += lMessages.back().size()) {
        lMessages.push_back(lBytes.substr(lAt, 12 + lengthIn(lBytes.substr(lAt))));
    }
    return lMessages;
}

TEST(Documents, TheProtocolsConversationIsTheAgents) {
    const Texts lCommands = messagesBehind(">");
    const Texts lResponses = messagesBehind("<");
    ASSERT_EQ(lCommands.size(), 4U);
    ASSERT_EQ(lResponses.size(), 4U);
    ZTSTestStand lStand({}, "adapters count=1\n");
    for (const std::size_t lAt : {0U, 1U, 2U, 3U}) {
        lAt == 2 ? lStand.mSim.play("plogi from=5006016000000a0b to=10:00:00:25:b5:01:00:00 times=3")
                 : void();
        const auto lShown = [&](const std::string& acrMessage) {
            const std::string lBody = acrMessage.substr(12);
            return digitsOf(acrMessage.substr(0, 12)) +
                   digitsOf(lAt == 2 ? ZTCTestFetch(lBody).getMasked() : lBody);
        };
        EXPECT_EQ(lShown(lStand.mSensor.ask(lCommands[lAt])), lShown(lResponses[lAt]));
    }
    lStand.mAgent.expectEnd("Shutting down ScopeAgent");
}

TEST(Documents, OperationsHasEveryMessageFromNoticesUp) {
    const std::string lLiterals = "((?:\"(?:[^\"\\\\\n]|\\\\.)*\"\\s*)+)";
    std::set<std::string> lTexts;
    std::set<std::pair<std::string, std::string>> lMessages;  // with their tags, if the call names its level
    Map lTags{{"ZTLL_Highest", ZTLL_Highest.mpTag},
              {"ZTLL_Abnormal", ZTLL_Abnormal.mpTag},
              {"ZTLL_Error", ZTLL_Error.mpTag},
              {"ZTLL_Warning", ZTLL_Warning.mpTag},
              {"ZTLL_Notice", ZTLL_Notice.mpTag}};
    for (const auto& lrEntry : std::filesystem::recursive_directory_iterator(ZT_SOURCE_DIR "/backend")) {
        const std::string lWhole = lrEntry.is_regular_file() ? readFile(lrEntry.path()) : "";
        const std::string lSource = std::regex_replace(lWhole, std::regex("//.*|'\"'"), "");
        for (const Texts& lrText : matchesIn(lSource, lLiterals)) {
            lTexts.insert(joined(lrText[0]));
        }
        for (const Texts& lrCall :
             matchesIn(lSource, "\\bLog(?:By\\([^,()]+,|\\()\\s*([^,()]+),[^,()]+,\\s*" + lLiterals)) {
            if (lrCall[0] != "ZTLL_Information" && lrCall[0] != "ZTLL_Trace") {
                lMessages.emplace(joined(lrCall[1]), lTags[lrCall[0]]);
            }
        }
    }
    for (const ZTSScopeEventFacts& lrFacts : ZTScopeEventFacts) {
        for (const auto& [lpText, lpTag] : {std::pair(lrFacts.mProcessing.mpText, ZTLL_Notice.mpTag),
                                            std::pair(lrFacts.mTooShort.mpText, ZTLL_Warning.mpTag)}) {
            lMessages.emplace(lpText != nullptr ? lpText : "%s", lpText != nullptr ? lpTag : "");
        }
    }
    EXPECT_GT(lMessages.size(), 90U);

    Map lPage;
    for (const char* const lpColumns : {"level | message", "text | where"}) {
        const bool lIsMessage = lpColumns[0] == 'l';
        for (const Texts& lrCells : rowsOf(sOperations, lpColumns)) {
            for (const Texts& lrText : matchesIn(lrCells.at(lIsMessage ? 1 : 0), "`([^`]*)`")) {
                lPage[lrText[0]] += lIsMessage ? lrCells[0] : "";
                EXPECT_EQ(lTexts.count(lrText[0]), 1U) << lrText[0] << " is in no source";
            }
        }
    }
    for (const auto& [lMessage, lTag] : lMessages) {
        EXPECT_TRUE(lPage.count(lMessage) != 0 && contains(lPage[lMessage], lTag)) << lTag << " " << lMessage;
    }
}

TEST(Documents, PagesAndCompletionsHaveTheProgramsOptions) {
    constexpr char lComplete[] =
        "source \"$0\"; COMP_WORDS=($1 $2 -); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _${1//-/_}; "
        "echo \"${COMPREPLY[@]}\"";
    const struct {
        std::string mPage;
        Texts mHelp;      // the command that shows all options
        Texts mContexts;  // the words behind which they are offered
    } lRows[] = {{"vrx-sca.8", {ZT_VRX_SCA, "-h"}, {""}},
                 {"vrx-sn.8", {ZT_VRX_SN, "--help"}, {""}},
                 {"vrx-web.8", {ZT_VRX_WEB, "--help"}, {""}},
                 {"vrx-sim.1", {ZT_VRX_SIM, "-h"}, {"", "send"}},
                 {"vrx-hostsim.1", {ZT_VRX_HOSTSIM, "--help-all"}, {"", "send"}},
                 {"vrx-scope.1",
                  {ZT_VRX_SCOPE, "--help-all"},
                  {"", "start", "watch", "record", "replay", "stats", "history", "ports", "paths", "changes",
                   "note", "incidents", "incidents acknowledge", "incidents export"}}};
    for (const auto& lrRow : lRows) {
        SCOPED_TRACE(lrRow.mPage);
        const std::string lProgram = lrRow.mPage.substr(0, lrRow.mPage.size() - 2);
        std::string lTags;
        for (const Texts& lrTag : matchesIn(sourceOf("packaging/man/" + lrRow.mPage), "\n\\.It (.*)")) {
            lTags += " " + std::regex_replace(lrTag[0], std::regex("Fl "), "-");
        }
        std::string lOffered;
        for (const std::string& lrContext : lrRow.mContexts) {
            const ZTSTestEnd lEnd =
                runChild(Texts{"/bin/bash", "-c", lComplete,
                               ZT_SOURCE_DIR "/packaging/completion/" + lProgram, lProgram, lrContext},
                         Texts{});
            EXPECT_EQ(lEnd.mErr, "");
            lOffered += lEnd.mOut;
        }
        const auto lOptions = optionsIn(runChild(lrRow.mHelp, Texts{"ZT_VRX_SENSOR_DIR=/"}).mOut);
        EXPECT_EQ(optionsIn(lTags), lOptions);
        EXPECT_EQ(optionsIn(lOffered), lOptions);
    }
}

}  // namespace
