// The language of scenarios, and what vrx-sim does with it without a library.
#include <algorithm>

#include "Scenario.h"
#include "SimClient.h"

namespace {

ZTSTestEnd runSim(const std::vector<std::string>& acrArguments) {
    std::vector<std::string> lCommand{ZT_VRX_SIM};
    lCommand.insert(lCommand.end(), acrArguments.begin(), acrArguments.end());
    return runChild(lCommand, std::vector<std::string>{"ZT_LIBDFC_SIM_CONTROL"});
}

}  // namespace

TEST(Scenario, LinesAreRead) {
    const std::tuple<const char*, const char*, uint64_t> lRows[] = {
        {"plogi", "to", 0x50060160bb200001},
        {"\t plogi  times=0x10\t# times=2\r", "times", 16},
        {"logo from=50:06:01:60:3B:20:11:0c", "from", 0x500601603b20110c},
        {"logo from=500601603b20110c every=1.5s", "every", 1'500'000'000},
        {"queue-full lun=all", "lun", 0xFFFFFFFF},
        {"check-condition sense=b/47/03", "sense", 0x0b4703},
        {"wait 1440m", "for", 86'400'000'000'000},
        {"storm plogi for=1s rate=max", "rate", 1'000'000'000},
        {"adapters count=0 fail=info", "fail", ZTSFC_Info},
    };
    for (const auto& [lpLine, lpKey, lNumber] : lRows) {
        const auto lStatements = readScenario(lpLine, "text");
        ASSERT_EQ(lStatements.size(), 1U) << lpLine;
        ASSERT_TRUE(lStatements[0].has(lpKey)) << lpLine;
        EXPECT_EQ(lStatements[0].getNumber(lpKey), lNumber) << lpLine;
    }
    EXPECT_EQ(readScenario("rscn pages=0x010203,0x03000000", "")[0].mValues.at("pages").mBytes,
              (std::vector<uint8_t>{0, 1, 2, 3, 3, 0, 0, 0}));
    EXPECT_EQ(readScenario("host  mount \"/a b\"  sdb # c", "")[0].mText, "mount \"/a b\" sdb");
    EXPECT_EQ(readScenario("\n# nothing\n  \nplogi\nreport", "").size(), 2U);
}

TEST(Scenario, AMistakeIsOneLineThatSaysWhatIsValid) {
    const std::pair<const char*, std::vector<std::string>> lRows[] = {
        {"unknown verb 'plogin', expected one of plogi, adisc", {"plogin"}},
        {"'a\\x01\\xff\\x00', expected", {std::string("a\x01\xff\0", 4)}},
        {"xxx...', expected", {std::string(5000, 'x')}},
        {"unknown key 'form', expected one of board, times, every, from, to", {"plogi form=1"}},
        {"'board' without a value, expected board=...", {"plogi board"}},
        {"a second board, expected one", {"plogi board=1 board=2"}},
        {"as board, expected a number from 0 to 4294967295",
         {"plogi board=4294967296", "plogi board=0x", "plogi board=-1"}},
        {"a number from 1 to", {"plogi times=0"}},
        {"a number from 0 to 4294967295 or all", {"queue-full lun=none"}},
        {"a name such as", {"logo from=5:006:01:60:3b:20:11:0c", "logo from=500601603b20110g"}},
        {"KEY/ASC/ASCQ", {"check-condition sense=5/24", "check-condition sense=5/24/100"}},
        {"pages of 32 bits", {"rscn pages=", "rscn pages=1,,2"}},
        {"two hex digits a byte", {"raw mask=2 bytes=abc"}},
        {"category= and subcategory= without mask=",
         {"raw category=1", "raw mask=2 category=1 subcategory=1", "raw mask=2 total-length=3"}},
        {"category= and subcategory=, or mask=", {"raw"}},
        {"one of for=, registrations, storms", {"wait", "wait 1s storms"}},
        {"a duration to a day", {"wait 5", "wait 1.2.3s", "wait s", "wait 1441m"}},
        {"expected kind=, one of plogi", {"storm"}},
        {"for= or times=", {"storm plogi"}},
        {"not both", {"storm plogi times=1 board=1 boards=2"}},
        {"adapters without count, expected count=", {"adapters"}},
        {"for= with this fault", {"fault slow-close"}},
        {"no for=", {"fault stuck-callback for=1s"}},
        {"one of late-callbacks, callbacks-during-close", {"fault quick-close"}},
        {"host without a line", {"host", "host # nothing"}},
    };
    for (const auto& [lpExpected, lrLines] : lRows) {
        for (const std::string& lrLine : lrLines) {
            std::string lWhat = lrLine + " is taken";
            try {
                readScenario("plogi\n" + lrLine + "\nplogi", "a.scenario");
            } catch (const ZTCSimError& lrError) {
                lWhat = lrError.what();
            }
            EXPECT_TRUE(lWhat.starts_with("a.scenario:2: ") && contains(lWhat, ", expected ")) << lWhat;
            EXPECT_TRUE(contains(lWhat, lpExpected)) << lWhat << "\nis not " << lpExpected;
            EXPECT_TRUE(std::ranges::all_of(lWhat, [](char aChar) { return aChar >= ' ' && aChar <= '~'; }))
                << lWhat;
        }
    }
}

TEST(VrxSim, TheLanguageIsShownWithExamplesThatAreValid) {
    const ZTSTestEnd lEnd = runSim({"language"});
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
    const auto lCheck = [&](const auto& acrRow) {
        EXPECT_TRUE(contains(lEnd.mOut, std::string("  ") + acrRow.mpName + ": ")) << acrRow.mpName;
        EXPECT_TRUE(contains(lEnd.mOut, acrRow.mpExample)) << acrRow.mpName;
        const auto lStatement = readScenario(acrRow.mpExample, acrRow.mpName).at(0);
        return std::pair(lStatement.mpVerb, lStatement.mpKind);
    };
    for (const ZTSSimVerb& lrVerb : getSimVerbs()) {
        EXPECT_EQ(lCheck(lrVerb).first, &lrVerb) << lrVerb.mpName;
    }
    for (const ZTSSimKind& lrKind : getSimKinds()) {
        EXPECT_EQ(lCheck(lrKind).second, &lrKind) << lrKind.mpName;
    }
}

// As in real fabrics: an adapter port is in one fabric, and a port beyond it in the same one.
// Adapters are in one of two fabrics by turns.
TEST(Scenario, APortOfThoseThatAreShippedIsSeenInOneFabric) {
    for (const std::string& lrFile : shippedScenarios()) {
        std::map<uint64_t, uint64_t> lBoards;
        for (const ZTSSimStatement& lrStatement : readScenarioFile(lrFile)) {
            for (const char* const lpKey : {"from", "port"}) {
                if (lrStatement.mpKind == nullptr || !lrStatement.has(lpKey)) {
                    continue;
                }
                const uint64_t lBoard = lrStatement.getNumber("board");
                const uint64_t lFirst = lBoards.emplace(lrStatement.getNumber(lpKey), lBoard).first->second;
                EXPECT_TRUE(lFirst % 2 == lBoard % 2 && lrStatement.getNumber("boards", 1) == 1) << lrFile;
            }
        }
    }
}

TEST(VrxSim, FilesAreCheckedAndWrongUsageRefused) {
    std::vector<std::string> lShipped = shippedScenarios();
    EXPECT_GT(lShipped.size(), 1U);
    lShipped.insert(lShipped.begin(), "check");
    const ZTSTestEnd lGood = runSim(lShipped);
    EXPECT_EQ(lGood.mStatus, 0) << lGood.mErr;
    EXPECT_TRUE(contains(lGood.mOut, "/link-flap.scenario: ok, ")) << lGood.mOut;

    const ZTCTestDirectory lDirectory;
    writeFile(lDirectory / "one", "report");
    writeFile(lDirectory / "empty", "");
    writeFile(lDirectory / "bad", "report\n\nfly\n");
    const ZTSTestEnd lBad = runSim({"check", lDirectory / "bad", lDirectory / "one", lDirectory / "empty",
                                    lDirectory.getPath(), lDirectory / "none"});
    EXPECT_EQ(lBad.mStatus, 1);
    EXPECT_EQ(lBad.mOut, lDirectory / "one: ok, 1 statement\n" + lDirectory / "empty: ok, 0 statements\n");
    for (const char* const lpPart : {"/bad:3: unknown verb 'fly'", ":0: Is a directory, expected",
                                     "/none:0: No such file or directory, expected"}) {
        EXPECT_TRUE(contains(lBad.mErr, lpPart)) << lBad.mErr;
    }

    const std::vector<std::string> lWrong[] = {
        {}, {"check"}, {"language", "x"}, {"send", "report"}, {"send", "-s", std::string(200, 'x')}};
    for (const auto& lrArguments : lWrong) {
        const ZTSTestEnd lEnd = runSim(lrArguments);
        EXPECT_EQ(lEnd.mStatus, 2) << lEnd.mErr;
        EXPECT_EQ(std::ranges::count(lEnd.mErr, '\n'), 1) << lEnd.mErr;
    }
    const ZTSTestEnd lNobody = runSim({"send", "-s", lDirectory / "none", "report"});
    EXPECT_EQ(lNobody.mStatus, 1);
    EXPECT_EQ(lNobody.mErr, "vrx-sim: " + lDirectory / "none: nobody listens there\n");
}
