// Walks through losses, changes, FPINs and stalls of the history, a slice at a time.
#pragma once

#include "RecordScan.h"

/// In the order of time or against it, up to a place.
template <class Item>
class ZTCTimeScan {
  public:
    using Order = ZTCRecordScan::Order;

    ZTCTimeScan(ZTCStoreReader& arReader, ZTSHistoryFilter aFilter, const ZTSStorePlace& acrPlace,
                Order aOrder = Order::OldestFirst);
    /// Adds the next ones, aMost at most. False: there is nothing more. It may add none and be true.
    bool read(std::vector<Item>& arItems, std::size_t aMost = std::numeric_limits<std::size_t>::max());

  private:
    ZTCStoreReader& mrReader;
    const ZTSHistoryFilter mFilter;
    const std::uint64_t mUpTo;
    SQLite::Statement mStatement;
    ZTSStorePosition mAt;
    ZTNanoseconds mEnd = 0;
};
using ZTCLossScan = ZTCTimeScan<ZTSLoss>;
using ZTCChangeScan = ZTCTimeScan<ZTSChange>;
using ZTCFpinScan = ZTCTimeScan<ZTSStoredFpin>;
using ZTCStallScan = ZTCTimeScan<ZTSStoredStall>;
