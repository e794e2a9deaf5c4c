// What a new store lacks when the one before it was set aside in the middle of a run.
#pragma once

#include <map>
#include <set>

#include "StoreBatch.h"

/// Rows that are open then come into the new one with all their occurrences, so that what is added to them
/// later finds them; and so do the last run of the agent, the ports and their names, incidents that are not
/// closed, and how the host stands otherwise. One thread.
class ZTCStoreMove {
  public:
    /// A new store is begun: it has none of the rows before this one.
    void begin(std::uint64_t aNextId);
    /// Before a batch is written: what the store lacks becomes new in it. The same batch may come again when
    /// it could not be written. Throws std::bad_alloc: it is to come again.
    void complete(ZTSStoreBatch& arBatch) const;
    /// It is in the store.
    void stored(const ZTSStoreBatch& acrBatch);

  private:
    std::uint64_t mBorder = 0;     ///< ids from here on are the new store's own; 0: it is whole
    std::set<std::uint64_t> mHas;  ///< of those below, the ones that it has got
    bool mLacksState = false;
    std::optional<ZTSAgentRun> mAgent;  ///< as they were stored last
    std::optional<ZTSHostPorts> mPorts;
    std::optional<ZTPortLabels> mLabels;
    ZTSHostNews mHost;  ///< what is there whole
    std::optional<ZTSHostFacts> mFacts;
    std::map<std::uint64_t, ZTSIncident> mIncidents;  ///< that are not closed
};
