// To which incident a record belongs.
#pragma once

#include <map>
#include <tuple>
#include <vector>

#include "StoreReader.h"

/// For many records: what incidents have of a time is read once. One thread.
class ZTCIncidentLookup {
  public:
    /// For records that began from one time to another, as incidents are now: for those that came since it is
    /// read again. Throws ZTCStoreError.
    void read(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aUntil);
    /// The incident's id, the first one's where there are two; of one that has become part of another that
    /// one's. 0: it belongs to none.
    std::uint64_t find(const ZTSRecord& acrRecord) const;

  private:
    struct Span {
        ZTNanoseconds mFirst = 0;
        ZTNanoseconds mLast = 0;
        std::uint64_t mIncident = 0;
        ZTNanoseconds mLastSoFar = 0;  ///< of this one and those before
    };
    /// Category, subcategory, initiator, remote, fabric.
    using Key = std::tuple<std::uint8_t, std::uint8_t, ZTSWwn, ZTSWwn, std::string>;

    std::map<Key, std::vector<Span>> mSpans;  ///< in the order of their begin
};
