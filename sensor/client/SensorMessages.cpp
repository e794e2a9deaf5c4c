#include "SensorMessages.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr std::uint32_t sNanoseconds = 1'000'000'000;
constexpr std::size_t sLeastRecord = 35;  // bytes, without a target and without data

class Writer {
  public:
    Writer(std::uint32_t aTag, ZTEScopeAgentCommand aCommand) {
        u32(ZTWireMagic);
        u32(aTag);
        u32(0);  // the length, when it is known
        mBytes.push_back(static_cast<std::uint8_t>(aCommand));
    }

    void u32(std::uint32_t aValue) {
        for (const unsigned int lShift : {24U, 16U, 8U, 0U}) {
            mBytes.push_back(static_cast<std::uint8_t>(aValue >> lShift));
        }
    }
    void name(const ZTSWwn& acrName) {
        mBytes.insert(mBytes.end(), acrName.mBytes.begin(), acrName.mBytes.end());
    }
    ZTSensorBytes finish() {
        const auto lLength = static_cast<std::uint32_t>(mBytes.size() - ZTSSensorHeader::Size);
        for (unsigned int lAt = 0; lAt < sizeof lLength; ++lAt) {
            mBytes[ZTWireLengthAt + lAt] = static_cast<std::uint8_t>(lLength >> (24 - 8 * lAt));
        }
        return std::move(mBytes);
    }

  private:
    ZTSensorBytes mBytes;
};

const char* sDescribe(std::uint16_t aCode) {
    switch (aCode) {
        case ZTSSCAE_BadArgument:
            return "a bad argument (0 targets, or a period of 0)";
        case ZTSSCAE_RegistrationFailed:
            return "the vendor library did not register an event: see the agent's log";
        default:
            return "see the agent's log";
    }
}

// Reads the kind of answer. Throws the refusal that it may be.
void sExpect(ZTCWireReader& arReader, ZTEScopeAgentResponse aExpected) {
    const auto lKind = static_cast<ZTEScopeAgentResponse>(arReader.u8());
    if (lKind == ZTSSCAR_Failure) {
        const std::uint16_t lCode = arReader.u16();
        throw ZTCRefusedError(
            "the agent refused the command with code " + std::to_string(lCode) + ": " + sDescribe(lCode),
            lCode);
    }
    if (lKind != aExpected) {
        arReader.fail("is of another kind (" + std::to_string(static_cast<unsigned int>(lKind)) + ")");
    }
}

ZTSPortNames sReadNames(ZTCWireReader& arReader) {
    const ZTSWwn lNode = arReader.name();
    return {lNode, arReader.name()};
}

// The names of the adapter port, as they are printed: node name, dot, port name.
ZTSPortNames sReadLabel(ZTCWireReader& arReader) {
    const auto lBytes = arReader.take(arReader.u32());
    const std::string_view lText(reinterpret_cast<const char*>(lBytes.data()), lBytes.size());
    const std::size_t lDot = std::min(lText.find('.'), lText.size());
    const auto lNode = ZTSWwn::fromText(lText.substr(0, lDot));
    const auto lPort = ZTSWwn::fromText(lText.substr(std::min(lDot + 1, lText.size())));
    if (!lNode || !lPort) {
        arReader.fail("has a list without an adapter's names");
    }
    return {*lNode, *lPort};
}

ZTSSensorTime sReadTime(ZTCWireReader& arReader) {
    ZTSSensorTime lTime;
    lTime.mSeconds = arReader.integer<std::uint64_t>();
    lTime.mNanoseconds = arReader.u32();
    if (lTime.mNanoseconds >= sNanoseconds) {
        arReader.fail("has a time of more than a second's nanoseconds");
    }
    return lTime;
}

ZTSSensorRecord sReadRecord(ZTCWireReader& arReader) {
    ZTSSensorRecord lRecord;
    lRecord.mOccurrences = arReader.u32();
    lRecord.mFirst = sReadTime(arReader);
    lRecord.mLast = sReadTime(arReader);
    lRecord.mCategory = arReader.u8();
    lRecord.mSubcategory = arReader.u8();
    const std::uint8_t lHasTarget = arReader.u8();
    if (lHasTarget > 1) {
        arReader.fail("neither says that a target's names follow nor that they do not");
    }
    if (lHasTarget == 1) {
        lRecord.mTarget = sReadNames(arReader);
    }
    const auto lData = arReader.take(arReader.u32());
    lRecord.mData.assign(lData.begin(), lData.end());
    return lRecord;
}

}  // namespace

