#include "TimeScan.h"

#include <limits>

#include "HostRows.h"

namespace {

// Where what ends at or behind a time can begin at the earliest, unless it has not ended.
template <class Item>
ZTNanoseconds sEndedBegin(ZTCStoreReader& arReader, ZTNanoseconds aSince) {
    constexpr ZTNanoseconds lEver = std::numeric_limits<ZTNanoseconds>::min();
    if (ZTSTimeRows<Item>::Longest == nullptr) {
        return aSince;
    }
    const ZTNanoseconds lLongest = arReader.readMeta(ZTSTimeRows<Item>::Longest);
    return lLongest != 0 && aSince > lEver + lLongest ? aSince - lLongest : lEver;
}

template <class Item>
ZTNanoseconds sBegin(ZTCStoreReader& arReader, ZTNanoseconds aSince) {
    const ZTNanoseconds lBegin = sEndedBegin<Item>(arReader, aSince);
    if (ZTSTimeRows<Item>::Open == nullptr) {
        return lBegin;
    }
    return storeCall(arReader.getPath(), [&] {
        const SQLite::Column lOpen = arReader.getDatabase().execAndGet(ZTSTimeRows<Item>::Open);
        return lOpen.isNull() ? lBegin : std::min<ZTNanoseconds>(lBegin, lOpen.getInt64());
    });
}

// ?1, ?2: behind which time and id; ?3: up to which time.
template <class Item>
std::string sSqlOf(bool aIsForward) {
    const std::string lTime = ZTSTimeRows<Item>::Time;
    return ZTSTimeRows<Item>::Columns +
           (aIsForward ? " WHERE " + lTime + " >= ?1 AND " + lTime + " <= ?3 AND (" + lTime +
                             " > ?1 OR id > ?2) ORDER BY " + lTime + ", id"
                       : " WHERE " + lTime + " <= ?1 AND " + lTime + " >= ?3 AND (" + lTime +
                             " < ?1 OR id < ?2) ORDER BY " + lTime + " DESC, id DESC");
}

}  // namespace

template <class Item>
ZTCTimeScan<Item>::ZTCTimeScan(ZTCStoreReader& arReader, ZTSHistoryFilter aFilter,
                               const ZTSStorePlace& acrPlace, Order aOrder)
    : mrReader(arReader),
      mFilter(std::move(aFilter)),
      mUpTo(ZTSTimeRows<Item>::lastOf(acrPlace)),
      mStatement(storeCall(arReader.getPath(), [&] {
          return SQLite::Statement(arReader.getDatabase(), sSqlOf<Item>(aOrder == Order::OldestFirst));
      })) {
    const ZTNanoseconds lFirst = sBegin<Item>(mrReader, mFilter.mSince);
    if (aOrder == Order::OldestFirst) {
        mAt.mTime = lFirst;
        mEnd = mFilter.mUntil;
    } else {
        mAt = {mFilter.mUntil, std::numeric_limits<std::int64_t>::max()};
        mEnd = lFirst;
    }
}

template <class Item>
bool ZTCTimeScan<Item>::read(std::vector<Item>& arItems, std::size_t aMost) {
    const std::size_t lBefore = arItems.size();
    return storeCall(mrReader.getPath(), [&] {
        ZTCStoreSlice lSlice(mrReader);
        mStatement.bind(1, mAt.mTime);
        mStatement.bind(2, static_cast<std::int64_t>(mAt.mId));
        mStatement.bind(3, mEnd);
        bool lIsMore = false;
        while ((lIsMore = mStatement.executeStep())) {
            mAt = {mStatement.getColumn(0).getInt64(), numberAt(mStatement, 2)};
            if (mAt.mId <= mUpTo) {
                takeStoredRow(mStatement, mFilter, arItems);
            }
            if (lSlice.isEnough() || arItems.size() - lBefore >= aMost) {
                break;
            }
        }
        mStatement.reset();
        return lIsMore;
    });
}

template class ZTCTimeScan<ZTSLoss>;
template class ZTCTimeScan<ZTSChange>;
template class ZTCTimeScan<ZTSStoredFpin>;
template class ZTCTimeScan<ZTSStoredStall>;
