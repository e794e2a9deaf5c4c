// What the history has, as it is shown: with names, windows of maintenance, and incidents.
#pragma once

#include <memory>

#include "IncidentLookup.h"
#include "JsonWriter.h"
#include "PathsBelow.h"
#include "StoreReader.h"

/// What stands with everything that is printed.
struct ZTSHistoryFrame {
    std::string mHost;
    ZTPortLabels mLabels;
    bool mInUtc = false;
    std::vector<ZTSWindow> mWindows{};
    std::shared_ptr<const ZTCPathsBelow> mpBelow{};          ///< never null where there are windows
    std::shared_ptr<const ZTCIncidentLookup> mpIncidents{};  ///< null: nobody asks for them
    std::uint64_t mIncident = 0;                             ///< 0: records are of several, or of none

    /// To which a record belongs; 0: to none.
    std::uint64_t incidentOf(const ZTSRecord& acrRecord) const;
    // The window of maintenance that something fell into; null: none.
    const ZTSWindow* windowOf(const ZTSRecord& acrRecord) const;
    const ZTSWindow* windowOf(const ZTSFpin& acrFpin) const;
    const ZTSWindow* windowOf(const ZTSStall& acrStall) const;
    const ZTSWindow* windowOf(const ZTSChange& acrChange) const;
};

/// The change with the names of ports in place of their numbers, where they have names.
ZTSChange nameThePortsOf(const ZTPortLabels& acrLabels, ZTSChange aChange);

// Each writes its members (docs/json.md) into an object that has been begun.
void putStored(ZTCJsonWriter& arJson, const ZTSStoredRecord& acrRecord, const ZTSHistoryFrame& acrFrame);
void putStored(ZTCJsonWriter& arJson, const ZTSLoss& acrLoss, const ZTSHistoryFrame& acrFrame);
void putStored(ZTCJsonWriter& arJson, const ZTSChange& acrChange, const ZTSHistoryFrame& acrFrame);
void putStored(ZTCJsonWriter& arJson, const ZTSStoredFpin& acrFpin, const ZTSHistoryFrame& acrFrame);
void putStored(ZTCJsonWriter& arJson, const ZTSStoredStall& acrStall, const ZTSHistoryFrame& acrFrame);
