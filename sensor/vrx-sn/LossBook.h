// The books: what the agent has had, and what of it neither the history has nor has been told as lost.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AgentStatistics.h"
#include "StoreBatch.h"

/// A moment, by the host's clock, which may be set, and by the one that nobody sets.
struct ZTSMoment {
    ZTNanoseconds mTime = 0;
    std::chrono::steady_clock::time_point mSteady;

    static ZTSMoment now() {
        const auto lTime = std::chrono::system_clock::now().time_since_epoch();
        return {std::chrono::duration_cast<std::chrono::nanoseconds>(lTime).count(),
                std::chrono::steady_clock::now()};
    }
};

/// What an agent and the library in it say of themselves at one moment.
struct ZTSBookFigures {
    ZTSStatistics mAgent;
    bool mIsAsOfNow = true;  ///< else they are some seconds old, and what they say was held is no bound
    std::optional<ZTSStatistics> mLibrary;
    std::uint64_t mLibraryStart = 0;  ///< when the library's file was begun: another one counts from 0
};

/// What there is to tell, to be stored at once: with the losses the run as it is behind them.
struct ZTSBookNews {
    std::vector<ZTSLoss> mLosses;
    std::vector<ZTSChange> mChanges;
    std::vector<ZTSAgentRun> mRuns;
};

/// No input or output, no clock. One thread at a time. What it tells is exact as long as the figures are: of
/// what the provider has handed over, each event is in an answer that was taken, or is told as a loss, once.
/// Losses of one reason are told once a second at the most. What throws std::bad_alloc has changed nothing,
/// and is to be called again.
class ZTCLossBook {
  public:
    static constexpr std::chrono::seconds TellEvery{1};

    /// What the store had when it was first opened: until then nobody can say what was lost before.
    void setStart(const ZTSStoreStart& acrStart, const ZTSMoment& acrNow);
    /// No agent runs: the one that the store knows of has ended.
    void seeNone(const ZTSMoment& acrNow);

    /// An agent, before anything is fetched from it. apFigures: null if it shows none.
    void begin(ZTNanoseconds aStart, std::int64_t aProcess, const ZTSBookFigures* apFigures,
               const ZTSMoment& acrNow);
    /// An answer has come, with so many events, which go to the store together with getRun().
    void take(std::uint64_t aEvents, const ZTSMoment& acrNow);
    /// The answer to a fetch cannot be had, or not be read.
    void loseAnswer() { mHasLostAnswer = true; }
    /// The figures again. aIsFetchOpen: an answer is on its way, which they may have already.
    void look(const ZTSBookFigures* apFigures, bool aIsFetchOpen, const ZTSMoment& acrNow);
    /// Tells what has grown since, however short that is.
    void settle(bool aIsFetchOpen, const ZTSMoment& acrNow);
    /// The agent has ended: with its last figures, if they could be read.
    void end(const ZTSBookFigures* apFigures, const ZTSMoment& acrNow);

    bool isOf(ZTNanoseconds aStart, std::int64_t aProcess) const {
        return mRun.mStart == aStart && mRun.mProcess == aProcess;
    }
    bool hasRun() const { return mIsRunning; }
    /// The one that runs, or ran last.
    const ZTSAgentRun& getRun() const { return mRun; }
    /// Whether the store has this run as one that had not ended, and it has not been looked for yet.
    bool isAwaited(ZTNanoseconds aStart, std::int64_t aProcess) const;
    bool hasNews() const { return !mNews.mLosses.empty() || !mNews.mChanges.empty() || !mNews.mRuns.empty(); }
    /// What there is to tell since the last call, and the run as it is now.
    ZTSBookNews takeNews();

  private:
    using Figures = std::map<std::string, std::uint64_t>;
    /// Who lost them, and why.
    using Reason = std::pair<std::string, std::string>;
    using Growth = std::map<Reason, std::uint64_t>;
    struct Told {
        ZTNanoseconds mUntil = 0;  ///< up to then all is told
        std::optional<std::chrono::steady_clock::time_point> mTime;
    };
    /// A run as it was seen first: the store may say only later how much of this is new.
    struct Beginning {
        ZTSAgentRun mRun;
        Figures mCounts;
    };

    template <class Work>
    void inOnePiece(const Work& acrWork);
    void beginRun(ZTNanoseconds aStart, std::int64_t aProcess, const ZTSBookFigures* apFigures,
                  ZTNanoseconds aNow);
    void note(const ZTSBookFigures* apFigures);
    void noteCounts(const char* apSource, const ZTSStatistics& acrFigures);
    void resolve();
    void tellBeginning(const Beginning& acrBeginning, const ZTSAgentRun* apStored);
    void continueStored(const ZTSAgentRun& acrSeen, const ZTSAgentRun& acrStored);
    /// Figures that began older than the store: what they have grown by may be in it.
    bool isBehindStore() const { return mBeginning && !mIsAsOfNow; }
    void endStored(ZTNanoseconds aUntil);
    void tell(bool aIsFetchOpen, bool aIsAll, const ZTSMoment& acrNow);
    bool isDue(const Reason& acrReason, bool aIsAll, const ZTSMoment& acrNow);
    void tellEnd(ZTNanoseconds aNow);
    void lose(const Reason& acrReason, ZTNanoseconds aFirst, ZTNanoseconds aLast,
              std::optional<std::uint64_t> aEvents, std::optional<std::uint64_t> aAtMost = {});
    void change(const ZTSAgentRun& acrRun, const char* apEvent, ZTNanoseconds aTime);
    std::uint64_t figure(const char* apName) const;

    bool mIsStartKnown = false;
    bool mIsSetAside = false;             ///< the store before this one was damaged
    std::optional<ZTSAgentRun> mStored;   ///< the run that the store knew last, until it has been found
    std::optional<Beginning> mBeginning;  ///< until the store has been opened

    bool mIsRunning = false;
    ZTSAgentRun mRun;
    bool mHasFigures = false;
    bool mIsAsOfNow = true;
    Figures mCounts;               ///< what counts losses, by the names of ZTSAgentRun::mTold
    ZTNanoseconds mLastTaken = 0;  ///< since then nothing was taken
    ZTNanoseconds mLooked = 0;
    bool mHasLostAnswer = false;
    std::map<Reason, Told> mTold;
    ZTSBookNews mNews;
};
