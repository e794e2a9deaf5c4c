#include "LossBook.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace {

constexpr char sAgent[] = "agent/";
constexpr char sLibrary[] = "library/";
// Not a count: which session of the library the counts of are told.
constexpr char sLibraryStart[] = "library/start_time_ns";

constexpr char sLost[] = "lost_total{";
constexpr char sBeyond[] = "beyond_total{";

bool sCountsLosses(const std::string& acrName) {
    return acrName.starts_with(sLost) || acrName.starts_with(sBeyond);
}

// agent/lost_total{reason="limit"} is lost by the agent, for "limit".
std::pair<std::string, std::string> sReasonOf(const std::string& acrCount) {
    const std::size_t lName = acrCount.find('/');
    const std::size_t lLabel = acrCount.find('"') + 1;
    return {acrCount.substr(0, lName), acrCount.compare(lName + 1, sizeof sLost - 1, sLost) != 0
                                           ? "beyond"
                                           : acrCount.substr(lLabel, acrCount.rfind('"') - lLabel)};
}

template <class Map>
std::uint64_t sIn(const Map& acrMap, const std::string& acrName) {
    const auto lAt = acrMap.find(acrName);
    return lAt != acrMap.end() ? lAt->second : 0;
}

std::uint64_t sAbove(std::uint64_t aValue, std::uint64_t aLess) {
    return aValue > aLess ? aValue - aLess : 0;
}

}  // namespace

static_assert(std::is_nothrow_move_assignable_v<ZTCLossBook>);

// What is told and what is noted as told are the same, wherever there is no memory.
template <class Work>
void ZTCLossBook::inOnePiece(const Work& acrWork) {
    ZTCLossBook lBefore(*this);
    try {
        acrWork();
    } catch (...) {
        *this = std::move(lBefore);
        throw;
    }
}

// ---- What the store knows ----

void ZTCLossBook::setStart(const ZTSStoreStart& acrStart, const ZTSMoment& acrNow) {
    if (mIsStartKnown) {
        return;  // told again, as what was to be done with it could not be done
    }
    inOnePiece([&] {
        mIsStartKnown = true;
        mStored = acrStart.mAgent;
        mIsSetAside = !acrStart.mSetAside.empty();
        if (mIsSetAside) {
            const ZTNanoseconds lMade = acrStart.mSetAsideMade;
            lose({"sensor", "store"}, lMade != 0 ? lMade : acrNow.mTime, acrNow.mTime, {});
        }
        if (mBeginning) {
            resolve();
        }
    });
}

bool ZTCLossBook::isAwaited(ZTNanoseconds aStart, std::int64_t aProcess) const {
    return mStored && mStored->mWent == 0 && mStored->mStart == aStart && mStored->mProcess == aProcess;
}

void ZTCLossBook::seeNone(const ZTSMoment& acrNow) {
    if (mIsStartKnown && mStored) {
        inOnePiece([&] { endStored(acrNow.mTime); });
    }
}

// The run that was stored last has ended while nobody looked.
void ZTCLossBook::endStored(ZTNanoseconds aUntil) {
    ZTSAgentRun lRun = std::move(*std::exchange(mStored, std::nullopt));
    if (lRun.mWent != 0) {
        return;
    }
    lose({"agent", "unseen"}, lRun.mSeen, aUntil, {});
    lRun.mWent = std::max(lRun.mSeen, aUntil);
    lRun.mEnd = "unknown";
    change(lRun, "went", lRun.mWent);
    mNews.mRuns.push_back(std::move(lRun));
}

// ---- A run ----

void ZTCLossBook::begin(ZTNanoseconds aStart, std::int64_t aProcess, const ZTSBookFigures* apFigures,
                        const ZTSMoment& acrNow) {
    inOnePiece([&] { beginRun(aStart, aProcess, apFigures, acrNow.mTime); });
}

