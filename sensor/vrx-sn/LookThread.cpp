#include "LookThread.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

#include "SensorFiles.h"

namespace {

using Clock = ZTCLooker::Clock;

constexpr std::chrono::seconds sAgain(1);
constexpr std::chrono::seconds sSlow(5);
constexpr std::chrono::minutes sHangs(1);

unsigned int sSeconds(Clock::duration aTime) {
    return static_cast<unsigned int>(std::chrono::duration_cast<std::chrono::seconds>(aTime).count());
}

// A look that is due at once leaves a little time to others.
constexpr std::chrono::milliseconds sLeast(2);

}  // namespace

struct ZTCLookThread::Shared {
    explicit Shared(std::shared_ptr<ZTCLooker> apLooker)
        : mpLooker(std::move(apLooker)), mWoken(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!mWoken.isOpen()) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    void look();
    void waitUntil(Clock::time_point aTime) const;

    const std::shared_ptr<ZTCLooker> mpLooker;
    const ZTCSensorDescriptor mWoken;
    std::atomic<bool> mEnds{false};
    std::atomic<Clock::time_point> mBegan{};  // of the look that is under way; 0: none is
    std::atomic<bool> mIsHangTold{false};
    bool mIsFailureTold = false;  // by its thread alone

    std::mutex mLock;  // of what follows
    std::condition_variable mChanged;
    bool mHasEnded = false;
};

std::shared_ptr<ZTCLookThread::Shared> ZTCLookThread::makeShared(std::shared_ptr<ZTCLooker> apLooker) {
    return std::make_shared<Shared>(std::move(apLooker));
}

void ZTCLookThread::run(Shared& arShared) {
    while (!arShared.mEnds) {
        arShared.look();
    }
    try {
        arShared.mpLooker->end();
    } catch (const std::bad_alloc&) {
        // Then it is lost with the process.
    }
    const std::lock_guard lLock(arShared.mLock);
    arShared.mHasEnded = true;
    arShared.mChanged.notify_all();
}

void ZTCLookThread::Shared::look() {
    const auto lBegan = Clock::now();
    mBegan = lBegan;
    auto lNext = lBegan + sAgain;
    try {
        lNext = mpLooker->look();
    } catch (const std::bad_alloc&) {
        // What it saw, the next one tells.
    } catch (const std::exception& lrError) {
        if (!std::exchange(mIsFailureTold, true)) {
            mpLooker->tellFailed(lrError.what());
        }
    }
    mBegan = Clock::time_point();
    mIsHangTold = false;
    const auto lNow = Clock::now();
    if (lNow - lBegan >= sSlow) {
        mpLooker->tellSlow(sSeconds(lNow - lBegan));
    }
    {
        const std::lock_guard lLock(mLock);
        mChanged.notify_all();
    }
    waitUntil(std::max(lNext, lNow + sLeast));
}

void ZTCLookThread::Shared::waitUntil(Clock::time_point aTime) const {
    const auto [lOne, lOther] = mpLooker->getDescriptors();
    pollfd lPolls[] = {{mWoken.get(), POLLIN, 0}, {lOne, POLLIN, 0}, {lOther, POLLIN, 0}};
    const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aTime - Clock::now());
    if (!mEnds &&
        poll(lPolls, std::size(lPolls), static_cast<int>(std::max<std::int64_t>(lLeft.count(), 0))) > 0) {
        eventfd_t lCount = 0;
        eventfd_read(mWoken.get(), &lCount);
    }
}

void ZTCLookThread::wake() {
    eventfd_write(mpShared->mWoken.get(), 1);
}

void ZTCLookThread::end() {
    mpShared->mEnds = true;
    wake();
}

void ZTCLookThread::waitUntil(const std::function<bool()>& acrCondition, Clock::time_point aTime) {
    std::unique_lock lLock(mpShared->mLock);
    mpShared->mChanged.wait_until(lLock, aTime, [&] { return mpShared->mHasEnded || acrCondition(); });
}

void ZTCLookThread::waitForEnd(Clock::time_point aTime) {
    waitUntil([] { return false; }, aTime);
}

void ZTCLookThread::watch(Clock::time_point aNow) {
    const Clock::time_point lBegan = mpShared->mBegan;
    if (lBegan != Clock::time_point() && aNow - lBegan >= sHangs && !mpShared->mIsHangTold.exchange(true)) {
        mpShared->mpLooker->tellHangs(sSeconds(aNow - lBegan));
    }
}
