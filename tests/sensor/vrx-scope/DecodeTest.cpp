// Files of raw answers, and what vrx-scope makes of them.
#include <nlohmann/json.hpp>

#include "AnswerBytes.h"
#include "AnswerInput.h"
#include "ScopeProgram.h"

namespace {

using Json = nlohmann::ordered_json;
using Arguments = ZTCTestChild::Arguments;

const std::string sOne("\1\0\0\0", 4);
const std::string sPort = bytesOf("500601603b20110c");

TEST(Decode, PrintsATableForPeople) {
    const ZTCTestDirectory lDirectory;
    const std::string lLuns =
        sOne + sPort + bytesOf("00010000") + bytesOf("3a000001") + std::string(28, '\0');
    const std::string lFile = lDirectory / "answers";
    writeFile(lFile,
              answerOf({recordOf(3, "\x01\x01", sOne + sPort + sPort),
                        recordOf(800, "\x04\x01", lLuns, "\x01" + bytesOf("50060160bb20110c") + sPort),
                        recordOf(1, "\x01\x20", sOne + bytesOf("00000301")), recordOf(2, "\x10\x7f", "?")}));
    EXPECT_EQ(
        askScope(lDirectory.getPath(), {"decode", lFile, "--utc"}),
        "initiator 10:00:00:25:b5:01:00:00, node 20:00:00:25:b5:01:00:00: 4 records\n"
        "  first                        last          kind        events  remote port              what\n"
        "  2128-06-11 08:53:20.000 UTC  08:53:21.999  plogi            3  50:06:01:60:3b:20:11:0c  "
        "second name 50:06:01:60:3b:20:11:0c\n"
        "  2128-06-11 08:53:20.000 UTC  08:53:21.999  queue_full     800  50:06:01:60:3b:20:11:0c  "
        "luns 1,3-5,24\n"
        "  2128-06-11 08:53:20.000 UTC  08:53:21.999  rscn             1  030000                   "
        "address format area, port id 030000\n"
        "  2128-06-11 08:53:20.000 UTC  08:53:21.999  16,127           2  -                        "
        "a block of 1 byte\n");
    const Json lDocument = Json::parse(askScope(lDirectory.getPath(), {"--json", "decode", lFile}));
    EXPECT_EQ(lDocument["schema"], 1);
    EXPECT_EQ(lDocument["fetched"], nullptr);
    EXPECT_EQ(lDocument["records"][1]["event"]["luns"], Json({1, 3, 4, 5, 24}));
    const Json& lrUnknown = lDocument["records"][3];
    for (const char* const lpNothing : {"kind", "event", "target"}) {
        EXPECT_EQ(lrUnknown[lpNothing], nullptr);
    }
    EXPECT_EQ(lrUnknown["data"], "3f");
    EXPECT_TRUE(contains(askScope(lDirectory.getPath(), {"replay", lFile}), "806 events in 4 records"));
}

// Reads the file in the way that a command of the shell says: $1 is its name, "${@:2}" what to run.
ZTSTestEnd runWith(const std::string& acrWay, const std::string& acrFile, const Arguments& acrArguments) {
    Arguments lCommand{"/bin/bash", "-c", acrWay, "bash", acrFile, ZT_VRX_SCOPE};
    lCommand.insert(lCommand.end(), acrArguments.begin(), acrArguments.end());
    lCommand.emplace_back("-");
    return runChild(lCommand, Arguments{});
}

constexpr char sFromFile[] = R"("${@:2}" < "$1")";
constexpr char sFromPipe[] = R"(cat "$1" | "${@:2}")";
constexpr char sFromMiddle[] = R"({ read -rN 1; "${@:2}"; } < "$1")";

const Arguments sForms[] = {
    {"decode"}, {"decode", "--ndjson"}, {"decode", "--json"}, {"replay", "--ndjson"}, {"replay"}};

// What comes once is read as what can be read again. What is wrong is told once, in its order and before what
// a replay shows, and what can be read is shown.
TEST(Decode, ReadsAPipeAsItReadsAFile) {
    const ZTCTestDirectory lDirectory;
    const std::string lFile = lDirectory / "answers";
    const std::string lPlogi = answerOf({recordOf(3, "\x01\x01", sOne + sPort + sPort)});
    const std::string lNone = messageOf(1, "\x02" + wordOf(0));
    const std::string lOther = successOf(1);
    const auto lAt = [](const std::string& acrBefore, const char* apText) {
        return "vrx-scope: -: the message at byte " + std::to_string(acrBefore.size()) + apText;
    };
    const struct {
        std::string mBytes;
        unsigned int mRecords;
        std::vector<std::string> mTold;
    } lRows[] = {
        {"", 0, {}},
        {lNone, 0, {}},
        {lNone + lOther, 0, {lAt(lNone, ": malformed")}},
        {lPlogi + lOther + lPlogi + lPlogi.substr(0, 50),
         2,
         {lAt(lPlogi, ": malformed"), lAt(lPlogi + lOther + lPlogi, " is cut short")}},
        {lOther + lPlogi + "VRX2" + lPlogi, 1, {lAt("", ": malformed"), lAt(lOther + lPlogi, " is none")}},
    };
    for (const auto& lrRow : lRows) {
        writeFile(lFile, lrRow.mBytes);
        writeFile(lFile + "1", "x" + lrRow.mBytes);
        for (const Arguments& lrForm : sForms) {
            const ZTSTestEnd lEnd = runWith(sFromFile, lFile, lrForm);
            SCOPED_TRACE(lrForm.back() + " of " + std::to_string(lrRow.mBytes.size()) + ":\n" + lEnd.mErr);
            EXPECT_EQ(lEnd.mStatus, lrRow.mTold.empty() ? 0 : 1);
            EXPECT_EQ(countIn(lEnd.mErr, "the message at byte"), lrRow.mTold.size());
            std::size_t lFrom = 0;
            for (const std::string& lrText : lrRow.mTold) {
                lFrom = lEnd.mErr.find(lrText, lFrom);
                ASSERT_NE(lFrom, std::string::npos) << lrText;
            }
            EXPECT_LE(lFrom, lEnd.mErr.find(", answer 1\n"));
            const bool lIsSum = lrForm == Arguments{"replay"} && lrRow.mRecords != 0;
            EXPECT_EQ(countIn(lEnd.mOut, "plogi"), lIsSum ? 1 : lrRow.mRecords);
            for (const auto& [lWay, lName] : {std::pair{sFromPipe, lFile}, {sFromMiddle, lFile + "1"}}) {
                const ZTSTestEnd lSame = runWith(lWay, lName, lrForm);
                EXPECT_EQ(lSame.mStatus, lEnd.mStatus);
                EXPECT_EQ(lSame.mOut, lEnd.mOut);
                EXPECT_EQ(lSame.mErr, lEnd.mErr);
            }
        }
    }
}

// What a file has lost between the two times that it is read, or has got in the place of what was read.
TEST(Decode, TellsOfAFileThatIsNotReadTheSameAgain) {
    const ZTCTestDirectory lDirectory;
    const std::string lFile = lDirectory / "answers";
    const std::string lAnswer =
        answerOf({recordOf(1, "\x04\x20", sOne + std::string(10000, 'x'))});  // no buffer holds it
    const std::string lBad = successOf(1);
    const std::string lTwo = lAnswer + lBad + lAnswer;
    const auto lAt = [&](std::size_t aByte, const char* apText) {
        return "vrx-scope: " + lFile + ": the message at byte " + std::to_string(aByte) + apText;
    };
    const char* const lpCut = " is cut short\n";
    const struct {
        std::string mFirst;
        std::string mAgain;
        unsigned int mAnswers;
        std::string mTold;
    } lRows[] = {
        {lTwo + lBad, lTwo + lBad + lBad, 2, ""},
        {lTwo + lBad, lTwo, 2, lAt(lTwo.size(), lpCut)},
        {lTwo, lAnswer, 1, lAt(lAnswer.size(), lpCut)},
        {lAnswer + lAnswer, lAnswer, 1, lAt(lAnswer.size(), lpCut)},
        {lAnswer, lAnswer.substr(0, 100), 0, lAt(0, lpCut)},
        {lAnswer, "", 0, lAt(0, lpCut)},
        {lAnswer + lTwo, lTwo + lAnswer, 3, lAt(lAnswer.size(), ": malformed")},
    };
    for (const auto& [lrFirst, lrAgain, lrAnswers, lrTold] : lRows) {
        SCOPED_TRACE(std::to_string(lrFirst.size()) + ", then " + std::to_string(lrAgain.size()));
        writeFile(lFile, lrFirst);
        ZTCAnswerInput lInput(lFile, true);
        const auto lRead = [&] {
            testing::internal::CaptureStderr();
            unsigned int lAnswers = 0;
            while (lInput.next()) {
                ++lAnswers;
            }
            return std::pair(lAnswers, testing::internal::GetCapturedStderr());
        };
        lRead();
        const bool lWasGood = lInput.areGood();
        lInput.rewind();
        writeFile(lFile, lrAgain);
        const auto [lAnswers, lTold] = lRead();
        EXPECT_EQ(lAnswers, lrAnswers);
        EXPECT_TRUE(lTold.starts_with(lrTold) && countIn(lTold, "\n") == (lrTold.empty() ? 0 : 1)) << lTold;
        EXPECT_EQ(lInput.areGood(), lWasGood && lrTold.empty());
    }
}

// However many they are: with less memory than the file has bytes.
TEST(Decode, HoldsOneAnswerAtATime) {
    constexpr unsigned int lAnswers = 200;
    const ZTCTestDirectory lDirectory;
    const std::string lFile = lDirectory / "answers";
    const std::string lAnswer =
        answerOf(std::vector<std::string>(100, recordOf(1, "\x04\x20", sOne + std::string(300, 'x'))));
    std::string lBytes;
    for (unsigned int lAt = 0; lAt < lAnswers; ++lAt) {
        lBytes += lAnswer;
    }
    writeFile(lFile, lBytes);
    const std::string lLimit = ZTIsSanitized ? "" : "ulimit -d 6000 && ";
    for (const Arguments& lrForm : sForms) {
        for (const char* const lpWay : {sFromFile, sFromPipe}) {
            const ZTSTestEnd lEnd = runWith(lLimit + lpWay, lFile, lrForm);
            EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
            EXPECT_EQ(countIn(lEnd.mOut, "bus_reset"), lrForm == Arguments{"replay"} ? 1 : lAnswers * 100);
        }
    }
}

}  // namespace
