#include "LogWriter.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "DetachedThread.h"
#include "Exception.h"
#include "Periods.h"
#include "StandardError.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t sPlenty = ZTCLogRing::Capacity / 16;  // go on at once: more has come meanwhile
constexpr std::uint64_t sMuch =
    ZTCLogRing::Capacity / 32;  // a storm: look again soon, and let nobody wake us
constexpr auto sBreath = 200us;
constexpr auto sLong = 1h;  // without a limit, but for a wake-up that got lost

timespec sTimespec(std::chrono::nanoseconds aTime) {
    const auto lCount = std::max<std::int64_t>(aTime.count(), 0);
    return {lCount / 1000000000, lCount % 1000000000};
}

// Waits until the word is another, for so long at most.
void sWaitWhile(const std::atomic<unsigned int>& acrWord, unsigned int aValue, Clock::duration aTime) {
    const timespec lTime = sTimespec(aTime);
    syscall(SYS_futex, &acrWord, FUTEX_WAIT_PRIVATE, aValue, &lTime, nullptr, 0);
}

void sWakeAll(const std::atomic<unsigned int>& acrWord) {
    syscall(SYS_futex, &acrWord, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

// Makes every store that another thread of this process has made visible here, and the other way round,
// without a fence on the side of those that log. False where the kernel does not offer it.
bool sFenceAllThreads() {
    return syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
}

}  // namespace

void ZTCLogWriter::start() {
    if (mIsRunning.exchange(true)) {
        return;
    }
    sem_init(&mWake, 0, 0);
    syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0);
    if (const int lErrno = startDetachedThread("log-writer", threadMain, this); lErrno != 0) {
        mIsRunning.store(false);
        throwErrno<ZTCOsException>("pthread_create", "log writer", lErrno);
    }
}

bool ZTCLogWriter::ask(Wish aWish, std::chrono::milliseconds aWait) {
    mWishes.fetch_or(aWish);
    const unsigned int lTicket = mAsked.fetch_add(1) + 1;
    wake();
    const auto lDeadline = Clock::now() + aWait;
    while (isRunning()) {
        const unsigned int lDone = mDone.load();
        const auto lLeft = lDeadline - Clock::now();
        if (static_cast<int>(lDone - lTicket) >= 0) {
            return true;
        }
        if (lLeft <= 0s) {
            return false;
        }
        sWaitWhile(mDone, lDone, lLeft);
    }
    return static_cast<int>(mDone.load() - lTicket) >= 0;
}

void ZTCLogWriter::setPath(const char* apPath) {
    if (strlen(apPath) >= sizeof mPath) {
        throw ZTCInvalidEx("The name of the log file is too long", ENAMETOOLONG);
    }
    const ZTCLogGuard lGuard(mPathLock);
    strcpy(mPath, apPath);
}

void ZTCLogWriter::afterForkInChild() {
    mIsRunning.store(false);
    mRest.store(Rest::Awake);
    mWishes.store(0);
    mDone.store(mAsked.load());
    mHasFile.store(false);
    mDrain.forget();
    mPathLock.unlock();
}

// ---- The thread ----

void* ZTCLogWriter::threadMain(void* apWriter) {
    static_cast<ZTCLogWriter*>(apWriter)->run();
    return nullptr;
}

void ZTCLogWriter::run() {
    while (isRunning()) {
        rest(work());
    }
}

// Does what it has been asked for, and writes what has been logged. Returns the bytes taken from the rings.
std::uint64_t ZTCLogWriter::work() {
    const unsigned int lAsked = mAsked.load();
    const unsigned int lWishes = mWishes.exchange(0);
    if ((lWishes & ZTLW_Open) != 0 || (!mDrain.isOpen() && mOpensAlone.load())) {
        open();
    }
    std::uint64_t lTaken = 0;
    const bool lStops = (lWishes & ZTLW_Stop) != 0;
    if (lStops || (mDrain.isOpen() && lAsked != mDone.load())) {
        mDrain.drainAll();
    } else {
        lTaken = mDrain.drainOnce();
    }
    if (mDrain.isOpen()) {
        mMayWait.store(true);  // what was put has been taken
    }
    if (lStops) {
        mIsRunning.store(false);
    }
    mDone.store(lAsked);
    sWakeAll(mDone);
    return lTaken;
}

void ZTCLogWriter::open() {
    char lPath[PATH_MAX];
    {
        const ZTCLogGuard lGuard(mPathLock);
        strcpy(lPath, mPath);
    }
    if (mDrain.isOpen()) {
        mDrain.drainAll();  // what is pending belongs to the file before
    }
    const int lErrno = mDrain.open(lPath);
    const bool lIsNew = lErrno != mOpenErrno.exchange(lErrno);
    mHasFile.store(mDrain.isOpen());
    if (!mDrain.isOpen() && mOpensAlone.load() && lIsNew) {
        char lText[PATH_MAX + 128];
        snprintf(lText, sizeof lText, "cannot open the log file %s: %s", lPath, strerrordesc_np(lErrno));
        tellOnStandardError(program_invocation_short_name, lText);
    }
}

void ZTCLogWriter::rest(std::uint64_t aTaken) {
    if (aTaken >= sPlenty || !isRunning() || mAsked.load() != mDone.load()) {
        return;
    }
    if (aTaken >= sMuch) {
        const timespec lTime = sTimespec(sBreath);
        nanosleep(&lTime, nullptr);
    } else if (aTaken != 0) {
        doze(Rest::Napping, ZTPeriod(ZTP_LogNap));
    } else {
        sleep();
    }
}

void ZTCLogWriter::wake() {
    if (mRest.exchange(Rest::Awake) != Rest::Awake) {
        sem_post(&mWake);
    }
}

// Rests until it is woken, but not for longer than that.
void ZTCLogWriter::doze(Rest aRest, std::chrono::milliseconds aTime) {
    mRest.store(aRest);
    if (mAsked.load() == mDone.load()) {
        timespec lDeadline;
        clock_gettime(CLOCK_MONOTONIC, &lDeadline);
        const auto lEnd =
            std::chrono::seconds(lDeadline.tv_sec) + std::chrono::nanoseconds(lDeadline.tv_nsec);
        lDeadline = sTimespec(lEnd + aTime);
        sem_clockwait(&mWake, CLOCK_MONOTONIC, &lDeadline);
    }
    mRest.store(Rest::Awake);
}

// Rests until somebody logs. While losses wait to be told, or without the fence, only a while.
void ZTCLogWriter::sleep() {
    mRest.store(Rest::Asleep);
    const bool lIsFenced = sFenceAllThreads();
    if (!mDrain.isOpen()) {
        doze(Rest::Deaf, ZTPeriod(ZTP_LogTell));
    } else if (mrRings.isSomethingPending()) {
        mRest.store(Rest::Awake);
    } else {
        doze(Rest::Asleep, !lIsFenced           ? ZTPeriod(ZTP_LogUnfenced)
                           : mDrain.hasUntold() ? ZTPeriod(ZTP_LogTell)
                                                : sLong);
    }
}