void ZTCLossBook::beginRun(ZTNanoseconds aStart, std::int64_t aProcess, const ZTSBookFigures* apFigures,
                           ZTNanoseconds aNow) {
    mRun = {};
    mRun.mStart = aStart;
    mRun.mProcess = aProcess;
    mRun.mCame = mRun.mSeen = mLooked = aNow;
    mLastTaken = aStart != 0 ? aStart : aNow;
    mIsRunning = true;
    mHasFigures = mHasLostAnswer = false;
    mIsAsOfNow = true;
    mCounts.clear();
    mTold.clear();
    note(apFigures);
    for (const auto& [lrName, lValue] : mCounts) {
        mRun.mTold[lrName] = lValue;
    }
    mRun.mTaken = mHasFigures ? figure("fetched_events_total") : 0;
    if (mBeginning) {
        tellBeginning({mRun, mCounts}, nullptr);  // behind one that nobody has resolved: it is new
        return;
    }
    mBeginning = {mRun, mCounts};
    if (mIsStartKnown) {
        resolve();
    }
}

void ZTCLossBook::resolve() {
    const Beginning lBeginning = std::move(*std::exchange(mBeginning, std::nullopt));
    const ZTSAgentRun& lrRun = lBeginning.mRun;
    const bool lIsStored = mStored && mStored->mStart == lrRun.mStart && mStored->mProcess == lrRun.mProcess;
    const auto lStored = lIsStored ? std::exchange(mStored, std::nullopt) : std::nullopt;
    if (mStored) {
        endStored(lrRun.mCame);
    }
    tellBeginning(lBeginning, lStored ? &*lStored : nullptr);
    mIsSetAside = false;
}

// What a run had lost, and handed to others, when it was seen first. apStored: what of that is told; null:
// nothing.
void ZTCLossBook::tellBeginning(const Beginning& acrBeginning, const ZTSAgentRun* apStored) {
    const ZTSAgentRun& lrRun = acrBeginning.mRun;
    const bool lIsCurrent = lrRun.mStart == mRun.mStart && lrRun.mProcess == mRun.mProcess;
    Figures lTold;
    if (apStored == nullptr) {
        change(lrRun, "came", lrRun.mCame);
    } else {
        lTold = apStored->mTold;
    }
    const bool lIsSameLibrary = sIn(lTold, sLibraryStart) == sIn(lrRun.mTold, sLibraryStart);
    if (apStored != nullptr && lIsCurrent) {
        continueStored(lrRun, *apStored);
    }
    Growth lGrowth;
    for (const auto& [lrName, lValue] : acrBeginning.mCounts) {
        const bool lIsTold = lIsSameLibrary || !lrName.starts_with(sLibrary);
        const std::uint64_t lBefore = lIsTold ? sIn(lTold, lrName) : 0;
        lGrowth[sReasonOf(lrName)] += sAbove(lValue, lBefore);
    }
    if (lrRun.mFigures.contains("fetched_events_total")) {
        lGrowth[{"sensor", mIsSetAside ? "store" : "unstored"}] =
            sAbove(lrRun.mTaken, apStored != nullptr ? apStored->mTaken : 0);
    }
    for (const auto& [lrReason, lEvents] : lGrowth) {
        if (lEvents != 0) {
            lose(lrReason, apStored != nullptr ? apStored->mSeen : lrRun.mStart, lrRun.mCame, lEvents);
        }
    }
}

// What the store has of it is true, also where the figures of its beginning are some seconds old.
void ZTCLossBook::continueStored(const ZTSAgentRun& acrSeen, const ZTSAgentRun& acrStored) {
    const bool lIsSameLibrary = sIn(acrStored.mTold, sLibraryStart) == sIn(mRun.mTold, sLibraryStart);
    mRun.mCame = acrStored.mCame;
    mRun.mTaken = std::max(mRun.mTaken, acrStored.mTaken + sAbove(mRun.mTaken, acrSeen.mTaken));
    if (mLastTaken <= acrSeen.mCame) {
        mLastTaken = acrStored.mSeen;  // nothing was taken since
    }
    for (const auto& [lrName, lValue] : acrStored.mTold) {
        if (lIsSameLibrary || !lrName.starts_with(sLibrary)) {
            std::uint64_t& lrTold = mRun.mTold[lrName];
            lrTold = std::max(lrTold, lValue);
        }
    }
}