std::optional<ZTSSensorHeader> ZTSSensorHeader::decode(std::span<const std::uint8_t> aBytes) {
    ZTCWireReader lReader(aBytes);
    if (lReader.u32() != ZTWireMagic) {
        return {};
    }
    ZTSSensorHeader lHeader;
    lHeader.mTag = lReader.u32();
    lHeader.mLength = lReader.u32();
    return lHeader;
}

ZTSensorBytes encodeCommand(std::uint32_t aTag, ZTEScopeAgentCommand aCommand) {
    return Writer(aTag, aCommand).finish();
}

ZTSensorBytes encodeCommand(std::uint32_t aTag, ZTEScopeAgentCommand aCommand, std::uint32_t aValue) {
    Writer lWriter(aTag, aCommand);
    lWriter.u32(aValue);
    return lWriter.finish();
}

ZTSensorBytes encodeTargets(std::uint32_t aTag, std::span<const ZTSSensorTarget> aTargets) {
    Writer lWriter(aTag, ZTSSCAC_RegisterTargets);
    lWriter.u32(static_cast<std::uint32_t>(aTargets.size()));
    for (const ZTSSensorTarget& lrTarget : aTargets) {
        lWriter.name(lrTarget.mNames.mNode);
        lWriter.name(lrTarget.mNames.mPort);
        lWriter.u32(lrTarget.mAddress);
    }
    return lWriter.finish();
}

void decodeSuccess(std::span<const std::uint8_t> aBody) {
    ZTCWireReader lReader(aBody);
    sExpect(lReader, ZTSSCAR_Success);
    if (const std::uint32_t lResult = lReader.u32(); lResult != 0) {
        lReader.fail("tells of success with result " + std::to_string(lResult));
    }
}

ZTSensorScopeData decodeScopeData(std::span<const std::uint8_t> aBody) {
    ZTCWireReader lReader(aBody);
    sExpect(lReader, ZTSSCAR_ScopeData);
    lReader.u32();  // how many lists there were when the agent began to answer
    ZTSensorScopeData lData;
    while (!lReader.isAtEnd()) {
        ZTSSensorRecordList& lrList = lData.emplace_back();
        lrList.mInitiator = sReadLabel(lReader);
        std::uint32_t lLeft = lReader.u32();
        lrList.mRecords.reserve(std::min<std::size_t>(lLeft, lReader.getLeft() / sLeastRecord));
        for (; lLeft > 0; --lLeft) {
            lrList.mRecords.push_back(sReadRecord(lReader));
        }
    }
    return lData;
}

std::vector<ZTSPortNames> listInitiators(const ZTSensorScopeData& acrData) {
    std::vector<ZTSPortNames> lInitiators;
    for (const ZTSSensorRecordList& lrList : acrData) {
        lInitiators.push_back(lrList.mInitiator);
    }
    return lInitiators;
}

std::uint64_t countRecords(const ZTSensorScopeData& acrData) {
    std::uint64_t lCount = 0;
    for (const ZTSSensorRecordList& lrList : acrData) {
        lCount += lrList.mRecords.size();
    }
    return lCount;
}

std::uint64_t countEvents(const ZTSensorScopeData& acrData) {
    std::uint64_t lCount = 0;
    for (const ZTSSensorRecordList& lrList : acrData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            lCount += lrRecord.mOccurrences;
        }
    }
    return lCount;
}

bool hasScsiAnswers(const ZTSensorScopeData& acrData) {
    constexpr std::uint8_t lScsi = 4;
    constexpr std::uint8_t lAnswers = 1 | 2 | 4;  // queue_full, device_busy, check_condition
    return std::any_of(acrData.begin(), acrData.end(), [](const ZTSSensorRecordList& acrList) {
        return std::any_of(
            acrList.mRecords.begin(), acrList.mRecords.end(), [](const ZTSSensorRecord& acrRecord) {
                return acrRecord.mCategory == lScsi && (acrRecord.mSubcategory & lAnswers) != 0;
            });
    });
}
