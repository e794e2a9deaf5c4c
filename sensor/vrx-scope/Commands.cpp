#include "Commands.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <iostream>
#include <utility>

#include "AgentStatus.h"
#include "AnswerInput.h"
#include "Collector.h"
#include "Json.h"
#include "Lines.h"
#include "ProcessTable.h"
#include "RecordText.h"
#include "ScopeWire.h"
#include "ShownText.h"
#include "StatisticsText.h"
#include "Targets.h"
#include "Terminal.h"
#include "TimeText.h"
#include "Waiting.h"
#include "WatchView.h"

namespace {

std::chrono::milliseconds sToDuration(double aSeconds) {
    if (!std::isfinite(aSeconds)) {
        throw ZTCScopeUsage("that is no number of seconds");
    }
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(aSeconds));
}

const std::string& sDirectoryOf(const ZTSScopeOptions& acrOptions) {
    if (acrOptions.mDirectory.empty()) {
        throw ZTCScopeUsage("which agent? Name its runtime directory: --dir DIR, or ZT_VRX_SENSOR_DIR");
    }
    return acrOptions.mDirectory;
}

ZTSSensorOptions sClientOptions(const ZTSScopeOptions& acrOptions) {
    return {sDirectoryOf(acrOptions), sToDuration(acrOptions.mTimeout), sToDuration(acrOptions.mWait)};
}

// Says that a command has been carried out.
void sPutDone(const ZTSScopeOptions& acrOptions, const std::string& acrCommand, const std::string& acrText) {
    if (acrOptions.getForm() == ZTEScopeForm::Table) {
        put(acrText + "\n");
        return;
    }
    put(doneJson(acrCommand));
}

int sRegisterTargets(const ZTSScopeOptions& acrOptions, const std::vector<ZTSSensorTarget>& acrTargets) {
    ZTCSensorClient(sClientOptions(acrOptions)).registerTargets(acrTargets);
    sPutDone(acrOptions, "targets", countText(acrTargets.size(), "target") + " registered");
    return 0;
}

// One fetch. What the agent no longer has is not to be lost to a signal: those that come meanwhile wait for
// aDo's end.
template <class Do>
void sFetchOnce(const ZTSScopeOptions& acrOptions, const Do& acrDo) {
    ZTCSensorClient lClient(sClientOptions(acrOptions));
    const ZTCWaiting lNoSignals;
    try {
        acrDo(lClient.fetch());
    } catch (const ZTCTimedOutError& lrError) {
        throw ZTCScopeFailure(std::string(lrError.what()) + "; what it had collected may be lost");
    }
}

// The moment, and how long ago it was.
std::string sAgoText(const std::optional<ZTSAgentStatus::Time>& acrTime, bool aInUtc) {
    if (!acrTime) {
        return "unknown";
    }
    const ZTSSensorTime lTime = toSensorTime(*acrTime);
    const auto lAgo =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - *acrTime).count();
    return fmt::format("{}, {} s ago", plainText(lTime, aInUtc), std::max(lAgo, 0L));
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

// The figures of the agent that runs. Nothing if they cannot be read: a status is one all the same.
std::optional<ZTSStatistics> sStatisticsOf(const ZTSAgentStatus& acrStatus, const std::string& acrDirectory) {
    try {
        const ZTCAgentStatistics lAgent(acrDirectory);
        const bool lIsIt = acrStatus.mProcess == 0 || acrStatus.mProcess == lAgent.getProcess();
        return acrStatus.mIsRunning && lIsIt ? std::optional(lAgent.read()) : std::nullopt;
    } catch (const ZTCSensorError&) {
        return {};
    }
}

