// Walks through losses and changes of the history, a slice at a time.
#pragma once

#include "RecordScan.h"

/// Losses or changes, in the order of time, up to a place.
template <class Item>
class ZTCTimeScan {
  public:
    ZTCTimeScan(ZTCStoreReader& arReader, ZTSHistoryFilter aFilter, const ZTSStorePlace& acrPlace);
    bool read(std::vector<Item>& arItems);

  private:
    ZTCStoreReader& mrReader;
    const ZTSHistoryFilter mFilter;
    const std::uint64_t mUpTo;
    SQLite::Statement mStatement;
    ZTSStorePosition mAt;
};
using ZTCLossScan = ZTCTimeScan<ZTSLoss>;
using ZTCChangeScan = ZTCTimeScan<ZTSChange>;
