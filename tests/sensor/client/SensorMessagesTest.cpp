// What is written to the pipes and read from them. The agent has a codec of its own: the two agree.
#include <sys/resource.h>

#include "AnswerReader.h"
#include "ClientOutcome.h"
#include "EncodableStream.h"
#include "ScopeAgentRecordList.h"
#include "SensorMessages.h"

namespace {

#define NODE "20000025b501000a"
#define PORT "5006016000000a0b"
#define NODE_TEXT "20:00:00:25:b5:01:00:0a"
#define LABEL NODE_TEXT ".50:06:01:60:00:00:0a:0b"

ZTSensorBytes rawOf(const std::string& acrBytes) {
    return {acrBytes.begin(), acrBytes.end()};
}

// An answer of two lists, as the agent encodes it, and where its lists end.
struct Answer {
    Answer() {
        ZTCBufferExpOutStream lStream(0);
        lStream << static_cast<unsigned char>(2) << 2U;
        for (const unsigned int lBoard : {0U, 1U}) {
            mEnds[lBoard] = lStream.getBuffer()->getLength();
            ZTCScopeAgentRecordList lList(lBoard, nullptr);
            lList.addRecord(makeRecord(1, "a queue"));
            lList.addRecord(makeRecord(8, std::string(lBoard, 'x')));
            lStream << ZTCString(LABEL);
            lList.encode(lStream);
        }
        const ZTCBuffer& lrBuffer = *lStream.getBuffer();
        mBytes.assign(lrBuffer.getBytes(), lrBuffer.getBytes() + lrBuffer.getLength());
    }
    // The second one has a target.
    static ZTCPointer<ZTCScopeAgentRecord> makeRecord(unsigned char aSubcategory,
                                                      const std::string& acrData) {
        const unsigned char lBytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
        const auto lName = makePointer<ZTCWorldWideName>(lBytes);
        const auto lEvent = makePointer<ZTCScopeEvent>(static_cast<unsigned char>(4), aSubcategory);
        const auto* const lpData = reinterpret_cast<const unsigned char*>(acrData.data());
        const auto lSize = static_cast<unsigned int>(acrData.size());
        auto lData = aSubcategory == 8 ? makePointer<ZTCScopeData>(lEvent, lpData, lSize, 0U, lName, lName)
                                       : makePointer<ZTCScopeData>(lEvent, lpData, lSize, 0U);
        auto lRecord = makePointer<ZTCScopeAgentRecord>(std::move(lData), 5000000000000000007ULL);
        lRecord->incrementOccurrences(5000000001999999999ULL);
        return lRecord;
    }
    ZTSensorBytes withWord(std::size_t aAt, const std::string& acrWord) const {
        ZTSensorBytes lBytes = mBytes;
        std::copy(acrWord.begin(), acrWord.end(), lBytes.begin() + static_cast<std::ptrdiff_t>(aAt));
        return lBytes;
    }