std::string sTextOf(const ZTSAgentStatus& acrStatus, const std::optional<ZTSStatistics>& acrStatistics,
                    const ZTSScopeOptions& acrOptions) {
    const bool lInUtc = acrOptions.mInUtc;
    std::string lText = fmt::format("directory  {}\n", toShownText(acrOptions.mDirectory));
    if (acrStatus.mIsRunning) {
        lText += fmt::format("agent      running, {}\nsince      {}\nlog        {}\nheartbeat  {}\n",
                             describeProcess(acrStatus.mProcess), sAgoText(acrStatus.mSince, lInUtc),
                             acrStatus.mLog.empty() ? "unknown" : toShownText(acrStatus.mLog),
                             sAgoText(acrStatus.mHeartbeat, lInUtc));
        lText += fmt::format("data       {}\n", acrStatistics ? heldText(*acrStatistics) : "unknown");
        const std::string lLibrary = acrStatistics ? libraryText(*acrStatistics) : "";
        lText += lLibrary.empty() ? "" : fmt::format("library    {}\n", lLibrary);
    } else {
        lText += "agent      not running\n";
    }
    if (acrStatus.mSensorHeartbeat) {
        lText +=
            fmt::format("sensor     {}process {}, heartbeat {}\n", acrStatus.mIsSensorRunning ? "" : "gone, ",
                        acrStatus.mSensor, sAgoText(acrStatus.mSensorHeartbeat, lInUtc));
    } else {
        lText += "sensor     none\n";
    }
    return lText;
}

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
        lCollection.mEvery = sToDuration(acrOptions.mEvery);
    }
    if (acrOptions.mFor > 0) {
        lCollection.mFor = sToDuration(acrOptions.mFor);
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

// One file of figures, again and again, whoever it is of.
class FigureFile {
  public:
    FigureFile(const std::string& acrDirectory, const char* apName)
        : mrDirectory(acrDirectory), mpName(apName) {}

    bool isOpen() const { return mpFile != nullptr; }

    /// Throws ZTCNoAgentError, once it is closed, and what opening and reading throw.
    ZTSStatisticsTaken take() {
        if (!isOpen() || mpFile->hasGone()) {
            mBefore.reset();
            mpFile.reset();
            mpFile = std::make_unique<ZTCAgentStatistics>(mrDirectory, mpName);
        }
        ZTSStatisticsTaken lTaken{
            ZTCWaiting::Clock::now(), mpFile->getProcess(), mpFile->getStart(), mpFile->read(), {}, {}};
        const auto lBefore = std::exchange(mBefore, lTaken);
        if (lBefore) {
            lTaken.mSeconds = std::chrono::duration<double>(lTaken.mTime - lBefore->mTime).count();
            lTaken.mBefore = lBefore->mNow;
        }
        return lTaken;
    }

  private:
    const std::string& mrDirectory;
    const char* const mpName;
    std::unique_ptr<ZTCAgentStatistics> mpFile;
    std::optional<ZTSStatisticsTaken> mBefore;
};

// The figures of the agent, and of the library in it that has some.
class Figures {
  public:
    explicit Figures(const ZTSScopeOptions& acrOptions)
        : mrOptions(acrOptions),
          mAgent(sDirectoryOf(mrOptions), ZTWireStatistics),
          mLibrary(mrOptions.mDirectory, ZTWireLibraryStatistics) {}

    /// Throws what reading throws; without an agent the first time also ZTCNoAgentError.
    void show() {
        const bool lWasThere = mAgent.isOpen();
        try {
            const ZTSStatisticsTaken lTaken = mAgent.take();
            const auto lOfLibrary = takeOfLibrary(lTaken.mProcess);
            put(mrOptions.getForm() == ZTEScopeForm::Table
                    ? (mHasShown ? "\n" : "") + statisticsText(lTaken, lOfLibrary)
                    : statisticsJson(lTaken, lOfLibrary));
            mHasShown = true;
        } catch (const ZTCNoAgentError& lrError) {
            if (!mHasShown) {
                throw;
            }
            lWasThere ? void(refuse(lrError.what(), 0)) : void();
        }
    }

  private:
    std::optional<ZTSStatisticsTaken> takeOfLibrary(pid_t aProcess) {
        try {
            auto lTaken = mLibrary.take();
            return lTaken.mProcess == aProcess ? std::optional(std::move(lTaken)) : std::nullopt;
        } catch (const ZTCNoAgentError&) {
            return {};  // the agent has another library
        } catch (const ZTCSensorError& lrError) {
            mHasShown ? void() : void(refuse(lrError.what(), 0));
            return {};
        }
    }

    const ZTSScopeOptions& mrOptions;
    FigureFile mAgent;
    FigureFile mLibrary;
    bool mHasShown = false;
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

}  // namespace

// One line on standard error. Returns the status.
int refuse(const std::string& acrText, int aStatus) {
    complain(acrText + (aStatus == ZTScopeWrongUsage ? " (vrx-scope --help-all)" : ""));
    return aStatus;
}

int runStart(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient lClient(sClientOptions(acrOptions));
    startCollection(lClient, acrOptions.mCeiling);
    sPutDone(acrOptions, "start",
             fmt::format("started, up to {} bytes of data a record", acrOptions.mCeiling));
    return 0;
}

int runStop(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient(sClientOptions(acrOptions)).stop();
    sPutDone(acrOptions, "stop", "stopped");
    return 0;
}

int runAddTargets(const ZTSScopeOptions& acrOptions) {
    return sRegisterTargets(acrOptions, readTargets(acrOptions.mTargets));
}

int runAddLoadedTargets(const ZTSScopeOptions& acrOptions) {
    return sRegisterTargets(acrOptions, loadTargets(acrOptions.mFile));
}

int runSetPeriod(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient(sClientOptions(acrOptions)).setCollectionPeriod(acrOptions.mPeriod);
    sPutDone(acrOptions, "period", fmt::format("a period of {} s", acrOptions.mPeriod));
    return 0;
}

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

int runShutDown(const ZTSScopeOptions& acrOptions) {
    ZTCSensorClient lClient(sClientOptions(acrOptions));
    const pid_t lAgent = readAgentStatus(acrOptions.mDirectory).mProcess;
    lClient.shutDown();
    if (lAgent == 0) {
        sPutDone(acrOptions, "shutdown", "the agent ends");
        return 0;
    }
    if (!waitForEnd(lAgent, sToDuration(acrOptions.mTimeout))) {
        throw ZTCScopeFailure(
            fmt::format("{} has promised to end, and has not: look at its log", describeProcess(lAgent)));
    }
    sPutDone(acrOptions, "shutdown", "the agent has ended");
    return 0;
}

int runShowStatus(const ZTSScopeOptions& acrOptions) {
    const ZTSAgentStatus lStatus = readAgentStatus(sDirectoryOf(acrOptions));
    const auto lStatistics = sStatisticsOf(lStatus, acrOptions.mDirectory);
    put(acrOptions.getForm() == ZTEScopeForm::Table
            ? sTextOf(lStatus, lStatistics, acrOptions)
            : statusJson(acrOptions.mDirectory, lStatus, lStatistics));
    return lStatus.mIsRunning ? 0 : ZTScopeFailed;
}

int runShowStatistics(const ZTSScopeOptions& acrOptions) {
    if (acrOptions.mFor > 0 && acrOptions.mEvery <= 0) {
        throw ZTCScopeUsage("--for goes with --every");
    }
    Figures lFigures(acrOptions);
    lFigures.show();
    if (acrOptions.mEvery <= 0) {
        return 0;
    }
    ZTCWaiting lWaiting;
    const auto lBegin = ZTCWaiting::Clock::now();
    const auto lEnd =
        acrOptions.mFor > 0 ? lBegin + sToDuration(acrOptions.mFor) : ZTCWaiting::Clock::time_point::max();
    auto lNext = lBegin + sToDuration(acrOptions.mEvery);
    while (lNext <= lEnd) {
        const ZTCWaiting::Reason lReason = lWaiting.until(lNext);
        if (lReason == ZTCWaiting::Reason::End) {
            return 0;
        }
        if (lReason == ZTCWaiting::Reason::Time) {
            lFigures.show();
            // After a long wait for who reads the output, none is made up for.
            lNext = std::max(lNext + sToDuration(acrOptions.mEvery), ZTCWaiting::Clock::now());
        }
    }
    return 0;
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
        ZTCCollector lCollector(sClientOptions(acrOptions), lCollection, *lShow, lSaved.get());
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
        ZTCCollector(sClientOptions(acrOptions), sCollectionOf(acrOptions), lCounter, &lFile).run();
    } else {
        sFetchOnce(acrOptions, [&](const ZTSensorBytes& acrMessage) {
            lFile.add(acrMessage);
            lCounter.add(readFetched(acrMessage, {}));
        });
    }
    lCounter.finish();
    sPutDone(acrOptions, "record", fmt::format("added to {}: {}", acrOptions.mFile, lCounter.toText()));
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
        lNext += sToDuration(acrOptions.mEvery);
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
