#include "RecordScan.h"

#include <algorithm>

#include "StoreRows.h"

namespace {

constexpr std::size_t sMostLanes = 128;
constexpr std::uint64_t sShareOfLanes = 4;  // by series, if it is about at most one record in so many
constexpr std::uint64_t sLastId = std::numeric_limits<std::int64_t>::max();

// ?1, ?2: behind which time and id; ?3: up to which time; ?4: the series.
std::string sSqlOf(bool aIsForward, bool aOfSeries) {
    const std::string lSeries = aOfSeries ? "INDEXED BY records_by_series WHERE series = ?4 AND "
                                          : "INDEXED BY records_by_time WHERE ";
    return ZTRecordColumns + lSeries +
           (aIsForward ? "first >= ?1 AND first <= ?3 AND (first > ?1 OR id > ?2) ORDER BY first, id"
                       : "first <= ?1 AND first >= ?3 AND (first < ?1 OR id < ?2)"
                         " ORDER BY first DESC, id DESC");
}

ZTNanoseconds sBefore(ZTNanoseconds aTime, ZTNanoseconds aBy) {
    constexpr ZTNanoseconds lFirst = std::numeric_limits<ZTNanoseconds>::min();
    return aTime < lFirst + aBy ? lFirst : aTime - aBy;
}

}  // namespace

ZTCRecordScan::ZTCRecordScan(ZTCStoreReader& arReader, ZTSHistoryFilter aFilter, ZTSStorePlace aPlace,
                             Order aOrder, bool aWithData)
    : mrReader(arReader),
      mFilter(std::move(aFilter)),
      mPlace(std::move(aPlace)),
      mIsForward(aOrder == Order::OldestFirst),
      mWithData(aWithData) {
    // A record that ends behind the begin may begin before it.
    const ZTNanoseconds lFirst = sBefore(mFilter.mSince, mrReader.readMeta("longest"));
    mAt = mIsForward ? ZTSStorePosition{lFirst, 0} : ZTSStorePosition{mFilter.mUntil, sLastId};
    mEnd = mIsForward ? mFilter.mUntil : lFirst;
    std::uint64_t lAll = 0;
    std::uint64_t lMeant = 0;
    std::vector<std::int64_t> lSeries;
    if (!mFilter.takesAllSeries()) {
        for (const ZTSStoredSeries& lrSeries : mrReader.readSeries()) {
            const bool lIsMeant = mFilter.takes(lrSeries.mSeries);
            mMeant[lrSeries.mId] = lIsMeant;
            lAll += lrSeries.mRecords;
            lMeant += lIsMeant ? lrSeries.mRecords : 0;
            lIsMeant ? lSeries.push_back(lrSeries.mId) : void();
        }
    }
    if (mFilter.takesAllSeries() || lSeries.size() > sMostLanes || lMeant > lAll / sShareOfLanes) {
        addLane({});
        return;
    }
    for (const std::int64_t lId : lSeries) {
        addLane(lId);
    }
}

void ZTCRecordScan::beginAt(const ZTSStorePosition& acrPosition) {
    mAt = mIsForward ? ZTSStorePosition{acrPosition.mTime, acrPosition.mId - 1}
                     : ZTSStorePosition{acrPosition.mTime, acrPosition.mId + 1};
}

void ZTCRecordScan::addLane(std::optional<std::int64_t> aSeries) {
    storeCall(mrReader.getPath(), [&] {
        SQLite::Statement lStatement(mrReader.getDatabase(), sSqlOf(mIsForward, aSeries.has_value()));
        if (aSeries) {
            lStatement.bind(4, *aSeries);
        }
        mLanes.push_back({std::move(lStatement), {}});
    });
}

void ZTCRecordScan::bind(Lane& arLane) const {
    arLane.mStatement.bind(1, mAt.mTime);
    arLane.mStatement.bind(2, static_cast<std::int64_t>(mAt.mId));
    arLane.mStatement.bind(3, mEnd);
}

