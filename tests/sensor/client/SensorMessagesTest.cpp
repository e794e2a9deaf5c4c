// What is read from the pipe of the answers, and from an answer.
#include <sys/resource.h>

#include "AnswerBytes.h"
#include "AnswerReader.h"
#include "ClientOutcome.h"
#include "SensorMessages.h"

namespace {

#define NODE "20000025b501000a"
#define PORT "5006016000000a0b"
#define NODE_TEXT "20:00:00:25:b5:01:00:0a"
#define LABEL NODE_TEXT ".50:06:01:60:00:00:0a:0b"

ZTSensorBytes rawOf(const std::string& acrBytes) {
    return {acrBytes.begin(), acrBytes.end()};
}

// An answer of two lists, and where its lists end. The second record of each has a target.
struct Answer {
    Answer() {
        for (const std::size_t lList : {0U, 1U}) {
            mEnds[lList] = mBytes.size();
            mBytes += listOf(LABEL, {recordOf(2, "\4\1", "a queue"),
                                     recordOf(2, "\4\10", std::string(lList, 'x'), bytesOf("01" NODE PORT))});
        }
    }
    ZTSensorBytes withWord(std::size_t aAt, const std::string& acrWord) const {
        return rawOf(std::string(mBytes).replace(aAt, 4, acrWord));
    }

