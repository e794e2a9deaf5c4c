#include "StorageTables.h"

#include "HostRows.h"

namespace {

constexpr ZTNanoseconds sToldBefore = 60 * ZTSecond;

std::string sKeyOf(const ZTSLun& acrLun) {
    return acrLun.getName();
}
std::string sKeyOf(const ZTSMap& acrMap) {
    return acrMap.mWwid.empty() ? acrMap.mName : acrMap.mWwid;
}
std::string sKeyOf(const ZTSVolume& acrVolume) {
    return acrVolume.mDisk;
}
std::string sKeyOf(const ZTSMount& acrMount) {
    return acrMount.mPoint + '\0' + acrMount.mDisk;
}

constexpr auto sKey = [](const auto& acrRow) { return sKeyOf(acrRow); };

template <class Row>
void sLearn(ZTCKnownRows<Row>& arKnown, const std::vector<Row>& acrRows) {
    arKnown.forget();
    for (const Row& lrRow : acrRows) {
        arKnown.know(sKeyOf(lrRow), lrRow);
    }
}

}  // namespace

ZTCStorageTables::ZTCStorageTables(SQLite::Database& arDatabase)
    : mrDatabase(arDatabase),
      mSetTime(arDatabase, "INSERT OR REPLACE INTO meta VALUES ('storage', ?)"),
      mSetLun(arDatabase,
              "INSERT OR REPLACE INTO luns (name, address, disk, wwid, serial, vendor, model, initiator, "
              "target, fabric, lun, state, access, queue_depth, seen, here) VALUES (?, ?, ?, ?, ?, ?, ?, ?, "
              "?, ?, ?, ?, ?, ?, ?, 1)"),
      mLunGone(arDatabase, "UPDATE luns SET here = 0, seen = ?2 WHERE name = ?1"),
      mSetMap(arDatabase,
              "INSERT OR REPLACE INTO maps (map, wwid, name, disk, usable, paths, total, seen, here, since) "
              "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, 1, coalesce(?9, (SELECT since FROM maps WHERE map = "
              "?1), 0))"),
      mMapGone(arDatabase, "UPDATE maps SET here = 0, seen = ?2 WHERE map = ?1"),
      mChangeOfMap(arDatabase,
                   "SELECT max(time) FROM changes WHERE time > ? AND what = 'map' AND name = ? AND attribute "
                   "IN ('', 'paths')"),
      mNoPaths(arDatabase, "DELETE FROM map_paths WHERE map = ?"),
      mAddPath(arDatabase, "INSERT INTO map_paths VALUES (?, ?, ?, ?)"),
      mSetVolume(arDatabase, "INSERT OR REPLACE INTO volumes VALUES (?, ?)"),
      mNoVolume(arDatabase, "DELETE FROM volumes WHERE disk = ?"),
      mNoOver(arDatabase, "DELETE FROM volume_over WHERE disk = ?"),
      mAddOver(arDatabase, "INSERT OR REPLACE INTO volume_over VALUES (?, ?)"),
      mSetMount(arDatabase, "INSERT OR REPLACE INTO mounts VALUES (?, ?, ?)"),
      mNoMount(arDatabase, "DELETE FROM mounts WHERE point = ? AND disk = ?") {}

ZTSStoredStorage ZTCStorageTables::learn() {
    ZTSStoredStorage lStored = readStoredStorage(mrDatabase);
    const ZTSHostStorage lHere = lStored.listHere();
    sLearn(mLuns, lHere.mLuns);
    sLearn(mMaps, lHere.mMaps);
    sLearn(mVolumes, lHere.mVolumes);
    sLearn(mMounts, lHere.mMounts);
    mTime = lStored.mTime;
    mIsKnown = true;
    return lStored;
}

ZTSStoredStorage ZTCStorageTables::load(ZTNanoseconds aLastWrite) {
    ZTSStoredStorage lStored = learn();
    mLastWrite = aLastWrite;
    mTimeBefore = mTime;
    return lStored;
}

