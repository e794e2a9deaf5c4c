// Incidents, into the store.
#pragma once

#include <map>
#include <tuple>

#include "Incident.h"
#include "Statement.h"
#include "TotalsTables.h"

struct ZTSStoreStart;
struct ZTSStoreRequest;

/// What an incident has grown by is written, not all that it has: it may have thousands of rows of evidence,
/// and grow each second.
class ZTCIncidentTables {
  public:
    ZTCIncidentTables(SQLite::Database& arDatabase, ZTCTotalsTables& arTotals);

    /// Keeping and acknowledgement stay once they are there.
    void write(const ZTSIncidentNews& acrNews);
    /// What the store has from before, of the last days.
    void load(ZTSStoreStart& arStart, ZTNanoseconds aNow);
    /// A request to acknowledge or keep one. False: there is none of that id, or it is another request.
    bool mark(const ZTSStoreRequest& acrRequest);
    /// The transaction has failed.
    void forget() { mWritten.clear(); }

  private:
    /// All of ZTSIncidentEvidence but its end.
    using EvidenceKey = std::tuple<std::uint8_t, std::uint8_t, ZTSWwn, ZTSWwn, std::string, ZTNanoseconds>;
    using EvidenceEnds = std::map<EvidenceKey, ZTNanoseconds>;
    struct Written {
        EvidenceEnds mEnds;
        ZTNanoseconds mTime = 0;  ///< of its last sign, when all of that was written; 0: not by us
    };

    static EvidenceKey keyOf(const ZTSIncidentEvidence& acrRow) {
        return {acrRow.mCategory, acrRow.mSubcategory, acrRow.mInitiator,
                acrRow.mRemote,   acrRow.mFabric,      acrRow.mFirst};
    }
    static EvidenceEnds endsOf(const ZTSIncident& acrIncident);
    void writeIncident(const ZTSIncident& acrIncident);
    void writeEvidence(const ZTSIncident& acrIncident);
    Written& writtenOf(std::uint64_t aId);
    std::vector<ZTSIncidentEvidence> loadEvidence(std::uint64_t aId);
    void loadIncidents(std::vector<ZTSIncident>& arIncidents, ZTNanoseconds aSince);

    SQLite::Database& mrDatabase;
    ZTCTotalsTables& mrTotals;
    std::map<std::uint64_t, Written> mWritten;  ///< of incidents that are not closed
    ZTCStatement mSetIncident, mAcknowledge, mKeep, mKeepEvidence, mFindEvidence, mSetEvidence, mNoEvidence,
        mSetBaseline, mSetTo, mLastId;
};
