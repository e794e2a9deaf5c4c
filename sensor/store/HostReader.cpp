// What the host told, as it is read.
#include <deque>

#include "HostRows.h"
#include "StoreReader.h"
#include "TimeScan.h"

namespace {

// Of what overlaps a time the newest ones, at most so many.
template <class Item>
std::vector<Item> sReadNewest(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aUntil,
                              std::size_t aLimit) {
    ZTSHistoryFilter lFilter;
    lFilter.mSince = aSince;
    lFilter.mUntil = aUntil;
    ZTCTimeScan<Item> lScan(arReader, lFilter, arReader.readPlace());
    std::vector<Item> lItems;
    for (bool lIsMore = true; lIsMore;) {
        lIsMore = lScan.read(lItems);
        if (aLimit != 0 && lItems.size() > aLimit) {
            lItems.erase(lItems.begin(), lItems.end() - static_cast<std::ptrdiff_t>(aLimit));
        }
    }
    return lItems;
}

}  // namespace

ZTSHostStorage ZTSStoredStorage::listHere() const {
    ZTSHostStorage lStorage{{}, {}, mVolumes, mMounts};
    for (const ZTSStoredLun& lrLun : mLuns) {
        lrLun.mIsHere ? lStorage.mLuns.push_back(lrLun.mLun) : void();
    }
    for (const ZTSStoredMap& lrMap : mMaps) {
        lrMap.mIsHere ? lStorage.mMaps.push_back(lrMap.mMap) : void();
    }
    return lStorage;
}

ZTSStoredStorage ZTCStoreReader::readStorage() {
    ZTNanoseconds lLastWrite = 0;
    ZTSStoredStorage lStorage = storeCall(mPath, [&] {
        const ZTCStoreSlice lSlice(*this);
        lLastWrite = readMeta("last_write");
        return readStoredStorage(mDatabase);
    });
    // What has not changed is not written again, and is there as long as somebody writes.
    const auto lSeeHere = [&](auto& arRows) {
        for (auto& lrRow : arRows) {
            lrRow.mSeen = lrRow.mIsHere ? lLastWrite : lrRow.mSeen;
        }
    };
    lSeeHere(lStorage.mLuns);
    lSeeHere(lStorage.mMaps);
    return lStorage;
}

std::vector<ZTSStoredFpin> ZTCStoreReader::readFpins(ZTNanoseconds aSince, ZTNanoseconds aUntil,
                                                     std::size_t aLimit) {
    return sReadNewest<ZTSStoredFpin>(*this, aSince, aUntil, aLimit);
}

std::vector<ZTSStoredStall> ZTCStoreReader::readStalls(ZTNanoseconds aSince, ZTNanoseconds aUntil,
                                                       std::size_t aLimit) {
    return sReadNewest<ZTSStoredStall>(*this, aSince, aUntil, aLimit);
}

std::vector<ZTSStoredStall> ZTCStoreReader::readOpenStalls() {
    return readAll<ZTSStoredStall>(*this, std::string(ZTStallColumns) + " WHERE over = 0 ORDER BY first, id",
                                   readStoredStall);
}

std::vector<ZTSBlindSpot> ZTCStoreReader::readBlindSpots() {
    return readAll<
        ZTSBlindSpot>(*this, "SELECT what, place, why, sure FROM blind_spots", [](SQLite::Statement& arRow) {
        return ZTSBlindSpot{textAt(arRow, 0), textAt(arRow, 1), textAt(arRow, 2), numberAt(arRow, 3) != 0};
    });
}

std::vector<ZTSWindow> ZTCStoreReader::readWindows() {
    return readAll<ZTSWindow>(
        *this, "SELECT what, first, last, text FROM windows", [](SQLite::Statement& arRow) {
            return ZTSWindow{textAt(arRow, 0), arRow.getColumn(1), arRow.getColumn(2), textAt(arRow, 3)};
        });
}

std::vector<ZTSStoreRequest> ZTCStoreReader::readRequests() {
    return readAll<ZTSStoreRequest>(*this, ZTRequestColumns, readStoredRequest);
}

std::vector<ZTSStoredMeasure> ZTCStoreReader::readMeasures(const std::string& acrName, ZTEStoreBin aBin,
                                                           std::int64_t aFrom, std::int64_t aTo) {
    const std::string lTable = aBin == ZTEStoreBin::Minute ? "measure_minutes" : "measure_hours";
    const std::string lSql =
        "SELECT time, measured, measure, value, initiator, remote, lun, measure.name FROM " + lTable +
        " AS sums CROSS JOIN measured ON measured.id = measured CROSS JOIN measure ON measure.id = measure"
        " WHERE (time, measured, measure) > (?1, ?2, ?3) AND time < ?4 AND (?5 = '' OR measure.name = ?5)"
        " ORDER BY time, measured, measure";
    constexpr std::int64_t lBehindAll = std::numeric_limits<std::int64_t>::max();
    std::vector<ZTSStoredMeasure> lMeasures;
    storeCall(mPath, [&] {
        SQLite::Statement lRow(mDatabase, lSql);
        std::int64_t lAt[] = {aFrom - 1, lBehindAll, lBehindAll};
        for (bool lIsMore = true; lIsMore;) {
            ZTCStoreSlice lSlice(*this);
            for (int lColumn = 0; lColumn < 3; ++lColumn) {
                lRow.bind(lColumn + 1, lAt[lColumn]);
            }
            lRow.bind(4, aTo);
            lRow.bind(5, acrName);
            while ((lIsMore = lRow.executeStep())) {
                for (int lColumn = 0; lColumn < 3; ++lColumn) {
                    lAt[lColumn] = lRow.getColumn(lColumn);
                }
                lMeasures.push_back({lAt[0],
                                     {wwnAt(lRow, 4), wwnAt(lRow, 5), textAt(lRow, 6)},
                                     textAt(lRow, 7),
                                     numberAt(lRow, 3)});
                if (lSlice.isEnough()) {
                    break;
                }
            }
            lRow.reset();
        }
    });
    return lMeasures;
}
