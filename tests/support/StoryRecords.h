// The agent's records that a row of a story stands for (SignStory.h).
#pragma once

#include "Record.h"
#include "StorySite.h"

struct ZTSStoryRecord {
    std::string mVerb;  ///< the kind's name
    ZTSRecord mRecord;
};

/// A row whose first word is a kind of event, or "noise". Throws std::runtime_error.
std::vector<ZTSStoryRecord> listStoryRecords(const ZTCStorySite& acrSite, ZTNanoseconds aTime,
                                             const ZTSStoryLine& acrLine);
