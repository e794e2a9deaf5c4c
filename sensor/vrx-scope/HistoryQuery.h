// What is asked of the history, in words and as a filter.
#pragma once

#include "HistoryOptions.h"
#include "StoreReader.h"

/// Reads times, kinds and names; the store tells what its ports and fabrics are called. aNow: what times are
/// counted from. Throws ZTCScopeUsage and ZTCStoreError.
ZTSHistoryFilter makeFilter(const ZTSHistoryOptions& acrOptions, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                            bool aInUtc);
