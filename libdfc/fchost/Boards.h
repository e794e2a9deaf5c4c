// The boards and their names, as the agent asks for them.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "Lock.h"
#include "Watcher.h"
#include "libdfc_provider.h"

/// A name as the interface has it: the number's highest byte first.
HBA_wwn toFcName(std::uint64_t aName);

/// Where a host stands.
struct ZTSFcPlace {
    std::uint32_t mBoard;
    std::uint64_t mIdentity;  ///< another one: made anew since, under the same number
    bool mIsThere = true;     ///< at the last look; it may have gone since, and the number may be another's
};

/// Any thread. Its lock is never held while a callback is made.
class ZTCFcBoards {
  public:
    /// Takes over what the watcher knows. Throws std::bad_alloc, with nothing changed.
    void update(const ZTCFcWatcher& acrWatcher);

    std::uint32_t count() const;
    /// False: there is no such board.
    bool getNames(std::uint32_t aBoard, HBA_wwn& arNode, HBA_wwn& arPort) const;
    /// Of hostN; of one that has gone, as long as no look has found another under its number. Nothing: no
    /// look has found a Fibre Channel host of that number.
    std::optional<ZTSFcPlace> findHost(std::uint32_t aHost) const;

  private:
    struct Names {
        HBA_wwn mNode;
        HBA_wwn mPort;
    };
    mutable ZTCFcLock mLock;
    std::vector<Names> mNames ZT_FC_GUARDED_BY(mLock);
    std::map<std::uint32_t, ZTSFcPlace> mHosts ZT_FC_GUARDED_BY(mLock);
};
