#include "Units.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "HistoryQuery.h"
#include "PathsBelow.h"
#include "PortText.h"
#include "ShownText.h"
#include "StorageIndex.h"

namespace {

constexpr char sOptimized[] = "active/optimized";
constexpr char sOnline[] = "Online";
constexpr char sRunning[] = "running";

// What is asked of ports, by their names.
struct PortStates {
    std::map<ZTSWwn, std::string> mLocal;
    std::map<std::pair<ZTSWwn, ZTSWwn>, std::string> mRemote;
};

PortStates sReadStates(ZTCStoreReader& arReader) {
    const auto lStateOf = [](const auto& acrStored) {
        return acrStored.mIsHere ? acrStored.mPort.mState : std::string("gone");
    };
    PortStates lStates;
    for (const ZTSStoredPort& lrPort : arReader.readPorts()) {
        lStates.mLocal.emplace(lrPort.mPort.mNames.mPort, lStateOf(lrPort));
    }
    for (const ZTSStoredRemotePort& lrPort : arReader.readRemotePorts()) {
        lStates.mRemote.emplace(std::pair(lrPort.mPort.mInitiator, lrPort.mPort.mNames.mPort),
                                lStateOf(lrPort));
    }
    return lStates;
}

template <class Key>
std::string sTrouble(const std::map<Key, std::string>& acrStates, const Key& acrKey, const char* apWhat) {
    const auto lAt = acrStates.find(acrKey);
    const bool lIsWell = lAt == acrStates.end() || lAt->second.empty() || lAt->second == sOnline;
    return lIsWell ? "" : std::string(apWhat) + " " + lAt->second;
}

// What is amiss on the way to a LUN; the nearest comes first. Empty: nothing is seen.
std::string sTroubleOf(const ZTSStoredLun& acrStored, const PortStates& acrStates) {
    const ZTSLun& lrLun = acrStored.mLun;
    std::string lWhy = sTrouble(acrStates.mLocal, lrLun.mInitiator, "initiator");
    if (lWhy.empty()) {
        lWhy = sTrouble(acrStates.mRemote, std::pair(lrLun.mInitiator, lrLun.mTarget), "target");
    }
    if (lWhy.empty() && acrStored.mIsHere && !lrLun.mState.empty() && lrLun.mState != sRunning) {
        lWhy = lrLun.mState;
    }
    return lWhy.empty() && !acrStored.mIsHere ? "removed" : lWhy;
}

class Builder {
  public:
    Builder(const ZTSStoredStorage& acrStorage, PortStates aStates)
        : mrStorage(acrStorage), mHere(acrStorage.listHere()), mStates(std::move(aStates)) {
        for (const ZTSStoredLun& lrLun : acrStorage.mLuns) {
            if (lrLun.mIsHere) {
                mByDisk.emplace(lrLun.mLun.mDisk, &lrLun);
                lrLun.mLun.mWwid.empty() ? void() : void(mWwidsHere.insert(lrLun.mLun.mWwid));
            } else if (!lrLun.mLun.mWwid.empty()) {
                mGone.emplace(lrLun.mLun.mWwid, &lrLun);
            }
        }
    }

    std::vector<ZTSUnit> build() {
        for (const ZTSStoredMap& lrMap : mrStorage.mMaps) {
            addMap(lrMap);
        }
        addRest();
        return std::move(mUnits);
    }

  private:
    void addMap(const ZTSStoredMap& acrStored) {
        const ZTSMap& lrMap = acrStored.mMap;
        std::string lWwid = lunWwidOf(lrMap.mWwid);
        if (!acrStored.mIsHere && mWwidsHere.contains(lWwid)) {
            mFormerMaps[lWwid] = &lrMap;
            return;
        }
        ZTSUnit lUnit;
        lUnit.mMap = lrMap.mName;
        lUnit.mDisk = lrMap.mDisk;
        lUnit.mMapWwid = lrMap.mWwid;
        lUnit.mIsHere = acrStored.mIsHere;
        lUnit.mSeen = acrStored.mSeen;
        lUnit.mSince = acrStored.mSince;
        lUnit.mUsable = acrStored.mIsHere ? lrMap.countUsable() : 0;
        lUnit.mTotal = lrMap.mTotal;
        lUnit.mIsInferred = acrStored.mIsHere && lrMap.isInferred();
        for (const ZTSPath& lrPath : acrStored.mIsHere ? lrMap.mPaths : std::vector<ZTSPath>()) {
            lUnit.mPaths.push_back(makePath(lrPath));
            const std::string& lrWwid = lUnit.mPaths.back().mLun.mWwid;
            lWwid = lrWwid.empty() ? lWwid : lrWwid;
        }
        addGone(lUnit, lWwid);
        finish(std::move(lUnit));
    }

