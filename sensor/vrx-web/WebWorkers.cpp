#include "WebWorkers.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>

#include "ServiceThread.h"
#include "ViewAsk.h"
#include "WebRequest.h"

namespace {

constexpr std::chrono::milliseconds sGrace(500);    // behind its end somebody may be about to end
constexpr std::chrono::milliseconds sEndTime(200);  // that idle threads need to be gone

// Nothing but what allocates nothing.
ZTSWebAnswer sNoMemory() {
    static const auto lpBody = std::make_shared<const std::string>("{\"error\":\"no memory\"}\n");
    ZTSWebAnswer lAnswer;
    lAnswer.mStatus = 503;
    lAnswer.mpBody = lpBody;
    return lAnswer;
}

ZTSWebAnswer sAnswer(ZTCWebHistory& arHistory, const ZTCWebWorkers::Work& acrWork) {
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

}  // namespace

/// Belongs to the threads as well, which may outlive the rest.
class ZTCWebWorkers::Shared {
  public:
    Shared(std::string aStore, std::function<void()> aHasDone)
        : mStore(std::move(aStore)), mHasDone(std::move(aHasDone)) {}

    void run(std::size_t aThread) {
        ZTCWebHistory lHistory(mStore);
        std::unique_lock lLock(mMutex);
        while (true) {
            mComes.wait(lLock, [&] { return mIsEnding || !mWaiting.empty(); });
            if (mIsEnding) {
                break;
            }
            Job lJob = std::move(mWaiting.front());
            mWaiting.pop_front();
            if (Clock::now() >= lJob.mEnd) {
                continue;
            }
            mEnds[aThread] = lJob.mEnd;
            lLock.unlock();
            Done lDone{lJob.mTicket, answer(lHistory, lJob)};
            lJob.mWork = nullptr;
            lLock.lock();
            mEnds[aThread].reset();
            tell(std::move(lDone));
        }
        --mRunning;
        mEnded.notify_all();
    }

    struct Job {
        std::uint64_t mTicket = 0;
        Clock::time_point mEnd;
        Work mWork;
    };

    const std::string mStore;
    const std::function<void()> mHasDone;
    std::mutex mMutex;
    std::condition_variable mComes;
    std::condition_variable mEnded;
    bool mIsEnding = false;
    std::size_t mRunning = 0;
    std::deque<Job> mWaiting;
    std::array<std::optional<Clock::time_point>, Threads> mEnds;  ///< of what each works on
    std::vector<Done> mDone;

    std::size_t countKept(Clock::time_point aNow) const {
        std::size_t lKept = 0;
        for (const auto& lrEnd : mEnds) {
            lKept += lrEnd && *lrEnd + sGrace < aNow ? 1 : 0;
        }
        return lKept;
    }

  private:
    static ZTSWebAnswer answer(ZTCWebHistory& arHistory, const Job& acrJob) {
        try {
            arHistory.begin(acrJob.mEnd);
            return sAnswer(arHistory, acrJob.mWork);
        } catch (const std::bad_alloc&) {
            return sNoMemory();
        }
    }

    void tell(Done aDone) {
        try {
            mDone.push_back(std::move(aDone));
            mHasDone();
        } catch (const std::bad_alloc&) {
            // Then who waits for it is told that it took too long.
        }
    }
};

ZTCWebWorkers::ZTCWebWorkers(const std::string& acrStore, const std::function<void()>& acrHasDone)
    : mpShared(std::make_shared<Shared>(acrStore, acrHasDone)) {
    for (std::size_t lThread = 0; lThread < Threads; ++lThread) {
        const std::lock_guard lLock(mpShared->mMutex);
        startServiceThread("vrx-web-query", [lpShared = mpShared, lThread] {
            lpShared->run(lThread);
        }).detach();
        ++mpShared->mRunning;
    }
}

ZTCWebWorkers::~ZTCWebWorkers() {
    std::unique_lock lLock(mpShared->mMutex);
    mpShared->mIsEnding = true;
    mpShared->mComes.notify_all();
    mpShared->mEnded.wait_for(lLock, sEndTime, [&] { return mpShared->mRunning == 0; });
}

std::optional<std::string> ZTCWebWorkers::ask(std::uint64_t aTicket, Clock::time_point aEnd, Work aWork) {
    const std::lock_guard lLock(mpShared->mMutex);
    if (mpShared->countKept(Clock::now()) == Threads) {
        return "the history does not answer: its disk stands still";
    }
    if (mpShared->mWaiting.size() >= MostWaiting) {
        return "too many requests wait for the history";
    }
    mpShared->mWaiting.push_back({aTicket, aEnd, std::move(aWork)});
    mpShared->mComes.notify_one();
    return std::nullopt;
}

std::vector<ZTCWebWorkers::Done> ZTCWebWorkers::take() {
    const std::lock_guard lLock(mpShared->mMutex);
    return std::exchange(mpShared->mDone, {});
}

std::size_t ZTCWebWorkers::countKept(Clock::time_point aNow) const {
    const std::lock_guard lLock(mpShared->mMutex);
    return mpShared->countKept(aNow);
}
