// What is asked of the history, in words and as a filter.
#pragma once

#include "HistoryOptions.h"
#include "StoreReader.h"

/// What is asked for, of all that a history has.
struct ZTSHistoryQuery {
    ZTSHistoryFilter mFilter;
    bool mTakesRecords = true;
    bool mTakesFpins = true;
    bool mTakesStalls = true;
    /// The disks by which a stall concerns what the filter takes; nothing: all do.
    std::optional<std::vector<std::string>> mDisks{};

    bool takes(const ZTSFpin& acrFpin) const;
    bool takes(const ZTSStall& acrStall) const;
};

// They read times, kinds and names; the store tells what its ports and fabrics are called. Each throws
// ZTCScopeUsage and ZTCStoreError.

/// aNow: what times are counted from.
ZTSHistoryQuery makeQuery(const ZTSHistoryOptions& acrOptions, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                          bool aInUtc);
/// A port of a number or a name, or all of an array or of one of its controllers.
std::vector<ZTSWwn> readPortsOf(const std::vector<std::string>& acrTexts, const ZTPortLabels& acrLabels);
/// Empty for an empty one.
std::string readFabric(const std::string& acrText, ZTCStoreReader& arReader);