    ZTSUnitPath makePath(const ZTSPath& acrPath) {
        ZTSUnitPath lPath;
        lPath.mLun.mDisk = acrPath.mDisk;
        lPath.mIsHere = true;
        lPath.mIsUsable = acrPath.mIsUsable;
        lPath.mSource = acrPath.mSource;
        if (const auto lAt = mByDisk.find(acrPath.mDisk); lAt != mByDisk.end()) {
            lPath.mLun = lAt->second->mLun;
            lPath.mSeen = lAt->second->mSeen;
            lPath.mWhy = acrPath.mIsUsable ? "" : sTroubleOf(*lAt->second, mStates);
            mTaken.insert(lAt->second);
        }
        lPath.mWhy = lPath.mWhy.empty() && !lPath.mIsUsable ? "failed" : lPath.mWhy;
        return lPath;
    }

    // What was seen last first; no more than are missing.
    void addGone(ZTSUnit& arUnit, const std::string& acrWwid) {
        std::vector<const ZTSStoredLun*> lGone;
        const auto [lBegin, lEnd] = mGone.equal_range(acrWwid);
        std::transform(lBegin, lEnd, std::back_inserter(lGone),
                       [](const auto& acrEntry) { return acrEntry.second; });
        std::stable_sort(lGone.begin(), lGone.end(), [](const auto* apLeft, const auto* apRight) {
            return apLeft->mSeen > apRight->mSeen;
        });
        for (const ZTSStoredLun* const lpLun : lGone) {
            mTaken.insert(lpLun);
            if (arUnit.mMap.empty() || arUnit.mPaths.size() < arUnit.mTotal) {
                arUnit.mPaths.push_back(
                    {lpLun->mLun, false, false, lpLun->mSeen, {}, sTroubleOf(*lpLun, mStates)});
            }
        }
    }

    // What is on no map: by WWID, else each by itself.
    void addRest() {
        std::map<std::string, std::vector<const ZTSStoredLun*>> lGroups;
        for (const ZTSStoredLun& lrLun : mrStorage.mLuns) {
            const ZTSLun& lrIt = lrLun.mLun;
            if (!lrIt.mDisk.empty() && !mTaken.contains(&lrLun)) {
                lGroups[lrIt.mWwid.empty() ? " " + lrIt.getName() : lrIt.mWwid].push_back(&lrLun);
            }
        }
        for (const auto& [lrKey, lrLuns] : lGroups) {
            addGroup(lrLuns);
        }
    }

    void addGroup(const std::vector<const ZTSStoredLun*>& acrLuns) {
        ZTSUnit lUnit;
        lUnit.mDisk = acrLuns[0]->mLun.mDisk;
        for (const ZTSStoredLun* const lpLun : acrLuns) {
            const std::string lWhy = sTroubleOf(*lpLun, mStates);
            lUnit.mPaths.push_back({lpLun->mLun, lpLun->mIsHere, lWhy.empty(), lpLun->mSeen, {}, lWhy});
            lUnit.mIsHere |= lpLun->mIsHere;
            lUnit.mSeen = std::max(lUnit.mSeen, lpLun->mSeen);
            lUnit.mUsable += lWhy.empty() ? 1 : 0;
        }
        lUnit.mTotal = static_cast<std::uint32_t>(lUnit.mPaths.size());
        if (const auto lAt = mFormerMaps.find(acrLuns[0]->mLun.mWwid); lAt != mFormerMaps.end()) {
            lUnit.mFormerMap = lAt->second->mName;
            lUnit.mTotal = std::max(lUnit.mTotal, lAt->second->mTotal);
        }
        lUnit.mIsInferred = !lUnit.isLocal();
        finish(std::move(lUnit));
    }

    void finish(ZTSUnit aUnit) {
        std::stable_sort(aUnit.mPaths.begin(), aUnit.mPaths.end(),
                         [](const ZTSUnitPath& acrLeft, const ZTSUnitPath& acrRight) {
                             return acrLeft.mIsUsable < acrRight.mIsUsable;
                         });
        std::set<std::string> lHits[3];
        const auto lJoin = [&](const ZTSHit& acrHit) {
            lHits[0].insert(acrHit.mMaps.begin(), acrHit.mMaps.end());
            lHits[1].insert(acrHit.mVolumes.begin(), acrHit.mVolumes.end());
            lHits[2].insert(acrHit.mMounts.begin(), acrHit.mMounts.end());
        };
        if (aUnit.mIsHere && !aUnit.mMap.empty()) {
            lJoin(mIndex.hitBy(aUnit.mDisk));
        }
        for (const ZTSUnitPath& lrPath : aUnit.mPaths) {
            if (aUnit.mMap.empty() && lrPath.mIsHere) {
                lJoin(mIndex.hitBy(lrPath.mLun.mDisk));
            }
        }
        aUnit.mHit = {{lHits[0].begin(), lHits[0].end()},
                      {lHits[1].begin(), lHits[1].end()},
                      {lHits[2].begin(), lHits[2].end()}};
        mUnits.push_back(std::move(aUnit));
    }

