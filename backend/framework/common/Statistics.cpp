#include "Statistics.h"

#include <unistd.h>

#include <cstring>

#include "LogRecord.h"

alignas(ZTSStatisticsBlock::Size) constinit ZTSStatisticsBlock ztstatistics::gBlock{};

using ztstatistics::gBlock;

void ZTNameStatistic(unsigned int aRow, const char* apName) {
    strncpy(gBlock.mRows[aRow].mName, apName, ZTSStatisticsRow::NameSize - 1);
}

void ZTBeginStatistics(unsigned int aRows) {
    memcpy(gBlock.mMagic, ZTStatisticsMagic, sizeof gBlock.mMagic);
    gBlock.mRowCount = aRows;
    gBlock.mRowSize = sizeof(ZTSStatisticsRow);
    gBlock.mStart = ztlog::now();
    gBlock.mProcess = static_cast<std::uint64_t>(getpid());
}

void ZTCopyStatistics(ZTSStatisticsBlock& arTo) {
    memcpy(arTo.mMagic, gBlock.mMagic, sizeof arTo.mMagic);
    arTo.mRowCount = gBlock.mRowCount;
    arTo.mRowSize = gBlock.mRowSize;
    arTo.mStart = gBlock.mStart;
    arTo.mProcess = gBlock.mProcess;
    arTo.mWake.store(gBlock.mWake.load(std::memory_order_relaxed), std::memory_order_relaxed);
    memset(arTo.mZeros, 0, sizeof arTo.mZeros);
    for (unsigned int lRow = 0; lRow < ZTSStatisticsBlock::MaxRows; ++lRow) {
        memcpy(arTo.mRows[lRow].mName, gBlock.mRows[lRow].mName, ZTSStatisticsRow::NameSize);
        arTo.mRows[lRow].mValue.store(ZTGetStatistic(lRow), std::memory_order_relaxed);
    }
}

unsigned int ZTSizeOfStatistics() {
    return ZTSStatisticsBlock::HeaderSize + gBlock.mRowCount * gBlock.mRowSize;
}