bool ZTCRecordScan::step(Lane& arLane) const {
    if (!arLane.mStatement.executeStep()) {
        return false;
    }
    arLane.mAt = {arLane.mStatement.getColumn(2).getInt64(), numberAt(arLane.mStatement, 0)};
    return true;
}

bool ZTCRecordScan::isMeant(std::int64_t aSeries) {
    if (mFilter.takesAllSeries()) {
        return true;
    }
    const auto lAt = mMeant.find(aSeries);
    return lAt != mMeant.end() ? lAt->second : (mMeant[aSeries] = mFilter.takes(mrReader.seriesOf(aSeries)));
}

// As heaps want it: the one that comes next is the largest.
bool ZTCRecordScan::isBehind(const Lane* apLeft, const Lane* apRight) const {
    return mIsForward ? apLeft->mAt > apRight->mAt : apLeft->mAt < apRight->mAt;
}

// Returns how many bytes that were.
std::size_t ZTCRecordScan::takeFrom(Lane& arLane, std::vector<ZTSStoredRecord>& arRecords) {
    SQLite::Statement& lrRow = arLane.mStatement;
    const std::int64_t lSeries = lrRow.getColumn(1).getInt64();
    if (arLane.mAt.mId > mPlace.mLastRecord || !isMeant(lSeries) ||
        !mFilter.takes(arLane.mAt.mTime, lrRow.getColumn(3).getInt64())) {
        return 0;
    }
    arRecords.push_back(readStoredRecord(lrRow, mrReader.seriesOf(lSeries), mPlace.mClosedTo));
    if (mWithData) {
        readStoredData(lrRow, arRecords.back().mRecord);
    }
    return sizeof(ZTSStoredRecord) + arRecords.back().mRecord.mData.size();
}

bool ZTCRecordScan::read(std::vector<ZTSStoredRecord>& arRecords, std::size_t aMost) {
    const std::size_t lBefore = arRecords.size();
    return storeCall(mrReader.getPath(), [&] {
        ZTCStoreSlice lSlice(mrReader);
        std::vector<Lane*> lHeap;
        const auto lIsBehind = [this](const Lane* apLeft, const Lane* apRight) {
            return isBehind(apLeft, apRight);
        };
        for (Lane& lrLane : mLanes) {
            lrLane.mStatement.reset();
            bind(lrLane);
            step(lrLane) ? lHeap.push_back(&lrLane) : void();
        }
        std::make_heap(lHeap.begin(), lHeap.end(), lIsBehind);
        for (bool lIsEnough = false; !lHeap.empty() && !lIsEnough;) {
            std::pop_heap(lHeap.begin(), lHeap.end(), lIsBehind);
            Lane& lrLane = *lHeap.back();
            mAt = lrLane.mAt;
            lIsEnough = lSlice.isEnough(takeFrom(lrLane, arRecords)) || arRecords.size() - lBefore >= aMost;
            step(lrLane) ? std::push_heap(lHeap.begin(), lHeap.end(), lIsBehind) : lHeap.pop_back();
        }
        for (Lane& lrLane : mLanes) {
            lrLane.mStatement.reset();
        }
        return !lHeap.empty();
    });
}

std::optional<ZTSStorePosition> findNewest(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter,
                                           const ZTSStorePlace& acrPlace, std::uint64_t aCount) {
    ZTCRecordScan lScan(arReader, acrFilter, acrPlace, ZTCRecordScan::Order::NewestFirst, false);
    std::uint64_t lLeft = aCount;
    for (bool lIsMore = true; lIsMore;) {
        std::vector<ZTSStoredRecord> lRecords;
        lIsMore = lScan.read(lRecords);
        if (lLeft <= lRecords.size()) {
            const ZTSStoredRecord& lrRecord = lRecords[lLeft - 1];
            return ZTSStorePosition{lrRecord.mRecord.mFirst, lrRecord.mId};
        }
        lLeft -= lRecords.size();
    }
    return {};
}
