#include "WebWorkers.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <new>

#include "ServiceThread.h"
#include "ViewAsk.h"
#include "WebRequest.h"

namespace {

constexpr char sTooMany[] = "too many requests wait for the history";
constexpr std::chrono::milliseconds sGrace(500);    // behind its end somebody may be about to end
constexpr std::chrono::milliseconds sEndTime(200);  // that idle threads need to be gone

// Nothing but what allocates nothing.
ZTSWebAnswer sNoMemory() {
    static const auto sBody = std::make_shared<const std::string>("{\"error\":\"no memory\"}\n");
    ZTSWebAnswer lAnswer;
    lAnswer.mStatus = 503;
    lAnswer.mpBody = sBody;
    return lAnswer;
}

ZTSWebAnswer sAnswerOrThrow(ZTCWebHistory& arHistory, const ZTCWebWorkers::Work& acrWork) {
    try {
        return acrWork(arHistory);
    } catch (const std::bad_alloc&) {
        arHistory.close();  // which gives back what it holds
        throw;
    } catch (const ZTCWebRefusal& lrError) {
        return answerError(400, lrError.what());
    } catch (const ZTCViewUsage& lrError) {
        return answerError(400, lrError.what());
    } catch (const ZTCViewMissing& lrError) {
        return answerError(404, lrError.what());
    } catch (const ZTCStoreError& lrError) {
        lrError.getFault() == ZTEStoreFault::Busy ? void() : arHistory.close();
        return answerError(503, lrError.what());
    } catch (const std::exception& lrError) {
        arHistory.close();
        return answerError(500, lrError.what());
    }
}

ZTSWebAnswer sAnswer(ZTCWebHistory& arHistory, const ZTCWebWorkers::Work& acrWork) {
    try {
        return sAnswerOrThrow(arHistory, acrWork);
    } catch (const std::bad_alloc&) {
        return sNoMemory();
    }
}

}  // namespace

/// Belongs to the threads as well, which may outlive the rest.
class ZTCWebWorkers::Shared {
  public:
    Shared(std::string aStore, std::function<void()> aHasDone)
        : mStore(std::move(aStore)), mHasDone(std::move(aHasDone)) {}

    void begin() {
        const std::lock_guard lLock(mMutex);
        ++mRunning;
    }
    void run(std::size_t aThread);
    void end() {
        std::unique_lock lLock(mMutex);
        mIsEnding = true;
        mComes.notify_all();
        mEnded.wait_for(lLock, sEndTime, [&] { return mRunning == 0; });
    }

    std::optional<std::string> ask(std::uint64_t aTicket, const std::string& acrPeer, Clock::time_point aEnd,
                                   Work aWork);
    std::vector<Done> take() {
        const std::lock_guard lLock(mMutex);
        return std::exchange(mDone, {});
    }
    std::size_t countKept(Clock::time_point aNow) {
        const std::lock_guard lLock(mMutex);
        return countKeptNow(aNow);
    }

  private:
    struct Job {
        std::uint64_t mTicket = 0;
        std::string mPeer;
        Clock::time_point mEnd;
        Work mWork;
    };

    // All with the mutex.
    std::size_t countKeptNow(Clock::time_point aNow) const {
        return countBusy([&](const Job& acrJob) { return acrJob.mEnd + sGrace < aNow; });
    }
    template <class Is>
    std::size_t countBusy(const Is& acrIs) const {
        return static_cast<std::size_t>(
            std::count_if(mBusy.begin(), mBusy.end(),
                          [&](const std::optional<Job>& acrJob) { return acrJob && acrIs(*acrJob); }));
    }
    std::deque<Job>::iterator findNext();
    bool makeRoom(const std::string& acrPeer);
    void tell(Done aDone);

    const std::string mStore;
    const std::function<void()> mHasDone;
    std::mutex mMutex;
    std::condition_variable mComes;
    std::condition_variable mEnded;
    bool mIsEnding = false;
    std::size_t mRunning = 0;
    std::deque<Job> mWaiting;
    std::array<std::optional<Job>, Threads> mBusy;  ///< what each is at
    std::vector<Done> mDone;
};