    const ZTSStoredStorage& mrStorage;
    const ZTSHostStorage mHere;
    const ZTCStorageIndex mIndex{mHere};
    const PortStates mStates;
    std::map<std::string, const ZTSStoredLun*> mByDisk;
    std::multimap<std::string, const ZTSStoredLun*> mGone;
    std::set<std::string> mWwidsHere;
    std::map<std::string, const ZTSMap*> mFormerMaps;  // by the WWIDs of their LUNs
    std::set<const ZTSStoredLun*> mTaken;
    std::vector<ZTSUnit> mUnits;
};

bool sIsIn(const std::vector<std::string>& acrTexts, const std::string& acrText) {
    return std::find(acrTexts.begin(), acrTexts.end(), acrText) != acrTexts.end();
}

bool sHasStall(const ZTSUnit& acrUnit, const std::string& acrName) {
    const auto lIsPath = [&](const ZTSUnitPath& acrPath) {
        return acrPath.mIsHere && (acrPath.mLun.getName() == acrName || acrPath.mLun.mDisk == acrName);
    };
    return acrName == acrUnit.mMap || acrName == acrUnit.mDisk || sIsIn(acrUnit.mHit.mVolumes, acrName) ||
           std::any_of(acrUnit.mPaths.begin(), acrUnit.mPaths.end(), lIsPath);
}

// Each belongs to all LUNs below it.
void sPlaceStalls(std::vector<ZTSStoredStall> aStalls, ZTSUnits& arUnits) {
    for (ZTSStoredStall& lrStall : aStalls) {
        bool lIsPlaced = false;
        for (ZTSUnit& lrUnit : arUnits.mUnits) {
            if (lrUnit.mIsHere && sHasStall(lrUnit, lrStall.mStall.mName)) {
                lrUnit.mStalls.push_back(lrStall);
                lIsPlaced = true;
            }
        }
        if (!lIsPlaced) {
            arUnits.mOtherStalls.push_back(std::move(lrStall));
        }
    }
}

bool sIsCalled(const ZTSUnit& acrUnit, const std::string& acrName) {
    const auto lIsPath = [&](const ZTSUnitPath& acrPath) {
        const ZTSLun& lrLun = acrPath.mLun;
        return lrLun.mDisk == acrName || lrLun.mWwid == acrName || lrLun.mSerial == acrName;
    };
    return acrUnit.mMap == acrName || acrUnit.mFormerMap == acrName || acrUnit.mDisk == acrName ||
           acrUnit.mMapWwid == acrName || sIsIn(acrUnit.mHit.mVolumes, acrName) ||
           sIsIn(acrUnit.mHit.mMounts, acrName) ||
           std::any_of(acrUnit.mPaths.begin(), acrUnit.mPaths.end(), lIsPath);
}

void sKeepCalled(const std::vector<std::string>& acrNames, std::vector<ZTSUnit>& arUnits) {
    for (const std::string& lrName : acrNames) {
        if (lrName.empty() || std::none_of(arUnits.begin(), arUnits.end(), [&](const ZTSUnit& acrUnit) {
                return sIsCalled(acrUnit, lrName);
            })) {
            throw ZTCViewUsage(fmt::format(
                "'{}' is no map, mount point, volume, disk, WWID or serial number of this host", lrName));
        }
    }
    std::erase_if(arUnits, [&](const ZTSUnit& acrUnit) {
        return !acrNames.empty() && std::none_of(acrNames.begin(), acrNames.end(), [&](const auto& acrName) {
            return sIsCalled(acrUnit, acrName);
        });
    });
}

// Those with a path that the filter takes.
void sKeepThrough(const ZTSHistoryFilter& acrFilter, std::vector<ZTSUnit>& arUnits) {
    if (acrFilter.takesAllSeries()) {
        return;
    }
    std::erase_if(arUnits, [&](const ZTSUnit& acrUnit) {
        return std::none_of(acrUnit.mPaths.begin(), acrUnit.mPaths.end(), [&](const ZTSUnitPath& acrPath) {
            return acrFilter.takes(portsOfPath(acrPath.mLun));
        });
    });
}

// The worst comes first: what stands still, then by the part of the paths that is left. What has gone comes
// last: mostly somebody has taken it away.
auto sRankOf(const ZTSUnit& acrUnit) {
    const double lLeft = acrUnit.mTotal == 0 ? 1.0 : double(acrUnit.mUsable) / acrUnit.mTotal;
    return std::tuple(!acrUnit.mIsHere, acrUnit.mStalls.empty(), lLeft, !acrUnit.isInTrouble(),
                      acrUnit.isLocal());
}

bool sIsOfPaths(const ZTSBlindSpot& acrBlindSpot) {
    return acrBlindSpot.mWhat == "paths" || acrBlindSpot.mWhat == "stalls" || acrBlindSpot.mWhat == "uevents";
}

}  // namespace

