// The records of one incident, told from others.
#pragma once

#include <map>
#include <tuple>

#include "StoreReader.h"

/// A plain value: any thread.
class ZTCIncidentEvidence {
  public:
    explicit ZTCIncidentEvidence(const ZTSIncident& acrIncident);

    bool takes(const ZTSRecord& acrRecord) const;
    /// Adds to a filter what leaves out most of the others.
    void narrow(ZTSHistoryFilter& arFilter) const;

  private:
    using Key = std::tuple<std::uint8_t, std::uint8_t, ZTSWwn, ZTSWwn, std::string>;
    struct Span {
        ZTNanoseconds mFirst = 0;
        ZTNanoseconds mLast = 0;
    };

    std::map<Key, std::vector<Span>> mSpans;  ///< apart from one another, in the order of time
};
