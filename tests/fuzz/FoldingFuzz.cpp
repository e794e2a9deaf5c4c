// Whatever blocks an agent hands over, they are folded, finely and coarsely, and none of their events is
// lost.
#include <cstdlib>

#include "Folding.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* apData, size_t aSize) {
    ZTCFolding lFolding({std::chrono::seconds(10), 100});
    const ZTSPortNames lInitiator;
    const std::optional<ZTSPortNames> lNobody;
    std::span<const uint8_t> lBytes(apData, aSize);
    uint64_t lTaken = 0;
    while (lBytes.size() >= 5) {
        const auto lHead = lBytes.first(5);  // category, subcategory, size, time, what is done behind it
        lBytes = lBytes.subspan(5);
        const auto lBlock = lBytes.first(std::min<size_t>(lHead[2], lBytes.size()));
        lBytes = lBytes.subspan(lBlock.size());
        const auto lNow = ZTCFolding::Clock::time_point(std::chrono::seconds(lTaken));
        const ZTNanoseconds lTime = lHead[3] * ZTSecond;
        lTaken += lFolding.take({lInitiator, lHead[0], lHead[1], lNobody, lTime, lTime, 1, lBlock}, lNow,
                                [](ZTSRecord& arRecord) {
                                    const ZTSSeries& lrSeries = arRecord.mSeries;
                                    arRecord.mSeries.mRemote = findRemotePort(
                                        lrSeries.mCategory, lrSeries.mSubcategory, arRecord.mData);
                                    findPortId(lrSeries.mCategory, lrSeries.mSubcategory, arRecord.mData);
                                })
                      ? 1
                      : 0;
        if (lHead[4] % 8 == 0) {
            lFolding.foldCoarsely(ZTSecond << lHead[4] / 8);
        }
    }
    for (const ZTSFoldedRow& lrRow : lFolding.getRows()) {
        decodeEventBlock(lrRow.mRecord.mSeries.mCategory, lrRow.mRecord.mSeries.mSubcategory,
                         lrRow.mRecord.mData);
        lTaken -= lrRow.mRecord.mOccurrences;
    }
    if (lTaken != 0) {
        abort();
    }
    return 0;
}
