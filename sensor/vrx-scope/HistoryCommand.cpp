#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "Commands.h"
#include "Failure.h"
#include "HistoryPrinter.h"
#include "HistoryQuery.h"
#include "HistorySummary.h"
#include "StoreFollow.h"
#include "Terminal.h"
#include "TimeScan.h"
#include "TimeText.h"
#include "Waiting.h"

namespace {

constexpr std::chrono::milliseconds sLookEvery(250);

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

// One sort of what a history has, in the order of time.
class Source {
  public:
    virtual ~Source() = default;
    // When the next one is; nothing behind the last.
    virtual std::optional<ZTNanoseconds> nextTime() = 0;
    // Prints it and goes on to the one behind it.
    virtual void print(ZTCHistoryPrinter& arPrinter) = 0;
};

// What a walk brings, one by one.
template <class Scan, class Item>
class ScanSource : public Source {
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
template <class Item, class IsMeant>
struct Meant {
    ZTCTimeScan<Item> mScan;
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

class History {
  public:
    explicit History(const ZTSScopeOptions& acrOptions)
        : mrOptions(acrOptions),
          mReader(std::make_unique<ZTCStoreReader>(acrOptions.mHistory.mStore)),
          mQuery(makeQuery(acrOptions.mHistory, *mReader,
                           toNanoseconds(toSensorTime(std::chrono::system_clock::now())), acrOptions.mInUtc)),
          mPlace(mReader->readPlace()),
          mPrinter(makeHistoryPrinter(acrOptions.getForm(),
                                      {mReader->getHost(), mReader->readLabels(), acrOptions.mInUtc,
                                       mReader->readWindows(), mQuery.mpBelow},
                                      mReader->readSeries(), put)) {}

    void run() {
        if (!mrOptions.mHistory.mFollows) {
            printWhatIsThere([] { return false; });
            mPrinter->finish();
            return;
        }
        ZTCWaiting lWaiting;
        // A signal is looked for at times: a look is a call of the system.
        unsigned int lItems = 0;
        const auto lIsAskedToEnd = [&] { return ++lItems % 256 == 0 && isAskedToEnd(lWaiting, {}); };
        if (printWhatIsThere(lIsAskedToEnd)) {
            mPrinter->flush();
            follow(lWaiting);
        }
        mPrinter->flush();
    }

  private:
    static bool isAskedToEnd(ZTCWaiting& arWaiting, std::chrono::milliseconds aTime) {
        const auto lEnd = ZTCWaiting::Clock::now() + aTime;
        ZTCWaiting::Reason lReason = ZTCWaiting::Reason::Resize;
        while (lReason == ZTCWaiting::Reason::Resize) {
            lReason = arWaiting.until(lEnd);
        }
        return lReason == ZTCWaiting::Reason::End;
    }

    template <class Item, class Scan>
    void addSource(Scan aScan) {
        mSources.push_back(std::make_unique<ScanSource<Scan, Item>>(std::move(aScan)));
    }

    template <class IsAskedToEnd>
    bool printWhatIsThere(const IsAskedToEnd& acrIsAskedToEnd) {
        listSources();
        while (Source* const lpNext = findNext()) {
            if (acrIsAskedToEnd()) {
                return false;
            }
            lpNext->print(*mPrinter);
        }
        mSources.clear();  // they hold on to the store, which may be replaced from now on
        return true;
    }

    // In the order of a document's lists.
    void listSources() {
        ZTSHistoryFilter lAround = mQuery.mFilter;
        if (mQuery.mTakesRecords) {
            ZTCRecordScan lScan(*mReader, mQuery.mFilter, mPlace);
            if (const std::uint64_t lLimit = mrOptions.mHistory.mLimit; lLimit != 0) {
                if (const auto lBegin = findNewest(*mReader, mQuery.mFilter, mPlace, lLimit)) {
                    lScan.beginAt(*lBegin);
                    lAround.mSince = std::max(lAround.mSince, lBegin->mTime);
                }
            }
            addSource<ZTSStoredRecord>(std::move(lScan));
        }
        addSource<ZTSLoss>(ZTCLossScan(*mReader, lAround, mPlace));
        addMeant(ZTCChangeScan(*mReader, lAround, mPlace), [](const ZTSChange&) { return true; });
        if (mQuery.mTakesFpins) {
            addMeant(ZTCFpinScan(*mReader, timesOf(lAround), mPlace),
                     [this](const ZTSStoredFpin& acrFpin) { return mQuery.takes(acrFpin.mFpin); });
        }
        if (mQuery.mTakesStalls) {
            addMeant(ZTCStallScan(*mReader, timesOf(lAround), mPlace),
                     [this](const ZTSStoredStall& acrStall) { return mQuery.takes(acrStall.mStall); });
        }
    }

    static ZTSHistoryFilter timesOf(const ZTSHistoryFilter& acrFilter) {
        ZTSHistoryFilter lTimes;
        lTimes.mSince = acrFilter.mSince;
        lTimes.mUntil = acrFilter.mUntil;
        return lTimes;
    }

