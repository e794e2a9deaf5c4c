// How much there was over time, for those who draw it: rows of the store by the ids of what they are about.
#pragma once

#include <functional>

#include "StoreReader.h"

/// Takes a row: the second that it begins in, whose it is, and how many events that were.
using ZTTakeCount = std::function<void(std::int64_t aTime, std::int64_t aId, std::uint64_t aEvents)>;

/// From one second to before another.
struct ZTSCountSpan {
    std::int64_t mFrom = 0;
    std::int64_t mTo = 0;
    std::uint64_t mMost = 0;  ///< rows that may be read
};

// Each hands out rows, in no order. False: there are more than may be read; what was handed out is of no use.
// They throw ZTCStoreError, and what the taker throws.

/// The sums of an axis; the ids are its members'.
bool readSums(ZTCStoreReader& arReader, ZTEStoreAxis aAxis, ZTEStoreBin aBin, const ZTSCountSpan& acrSpan,
              const ZTTakeCount& acrTake);
/// The sums of series by hour. One that has become part of another since is handed out all the same.
bool readSeriesSums(ZTCStoreReader& arReader, const ZTSCountSpan& acrSpan, const ZTTakeCount& acrTake);
/// Records by their begin; the ids are their series'.
bool readRecordCounts(ZTCStoreReader& arReader, const ZTSCountSpan& acrSpan, const ZTTakeCount& acrTake);
/// The series that a filter takes. Nothing: there are so many of them, or of all, that whoever looks for the
/// records of each would be slow.
std::optional<std::vector<std::int64_t>> findFewSeries(ZTCStoreReader& arReader,
                                                       const ZTSHistoryFilter& acrFilter);
/// Records of some series, which are looked for one by one.
bool readRecordCounts(ZTCStoreReader& arReader, const std::vector<std::int64_t>& acrSeries,
                      const ZTSCountSpan& acrSpan, const ZTTakeCount& acrTake);

/// The names of what stands on an axis, as they are asked for. One thread; as long as its reader.
class ZTCMemberNames {
  public:
    explicit ZTCMemberNames(ZTCStoreReader& arReader);

    /// Empty: it has none, or is there no more.
    std::string find(std::int64_t aMember);

  private:
    ZTCStoreReader& mrReader;
    SQLite::Statement mFind;
};
