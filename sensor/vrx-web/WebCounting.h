// Events over time, counted from whatever can be read soon: sums by minute and hour, and records where these
// are few.
#pragma once

#include <optional>

#include "WebBins.h"
#include "WebLanes.h"

/// What a lane is of.
struct ZTSWebBy {
    std::string_view mName;
    std::optional<ZTEStoreAxis> mAxis;  ///< nothing: all is of the host
};

/// Those that a filter takes, whatever time that has. Says which bins there are: as narrow as can be had, and
/// no more than the span wants. Throws ZTCStoreError and ZTCWebRefusal.
std::vector<ZTSWebLane> countWebLanes(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter,
                                      const ZTSWebBy& acrBy, const ZTSWebSpan& acrSpan, ZTSWebBins& arBins);