void ZTCLossBook::take(std::uint64_t aEvents, const ZTSMoment& acrNow) {
    mRun.mTaken += aEvents;
    mRun.mSeen = mLastTaken = acrNow.mTime;
}

void ZTCLossBook::look(const ZTSBookFigures* apFigures, bool aIsFetchOpen, const ZTSMoment& acrNow) {
    if (!mIsRunning) {
        return;
    }
    inOnePiece([&] {
        mRun.mSeen = acrNow.mTime;
        note(apFigures);
        tell(aIsFetchOpen || isBehindStore(), false, acrNow);
    });
}

void ZTCLossBook::settle(bool aIsFetchOpen, const ZTSMoment& acrNow) {
    inOnePiece([&] { tell(aIsFetchOpen || isBehindStore(), true, acrNow); });
}

void ZTCLossBook::end(const ZTSBookFigures* apFigures, const ZTSMoment& acrNow) {
    if (!mIsRunning) {
        return;
    }
    inOnePiece([&] {
        note(apFigures);
        mIsAsOfNow = mIsAsOfNow && apFigures != nullptr;
        tellEnd(acrNow.mTime);
        tell(false, true, acrNow);
        change(mRun, "went", mRun.mWent);
        mNews.mChanges.back().mAfter = mRun.mEnd;
        mIsRunning = false;
        mNews.mRuns.push_back(mRun);
    });
}

// What it held goes with it. Of one that was killed nobody knows what it was about to count.
void ZTCLossBook::tellEnd(ZTNanoseconds aNow) {
    mRun.mSeen = mRun.mWent = aNow;
    if (!mHasFigures) {
        mRun.mEnd = "unknown";
        lose({"agent", "unseen"}, mLastTaken, aNow, {});
        return;
    }
    const std::uint64_t lHeld = figure("held_events");
    const std::uint64_t lFetched = figure("fetched_events_total");
    if (figure("ended_time_ns") != 0) {
        mRun.mEnd = "ended";
        if (lHeld != 0) {
            lose({"agent", "ended"}, mLastTaken, aNow, lHeld);
        }
        return;
    }
    mRun.mEnd = "killed";
    // A fetch may have been about to move them from what is held to what is fetched.
    const std::uint64_t lGone =
        sAbove(std::max(lHeld + lFetched, figure("recorded_events_total")), mRun.mTaken);
    if (!mIsAsOfNow || lGone != 0) {
        lose({"agent", "killed"}, mLastTaken, aNow, {}, mIsAsOfNow ? std::optional(lGone) : std::nullopt);
    }
    mRun.mTaken = std::max(mRun.mTaken, lFetched);
}

// ---- Figures ----

std::uint64_t ZTCLossBook::figure(const char* apName) const {
    return sIn(mRun.mFigures, apName);
}

void ZTCLossBook::note(const ZTSBookFigures* apFigures) {
    if (apFigures == nullptr) {
        return;
    }
    mHasFigures = true;
    mIsAsOfNow = apFigures->mIsAsOfNow;
    for (const ZTSStatistic& lrRow : apFigures->mAgent.mRows) {
        mRun.mFigures[lrRow.mName] = lrRow.mValue;
    }
    noteCounts(sAgent, apFigures->mAgent);
    if (!apFigures->mLibrary) {
        return;
    }
    const auto lIsLibrarys = [](const auto& acrEntry) { return acrEntry.first.starts_with(sLibrary); };
    if (sIn(mRun.mTold, sLibraryStart) != apFigures->mLibraryStart) {
        std::erase_if(mRun.mTold, lIsLibrarys);
        std::erase_if(mCounts, lIsLibrarys);
        mRun.mTold[sLibraryStart] = apFigures->mLibraryStart;
    }
    noteCounts(sLibrary, *apFigures->mLibrary);
}

