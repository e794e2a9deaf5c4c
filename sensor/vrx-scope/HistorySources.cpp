#include "HistorySources.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "TimeScan.h"

namespace {

ZTNanoseconds sTimeOf(const ZTSStoredRecord& acrRecord) {
    return acrRecord.mRecord.mFirst;
}
ZTNanoseconds sTimeOf(const ZTSLoss& acrLoss) {
    return acrLoss.mFirst;
}
ZTNanoseconds sTimeOf(const ZTSChange& acrChange) {
    return acrChange.mTime;
}
ZTNanoseconds sTimeOf(const ZTSStoredFpin& acrFpin) {
    return acrFpin.mFpin.mFirst;
}
ZTNanoseconds sTimeOf(const ZTSStoredStall& acrStall) {
    return acrStall.mStall.mFirst;
}

// What a walk brings, one by one.
template <class Scan, class Item>
class ScanSource : public ZTCHistorySource {
  public:
    explicit ScanSource(Scan aScan) : mScan(std::move(aScan)) {}

    std::optional<ZTNanoseconds> nextTime() override {
        while (mAt == mItems.size() && mIsMore) {
            mItems.clear();
            mAt = 0;
            mIsMore = mScan.read(mItems);
        }
        return mAt < mItems.size() ? std::optional(sTimeOf(mItems[mAt])) : std::nullopt;
    }
    void print(ZTCHistoryPrinter& arPrinter) override { arPrinter.add(mItems[mAt++]); }

  private:
    Scan mScan;
    std::vector<Item> mItems;
    std::size_t mAt = 0;
    bool mIsMore = true;
};

// What of a walk is meant.
template <class Item, class Scan, class IsMeant>
struct Meant {
    Scan mScan;
    IsMeant mIsMeant;

    bool read(std::vector<Item>& arItems) {
        std::vector<Item> lItems;
        const bool lIsMore = mScan.read(lItems);
        std::copy_if(lItems.begin(), lItems.end(), std::back_inserter(arItems), mIsMeant);
        return lIsMore;
    }
};

// The last ones, in one piece.
template <class Item>
struct Newest {
    std::vector<Item> mItems;

    void keep(std::uint64_t aLimit) {
        if (mItems.size() > aLimit) {
            mItems.erase(mItems.begin(), mItems.end() - static_cast<std::ptrdiff_t>(aLimit));
        }
    }
    bool read(std::vector<Item>& arItems) {
        arItems = std::exchange(mItems, {});
        return false;
    }
};

ZTSHistoryFilter sTimesOf(const ZTSHistoryFilter& acrFilter) {
    ZTSHistoryFilter lTimes;
    lTimes.mSince = acrFilter.mSince;
    lTimes.mUntil = acrFilter.mUntil;
    return lTimes;
}

class Lister {
  public:
    Lister(ZTCStoreReader& arReader, const ZTSHistoryQuery& acrQuery, const ZTSStorePlace& acrPlace,
           std::uint64_t aLimit)
        : mrReader(arReader), mrQuery(acrQuery), mrPlace(acrPlace), mLimit(aLimit) {}

    ZTHistorySources list() {
        ZTSHistoryFilter lAround = mrQuery.mFilter;
        if (mrQuery.mTakesRecords) {
            mrQuery.mpEvidence ? addEvidence() : addRecords(lAround);
        }
        add<ZTSLoss>(ZTCLossScan(mrReader, lAround, mrPlace));
        ZTSHistoryFilter lChanges = lAround;
        lChanges.mSince = std::min(lAround.mSince, mrQuery.mChangesSince);
        addMeant<ZTSChange>(ZTCChangeScan(mrReader, lChanges, mrPlace),
                            [](const ZTSChange& /*acrChange*/) { return true; });
        const ZTSHistoryQuery& lrQuery = mrQuery;
        if (lrQuery.mTakesFpins) {
            addMeant<ZTSStoredFpin>(
                ZTCFpinScan(mrReader, sTimesOf(lAround), mrPlace),
                [&lrQuery](const ZTSStoredFpin& acrFpin) { return lrQuery.takes(acrFpin.mFpin); });
        }
        if (lrQuery.mTakesStalls) {
            addMeant<ZTSStoredStall>(
                ZTCStallScan(mrReader, sTimesOf(lAround), mrPlace),
                [&lrQuery](const ZTSStoredStall& acrStall) { return lrQuery.takes(acrStall.mStall); });
        }
        return std::move(mSources);
    }

