#include "StoreFollow.h"

#include <algorithm>

#include "HostRows.h"

namespace {

// Of losses, changes and so on what has a higher id than the last one. False: there is more of it.
template <class Item>
bool sReadNew(ZTCStoreReader& arReader, ZTCStoreSlice& arSlice, const ZTSHistoryFilter& acrFilter,
              std::uint64_t& arLast, std::vector<Item>& arItems) {
    SQLite::Statement lRow(arReader.getDatabase(),
                           std::string(ZTSTimeRows<Item>::Columns) + " WHERE id > ? ORDER BY id");
    lRow.bind(1, static_cast<std::int64_t>(arLast));
    while (lRow.executeStep()) {
        arLast = numberAt(lRow, 2);
        takeStoredRow(lRow, acrFilter, arItems);
        if (arSlice.isEnough()) {
            return false;
        }
    }
    return true;
}

}  // namespace

ZTCStoreFollow::ZTCStoreFollow(ZTSHistoryFilter aFilter, ZTSStorePlace aPlace)
    : mFilter(std::move(aFilter)), mPlace(std::move(aPlace)) {}

// First what has closed since, whether it was there before or not, then what is new and open.
bool ZTCStoreFollow::readRecords(ZTCStoreReader& arReader, ZTCStoreSlice& arSlice,
                                 std::vector<ZTSStoredRecord>& arRecords) {
    const auto lClosedTo = static_cast<std::uint64_t>(arReader.readMeta("closed_to"));
    SQLite::Statement lRow(arReader.getDatabase(), std::string(ZTRecordColumns) + "WHERE id > ? ORDER BY id");
    const auto lReadBehind = [&](std::uint64_t& arId, std::uint64_t aUpTo) {
        lRow.reset();
        lRow.bind(1, static_cast<std::int64_t>(arId));
        while (lRow.executeStep() && numberAt(lRow, 0) <= aUpTo) {
            arId = numberAt(lRow, 0);
            ZTSStoredRecord lRecord =
                readStoredRecord(lRow, arReader.seriesOf(lRow.getColumn(1).getInt64()), lClosedTo);
            const ZTSRecord& lrRecord = lRecord.mRecord;
            if (mFilter.takes(lrRecord.mSeries) && mFilter.takes(lrRecord.mFirst, lrRecord.mLast)) {
                readStoredData(lRow, lRecord.mRecord);
                arRecords.push_back(std::move(lRecord));
            }
            if (arSlice.isEnough(static_cast<std::size_t>(lRow.getColumn(5).size()))) {
                return false;
            }
        }
        return true;
    };
    if (!lReadBehind(mPlace.mClosedTo, lClosedTo)) {
        return false;
    }
    mPlace.mClosedTo = std::max(mPlace.mClosedTo, lClosedTo);
    mPlace.mLastRecord = std::max(mPlace.mLastRecord, lClosedTo);
    return lReadBehind(mPlace.mLastRecord, std::numeric_limits<std::uint64_t>::max());
}

// Of the stalls that were not over at the place, or when they were told.
void ZTCStoreFollow::readEnds(ZTCStoreReader& arReader, std::vector<ZTSStoredStall>& arStalls) {
    SQLite::Statement lRow(arReader.getDatabase(), std::string(ZTStallColumns) + " WHERE id = ?");
    std::erase_if(mPlace.mOpenStalls, [&](std::uint64_t aId) {
        lRow.reset();
        lRow.bind(1, static_cast<std::int64_t>(aId));
        const bool lIsThere = lRow.executeStep();
        if (lIsThere && readStoredStall(lRow).mStall.mIsOver) {
            takeStoredRow(lRow, mFilter, arStalls);
            return true;
        }
        return !lIsThere;
    });
}

bool ZTCStoreFollow::read(ZTCStoreReader& arReader, News& arNews) {
    return storeCall(arReader.getPath(), [&] {
        ZTCStoreSlice lSlice(arReader);
        const std::string lStore = arReader.readPlace().mStore;
        if (lStore != mPlace.mStore) {
            mPlace = {};
            mPlace.mStore = lStore;
        }
        readEnds(arReader, arNews.mStalls);
        const std::size_t lEnded = arNews.mStalls.size();
        const bool lIsAll = readRecords(arReader, lSlice, arNews.mRecords) &&
                            sReadNew(arReader, lSlice, mFilter, mPlace.mLastLoss, arNews.mLosses) &&
                            sReadNew(arReader, lSlice, mFilter, mPlace.mLastChange, arNews.mChanges) &&
                            sReadNew(arReader, lSlice, mFilter, mPlace.mLastFpin, arNews.mFpins) &&
                            sReadNew(arReader, lSlice, mFilter, mPlace.mLastStall, arNews.mStalls);
        for (std::size_t lAt = lEnded; lAt < arNews.mStalls.size(); ++lAt) {
            if (!arNews.mStalls[lAt].mStall.mIsOver) {
                mPlace.mOpenStalls.insert(arNews.mStalls[lAt].mId);
            }
        }
        return !lIsAll;
    });
}
