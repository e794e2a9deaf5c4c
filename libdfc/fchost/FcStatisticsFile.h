// The memory of the library's figures, which others read as a file (StatisticsBlock.h).
//
// On tmpfs the file is mapped: what is counted is in it at once. On anything else a store into a mapped page
// could wait for a disk, or find it full: there the figures are in memory alone, and a thread that nobody
// waits for writes them out each second, makes the file and removes it.
#pragma once

#include <memory>
#include <string>

#include "Journal.h"
#include "StatisticsBlock.h"

/// Whatever goes wrong with the file is one line in the journal: the figures go on in memory. A process that
/// leaves by quick_exit takes the file with it, as the destructor does.
class ZTCFcStatisticsFile {
  public:
    static constexpr unsigned int Size = 256 * 1024;
    static constexpr unsigned int MaxRows =
        (Size - ZTSStatisticsBlock::HeaderSize) / sizeof(ZTSStatisticsRow);

    /// A block without rows, not shown yet. An empty directory: it never is. Throws std::bad_alloc.
    ZTCFcStatisticsFile(const std::string& acrDirectory, const std::string& acrLog);
    /// Removes the file, if it is still the one in its place. A disk that stands still is not waited for
    /// longer than a second.
    ~ZTCFcStatisticsFile();
    ZTCFcStatisticsFile(const ZTCFcStatisticsFile&) = delete;
    ZTCFcStatisticsFile& operator=(const ZTCFcStatisticsFile&) = delete;

    /// Once the first rows are there. One who has reached the row count finds the rows named.
    void show();

    ZTSStatisticsRow& row(unsigned int aAt) { return mpRows[aAt]; }
    /// Any thread; rows below the count are not named again.
    void setRowCount(std::uint32_t aCount);

  private:
    struct Work;

    const std::shared_ptr<Work> mpWork;
    ZTSStatisticsRow* const mpRows;
};