    // Of a walk what is meant. The limit is that of each, since a host may have few records, or none.
    template <class Item, class IsMeant>
    void addMeant(ZTCTimeScan<Item> aScan, IsMeant aIsMeant) {
        Meant<Item, IsMeant> lMeant{std::move(aScan), std::move(aIsMeant)};
        const std::uint64_t lLimit = mrOptions.mHistory.mLimit;
        if (lLimit == 0) {
            addSource<Item>(std::move(lMeant));
            return;
        }
        Newest<Item> lNewest;
        for (bool lIsMore = true; lIsMore;) {
            lIsMore = lMeant.read(lNewest.mItems);
            lNewest.keep(lLimit);
        }
        addSource<Item>(std::move(lNewest));
    }

    // Whose next one comes next; null: nobody has any more.
    Source* findNext() {
        Source* lpNext = nullptr;
        ZTNanoseconds lNext = 0;
        for (const auto& lrpSource : mSources) {
            const auto lTime = lrpSource->nextTime();
            if (lTime && (lpNext == nullptr || (mPrinter->isMixed() && *lTime <= lNext))) {
                lpNext = lrpSource.get();
                lNext = *lTime;
            }
        }
        return lpNext;
    }

    void follow(ZTCWaiting& arWaiting) {
        do {
            try {
                if (!mReader || mReader->isReplaced()) {
                    mReader.reset();
                    mReader = std::make_unique<ZTCStoreReader>(mrOptions.mHistory.mStore);
                }
                printNews(arWaiting);
                mTrouble.clear();
            } catch (const ZTCStoreError& lrError) {
                // It is being set aside or made anew, or is held by somebody: it may be there the next time.
                mReader.reset();
                if (std::exchange(mTrouble, lrError.what()) != lrError.what()) {
                    complain(mTrouble);
                }
            }
        } while (!isAskedToEnd(arWaiting, sLookEvery));
    }

    // What has come lies on other paths.
    void seeStorage(const std::vector<ZTSChange>& acrNews) {
        const auto lIsOfStorage = [](const ZTSChange& acrChange) {
            constexpr const char* lWhats[] = {"lun", "map", "volume", "mount"};
            return std::find(std::begin(lWhats), std::end(lWhats), acrChange.mWhat) != std::end(lWhats);
        };
        if (mQuery.mpBelow->knowsStore() && std::any_of(acrNews.begin(), acrNews.end(), lIsOfStorage)) {
            mQuery.mpBelow->read(*mReader);
        }
    }

    void printNews(ZTCWaiting& arWaiting) {
        if (!mReader->hasChanged()) {
            return;
        }
        for (bool lIsMore = true; lIsMore;) {
            ZTCStoreFollow::News lNews;
            lIsMore = mFollow.read(*mReader, lNews) && !isAskedToEnd(arWaiting, {});
            seeStorage(lNews.mChanges);
            std::erase_if(lNews.mFpins,
                          [this](const ZTSStoredFpin& acrFpin) { return !mQuery.takes(acrFpin.mFpin); });
            std::erase_if(lNews.mStalls,
                          [this](const ZTSStoredStall& acrStall) { return !mQuery.takes(acrStall.mStall); });
            if (!mQuery.mTakesRecords) {
                lNews.mRecords.clear();
            }
            const auto lPrint = [this](const auto& acrItems) {
                for (const auto& lrItem : acrItems) {
                    mPrinter->add(lrItem);
                }
            };
            lPrint(lNews.mLosses);
            lPrint(lNews.mChanges);
            lPrint(lNews.mFpins);
            lPrint(lNews.mStalls);
            lPrint(lNews.mRecords);
            mPrinter->flush();
        }
    }

    const ZTSScopeOptions& mrOptions;
    std::unique_ptr<ZTCStoreReader> mReader;
    const ZTSHistoryQuery mQuery;
    const ZTSStorePlace mPlace;
    const std::unique_ptr<ZTCHistoryPrinter> mPrinter;
    ZTCStoreFollow mFollow{mQuery.mFilter, mPlace};
    std::vector<std::unique_ptr<Source>> mSources;
    std::string mTrouble;
};

}  // namespace

int runHistory(const ZTSScopeOptions& acrOptions) {
    const ZTSHistoryOptions& lrHistory = acrOptions.mHistory;
    if (lrHistory.mFollows && (acrOptions.mAsJson || lrHistory.mIsSummary)) {
        throw ZTCScopeUsage(lrHistory.mIsSummary ? "--summary and --follow do not go together"
                                                 : "what goes on and on is no single document: use --ndjson");
    }
    if (lrHistory.mIsSummary && lrHistory.mLimit != 0) {
        throw ZTCScopeUsage("--summary and --limit do not go together");
    }
    try {
        if (lrHistory.mIsSummary) {
            put(summaryText(acrOptions));
        } else {
            History(acrOptions).run();
        }
    } catch (const ZTCScopeClosed&) {
        return 0;  // whoever reads has seen enough
    }
    return 0;
}
