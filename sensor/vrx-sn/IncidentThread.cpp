#include "IncidentThread.h"

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <new>
#include <thread>

#include "IncidentReplay.h"
#include "IncidentTeller.h"
#include "ServiceLog.h"
#include "ServiceThread.h"
#include "SnBuffer.h"
#include "SnFigures.h"

namespace {

using namespace std::chrono_literals;
using Clock = ZTCIncidentFeed::Clock;

// In a storm there is always something: it is looked at a few times a second.
constexpr std::chrono::milliseconds sLeastPause = 200ms;
constexpr std::chrono::milliseconds sReplayLook = 50ms;
constexpr std::chrono::milliseconds sStep = 1s;  // until the history is there
constexpr std::chrono::minutes sLongStep = 1min;
constexpr std::size_t sMostHeld = 100000;  // rows

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::size_t sCountRows(const ZTSIncidentInput& acrInput) {
    return acrInput.mRows.size() + acrInput.mChanges.size() + acrInput.mLosses.size() +
           acrInput.mHost.mFpins.size() + acrInput.mHost.mStalls.size() +
           acrInput.mHost.mMeasures.getValues().size();
}

std::optional<ZTSIncidentAsk> sAskOf(const ZTSStoreRequest& acrRequest) {
    constexpr std::pair<const char*, ZTSIncidentAsk::What> lKinds[] = {
        {"acknowledge", ZTSIncidentAsk::What::Acknowledge},
        {"keep", ZTSIncidentAsk::What::Keep},
        {"accept", ZTSIncidentAsk::What::Accept}};
    const auto* const lpKind =
        std::ranges::find_if(lKinds, [&](const auto& acrKind) { return acrRequest.mWhat == acrKind.first; });
    const char* const lpEnd = acrRequest.mSubject.data() + acrRequest.mSubject.size();
    std::uint64_t lId = 0;
    const auto lRead = std::from_chars(acrRequest.mSubject.data(), lpEnd, lId);
    if (lpKind == std::end(lKinds) || lRead.ec != std::errc() || lRead.ptr != lpEnd) {
        return std::nullopt;
    }
    return ZTSIncidentAsk{lpKind->second, lId, acrRequest.mTime, acrRequest.mWho, acrRequest.mText};
}

}  // namespace