const ZTSLun* ZTSUnit::findLun() const {
    const auto lAt = std::find_if(mPaths.begin(), mPaths.end(),
                                  [](const ZTSUnitPath& acrPath) { return !acrPath.mLun.mAddress.empty(); });
    return lAt != mPaths.end() ? &lAt->mLun : nullptr;
}

bool ZTSUnit::isSlow() const {
    const auto lIsBest = [](const ZTSUnitPath& acrPath) { return acrPath.mLun.mAccess == sOptimized; };
    return mUsable != 0 && std::any_of(mPaths.begin(), mPaths.end(), lIsBest) &&
           std::none_of(mPaths.begin(), mPaths.end(),
                        [&](const ZTSUnitPath& acrPath) { return acrPath.mIsUsable && lIsBest(acrPath); });
}

bool ZTSUnit::isLocal() const {
    return mMap.empty() && std::all_of(mPaths.begin(), mPaths.end(), [](const ZTSUnitPath& acrPath) {
               return acrPath.mLun.mInitiator == ZTSWwn();
           });
}

ZTSUnits readUnits(ZTCStoreReader& arReader, const ZTSHistoryAsk& acrOptions) {
    ZTSUnits lUnits;
    lUnits.mHost = arReader.getHost();
    lUnits.mLabels = arReader.readLabels();
    ZTSHistoryFilter lFilter;
    lFilter.mInitiators = readPortsOf(acrOptions.mInitiators, lUnits.mLabels);
    lFilter.mTargets = readPortsOf(acrOptions.mTargets, lUnits.mLabels);
    lFilter.mFabric = readFabric(acrOptions.mFabric, arReader);
    const ZTSStoredStorage lStorage = arReader.readStorage();
    lUnits.mUnits = Builder(lStorage, sReadStates(arReader)).build();
    sPlaceStalls(arReader.readOpenStalls(), lUnits);
    sKeepCalled(acrOptions.mMaps, lUnits.mUnits);
    sKeepThrough(lFilter, lUnits.mUnits);
    if (!acrOptions.mMaps.empty() || !lFilter.takesAllSeries()) {
        lUnits.mOtherStalls.clear();
    }
    std::stable_sort(
        lUnits.mUnits.begin(), lUnits.mUnits.end(),
        [](const ZTSUnit& acrLeft, const ZTSUnit& acrRight) { return sRankOf(acrLeft) < sRankOf(acrRight); });
    lUnits.mBlindSpots = arReader.readBlindSpots();
    std::erase_if(lUnits.mBlindSpots, std::not_fn(sIsOfPaths));
    lUnits.mIsNow = findStoreHolder(arReader.getPath()).mIsHere;
    lUnits.mWritten = arReader.readMeta("last_write");
    return lUnits;
}

std::string commonText(const std::vector<const ZTSUnitPath*>& acrPaths, const ZTPortLabels& acrLabels) {
    const auto lPortOf = [&](const ZTSWwn& acrPort) {
        return acrPort == ZTSWwn() ? "" : portText(acrLabels, acrPort);
    };
    // From the widest to the narrowest.
    const std::function<std::string(const ZTSLun&)> lTraits[] = {
        [](const ZTSLun& acrLun) {
            return acrLun.mFabric.empty() ? "" : "fabric " + toShownText(acrLun.mFabric);
        },
        [&](const ZTSLun& acrLun) { return lPortOf(acrLun.mInitiator); },
        [&](const ZTSLun& acrLun) { return toShownText(labelOf(acrLabels, acrLun.mTarget).mArray); },
        [&](const ZTSLun& acrLun) {
            const ZTSPortLabel& lrLabel = labelOf(acrLabels, acrLun.mTarget);
            return lrLabel.mController.empty() ? "" : toShownText(lrLabel.mArray + "/" + lrLabel.mController);
        },
        [&](const ZTSLun& acrLun) { return lPortOf(acrLun.mTarget); }};
    std::string lText;
    for (const auto& lrTrait : lTraits) {
        std::set<std::string> lMissing;
        std::set<std::string> lUsable;
        for (const ZTSUnitPath* const lpPath : acrPaths) {
            (lpPath->mIsUsable ? lUsable : lMissing).insert(lrTrait(lpPath->mLun));
        }
        // What all paths have in common tells nothing.
        const bool lTells = lMissing.size() == 1 && !lMissing.begin()->empty() && !lUsable.empty() &&
                            !lUsable.contains(*lMissing.begin());
        lText += lTells ? (lText.empty() ? "" : ", ") + *lMissing.begin() : "";
    }
    return lText;
}