    ZTSensorBytes mBytes;
    std::size_t mEnds[2];
};

std::string textOf(const ZTSensorScopeData& acrData) {
    std::ostringstream lText;
    for (const auto& [lInitiator, lRecords] : acrData) {
        lText << lInitiator.mNode.toText() << "." << lInitiator.mPort.toText() << "\n";
        for (const auto& [lCount, lFirst, lLast, lCategory, lSubcategory, lTarget, lData] : lRecords) {
            lText << lCount << " " << lFirst.mSeconds << "." << lFirst.mNanoseconds << " " << lLast.mSeconds
                  << "." << lLast.mNanoseconds << " " << int{lCategory} << "," << int{lSubcategory} << " "
                  << (lTarget ? lTarget->mNode.toText() + "." + lTarget->mPort.toText() : "-") << " "
                  << std::string(lData.begin(), lData.end()) << "\n";
        }
    }
    return lText.str();
}

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

TEST(SensorMessages, CommandsAreTheirBytes) {
    const ZTSSensorTarget lTarget{{*ZTSWwn::fromText(NODE), *ZTSWwn::fromText(PORT)}, 0x010203};
    const auto lExpect = [](const ZTSensorBytes& acrMessage, unsigned int aTag, const std::string& acrBody) {
        EXPECT_EQ(acrMessage, rawOf(messageOf(aTag, bytesOf(acrBody))));
    };
    lExpect(encodeCommand(7, ZTESensorCommand::ShutDown), 7, "04");
    lExpect(encodeCommand(0, ZTESensorCommand::Stop), 0, "02");
    lExpect(encodeCommand(0xffffffff, ZTESensorCommand::GetScopeData), 0xffffffff, "01");
    lExpect(encodeCommand(0x80a1b2c3, ZTESensorCommand::StartScope, 0x10203040), 0x80a1b2c3, "00 10203040");
    lExpect(encodeCommand(1, ZTESensorCommand::CollectionPeriod, 0xfffffffe), 1, "05 fffffffe");
    lExpect(encodeTargets(2, {}), 2, "03 00000000");
    lExpect(encodeTargets(3, {&lTarget, 1}), 3, "03 00000001" NODE PORT "00010203");
    const std::vector<ZTSSensorTarget> lMost(ZTSensorMaxTargets);
    EXPECT_LE(encodeTargets(4, lMost).size(), ZTSSensorHeader::Size + 65536);
}

TEST(SensorMessages, ScopeDataIsWhatTheAgentEncodedAndCutAnywhereItIsRefused) {
    const Answer lAnswer;
    const std::string lList = LABEL
        "\n2 5000000000.7 5000000001.999999999 4,1 - a queue\n"
        "2 5000000000.7 5000000001.999999999 4,8 01:02:03:04:05:06:07:08.01:02:03:04:05:06:07:08 ";
    for (const unsigned int lCount : {0U, 1U, 2U, 3U, 0xffffffffU}) {  // which is no promise
        EXPECT_EQ(textOf(decodeScopeData(lAnswer.withWord(1, wordOf(lCount)))), lList + "\n" + lList + "x\n");
    }
    for (std::size_t lEnd = 0; lEnd < lAnswer.mBytes.size(); ++lEnd) {
        const ZTSensorBytes lCut(lAnswer.mBytes.data(), lAnswer.mBytes.data() + lEnd);
        const bool lIsWhole = lEnd == lAnswer.mEnds[0] || lEnd == lAnswer.mEnds[1];
        ASSERT_EQ(outcomeOf(lCut), lIsWhole ? "done" : "MalformedAnswer") << lEnd;
        EXPECT_EQ(lIsWhole ? textOf(decodeScopeData(lCut)) : "",
                  lEnd == lAnswer.mEnds[1] ? lList + "\n" : "");
    }
}

TEST(SensorMessages, AnswersThatCannotBeAreRefused) {
#define TIME "00000000 00000000 3b9ac9ff"
#define WRONG "00000000 00000000 3b9aca00"
#define ONE "00000001 00000001"
#define BEHIND ONE TIME TIME "0101 01" NODE PORT "00000001 aa"
    const auto lListOf = [](const std::string& acrLabel, const std::string& acrDigits) {
        return rawOf(bytesOf("02 00000001") + wordOf(acrLabel.size()) + acrLabel + bytesOf(acrDigits));
    };
    EXPECT_EQ(outcomeOf(lListOf(LABEL, BEHIND)), "done");
    EXPECT_EQ(outcomeOf(rawOf(bytesOf("01 fffe"))), "Refused 65534");
    EXPECT_EQ(clientOutcomeOf([&] { decodeSuccess(rawOf(bytesOf("00 00000000"))); }), "done");
    EXPECT_EQ(clientOutcomeOf([&] { decodeSuccess(rawOf(bytesOf("00 000000"))); }), "MalformedAnswer");
    for (const std::string lDigits : {"", "00 00000000", "01 00", "02 000000", "03 00000000"}) {
        EXPECT_EQ(outcomeOf(rawOf(bytesOf(lDigits))), "MalformedAnswer") << lDigits;
    }
    for (const std::string lLabel :
         {"", ".", NODE_TEXT, NODE_TEXT ".", "." NODE_TEXT, LABEL ".", LABEL " "}) {
        EXPECT_EQ(outcomeOf(lListOf(lLabel, BEHIND)), "MalformedAnswer") << lLabel;
    }
    for (const std::string lRecord : {ONE TIME WRONG "0101 00 00000000", ONE WRONG TIME "0101 00 00000000",
                                      ONE TIME TIME "0101 02" NODE PORT "00000000"}) {
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
        EXPECT_EQ(answersIn("VRX1" + wordOf(7) + wordOf(0xffffffff) + "x", 99), "MalformedAnswer");
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