class ZTCIncidentThread::Impl {
  public:
    Impl(ZTSIncidentOptions aOptions, ZTCIncidentFeed& arFeed, ZTCSnBuffer& arBuffer, ZTCSnFigures& arFigures,
         ZTCServiceLog& arLog, Accepted aAccepted)
        : mOptions(std::move(aOptions)),
          mrFeed(arFeed),
          mrBuffer(arBuffer),
          mrFigures(arFigures),
          mrLog(arLog),
          mAccepted(std::move(aAccepted)),
          mCommand(arFigures, arLog),
          mRules(mOptions.mRules),
          mTeller(mOptions.mHost, mOptions.mJournal, arFigures, arLog, mCommand),
          mLost(arLog, "events were not looked at for incidents") {
        mCommand.setCommand(mOptions.mCommand);
        mThread = startServiceThread("vrx-sn-incident", [this] { run(); });
    }
    ~Impl() {
        finish(0ms);
        mThread.join();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // ---- Any thread ----

    void setOptions(const ZTSIncidentRules& acrRules, const std::string& acrCommand) {
        mCommand.setCommand(acrCommand);
        const std::lock_guard lLock(mLock);
        mRules = acrRules;
        mAreRulesNew = true;
        mrFeed.wake();
    }

    // The store is opened for that, which may take as long as the disk likes: nobody else waits for it.
    void setStart(const std::string& acrPath, const ZTSStoreStart& acrStart) {
        if (!mHasStart) {
            Maps lMaps;
            for (const ZTSIncident& lrIncident : acrStart.mIncidents.mIncidents) {
                noteMaps(lMaps, lrIncident);
            }
            {
                const std::lock_guard lLock(mLock);
                mMapsAtStart = std::move(lMaps);
            }
            mReplay.begin(acrPath, acrStart, copyRules());
            mHasStart = true;
            mrFeed.wake();
        }
    }

    bool ask(const ZTSStoreRequest& acrRequest, bool aIsMarked) {
        const auto lAsk = sAskOf(acrRequest);
        if (lAsk) {
            mrFeed.ask({*lAsk, aIsMarked});
        }
        return lAsk.has_value();
    }

    // Two turns, for one may be under way.
    bool settle(std::chrono::milliseconds aTime) {
        const auto lEnd = Clock::now() + aTime;
        std::unique_lock lLock(mLock);
        const std::uint64_t lBehind = mTurns + 2;
        bool lIsInTime = true;
        while (lIsInTime && mTurns < lBehind && !mHasEnded) {
            mrFeed.wake();
            lIsInTime =
                mChanged.wait_until(lLock, lEnd, [&, lTurn = mTurns] { return mTurns > lTurn || mHasEnded; });
        }
        return lIsInTime;
    }

    bool finish(std::chrono::milliseconds aTime) {
        {
            const std::lock_guard lLock(mLock);
            mIsEnding = true;
            mrFeed.wake();
        }
        return mCommand.finish(aTime);
    }

  private:
    using Maps = std::map<std::uint64_t, std::vector<std::string>>;

    static void noteMaps(Maps& arMaps, const ZTSIncident& acrIncident) {
        acrIncident.mState != ZTEIncidentState::Closed
            ? void(arMaps[acrIncident.mId] = acrIncident.mHits.mMaps)
            : void(arMaps.erase(acrIncident.mId));
    }

    ZTSIncidentRules copyRules() {
        const std::lock_guard lLock(mLock);
        return mRules;
    }

    // ---- Its thread ----

    void run() {
        for (bool lGoesOn = true; lGoesOn;) {
            try {
                turn();
            } catch (const std::bad_alloc&) {
                lose(1, "no memory");
            } catch (const std::exception& lrError) {
                lose(1, lrError.what());
            }
            const std::lock_guard lLock(mLock);
            ++mTurns;
            mHasEnded = mIsEnding;
            lGoesOn = !mHasEnded;
            mChanged.notify_all();
        }
    }

    void turn() {
        waitForWork();
        takeRules();
        takeReplayed();
        catchUp();
        if (!isWaitingForStart()) {
            if (mpWork == nullptr) {
                mpWork = std::make_unique<ZTCIncidentWork>(copyRules());
            }
            work();
        }
    }

    void waitForWork() {
        if (isWaitingForStart()) {
            mrFeed.wait(Clock::time_point::max(), Clock::now() + sReplayLook);
        } else {
            // However long something is due that cannot be done.
            const auto lNotBefore = mWorked + sLeastPause;
            mrFeed.wait(lNotBefore, std::max(lNotBefore, nextDue()));
        }
        mWorked = Clock::now();
    }

    // Until it is there, or patience is over, all waits in the feed.
    bool isWaitingForStart() const {
        return !mIsStored && mpWork == nullptr && Clock::now() - mBegan < mOptions.mPatience;
    }

    // When something is decided although nothing comes. The host's clock may be set meanwhile.
    Clock::time_point nextDue() const {
        if (!mIsStored || mpWork == nullptr) {
            return mWorked + sStep;
        }
        const std::chrono::nanoseconds lLeft(mpWork->getFinder().getDue() - sNow());
        return Clock::now() + std::min<std::chrono::nanoseconds>(lLeft, sLongStep);
    }

    void takeRules() {
        const std::lock_guard lLock(mLock);
        if (std::exchange(mAreRulesNew, false) && mpWork != nullptr) {
            mpWork->getFinder().setRules(mRules);
        }
    }

    // What was found in the history goes on.
    void takeReplayed() {
        std::string lTrouble;
        auto lpWork = mIsStored ? nullptr : mReplay.take(lTrouble);
        if (lpWork == nullptr) {
            return;
        }
        if (!lTrouble.empty()) {
            mrLog.note(ZTSL_Warning, "the history is not read whole for incidents: %s", lTrouble.c_str());
        }
        mIsTold = mpWork == nullptr;
        mpWork = std::move(lpWork);
        mIsStored = true;
        {
            const std::lock_guard lLock(mLock);
            mMaps = std::move(mMapsAtStart);
        }
        mpWork->getFinder().setRules(copyRules());
    }

    // With all that came since. What was told of that meanwhile is not told again.
    void catchUp() {
        while (mIsStored && !mHeld.empty()) {
            const auto [lTime, lInput] = std::move(mHeld.front());
            mHeld.pop_front();
            take(lInput, lTime);
            mpWork->getFinder().advance(lTime);
        }
        if (!mIsTold) {
            tell();
            mIsTold = true;
        }
    }

    void work() {
        ZTSIncidentInput lInput = mrFeed.detach();
        const ZTNanoseconds lNow = sNow();
        if (!lInput.isEmpty()) {
            lInput.mLost == 0 ? mLost.over() : void();
            lose(lInput.mLost, "there is no room for them");
            take(lInput, lNow);
        }
        mpWork->getFinder().advance(lNow);
        tell();
        mIsStored ? void() : hold(lNow, std::move(lInput));
    }

    // Which incident somebody means is known when the history's are.
    void take(const ZTSIncidentInput& acrInput, ZTNanoseconds aTime) {
        lose(mpWork->take(acrInput, aTime), "no memory");
        if (mIsStored) {
            std::ranges::for_each(acrInput.mAsks, [this](const ZTSIncidentAsked& acrAsk) { answer(acrAsk); });
        }
    }

    void hold(ZTNanoseconds aTime, ZTSIncidentInput aInput) {
        const std::size_t lRows = sCountRows(aInput);
        if (mHeldRows + lRows > sMostHeld) {
            lose(lRows, "the history does not open");
        } else if (!aInput.isEmpty()) {
            mHeldRows += lRows;
            mHeld.emplace_back(aTime, std::move(aInput));
        }
    }

    void answer(const ZTSIncidentAsked& acrAsked) {
        const ZTSIncidentAsk& lrAsk = acrAsked.mAsk;
        const auto lAt = mMaps.find(lrAsk.mId);
        const std::vector<std::string> lMaps =
            lrAsk.mWhat == ZTSIncidentAsk::What::Accept && lAt != mMaps.end() ? lAt->second
                                                                              : std::vector<std::string>();
        if (!mpWork->getFinder().ask(lrAsk) && !acrAsked.mIsMarked) {
            mrLog.note(ZTSL_Warning, "nothing was done for %s: there is no incident %llu, or it is long over",
                       lrAsk.mWho.c_str(), static_cast<unsigned long long>(lrAsk.mId));
            return;
        }
        mrFigures.count(ZTSN_Requests);
        lMaps.empty() ? void() : mAccepted(lMaps);
    }

    // Into the history, to the figures, and to whoever is to be told.
    void tell() {
        ZTSIncidentNews lNews = mpWork->getFinder().takeNews();
        try {
            for (const ZTSIncident& lrIncident : lNews.mIncidents) {
                noteMaps(mMaps, lrIncident);
            }
        } catch (const std::bad_alloc&) {
            // Then an acceptance does not reach the totals of its maps; the news do reach the history.
        }
        if (mIsStored && !lNews.isEmpty()) {
            mrBuffer.takeIncidents(std::move(lNews));
        }
        for (const ZTSIncidentTelling& lrTelling : mpWork->getFinder().takeTellings()) {
            mIsTold ? mTeller.tell(lrTelling, mpWork->getLabels()) : void();
        }
        show();
    }

    void show() {
        const std::map<ZTEIncidentClass, std::size_t> lOpen = mpWork->getFinder().countOpen();
        std::size_t lAll = 0;
        for (unsigned int lClass = 0; lClass < static_cast<unsigned int>(ZTEIncidentClass::Count); ++lClass) {
            const auto lAt = lOpen.find(static_cast<ZTEIncidentClass>(lClass));
            const std::size_t lCount = lAt != lOpen.end() ? lAt->second : 0;
            mrFigures.set(static_cast<ZTESnFigure>(ZTSN_FirstIncidents + lClass), lCount);
            lAll += lCount;
        }
        mrFigures.set(ZTSN_Incidents, lAll);
    }

    void lose(std::uint64_t aRows, const char* apWhy) {
        if (aRows != 0) {
            mrFigures.count(ZTSN_IncidentsLost, aRows);
            mLost.met(apWhy);
        }
    }

    const ZTSIncidentOptions mOptions;
    ZTCIncidentFeed& mrFeed;
    ZTCSnBuffer& mrBuffer;
    ZTCSnFigures& mrFigures;
    ZTCServiceLog& mrLog;
    const Accepted mAccepted;
    ZTCIncidentCommand mCommand;
    ZTCIncidentReplay mReplay;
    const Clock::time_point mBegan = Clock::now();

    std::mutex mLock;  // of what follows
    std::condition_variable mChanged;
    ZTSIncidentRules mRules;
    bool mAreRulesNew = false;
    Maps mMapsAtStart;
    bool mIsEnding = false;
    bool mHasEnded = false;
    std::uint64_t mTurns = 0;

    bool mHasStart = false;  // the store's thread's

    // The thread's own.
    ZTCIncidentTeller mTeller;
    ZTCServiceTrouble mLost;
    std::unique_ptr<ZTCIncidentWork> mpWork;  // null: nothing was looked at yet
    bool mIsStored = false;                   // it goes on with what the history has
    bool mIsTold = true;
    std::deque<std::pair<ZTNanoseconds, ZTSIncidentInput>> mHeld;  // looked at before that
    std::size_t mHeldRows = 0;
    Maps mMaps;  // of incidents that are not closed
    Clock::time_point mWorked;

    std::thread mThread;
};

ZTCIncidentThread::ZTCIncidentThread(ZTSIncidentOptions aOptions, ZTCIncidentFeed& arFeed,
                                     ZTCSnBuffer& arBuffer, ZTCSnFigures& arFigures, ZTCServiceLog& arLog,
                                     Accepted aAccepted)
    : mpImpl(std::make_unique<Impl>(std::move(aOptions), arFeed, arBuffer, arFigures, arLog,
                                    std::move(aAccepted))) {}

ZTCIncidentThread::~ZTCIncidentThread() = default;

void ZTCIncidentThread::setOptions(const ZTSIncidentRules& acrRules, const std::string& acrCommand) {
    mpImpl->setOptions(acrRules, acrCommand);
}

void ZTCIncidentThread::setStart(const std::string& acrPath, const ZTSStoreStart& acrStart) {
    mpImpl->setStart(acrPath, acrStart);
}

bool ZTCIncidentThread::ask(const ZTSStoreRequest& acrRequest, bool aIsMarked) {
    return mpImpl->ask(acrRequest, aIsMarked);
}

bool ZTCIncidentThread::settle(std::chrono::milliseconds aTime) {
    return mpImpl->settle(aTime);
}

bool ZTCIncidentThread::finish(std::chrono::milliseconds aTime) {
    return mpImpl->finish(aTime);
}
