// What the agent counts about itself: one block of memory, laid out to the byte as the file in which others
// read it (docs/statistics.md). Everything counts into the block, always; whether a file shows it is the
// business of StatisticsFile.h, and nobody who counts waits for it.
//
// A row has one way of being written: by one thread at a time (ZTAddToStatistic, ZTSetStatistic: plain loads
// and stores, under the scope-data lock or by a thread whose row it is), or by any thread (fetch_add on
// ZTStatistic). Which, stands beside it.
#pragma once

#include <atomic>
#include <cstdint>

#include "StatisticsBlock.h"

/// The places of the rows. Their names are made in one table, ScopeAgentStatistics.cpp.
enum ZTEStatistic : unsigned int {
    ZTS_Events,                            ///< one a kind of event, in their order; under the lock
    ZTS_RecordedEvents = ZTS_Events + 20,  ///< under the lock, as all to HeldBytes that say nothing else
    ZTS_Records,                           ///< begun
    ZTS_Folded,                            ///< events that an older record took in
    ZTS_Lost,                              ///< one a reason (ZTEScopeAgentLoss); any thread
    ZTS_Fetches = ZTS_Lost + 6,
    ZTS_FetchedEvents,  ///< the command thread's, as the next one
    ZTS_Commands,
    ZTS_LastFetchTime,  ///< nanoseconds since 1970
    ZTS_HeldEvents,
    ZTS_HeldRecords,
    ZTS_HeldBytes,
    ZTS_HeldBytesLimit,                      ///< set once, at the start
    ZTS_LimitReached,                        ///< under the lock
    ZTS_LogRecords,                          ///< records that the log's writer has taken: whoever takes them
    ZTS_LogLostFull,                         ///< any thread
    ZTS_LogLostError,                        ///< whoever writes the file
    ZTS_CallbacksInside,                     ///< set by the thread of the statistics, each second
    ZTS_LibraryCalls,                        ///< one a function (ZTELibdfcFunction); whoever calls it
    ZTS_Collecting = ZTS_LibraryCalls + 10,  ///< the command thread's
    ZTS_EndedTime,                           ///< the main thread's, at the very end
    ZTS_Count
};

/// A place in a group of rows.
constexpr unsigned int ZTRowOf(ZTEStatistic aFirst, unsigned int aAt) {
    return aFirst + aAt;
}

static_assert(ZTS_Count <= ZTSStatisticsBlock::MaxRows);

namespace ztstatistics {
extern ZTSStatisticsBlock gBlock;
}

inline std::atomic<std::uint64_t>& ZTStatistic(unsigned int aRow) {
    return ztstatistics::gBlock.mRows[aRow].mValue;
}

inline void ZTSetStatistic(unsigned int aRow, std::uint64_t aValue) {
    ZTStatistic(aRow).store(aValue, std::memory_order_relaxed);
}

inline std::uint64_t ZTGetStatistic(unsigned int aRow) {
    return ZTStatistic(aRow).load(std::memory_order_relaxed);
}

inline void ZTAddToStatistic(unsigned int aRow, std::uint64_t aCount = 1) {
    ZTSetStatistic(aRow, ZTGetStatistic(aRow) + aCount);
}

/// Names the row: at the start, before anybody else looks at the block.
void ZTNameStatistic(unsigned int aRow, const char* apName);

/// Fills the header in, for so many rows of this process.
void ZTBeginStatistics(unsigned int aRows);

/// Copies the block into another, rows that are being counted in included.
void ZTCopyStatistics(ZTSStatisticsBlock& arTo);

/// The bytes of the header and the rows.
unsigned int ZTSizeOfStatistics();
