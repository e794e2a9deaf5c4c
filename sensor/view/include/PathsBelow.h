// Through which ports the host reaches what a change or a stall names.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "StorageIndex.h"
#include "StoreReader.h"

/// A path's two ports and its fabric, as a filter and a window take them.
ZTSSeries portsOfPath(const ZTSLun& acrLun);

/// A LUN's WWID as page 0x83 has it, of a map's, as device mapper writes it. Empty: it cannot be told.
std::string lunWwidOf(const std::string& acrMapWwid);

/// Empty, it knows what names say themselves. One thread.
class ZTCPathsBelow {
  public:
    /// As the store has it now. Throws ZTCStoreError; then all is as it was.
    void read(ZTCStoreReader& arReader);
    /// Whether it has been read.
    bool knowsStore() const { return mpKnown != nullptr; }

    /// By the name of a LUN, map, volume, disk or mount point: the paths of the LUNs below it; of what has
    /// gone, as they were. Else the ports whose numbers stand in the name.
    std::vector<ZTSSeries> listPaths(const std::string& acrName) const;
    /// Of what it is about; of a note, what that is about, which may be an array too.
    std::vector<ZTSSeries> listPaths(const ZTSChange& acrChange) const;

  private:
    // An index points into its storage: both stay where they are.
    struct Known {
        explicit Known(ZTSStoredStorage aStorage);

        const ZTSStoredStorage mStored;
        const ZTSHostStorage mHere;
        const ZTCStorageIndex mIndex{mHere};
        std::unordered_multimap<std::string, std::string> mDisks;   // by the names of what is there
        std::unordered_multimap<std::string, const ZTSLun*> mGone;  // by LUNs and maps that have gone
    };

    void addBelow(const std::string& acrName, std::vector<ZTSSeries>& arPaths) const;
    ZTSSeries pairOf(const ZTSWwn& acrInitiator, const std::optional<ZTSWwn>& acrTarget) const;
    std::vector<ZTSSeries> listNamed(const std::string& acrName) const;

    std::unique_ptr<const Known> mpKnown;
    std::map<ZTSWwn, std::string> mFabrics;
    ZTPortLabels mLabels;
};
