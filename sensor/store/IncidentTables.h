// Incidents, into the store.
#pragma once

#include <map>
#include <tuple>

#include "Incident.h"
#include "Statement.h"

struct ZTSStoreStart;
struct ZTSStoreRequest;

/// What an incident has grown by is written, not all that it has: it may have thousands of rows of evidence,
/// and grow each second.
class ZTCIncidentTables {
  public:
    explicit ZTCIncidentTables(SQLite::Database& arDatabase);

    /// Keeping and acknowledgement stay once they are there.
    void write(const ZTSIncidentNews& acrNews);
    /// What the store has from before, of the last days.
    void load(ZTSStoreStart& arStart, ZTNanoseconds aNow);
    /// The transaction has failed.
    void forget() { mWritten.clear(); }

  private:
    /// All of ZTSIncidentEvidence but its end.
    using EvidenceKey = std::tuple<std::uint8_t, std::uint8_t, ZTSWwn, ZTSWwn, std::string, ZTNanoseconds>;
    using EvidenceEnds = std::map<EvidenceKey, ZTNanoseconds>;

    void writeIncident(const ZTSIncident& acrIncident);
    void writeEvidence(const ZTSIncident& acrIncident);
    EvidenceEnds& endsOf(std::uint64_t aId);
    std::vector<ZTSIncidentEvidence> loadEvidence(std::uint64_t aId);
    void loadIncidents(std::vector<ZTSIncident>& arIncidents, ZTNanoseconds aSince);

    SQLite::Database& mrDatabase;
    std::map<std::uint64_t, EvidenceEnds> mWritten;  ///< of incidents that are not closed
    ZTCStatement mSetIncident, mKeepEvidence, mFindEvidence, mSetEvidence, mNoEvidence, mSetBaseline, mSetTo,
        mLastId;
};
