// Records that retention leaves alone.
#pragma once

#include "Statement.h"

/// The table kept: ranges of ids, of which no two overlap. In the transaction of its caller.
class ZTCKeptRecords {
  public:
    explicit ZTCKeptRecords(SQLite::Database& arDatabase);

    /// The last id of the range that an id is in; nothing: it is not kept.
    std::optional<std::int64_t> findEnd(std::int64_t aId);
    /// The first id of the range behind an id.
    std::optional<std::int64_t> findNext(std::int64_t aId) { return mNext.findNumber(aId); }
    /// Keeps those of these that belong to incidents which are kept, from now on. They are found only when
    /// they would go: until then an incident may grow, and costs nothing. False: there are none.
    bool keepEvidence(std::int64_t aFirst, std::int64_t aLast);

  private:
    void keep(std::int64_t aFirst, std::int64_t aLast);

    ZTCStatement mAround, mNext, mHasEvidence, mFindEvidence, mGrow, mAdd;
};
