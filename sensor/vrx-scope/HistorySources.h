// What a history has for a query, in the order of time, whatever it is.
#pragma once

#include <functional>
#include <memory>

#include "HistoryPrinter.h"
#include "HistoryQuery.h"

/// One sort of it, in the order of time.
class ZTCHistorySource {
  public:
    virtual ~ZTCHistorySource() = default;
    /// When the next one is; nothing behind the last.
    virtual std::optional<ZTNanoseconds> nextTime() = 0;
    /// Prints it and goes on to the one behind it.
    virtual void print(ZTCHistoryPrinter& arPrinter) = 0;
};
using ZTHistorySources = std::vector<std::unique_ptr<ZTCHistorySource>>;

/// In the order of a document's lists: records, losses, changes, FPINs, stalls; all up to a place. aLimit: so
/// many records, and what there was since the first of them, but no more than that of each; 0: none. They
/// hold on to the reader and the query. They throw ZTCStoreError.
ZTHistorySources listHistorySources(ZTCStoreReader& arReader, const ZTSHistoryQuery& acrQuery,
                                    const ZTSStorePlace& acrPlace, std::uint64_t aLimit);

/// Prints all of it, as the printer wants it ordered. False: acrIsAskedToEnd said so in between.
bool printHistory(
    ZTHistorySources& arSources, ZTCHistoryPrinter& arPrinter,
    const std::function<bool()>& acrIsAskedToEnd = [] { return false; });
