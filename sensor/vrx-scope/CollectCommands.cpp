// What fetches, and what shows answers that were fetched before.
#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "AnswerInput.h"
#include "Collector.h"
#include "CommandParts.h"
#include "Failure.h"
#include "Lines.h"
#include "RecordText.h"
#include "Terminal.h"
#include "TimeText.h"
#include "Waiting.h"
#include "WatchView.h"

namespace {

// A view of sums, where it is asked for, or a line a record.
std::unique_ptr<ZTCShow> sMakeShow(const ZTSScopeOptions& acrOptions, bool aSums) {
    if (acrOptions.mAsJson) {
        throw ZTCScopeUsage("what goes on and on is no single document: use --ndjson");
    }
    if (aSums && acrOptions.getForm() == ZTEScopeForm::Table) {
        return std::make_unique<ZTCWatchView>(acrOptions.mInUtc);
    }
    return std::make_unique<ZTCLines>(acrOptions.getForm(), acrOptions.mInUtc);
}

ZTSCollection sCollectionOf(const ZTSScopeOptions& acrOptions) {
    ZTSCollection lCollection;
    if (acrOptions.mEvery > 0) {
        lCollection.mEvery = toDuration(acrOptions.mEvery);
    }
    if (acrOptions.mFor > 0) {
        lCollection.mFor = toDuration(acrOptions.mFor);
    }
    if (acrOptions.mStarts) {
        lCollection.mCeiling = acrOptions.mCeiling;
    }
    return lCollection;
}

// Counts what is recorded.
class Counter : public ZTCShow {
  public:
    void add(const ZTSFetched& acrFetched) override {
        ++mAnswers;
        mRecords += acrFetched.countRecords();
        if (isatty(STDERR_FILENO) == 1) {
            std::cerr << "\r" << toText() << std::flush;
        }
    }
    void tell(const std::string& acrText, bool aIsThere) override {
        if (!aIsThere || mIsGone) {
            complain(acrText);
        }
        mIsGone = !aIsThere;
    }
    void finish() override {
        if (isatty(STDERR_FILENO) == 1) {
            std::cerr << "\n";
        }
    }
    std::string toText() const {
        return countText(mAnswers, "answer") + ", " + countText(mRecords, "record");
    }

  private:
    std::uint64_t mAnswers = 0;
    std::uint64_t mRecords = 0;
    bool mIsGone = false;
};

// When an answer came, as near as its records tell.
std::optional<ZTSFetched::Time> sLastTimeIn(const ZTSFetched& acrFetched) {
    ZTSSensorTime lLast;
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            lLast = std::max(lLast, lrRecord.mLast);
        }
    }
    return lLast == ZTSSensorTime() ? std::nullopt : std::optional(fromSensorTime(lLast));
}

// Shows one answer, until it is time for the next. False: the program is to end.
bool sReplayOne(ZTCShow& arShow, const ZTSFetched& acrFetched, ZTCWaiting& arWaiting,
                ZTCWaiting::Clock::time_point aNext) {
    arShow.add(acrFetched);
    for (;;) {
        switch (arWaiting.until(aNext)) {
            case ZTCWaiting::Reason::End:
                return false;
            case ZTCWaiting::Reason::Resize:
                arShow.draw();
                break;
            case ZTCWaiting::Reason::Time:
                return true;
        }
    }
}

// All of one fetch.
std::string sPrinted(const std::string& acrCommand, const ZTSFetched& acrFetched,
                     const ZTSScopeOptions& acrOptions) {
    std::string lText;
    const auto lPrinter = makeRecordPrinter(acrOptions.getForm(), acrCommand, acrOptions.mInUtc,
                                            [&](const std::string& acrPiece) { lText += acrPiece; });
    lPrinter->announce(acrFetched);
    lPrinter->add(acrFetched);
    lPrinter->finish();
    return lText;
}

// One fetch. What the agent no longer has is not to be lost to a signal: those that come meanwhile wait for
// aDo's end.
template <class Do>
void sFetchOnce(const ZTSScopeOptions& acrOptions, const Do& acrDo) {
    ZTCSensorClient lClient(clientOptionsOf(acrOptions));
    const ZTCWaiting lNoSignals;
    try {
        acrDo(lClient.fetch());
    } catch (const ZTCTimedOutError& lrError) {
        throw ZTCScopeFailure(std::string(lrError.what()) + "; what it had collected may be lost");
    }
}

}  // namespace