  private:
    template <class Item, class Scan>
    void add(Scan aScan) {
        mSources.push_back(std::make_unique<ScanSource<Scan, Item>>(std::move(aScan)));
    }

    // What else is asked for begins with the first of them.
    void addRecords(ZTSHistoryFilter& arAround) {
        ZTCRecordScan lScan(mrReader, mrQuery.mFilter, mrPlace);
        if (mLimit != 0) {
            if (const auto lBegin = findNewest(mrReader, mrQuery.mFilter, mrPlace, mLimit)) {
                lScan.beginAt(*lBegin);
                arAround.mSince = std::max(arAround.mSince, lBegin->mTime);
            }
        }
        add<ZTSStoredRecord>(std::move(lScan));
    }

    void addEvidence() {
        ZTSHistoryFilter lNarrow = mrQuery.mFilter;
        mrQuery.mpEvidence->narrow(lNarrow);
        addMeant<ZTSStoredRecord>(ZTCRecordScan(mrReader, lNarrow, mrPlace),
                                  [lpEvidence = mrQuery.mpEvidence](const ZTSStoredRecord& acrRecord) {
                                      return lpEvidence->takes(acrRecord.mRecord);
                                  });
    }

    // Of a walk what is meant. The limit is that of each, since a host may have few records, or none.
    template <class Item, class Scan, class IsMeant>
    void addMeant(Scan aScan, IsMeant aIsMeant) {
        Meant<Item, Scan, IsMeant> lMeant{std::move(aScan), std::move(aIsMeant)};
        if (mLimit == 0) {
            add<Item>(std::move(lMeant));
            return;
        }
        Newest<Item> lNewest;
        for (bool lIsMore = true; lIsMore;) {
            lIsMore = lMeant.read(lNewest.mItems);
            lNewest.keep(mLimit);
        }
        add<Item>(std::move(lNewest));
    }

    ZTCStoreReader& mrReader;
    const ZTSHistoryQuery& mrQuery;
    const ZTSStorePlace& mrPlace;
    const std::uint64_t mLimit;
    ZTHistorySources mSources;
};

// Whose next one comes next; null: nobody has any more.
ZTCHistorySource* sFindNext(ZTHistorySources& arSources, bool aIsMixed) {
    ZTCHistorySource* lpNext = nullptr;
    ZTNanoseconds lNext = 0;
    for (const auto& lrpSource : arSources) {
        const auto lTime = lrpSource->nextTime();
        if (lTime && (lpNext == nullptr || (aIsMixed && *lTime <= lNext))) {
            lpNext = lrpSource.get();
            lNext = *lTime;
        }
    }
    return lpNext;
}

}  // namespace

ZTHistorySources listHistorySources(ZTCStoreReader& arReader, const ZTSHistoryQuery& acrQuery,
                                    const ZTSStorePlace& acrPlace, std::uint64_t aLimit) {
    return Lister(arReader, acrQuery, acrPlace, aLimit).list();
}

bool printHistory(ZTHistorySources& arSources, ZTCHistoryPrinter& arPrinter,
                  const std::function<bool()>& acrIsAskedToEnd) {
    while (ZTCHistorySource* const lpNext = sFindNext(arSources, arPrinter.isMixed())) {
        if (acrIsAskedToEnd()) {
            return false;
        }
        lpNext->print(arPrinter);
    }
    return true;
}