void ZTCLossBook::noteCounts(const char* apSource, const ZTSStatistics& acrFigures) {
    for (const ZTSStatistic& lrRow : acrFigures.mRows) {
        if (!sCountsLosses(lrRow.mName)) {
            continue;
        }
        const std::string lName = apSource + lrRow.mName;
        std::uint64_t& lrTold = mRun.mTold[lName];
        lrTold = mIsAsOfNow && lrRow.mValue < lrTold ? 0 : lrTold;  // it has begun anew
        mCounts[lName] = lrRow.mValue;
    }
}

// ---- Telling ----

bool ZTCLossBook::isDue(const Reason& acrReason, bool aIsAll, const ZTSMoment& acrNow) {
    const Told& lrTold = mTold.at(acrReason);
    return aIsAll || !lrTold.mTime || acrNow.mSteady - *lrTold.mTime >= TellEvery;
}

void ZTCLossBook::tell(bool aIsFetchOpen, bool aIsAll, const ZTSMoment& acrNow) {
    const Reason lGone{"sensor", mHasLostAnswer ? "answer" : "unstored"};
    Growth lGrowth{{lGone, 0}};
    for (const auto& [lrName, lValue] : mCounts) {
        lGrowth[sReasonOf(lrName)] += sAbove(lValue, sIn(mRun.mTold, lrName));
    }
    if (mHasFigures && !aIsFetchOpen) {
        lGrowth[lGone] = sAbove(figure("fetched_events_total"), mRun.mTaken);
    }
    for (const auto& [lrReason, lEvents] : lGrowth) {
        mTold.try_emplace(lrReason, Told{mLooked, {}});
    }
    bool lIsGoneTold = mHasFigures && mIsAsOfNow && !aIsFetchOpen && lGrowth[lGone] == 0;
    for (auto& [lrReason, lrEvents] : lGrowth) {
        Told& lrTold = mTold.at(lrReason);
        const bool lIsUnknown = !mHasFigures && mHasLostAnswer && lrReason == lGone;
        if (lrEvents == 0 && !lIsUnknown) {
            lrTold.mUntil = acrNow.mTime;
        } else if (isDue(lrReason, aIsAll, acrNow)) {
            lose(lrReason, lrTold.mUntil, acrNow.mTime, lIsUnknown ? std::nullopt : std::optional(lrEvents));
            lrTold = {acrNow.mTime, acrNow.mSteady};
            lrEvents = 0;
            lIsGoneTold = lIsGoneTold || lrReason == lGone;
        }
    }
    for (const auto& [lrName, lValue] : mCounts) {
        if (lGrowth.at(sReasonOf(lrName)) == 0) {
            std::uint64_t& lrTold = mRun.mTold.at(lrName);
            lrTold = std::max(lrTold, lValue);
        }
    }
    if (lGrowth[lGone] == 0 && !aIsFetchOpen) {
        mRun.mTaken = std::max(mRun.mTaken, figure("fetched_events_total"));
    }
    mHasLostAnswer = mHasLostAnswer && !lIsGoneTold;
    mLooked = acrNow.mTime;
}

void ZTCLossBook::lose(const Reason& acrReason, ZTNanoseconds aFirst, ZTNanoseconds aLast,
                       std::optional<std::uint64_t> aEvents, std::optional<std::uint64_t> aAtMost) {
    mNews.mLosses.push_back(
        {std::min(aFirst, aLast), aLast, acrReason.first, acrReason.second, aEvents, aAtMost});
}

void ZTCLossBook::change(const ZTSAgentRun& acrRun, const char* apEvent, ZTNanoseconds aTime) {
    mNews.mChanges.push_back(
        {aTime, "agent", "vrx-sca, process " + std::to_string(acrRun.mProcess), apEvent, "", "", ""});
}

ZTSBookNews ZTCLossBook::takeNews() {
    if (mIsRunning) {
        mNews.mRuns.push_back(mRun);
    }
    return std::exchange(mNews, {});
}