void ZTCStorageTables::write(const ZTSHostStorage& acrStorage, ZTNanoseconds aNow) {
    if (!mIsKnown) {
        learn();
    }
    const ZTNanoseconds lGone = mLastWrite != 0 && mTime == mTimeBefore ? mLastWrite : aNow;
    writeLuns(acrStorage.mLuns, aNow, lGone);
    writeMaps(acrStorage.mMaps, aNow, lGone);
    writeVolumes(acrStorage.mVolumes);
    writeMounts(acrStorage.mMounts);
    mSetTime.run(aNow);
    mTime = aNow;
}

void ZTCStorageTables::writeLuns(const std::vector<ZTSLun>& acrLuns, ZTNanoseconds aNow,
                                 ZTNanoseconds aGone) {
    mLuns.write(
        acrLuns, sKey,
        [&](const std::string& acrName, const ZTSLun& acrLun, const ZTSLun*) {
            mSetLun.run(acrName, acrLun.mAddress, acrLun.mDisk, acrLun.mWwid, acrLun.mSerial, acrLun.mVendor,
                        acrLun.mModel, portText(acrLun.mInitiator), portText(acrLun.mTarget), acrLun.mFabric,
                        acrLun.mLun, acrLun.mState, acrLun.mAccess, acrLun.mQueueDepth, aNow);
        },
        [&](const std::string& acrName) { mLunGone.run(acrName, aGone); });
}

// Since when as many are usable as are: when that was told, or came to be known. What was found at the very
// first has not come just then.
std::optional<ZTNanoseconds> ZTCStorageTables::findSince(const ZTSMap& acrMap, const ZTSMap* apBefore,
                                                         ZTNanoseconds aNow) {
    if (mTime == 0) {
        return 0;
    }
    if (apBefore != nullptr && apBefore->countUsable() == acrMap.countUsable()) {
        return {};
    }
    return mChangeOfMap.findNumber(aNow - sToldBefore, acrMap.mName).value_or(aNow);
}

void ZTCStorageTables::writeMaps(const std::vector<ZTSMap>& acrMaps, ZTNanoseconds aNow,
                                 ZTNanoseconds aGone) {
    mMaps.write(
        acrMaps, sKey,
        [&](const std::string& acrKey, const ZTSMap& acrMap, const ZTSMap* apBefore) {
            mSetMap.run(acrKey, acrMap.mWwid, acrMap.mName, acrMap.mDisk, acrMap.countUsable(),
                        acrMap.mPaths.size(), acrMap.mTotal, aNow, findSince(acrMap, apBefore, aNow));
            mNoPaths.run(acrKey);
            for (const ZTSPath& lrPath : acrMap.mPaths) {
                mAddPath.run(acrKey, lrPath.mDisk, lrPath.mIsUsable, sourceText(lrPath.mSource));
            }
        },
        [&](const std::string& acrKey) {
            mMapGone.run(acrKey, aGone);
            mNoPaths.run(acrKey);
        });
}

void ZTCStorageTables::writeVolumes(const std::vector<ZTSVolume>& acrVolumes) {
    mVolumes.write(
        acrVolumes, sKey,
        [&](const std::string& acrDisk, const ZTSVolume& acrVolume, const ZTSVolume*) {
            mSetVolume.run(acrDisk, acrVolume.mName);
            mNoOver.run(acrDisk);
            for (const std::string& lrOver : acrVolume.mOver) {
                mAddOver.run(acrDisk, lrOver);
            }
        },
        [&](const std::string& acrDisk) {
            mNoVolume.run(acrDisk);
            mNoOver.run(acrDisk);
        });
}

void ZTCStorageTables::writeMounts(const std::vector<ZTSMount>& acrMounts) {
    mMounts.write(
        acrMounts, sKey,
        [&](const std::string&, const ZTSMount& acrMount, const ZTSMount*) {
            mSetMount.run(acrMount.mPoint, acrMount.mDisk, acrMount.mType);
        },
        [&](const std::string& acrKey) {
            const std::size_t lEnd = acrKey.find('\0');
            mNoMount.run(acrKey.substr(0, lEnd), acrKey.substr(lEnd + 1));
        });
}
