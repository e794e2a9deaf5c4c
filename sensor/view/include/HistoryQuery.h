// What is asked of the history, in words and as a filter.
#pragma once

#include <memory>

#include "IncidentEvidence.h"
#include "PathsBelow.h"
#include "StoreReader.h"
#include "ViewAsk.h"

/// What is asked for, of all that a history has.
struct ZTSHistoryQuery {
    ZTSHistoryFilter mFilter;
    bool mTakesRecords = true;
    bool mTakesFpins = true;
    bool mTakesStalls = true;
    /// By which stalls and changes concern ports. Never null; it knows the store where that matters.
    std::shared_ptr<ZTCPathsBelow> mpBelow = std::make_shared<ZTCPathsBelow>();

    /// Only an incident's records; null: all.
    std::shared_ptr<const ZTCIncidentEvidence> mpEvidence{};
    /// Changes also of a time before the filter's.
    ZTNanoseconds mChangesSince = std::numeric_limits<ZTNanoseconds>::max();

    bool takes(const ZTSFpin& acrFpin) const;
    bool takes(const ZTSStall& acrStall) const;
    /// Only what concerns a port that is asked for, if one is; the time is not looked at.
    bool takes(const ZTSChange& acrChange) const;
    /// Whether it matters which ports stand behind a name.
    bool asksForPorts() const {
        return !mFilter.mInitiators.empty() || !mFilter.mTargets.empty() || !mFilter.mFabric.empty();
    }
};

// They read times, kinds and names; the store tells what its ports and fabrics are called. Each throws
// ZTCViewUsage and ZTCStoreError.

/// aNow: what times are counted from.
ZTSHistoryQuery makeQuery(const ZTSHistoryAsk& acrAsk, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                          bool aInUtc);
/// The same for who wants nothing but records: it costs less, and knows nothing below the names of stalls and
/// changes.
ZTSHistoryQuery makeRecordQuery(const ZTSHistoryAsk& acrAsk, ZTCStoreReader& arReader, ZTNanoseconds aNow,
                                bool aInUtc);
/// What changes may be about: "port", "lun".
void checkWhats(const std::vector<std::string>& acrWhats);
/// A port of a number or a name, or all of an array or of one of its controllers.
std::vector<ZTSWwn> readPortsOf(const std::vector<std::string>& acrTexts, const ZTPortLabels& acrLabels);
/// Empty for an empty one.
std::string readFabric(const std::string& acrText, ZTCStoreReader& arReader);
