// What it costs vrx-sn to fold a storm: records of four kinds and two ports that alternate, so that the agent
// has folded none of them. The floor reads the same records, and counts what each has in common with the one
// before it: who folds compares at least as much.
#include <fmt/format.h>

#include <cstring>
#include <memory>

#include "Bench.h"
#include "SnBuffer.h"

namespace {

constexpr unsigned int sAnswer = 20000;  // records that a fetch brings
constexpr unsigned int sAnswers = 50;    // in a turn
constexpr ZTNanoseconds sBegin = 1'800'000'000 * ZTSecond;

void sAddWord(ZTSensorBytes& arData, std::uint32_t aWord) {
    for (unsigned int lShift = 0; lShift < 32; lShift += 8) {
        arData.push_back(static_cast<std::uint8_t>(aWord >> lShift));
    }
}

void sAddSet(ZTSensorBytes& arData, unsigned int aValue) {
    sAddWord(arData, ZTEventSetSize);
    const std::size_t lAt = arData.size();
    arData.resize(lAt + ZTEventSetSize / 8);
    arData[lAt + aValue % ZTEventSetSize / 8] = static_cast<std::uint8_t>(1U << aValue % 8);
}

// The events of one port, in turn: a login, a full queue, a check condition, a link.
ZTSSensorRecord sRecord(unsigned int aNumber, unsigned int aTargets) {
    ZTSSensorRecord lRecord;
    lRecord.mOccurrences = 1;
    lRecord.mFirst = lRecord.mLast = toSensorTime(sBegin + aNumber * 1000);
    ZTSWwn lTarget;
    const unsigned int lNumber = aNumber / 4 % aTargets;
    memcpy(lTarget.mBytes.data(), &lNumber, sizeof lNumber);
    sAddWord(lRecord.mData, 1);
    const unsigned int lKind = aNumber % 4;
    if (lKind != 3) {
        lRecord.mTarget = ZTSPortNames{lTarget, lTarget};
        lRecord.mData.insert(lRecord.mData.end(), lTarget.mBytes.begin(), lTarget.mBytes.end());
    }
    switch (lKind) {
        case 0:
            lRecord.mCategory = 1, lRecord.mSubcategory = 1;
            lRecord.mData.resize(20);
            break;
        case 1:
            lRecord.mCategory = 4, lRecord.mSubcategory = 1;
            sAddSet(lRecord.mData, aNumber);
            break;
        case 2:
            lRecord.mCategory = 4, lRecord.mSubcategory = 4;
            sAddWord(lRecord.mData, 2);
            sAddWord(lRecord.mData, 0x040a);
            for (const unsigned int lValue : {aNumber, 42U, 7U}) {
                sAddSet(lRecord.mData, lValue);
            }
            break;
        default:
            lRecord.mCategory = 8, lRecord.mSubcategory = 2;
    }
    return lRecord;
}

ZTSensorScopeData sStorm(unsigned int aTargets) {
    ZTSensorScopeData lData(2);
    for (unsigned int lAt = 0; lAt < sAnswer; ++lAt) {
        lData[lAt / 4 % 2].mRecords.push_back(sRecord(lAt, aTargets));
    }
    lData[1].mInitiator.mPort.mBytes[7] = 1;
    return lData;
}

std::size_t sRead(const ZTSensorScopeData& acrData) {
    std::size_t lSame = 0;
    for (const ZTSSensorRecordList& lrList : acrData) {
        const ZTSSensorRecord* lpBefore = &lrList.mRecords.front();
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            const std::size_t lSize = std::min(lrRecord.mData.size(), lpBefore->mData.size());
            lSame += memcmp(lrRecord.mData.data(), lpBefore->mData.data(), lSize) == 0 ? 1 : 0;
            lSame += lrRecord.mTarget == lpBefore->mTarget && lrRecord.mFirst >= lpBefore->mLast ? 1 : 0;
            lpBefore = &lrRecord;
        }
    }
    return lSame;
}

void sMeasure(unsigned int aTargets) {
    const ZTSensorScopeData lData = sStorm(aTargets);
    const ZTCBenchGroup lGroup("fold",
                               {.mName = fmt::format("read {} records of {} targets", sAnswer, aTargets),
                                .mMake = [&] { return [&](unsigned int) { ztbench::keep(sRead(lData)); }; },
                                .mCalls = sAnswers,
                                .mEach = sAnswer});
    std::unique_ptr<ZTCSnBuffer> lpBuffer;
    std::uint64_t lRows = 0;
    const auto lPrepare = [&] {
        lpBuffer = std::make_unique<ZTCSnBuffer>(ZTSBufferOptions());
        lRows = 0;
    };
    const auto lTake = [&](unsigned int) { lpBuffer->takeRecords(lData, {}, {}, ZTCSnBuffer::Clock::now()); };
    const auto lTakeAndDetach = [&](unsigned int aNumber) {
        lTake(aNumber);
        for (const ZTSStoreRow& lrRow : lpBuffer->detach(lRows + 1).mRows) {
            lRows += lrRow.mIsNew ? 1 : 0;
        }
        lpBuffer->stored();
    };
    lGroup.measure({"folded", [&] { return lTake; }, lPrepare, sAnswers, sAnswer});
    lGroup.measure({"folded, and detached for the store", [&] { return lTakeAndDetach; }, lPrepare, sAnswers,
                    sAnswer, [&] { return fmt::format("{} rows", lRows); }});
}

}  // namespace

void ztbench::fold() {
    for (const unsigned int lTargets : {1U, 1000U}) {
        sMeasure(lTargets);
    }
}
