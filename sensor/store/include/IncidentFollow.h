// Reads what becomes of incidents.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "StoreReader.h"

/// Who follows is told of an incident when it is there, whenever it has become another one, and when it is
/// closed or part of another. One thread.
class ZTCIncidentFollow {
  public:
    /// Begins with those that are not closed, or were closed from this time on.
    explicit ZTCIncidentFollow(ZTNanoseconds aSince) : mSince(aSince) {}

    /// All that has changed is taken as seen, and nothing is read of it.
    void skip(ZTCStoreReader& arReader);
    /// In the order of their ids, without those of their evidence. Throws ZTCStoreError: it is told the next
    /// time.
    std::vector<ZTSIncident> read(ZTCStoreReader& arReader);

  private:
    struct Look {
        std::size_t mPrint = 0;  ///< what tells it from what it was
        bool mIsClosed = false;
    };
    using Looks = std::map<std::uint64_t, Look>;
    Looks look(ZTCStoreReader& arReader);
    void take(Looks aLooks);

    std::string mStore;  ///< its UUID: ids are of one store
    ZTNanoseconds mSince;
    std::uint64_t mLast = std::numeric_limits<std::int64_t>::max();  ///< the highest id that was looked at
    std::uint64_t mLastThere = 0;
    Looks mSeen;
};