void ZTCWebWorkers::Shared::run(std::size_t aThread) {
    ZTCWebHistory lHistory(mStore);
    std::unique_lock lLock(mMutex);
    while (true) {
        mComes.wait(lLock, [&] { return mIsEnding || findNext() != mWaiting.end(); });
        if (mIsEnding) {
            break;
        }
        const auto lNext = findNext();
        mBusy[aThread].emplace(std::move(*lNext));
        mWaiting.erase(lNext);
        if (Clock::now() < mBusy[aThread]->mEnd) {
            const Work lWork = std::move(mBusy[aThread]->mWork);
            lHistory.begin(mBusy[aThread]->mEnd);
            lLock.unlock();
            ZTSWebAnswer lAnswer = sAnswer(lHistory, lWork);
            lLock.lock();
            tell({mBusy[aThread]->mTicket, std::move(lAnswer)});
        }
        mBusy[aThread].reset();
    }
    --mRunning;
    mEnded.notify_all();
}

// Of the peers that have not nearly all threads, the one that has waited for the longest.
std::deque<ZTCWebWorkers::Shared::Job>::iterator ZTCWebWorkers::Shared::findNext() {
    return std::find_if(mWaiting.begin(), mWaiting.end(), [&](const Job& acrWaiting) {
        return countBusy([&](const Job& acrBusy) { return acrBusy.mPeer == acrWaiting.mPeer; }) < Threads - 1;
    });
}

// The newest of the peer that has the most, if that has more than this one.
bool ZTCWebWorkers::Shared::makeRoom(const std::string& acrPeer) {
    std::map<std::string_view, std::size_t> lWaiting;
    for (const Job& lrJob : mWaiting) {
        ++lWaiting[lrJob.mPeer];
    }
    const auto lMost = std::max_element(
        lWaiting.begin(), lWaiting.end(),
        [](const auto& acrOne, const auto& acrOther) { return acrOne.second < acrOther.second; });
    if (lMost->second <= lWaiting[acrPeer] + 1) {
        return false;
    }
    const auto lLast = std::find_if(mWaiting.rbegin(), mWaiting.rend(),
                                    [&](const Job& acrJob) { return acrJob.mPeer == lMost->first; });
    tell({lLast->mTicket, answerError(503, sTooMany)});
    mWaiting.erase(std::next(lLast).base());
    return true;
}

std::optional<std::string> ZTCWebWorkers::Shared::ask(std::uint64_t aTicket, const std::string& acrPeer,
                                                      Clock::time_point aEnd, Work aWork) {
    const std::lock_guard lLock(mMutex);
    if (countKeptNow(Clock::now()) >= Threads - 1) {
        return "the history does not answer: its disk stands still";
    }
    if (mWaiting.size() >= MostWaiting && !makeRoom(acrPeer)) {
        return sTooMany;
    }
    mWaiting.push_back({aTicket, acrPeer, aEnd, std::move(aWork)});
    mComes.notify_one();
    return std::nullopt;
}

void ZTCWebWorkers::Shared::tell(Done aDone) {
    try {
        mDone.push_back(std::move(aDone));
        mHasDone();
    } catch (const std::bad_alloc&) {
        // Then who waits for it is told that it took too long.
    }
}

ZTCWebWorkers::ZTCWebWorkers(const std::string& acrStore, const std::function<void()>& acrHasDone)
    : mpShared(std::make_shared<Shared>(acrStore, acrHasDone)) {
    sNoMemory();  // so that it is there when there is none
    for (std::size_t lThread = 0; lThread < Threads; ++lThread) {
        mpShared->begin();
        startServiceThread("vrx-web-query", [lpShared = mpShared, lThread] {
            lpShared->run(lThread);
        }).detach();
    }
}

ZTCWebWorkers::~ZTCWebWorkers() {
    mpShared->end();
}

std::optional<std::string> ZTCWebWorkers::ask(std::uint64_t aTicket, const std::string& acrPeer,
                                              Clock::time_point aEnd, Work aWork) {
    return mpShared->ask(aTicket, acrPeer, aEnd, std::move(aWork));
}

std::vector<ZTCWebWorkers::Done> ZTCWebWorkers::take() {
    return mpShared->take();
}

std::size_t ZTCWebWorkers::countKept(Clock::time_point aNow) const {
    return mpShared->countKept(aNow);
}