int runFetch(const ZTSScopeOptions& acrOptions) {
    int lStatus = 0;
    sFetchOnce(acrOptions, [&](const ZTSensorBytes& acrMessage) {
        const std::string lText =
            sPrinted("fetch", readFetched(acrMessage, std::chrono::system_clock::now()), acrOptions);
        try {
            put(lText);
        } catch (const ZTCScopeFailure& lrError) {
            complain(std::string(lrError.what()) + "; what was fetched:", lText);
            lStatus = ZTScopeFailed;
        }
    });
    return lStatus;
}

int runWatch(const ZTSScopeOptions& acrOptions) {
    std::unique_ptr<ZTCAnswerFile> lSaved;
    if (!acrOptions.mFile.empty()) {
        lSaved = std::make_unique<ZTCAnswerFile>(acrOptions.mFile);
    }
    const std::unique_ptr<ZTCShow> lShow = sMakeShow(acrOptions, isTerminal());
    std::uint64_t lUnsaved = 0;
    try {
        ZTSCollection lCollection = sCollectionOf(acrOptions);
        lCollection.mGoesOnUnsaved = true;
        ZTCCollector lCollector(clientOptionsOf(acrOptions), lCollection, *lShow, lSaved.get());
        lCollector.run();
        lUnsaved = lCollector.getUnsaved();
    } catch (const std::runtime_error&) {
        lShow->finish();
        throw;
    }
    lShow->finish();
    return lUnsaved == 0
               ? 0
               : refuse(fmt::format("{} not saved in {}", countText(lUnsaved, "answer"), acrOptions.mFile),
                        ZTScopeFailed);
}

int runRecord(const ZTSScopeOptions& acrOptions) {
    ZTCAnswerFile lFile(acrOptions.mFile);
    Counter lCounter;
    if (acrOptions.mEvery > 0 || acrOptions.mFor > 0) {
        ZTCCollector(clientOptionsOf(acrOptions), sCollectionOf(acrOptions), lCounter, &lFile).run();
    } else {
        sFetchOnce(acrOptions, [&](const ZTSensorBytes& acrMessage) {
            lFile.add(acrMessage);
            lCounter.add(readFetched(acrMessage, {}));
        });
    }
    lCounter.finish();
    putDone(acrOptions, "record", fmt::format("added to {}: {}", acrOptions.mFile, lCounter.toText()));
    return 0;
}

int runDecode(const ZTSScopeOptions& acrOptions) {
    const auto lPrinter = makeRecordPrinter(acrOptions.getForm(), "decode", acrOptions.mInUtc, put);
    const bool lIsAnnounced = acrOptions.getForm() == ZTEScopeForm::Json;
    ZTCAnswerInput lInput(acrOptions.mFile, lIsAnnounced);
    if (lIsAnnounced) {
        while (const auto lFetched = lInput.next()) {
            lPrinter->announce(*lFetched);
        }
        lInput.rewind();
    }
    bool lAreAny = false;
    while (const auto lFetched = lInput.next()) {
        lPrinter->add(*lFetched);
        lAreAny = lAreAny || !lFetched->mData.empty();
    }
    if (lInput.areGood() || lAreAny) {
        lPrinter->finish();
    }
    return lInput.areGood() ? 0 : ZTScopeFailed;
}

int runReplay(const ZTSScopeOptions& acrOptions) {
    const std::unique_ptr<ZTCShow> lShow = sMakeShow(acrOptions, true);
    // All of it is read first: what is wrong with it is told before anything is shown, and meanwhile any
    // signal may end the program.
    ZTCAnswerInput lInput(acrOptions.mFile, true);
    while (lInput.next()) {
    }
    lInput.rewind();
    ZTCWaiting lWaiting;
    auto lNext = ZTCWaiting::Clock::now();
    for (std::size_t lNumber = 1; auto lAnswer = lInput.next(); ++lNumber) {
        lAnswer->mTime = sLastTimeIn(*lAnswer);
        lNext += toDuration(acrOptions.mEvery);
        lShow->tell(fmt::format("{}, answer {}", acrOptions.mFile, lNumber), true);
        if (!sReplayOne(*lShow, *lAnswer, lWaiting, lNext)) {
            break;
        }
    }
    lShow->finish();
    return lInput.areGood() ? 0 : ZTScopeFailed;
}

// The agent no longer has what could not be saved: it is shown instead.
int rescue(const ZTCUnsavedAnswer& acrError, const ZTSScopeOptions& acrOptions) {
    refuse(std::string(acrError.what()) + "; what was fetched:", ZTScopeFailed);
    try {
        put(sPrinted("rescue", readFetched(acrError.getMessage(), {}), acrOptions));
    } catch (const std::runtime_error& lrError) {
        refuse(lrError.what(), ZTScopeFailed);
    }
    return ZTScopeFailed;
}
