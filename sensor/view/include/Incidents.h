// The incidents of a host as people ask for them.
#pragma once

#include "HistoryQuery.h"
#include "JsonWriter.h"
#include "StoreReader.h"

/// What is known beside them.
struct ZTSIncidentFrame {
    std::string mHost;
    ZTPortLabels mLabels;
    ZTNanoseconds mNow = 0;
    bool mIsNow = false;         ///< vrx-sn runs
    ZTNanoseconds mWritten = 0;  ///< when it wrote last; 0: never
};
ZTSIncidentFrame readIncidentFrame(ZTCStoreReader& arReader);

/// Those that the options take: what is not closed first, of each the youngest first. Throws ZTCViewUsage
/// and ZTCStoreError.
std::vector<ZTSIncident> readIncidentList(ZTCStoreReader& arReader, const ZTSHistoryAsk& acrHistory,
                                          const ZTSIncidentChoice& acrOptions, ZTNanoseconds aNow,
                                          bool aInUtc);

/// By its id as somebody wrote it. Throws ZTCViewUsage for what is no id, ZTCViewMissing when there is none
/// of that, and ZTCStoreError.
ZTSIncident readIncidentOf(ZTCStoreReader& arReader, const std::string& acrId);
/// The one that it has become part of in the end; itself, if it is on its own.
ZTSIncident followMerges(ZTCStoreReader& arReader, ZTSIncident aIncident);

/// What there is to tell of one beside itself.
struct ZTSIncidentTold {
    ZTSIncident mIncident;
    std::vector<ZTSIncident> mSeries{};  ///< the others of its series, the youngest first
};
ZTSIncidentTold tellIncident(ZTCStoreReader& arReader, ZTSIncident aIncident);

/// When it was over; of one that is not, when it was last looked at.
ZTNanoseconds endOf(const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame);

/// Asks for its records, and for what else there was in its time.
void askForIncident(const ZTSIncident& acrIncident, ZTSHistoryQuery& arQuery);

/// The first members of a document of one or of several.
void putIncidentFrame(ZTCJsonWriter& arJson, const ZTSIncidentFrame& acrFrame);
/// As JSON: a document of several, without the ids of their records, and of one with them. aIndent: 0 for one
/// line.
std::string incidentsJson(const std::vector<ZTSIncident>& acrIncidents, const ZTSIncidentFrame& acrFrame,
                          unsigned int aIndent);
std::string incidentJson(const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame,
                         const std::vector<std::uint64_t>& acrEvidence, unsigned int aIndent);
