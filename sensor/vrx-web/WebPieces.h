// The texts of what the stream sends.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "HistoryItems.h"
#include "WebEventId.h"

/// Knows names, windows of maintenance and incidents, as the history has them. One thread.
class ZTCWebPieces {
  public:
    /// Reads what it has to know of these records, if it was not read just now. Throws ZTCStoreError.
    void see(ZTCStoreReader& arReader, const std::vector<ZTSStoredRecord>& acrRecords);
    /// The same for incidents.
    void see(ZTCStoreReader& arReader);
    /// Another history: nothing is known.
    void forget() { mRead = {}; }

    std::string tell(const ZTSStoredRecord& acrRecord) const;
    std::string tell(const ZTSIncident& acrIncident) const;

  private:
    ZTSHistoryFrame mFrame;
    std::shared_ptr<ZTCIncidentLookup> mpIncidents = std::make_shared<ZTCIncidentLookup>();
    std::chrono::steady_clock::time_point mRead;
};

/// As it is sent. acrEvent is a word, acrData a line.
std::string makeWebPiece(const ZTSWebEventId& acrId, const char* apEvent, const std::string& acrData);
