#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "Commands.h"
#include "Failure.h"
#include "HistorySources.h"
#include "HistorySummary.h"
#include "Incidents.h"
#include "StoreFollow.h"
#include "Terminal.h"
#include "TimeText.h"
#include "Waiting.h"

namespace {

constexpr std::chrono::milliseconds sLookEvery(250);

ZTSHistoryQuery sMakeQuery(const ZTSScopeOptions& acrOptions, ZTCStoreReader& arReader) {
    const ZTSHistoryOptions& lrHistory = acrOptions.mHistory;
    ZTSHistoryQuery lQuery =
        makeQuery(lrHistory, arReader, toNanoseconds(toSensorTime(std::chrono::system_clock::now())),
                  acrOptions.mInUtc);
    if (!lrHistory.mIncident.empty()) {
        askForIncident(followMerges(arReader, readIncidentOf(arReader, lrHistory.mIncident)), lQuery);
    }
    return lQuery;
}

class History {
  public:
    explicit History(const ZTSScopeOptions& acrOptions)
        : mrOptions(acrOptions),
          mReader(std::make_unique<ZTCStoreReader>(acrOptions.mHistory.mStore)),
          mQuery(sMakeQuery(acrOptions, *mReader)),
          mPlace(mReader->readPlace()),
          mPrinter(makeHistoryPrinter(acrOptions.getForm(),
                                      {mReader->getHost(), mReader->readLabels(), acrOptions.mInUtc,
                                       mReader->readWindows(), mQuery.mpBelow, mpIncidents},
                                      mReader->readSeries(), put)) {
        readIncidents(mQuery.mFilter.mSince, mQuery.mFilter.mUntil);
    }

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

    bool printWhatIsThere(const std::function<bool()>& acrIsAskedToEnd) {
        // They hold on to the store, which may be replaced from then on.
        ZTHistorySources lSources = listHistorySources(*mReader, mQuery, mPlace, mrOptions.mHistory.mLimit);
        return printHistory(lSources, *mPrinter, acrIsAskedToEnd);
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

    // Only JSON names them.
    void readIncidents(ZTNanoseconds aSince, ZTNanoseconds aUntil) {
        if (mrOptions.getForm() != ZTEScopeForm::Table) {
            mpIncidents->read(*mReader, aSince, aUntil);
        }
    }
    void seeIncidents(const std::vector<ZTSStoredRecord>& acrNews) {
        if (acrNews.empty()) {
            return;
        }
        const auto [lFirst, lLast] = std::ranges::minmax_element(
            acrNews, {}, [](const ZTSStoredRecord& acrRecord) { return acrRecord.mRecord.mFirst; });
        readIncidents(lFirst->mRecord.mFirst, lLast->mRecord.mFirst);
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
            seeIncidents(lNews.mRecords);
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
    const std::shared_ptr<ZTCIncidentLookup> mpIncidents = std::make_shared<ZTCIncidentLookup>();
    const std::unique_ptr<ZTCHistoryPrinter> mPrinter;
    ZTCStoreFollow mFollow{mQuery.mFilter, mPlace};
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
    if (!lrHistory.mIncident.empty() && (lrHistory.mFollows || lrHistory.mIsSummary)) {
        throw ZTCScopeUsage("--incident goes with neither --follow nor --summary");
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
