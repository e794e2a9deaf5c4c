// Walks through losses, changes, FPINs and stalls of the history, a slice at a time.
#pragma once

#include "RecordScan.h"

/// In the order of time, up to a place.
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
using ZTCFpinScan = ZTCTimeScan<ZTSStoredFpin>;
using ZTCStallScan = ZTCTimeScan<ZTSStoredStall>;
