// Whatever comes out of the output pipe, a sensor reads it or refuses it.
#include "AnswerReader.h"
#include "EventBlock.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* apData, size_t aSize) try {
    ZTCAnswerReader lReader([&](uint8_t* apBytes, size_t aRoom) {
        const size_t lCount = aSize != 0 ? std::min(aSize, aRoom) : throw ZTCNoAgentError("it has ended");
        std::copy_n(apData, lCount, apBytes);
        aSize = 0;
        return lCount;
    });
    const ZTSensorBytes lMessage = lReader.read(7);
    for (const auto& lrList : decodeScopeData(std::span(lMessage).subspan(ZTSSensorHeader::Size)))
        for (const auto& lrRecord : lrList.mRecords)
            decodeEventBlock(lrRecord.mCategory, lrRecord.mSubcategory, lrRecord.mData);
    return 0;
} catch (const ZTCSensorError&) {
    return 0;
}