    std::string mBytes = "\2" + wordOf(2);
    std::size_t mEnds[2];
};

std::string outcomeOf(const ZTSensorBytes& acrBody) {
    return clientOutcomeOf([&] { decodeScopeData(acrBody); });
}

// The answers to tag 7 in bytes that come in pieces until the agent ends, and another outcome if there is
// one.
std::string answersIn(const std::string& acrBytes, std::size_t aPiece) {
    std::string lRead;
    std::size_t lAt = 0;
    ZTCAnswerReader lReader([&](std::uint8_t* apBytes, std::size_t aRoom) {
        const std::size_t lCount = std::min({aRoom, aPiece, acrBytes.size() - lAt});
        std::copy_n(acrBytes.data() + lAt, lCount, apBytes);
        lAt += lCount;
        return lCount != 0 ? lCount : throw ZTCNoAgentError("at its end");
    });
    const std::string lOutcome = clientOutcomeOf([&] {
        for (;;) {
            const ZTSensorBytes lMessage = lReader.read(7);
            lRead.append(lMessage.begin(), lMessage.end());
        }
    });
    return lRead + (lOutcome == "NoAgent" ? "" : lOutcome);
}

TEST(SensorMessages, ScopeDataIsReadAndCutAnywhereItIsRefused) {
    const Answer lAnswer;
    for (const unsigned int lCount : {0U, 1U, 2U, 3U, 0xffffffffU}) {  // which is no promise
        const ZTSensorScopeData lData = decodeScopeData(lAnswer.withWord(1, wordOf(lCount)));
        ASSERT_EQ(lData.size(), 2U);
        EXPECT_EQ(lData[0].mRecords.size(), 2U);
        EXPECT_EQ(lData[1].mRecords.at(1).mFirst, (ZTSSensorTime{5000000000, 7}));
        EXPECT_EQ(lData[1].mRecords.at(1).mData, rawOf("x"));
    }
    for (std::size_t lEnd = 0; lEnd < lAnswer.mBytes.size(); ++lEnd) {
        const bool lIsWhole = lEnd == lAnswer.mEnds[0] || lEnd == lAnswer.mEnds[1];
        ASSERT_EQ(outcomeOf(rawOf(lAnswer.mBytes.substr(0, lEnd))), lIsWhole ? "done" : "MalformedAnswer")
            << lEnd;
    }
}

TEST(SensorMessages, AnswersThatCannotBeAreRefused) {
#define TIME "00000000 00000000 3b9ac9ff"
#define WRONG "00000000 00000000 3b9aca00"
#define ONE "00000001"
#define BEHIND ONE TIME TIME "0101 01" NODE PORT "00000001 aa"
    const auto lListOf = [](const std::string& acrLabel, const std::string& acrDigits) {
        return rawOf(bytesOf("02 00000001") + listOf(acrLabel, {bytesOf(acrDigits)}));
    };
    EXPECT_EQ(outcomeOf(lListOf(LABEL, BEHIND)), "done");
    EXPECT_EQ(outcomeOf(rawOf(bytesOf("01 fffe"))), "Refused 65534");
    EXPECT_EQ(clientOutcomeOf([&] { decodeSuccess(rawOf(bytesOf("00 00000000"))); }), "done");
    for (const char* const lpDigits : {"00 000000", "02 00000000"}) {  // which is another command's
        EXPECT_EQ(clientOutcomeOf([&] { decodeSuccess(rawOf(bytesOf(lpDigits))); }), "MalformedAnswer");
    }
    for (const std::string lDigits : {"", "00 00000000", "01 00", "02 000000", "03 00000000"}) {
        EXPECT_EQ(outcomeOf(rawOf(bytesOf(lDigits))), "MalformedAnswer") << lDigits;
    }
    for (const std::string lLabel :
         {"", ".", NODE_TEXT, NODE_TEXT ".", "." NODE_TEXT, LABEL ".", LABEL " "}) {
        EXPECT_EQ(outcomeOf(lListOf(lLabel, BEHIND)), "MalformedAnswer") << lLabel;
    }
    for (const std::string lRecord : {ONE TIME WRONG "0101 00 00000000", ONE WRONG TIME "0101 00 00000000",
                                      ONE TIME TIME "0101 02 00000000"}) {
        EXPECT_EQ(outcomeOf(lListOf(LABEL, lRecord)), "MalformedAnswer") << lRecord;
    }
}

TEST(SensorMessages, LengthsThatLieCostNoMemory) {
    const ZTSTestEnd lEnd = runChild([] {
        const Answer lAnswer;
        rlim_t lPages = 0;
        std::ifstream("/proc/self/statm") >> lPages;
        const rlimit lMost{lPages * 4096 + 32 * 1024 * 1024, RLIM_INFINITY};
        ASSERT_TRUE(ZTIsSanitized || setrlimit(RLIMIT_AS, &lMost) == 0);
        for (std::size_t lAt = 1; lAt + 4 <= lAnswer.mBytes.size(); ++lAt) {  // every length and count
            for (const unsigned int lWord : {0xffffffffU, 0x7fffffffU, 0x01000000U}) {
                const std::string lOutcome = outcomeOf(lAnswer.withWord(lAt, wordOf(lWord)));
                EXPECT_TRUE(lOutcome == "MalformedAnswer" || lOutcome == "done") << lOutcome;
            }
        }
        EXPECT_EQ(answersIn("VRX1" + wordOf(7) + wordOf(ZTCAnswerReader::MaxAnswer) + "x", 99), "");
        EXPECT_EQ(answersIn("VRX1" + wordOf(8) + wordOf(0xffffffff) + messageOf(7, "within"), 99), "");
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
}

TEST(SensorMessages, AnswersAreFoundInWhatComes) {
    const std::string lOurs = messageOf(7, "one") + messageOf(7, std::string(70000, 'b'));
    const std::string lOthers =
        messageOf(6, std::string(70000, 'o')) + messageOf(8, "") + messageOf(0, "VRX1");
    const std::pair<std::string, std::string> lRows[] = {
        {lOthers + lOurs + lOthers, lOurs},
        {"the rest of one, V, VR, VRX" + lOurs, lOurs},  // half read by a client before this one
        {std::string(100000, 'V') + lOthers + lOurs, lOurs},
        {lOthers + "x" + lOurs, "MalformedAnswer"},  // where a header must be
        {lOurs + "VRX2" + lOurs, lOurs + "MalformedAnswer"},
        {messageOf(7, "") + lOurs, "MalformedAnswer"},
        {"VRX1" + wordOf(7) + wordOf(ZTCAnswerReader::MaxAnswer + 1) + lOurs, "MalformedAnswer"},
    };
    for (const auto& [lBytes, lRead] : lRows) {
        for (const std::size_t lPiece : {7U, 13U, 65536U, 1000000U}) {
            EXPECT_TRUE(answersIn(lBytes, lPiece) == lRead) << lBytes.substr(0, 50) << ", " << lPiece;
        }
    }
}

}  // namespace
