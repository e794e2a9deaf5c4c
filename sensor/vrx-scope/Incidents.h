// The incidents of a host as people ask for them.
#pragma once

#include "HistoryQuery.h"
#include "IncidentOptions.h"
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

/// Those that the options take: what is not closed first, of each the youngest first. Throws ZTCScopeUsage
/// and ZTCStoreError.
std::vector<ZTSIncident> readIncidentList(ZTCStoreReader& arReader, const ZTSHistoryOptions& acrHistory,
                                          const ZTSIncidentOptions& acrOptions, ZTNanoseconds aNow,
                                          bool aInUtc);

/// Throws ZTCScopeUsage where options of a list stand with one incident.
void checkNothingOfList(const ZTSHistoryOptions& acrHistory, const ZTSIncidentOptions& acrOptions);

/// By its id as somebody wrote it. Throws ZTCScopeUsage for what is no id, ZTCScopeFailure when there is none
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
