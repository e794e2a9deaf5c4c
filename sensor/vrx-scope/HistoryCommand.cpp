#include <chrono>
#include <deque>

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

// What a walk brings, one by one.
template <class Scan, class Item>
class Source {
  public:
    explicit Source(Scan aScan) : mScan(std::move(aScan)) {}

    // The next one; null behind the last.
    const Item* peek() {
        while (mAt == mItems.size() && mIsMore) {
            mItems.clear();
            mAt = 0;
            mIsMore = mScan.read(mItems);
        }
        return mAt < mItems.size() ? &mItems[mAt] : nullptr;
    }
    void drop() { ++mAt; }

  private:
    Scan mScan;
    std::vector<Item> mItems;
    std::size_t mAt = 0;
    bool mIsMore = true;
};

// Prints the item that comes next and is dropped then.
template <class Scan, class Item>
void sPrintNext(Source<Scan, Item>& arSource, ZTCHistoryPrinter& arPrinter) {
    arPrinter.add(*arSource.peek());
    arSource.drop();
}

// When the next one is; at the end, later than all others.
template <class Scan, class Item>
ZTNanoseconds sNextTimeOf(Source<Scan, Item>& arSource) {
    const Item* const lpItem = arSource.peek();
    return lpItem != nullptr ? sTimeOf(*lpItem) : std::numeric_limits<ZTNanoseconds>::max();
}

class History {
  public:
    explicit History(const ZTSScopeOptions& acrOptions)
        : mrOptions(acrOptions),
          mReader(std::make_unique<ZTCStoreReader>(acrOptions.mHistory.mStore)),
          mFilter(makeFilter(acrOptions.mHistory, *mReader,
                             toNanoseconds(toSensorTime(std::chrono::system_clock::now())),
                             acrOptions.mInUtc)),
          mPlace(mReader->readPlace()),
          mPrinter(makeHistoryPrinter(acrOptions.getForm(),
                                      {mReader->getHost(), mReader->readLabels(), acrOptions.mInUtc},
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

    template <class IsAskedToEnd>
    bool printWhatIsThere(const IsAskedToEnd& acrIsAskedToEnd) {
        ZTSHistoryFilter lAround = mFilter;
        ZTCRecordScan lScan(*mReader, mFilter, mPlace);
        if (const std::uint64_t lLimit = mrOptions.mHistory.mLimit; lLimit != 0) {
            if (const auto lBegin = findNewest(*mReader, mFilter, mPlace, lLimit)) {
                lScan.beginAt(*lBegin);
                lAround.mSince = std::max(lAround.mSince, lBegin->mTime);
            }
        }
        Source<ZTCRecordScan, ZTSStoredRecord> lRecords(std::move(lScan));
        Source<ZTCLossScan, ZTSLoss> lLosses(ZTCLossScan(*mReader, lAround, mPlace));
        Source<ZTCChangeScan, ZTSChange> lChanges(ZTCChangeScan(*mReader, lAround, mPlace));
        while (!acrIsAskedToEnd()) {
            const ZTNanoseconds lRecord = sNextTimeOf(lRecords);
            const ZTNanoseconds lLoss = sNextTimeOf(lLosses);
            const ZTNanoseconds lChange = sNextTimeOf(lChanges);
            if (lRecords.peek() != nullptr && (!mPrinter->isMixed() || lRecord < std::min(lLoss, lChange))) {
                sPrintNext(lRecords, *mPrinter);
            } else if (lLosses.peek() != nullptr && (lLoss <= lChange || !mPrinter->isMixed())) {
                sPrintNext(lLosses, *mPrinter);
            } else if (lChanges.peek() != nullptr) {
                sPrintNext(lChanges, *mPrinter);
            } else {
                return true;
            }
        }
        return false;
    }

    void follow(ZTCWaiting& arWaiting) {
        ZTCStoreFollow lFollow(mFilter, mPlace);
        do {
            try {
                if (!mReader || mReader->isReplaced()) {
                    mReader.reset();
                    mReader = std::make_unique<ZTCStoreReader>(mrOptions.mHistory.mStore);
                }
                printNews(lFollow, arWaiting);
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

    void printNews(ZTCStoreFollow& arFollow, ZTCWaiting& arWaiting) {
        if (!mReader->hasChanged()) {
            return;
        }
        for (bool lIsMore = true; lIsMore;) {
            ZTCStoreFollow::News lNews;
            lIsMore = arFollow.read(*mReader, lNews) && !isAskedToEnd(arWaiting, {});
            const auto lPrint = [this](const auto& acrItems) {
                for (const auto& lrItem : acrItems) {
                    mPrinter->add(lrItem);
                }
            };
            lPrint(lNews.mLosses);
            lPrint(lNews.mChanges);
            lPrint(lNews.mRecords);
            mPrinter->flush();
        }
    }

    const ZTSScopeOptions& mrOptions;
    std::unique_ptr<ZTCStoreReader> mReader;
    const ZTSHistoryFilter mFilter;
    const ZTSStorePlace mPlace;
    const std::unique_ptr<ZTCHistoryPrinter> mPrinter;
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
