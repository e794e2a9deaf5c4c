// Which maps hang on which ports, and what stands above them, as it was before it went.
#pragma once

#include <map>
#include <set>

#include "Incident.h"
#include "Storage.h"

class ZTCFinderMaps {
  public:
    using Pair = std::pair<ZTSWwn, ZTSWwn>;  ///< initiator, remote port

    /// What a map had before stays known of it as long as paths are missing.
    void take(const ZTSHostStorage& acrStorage);
    /// Maps with a path over these ports, by name. Zeros: whichever.
    std::set<std::string> findMaps(const ZTSWwn& acrInitiator, const ZTSWwn& acrRemote) const;
    const std::set<Pair>* findPairs(const std::string& acrMap) const;
    /// Adds what stands above a map, a volume or a disk, by its name.
    void addHits(const std::string& acrName, ZTSIncidentHits& arHits) const;
    /// The host's ports on a fabric.
    std::set<ZTSWwn> findInitiators(const std::string& acrFabric) const;
    std::size_t getBytes() const;

  private:
    struct Map {
        std::set<Pair> mPairs;
        ZTSIncidentHits mHits;
    };
    std::map<std::string, Map> mMaps;
    std::map<std::string, ZTSIncidentHits> mOthers;  // volumes, and LUNs beneath no map
    std::map<ZTSWwn, std::map<ZTSWwn, std::set<std::string>>> mByInitiator;
    std::map<ZTSWwn, std::string> mFabrics;
};
