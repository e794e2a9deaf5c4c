#include "StoreThread.h"

#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <new>
#include <optional>
#include <thread>

#include "SnBuffer.h"
#include "SnFigures.h"
#include "SnLog.h"
#include "StoreMove.h"
#include "StoreTrouble.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Lock = std::unique_lock<std::mutex>;

constexpr std::chrono::milliseconds sFirstPause = 50ms;
constexpr std::chrono::milliseconds sLongestPause = 3200ms;
// A disk that fails so often may want the file to be opened anew, as when it was mounted again.
constexpr unsigned int sPatience = 4;

constexpr std::chrono::minutes sRetireEvery{1};
constexpr std::chrono::milliseconds sBetweenRetirements = 20ms;
constexpr std::chrono::seconds sSizesEvery{1};

// The log beside the file: so late a little of it, so soon much of it.
constexpr std::chrono::seconds sCheckpointAfter{5};
constexpr std::chrono::milliseconds sBetweenCheckpoints = 100ms;
constexpr std::uint64_t sMuchLog = std::uint64_t{4} << 20;

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

class ZTCStoreThread::Impl {
  public:
    Impl(ZTSStoreOptions aOptions, ZTCSnBuffer& arBuffer, ZTCSnFigures& arFigures, ZTCSnLog& arLog,
         Opened aOpened, Failed aFailed)
        : mOptions(std::move(aOptions)),
          mrBuffer(arBuffer),
          mrFigures(arFigures),
          mrLog(arLog),
          mOpened(std::move(aOpened)),
          mFailed(std::move(aFailed)),
          mTrouble(arBuffer, arFigures, arLog),
          mCheckpointTrouble(arLog, "the history's log is not brought into its file") {
        mStore = std::thread([this] { run(); });
        try {
            mCheckpoints = std::thread([this] { runCheckpoints(); });
        } catch (...) {
            giveUp();
            throw;
        }
    }
    ~Impl() { giveUp(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void waitUntilOpen(std::chrono::milliseconds aTime) {
        Lock lLock(mLock);
        mChanged.wait_for(lLock, aTime, [this] { return mWasOpened || mFatal; });
        if (mFatal) {
            throw *mFatal;
        }
    }

    void setKeep(unsigned int aDays, std::uint64_t aBytes) {
        {
            const Lock lLock(mLock);
            mOptions.mKeepDays = aDays;
            mOptions.mKeepBytes = aBytes;
            mIsKeepNew = true;
        }
        mrBuffer.wake();
    }

    bool finish(std::chrono::milliseconds aTime) {
        Lock lLock(mLock);
        mIsEnding = true;
        wakeAll();
        return mChanged.wait_for(lLock, aTime, [this] { return mHasEnded && mHaveCheckpointsEnded; });
    }

    ZTCStoreTrouble& getTrouble() { return mTrouble; }

  private:
    void wakeAll() {
        mChanged.notify_all();
        mForCheckpoints.notify_all();
        mrBuffer.wake();
    }

    void giveUp() {
        {
            const Lock lLock(mLock);
            mIsEnding = mGivesUp = true;
        }
        wakeAll();
        for (std::thread* const lpThread : {&mStore, &mCheckpoints}) {
            lpThread->joinable() ? lpThread->join() : void();
        }
    }

    // ---- The store's thread ----

    void run() {
        pthread_setname_np(pthread_self(), "store");
        while (!isOver()) {
            attempt();
        }
        closeInOrder();
        const Lock lLock(mLock);
        mHasEnded = true;
        mChanged.notify_all();
    }

    // One that fails is followed by a pause.
    void attempt() {
        try {
            if (mpWriter == nullptr && hasNothingLeft()) {
                return;
            }
            if (mpWriter == nullptr) {
                open();
            } else if (mIsDamaged) {
                beginAnew();
            } else {
                work();
            }
            mFailures = 0;
            return;
        } catch (const ZTCStoreError& lrError) {
            take(lrError);
        } catch (const std::exception& lrError) {
            const bool lIsMemory = dynamic_cast<const std::bad_alloc*>(&lrError) != nullptr;
            fail(lIsMemory ? ZTEStoreFault::Memory : ZTEStoreFault::Io,
                 lIsMemory ? "no memory" : lrError.what());
        }
        pause();
    }

    bool isOver() {
        const Lock lLock(mLock);
        return mFatal || mGivesUp || (mIsEnding && mIsDrained);
    }

    // At the end a store that cannot be opened is waited for only if it is needed.
    bool hasNothingLeft() {
        Lock lLock(mLock);
        if (!mIsEnding || mBatch) {
            return false;
        }
        lLock.unlock();
        const bool lHasWork = mrBuffer.waitForWork(0ms);
        lLock.lock();
        mIsDrained = !lHasWork;
        return mIsDrained;
    }

    void pause() {
        const unsigned int lShift = std::min(mFailures, 8U);
        mFailures += 1;
        Lock lLock(mLock);
        const auto lTime = std::min(sFirstPause * (1U << lShift), sLongestPause);
        // Once the end has begun it goes on in these steps until it is given up.
        mChanged.wait_for(lLock, std::min(lTime, mIsEnding ? 200ms : lTime),
                          [this, lWasEnding = mIsEnding] { return mGivesUp || mIsEnding != lWasEnding; });
    }

    void take(const ZTCStoreError& acrError) {
        if (acrError.getFault() == ZTEStoreFault::Damaged && mpWriter != nullptr) {
            mIsDamaged = true;
        }
        if (!acrError.mayPass() && !mWasOpened) {
            {
                const Lock lLock(mLock);
                mFatal = acrError;
                wakeAll();
            }
            mFailed ? mFailed() : void();
            return;
        }
        std::string lWhy = acrError.what();
        if (acrError.getFault() == ZTEStoreFault::Busy && mpWriter != nullptr) {
            const std::string lHolder = mpWriter->describeHolder();
            lWhy += lHolder.empty() ? "" : "; held by " + lHolder;
        }
        fail(acrError.getFault(), lWhy);
        const bool lIsDisk =
            acrError.getFault() == ZTEStoreFault::Io || acrError.getFault() == ZTEStoreFault::ReadOnly;
        if (lIsDisk && mFailures >= sPatience) {
            dropWriter();
        }
    }

    void fail(ZTEStoreFault aFault, const std::string& acrWhy) {
        try {
            mTrouble.fail(aFault, acrWhy);
        } catch (const std::bad_alloc&) {
            mrLog.note(ZTSL_Error, "no memory to tell why the history is not written");
        }
    }

    // ---- Opening and closing ----

    void open() {
        mTrouble.begin("opened");
        auto lpWriter = std::make_unique<ZTCStoreWriter>(getOptions());
        const bool lIsFirst = !mWasOpened;
        takeStart(lpWriter->getStart());
        mTrouble.succeed();
        {
            const Lock lLock(mLock);
            mpWriter = std::move(lpWriter);
            mWasOpened = true;
            mChanged.notify_all();
        }
        if (lIsFirst && mOpened) {
            mOpened(mpWriter->getStart());
        }
        showSizes();
    }

    void beginAnew() {
        mTrouble.begin("set aside");
        mpWriter->beginAnew();
        mIsDamaged = false;
        takeStart(mpWriter->getStart());
        mTrouble.succeed();
    }

    void takeStart(const ZTSStoreStart& acrStart) {
        struct stat lStatus {};
        stat(mOptions.mPath.c_str(), &lStatus);
        mFile = lStatus.st_ino;
        if (!acrStart.mSetAside.empty()) {
            mrLog.note(ZTSL_Error, "the history was damaged: it is %s now, and a new one is begun",
                       acrStart.mSetAside.c_str());
            mrBuffer.takeChange({sNow(), "store", mOptions.mPath, "damaged", "", "", acrStart.mSetAside});
        }
        if (acrStart.mIsMended) {
            mrLog.note(
                ZTSL_Warning,
                "another program wrote the history while vrx-sn did not run: it is whole, and has its check "
                "sums again");
        }
        // An id that was given stays given, in whichever store its row is.
        mNextId = std::max(mNextId, acrStart.mNextId);
        if (mWasOpened && acrStart.mStore != mStoreName) {
            mMove.begin(mNextId);
        }
        mStoreName = acrStart.mStore;
    }

    ZTSStoreOptions getOptions() {
        const Lock lLock(mLock);
        mIsKeepNew = false;
        return mOptions;
    }

    void tellOfDamage(const ZTSStoreStart& acrStart) {
        mrLog.note(ZTSL_Error, "the history was damaged: it is %s now, and a new one is begun",
                   acrStart.mSetAside.c_str());
        mrBuffer.takeChange({sNow(), "store", mOptions.mPath, "damaged", "", "", acrStart.mSetAside});
    }

    // A checkpoint that is under way has to end first.
    void waitForCheckpoint(Lock& arLock) {
        mChanged.wait(arLock, [this] { return !mIsInCheckpoint; });
    }

    void dropWriter() {
        Lock lLock(mLock);
        waitForCheckpoint(lLock);
        const std::unique_ptr<ZTCStoreWriter> lpDropped = std::move(mpWriter);
        lLock.unlock();
    }

    void closeInOrder() {
        Lock lLock(mLock);
        waitForCheckpoint(lLock);
        const bool lIsInOrder = mpWriter != nullptr && !mGivesUp;
        lLock.unlock();
        try {
            if (lIsInOrder) {
                mTrouble.begin("closed");
                mpWriter->finish();
                mTrouble.succeed();
            }
        } catch (const std::exception& lrError) {
            mrLog.note(ZTSL_Warning, "the history was not closed in order: %s", lrError.what());
        }
        dropWriter();
    }

    // ---- Work ----

    void work() {
        if (!mBatch && mrBuffer.waitForWork(getWait())) {
            mBatch = mrBuffer.detach(mNextId);
            for (const ZTSStoreRow& lrRow : mBatch->mRows) {
                mNextId = std::max(mNextId, lrRow.mId + 1);
            }
        }
        const bool lHadWork = mBatch && !mBatch->isEmpty();
        if (lHadWork) {
            write();
        }
        if (mBatch) {
            mBatch.reset();
            mrBuffer.stored();
        }
        {
            const Lock lLock(mLock);
            mIsDrained = mIsEnding && !lHadWork;
        }
        doChores();
    }

    std::chrono::milliseconds getWait() {
        const Lock lLock(mLock);
        if (mIsEnding || mIsKeepNew) {
            return 0ms;
        }
        const auto lLeft = mNextRetirement - Clock::now();
        return std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(lLeft));
    }

    void write() {
        struct stat lStatus {};
        mTrouble.begin("written");
        mMove.complete(*mBatch);
        if (stat(mOptions.mPath.c_str(), &lStatus) != 0 || lStatus.st_ino != mFile) {
            dropWriter();
            throw ZTCStoreError(ZTEStoreFault::Io, mOptions.mPath + " was taken away: a new one is begun");
        }
        mpWriter->write(*mBatch);
        mTrouble.succeed();
        mMove.stored(*mBatch);
        mrFigures.count(ZTSN_Commits);
        mrFigures.set(ZTSN_LastCommit, static_cast<std::uint64_t>(sNow()));
        mrFigures.count(ZTSN_Rows, static_cast<std::uint64_t>(std::count_if(
                                       mBatch->mRows.begin(), mBatch->mRows.end(),
                                       [](const ZTSStoreRow& acrRow) { return acrRow.mIsNew; })));
        const bool lIsMuch = mpWriter->getSize().mWalBytes >= sMuchLog;
        const Lock lLock(mLock);
        mIsMuchLog = mIsMuchLog || lIsMuch;
        if (!mIsLogNew || lIsMuch) {
            mIsLogNew = true;
            mForCheckpoints.notify_all();
        }
    }

    void doChores() {
        const auto lNow = Clock::now();
        std::optional<ZTSStoreOptions> lKeep;
        {
            const Lock lLock(mLock);
            lKeep = mIsKeepNew ? std::optional(mOptions) : std::nullopt;
            mIsKeepNew = false;
        }
        if (lKeep) {
            mpWriter->setKeep(lKeep->mKeepDays, lKeep->mKeepBytes);
        }
        if (lNow >= mNextRetirement || lKeep) {
            mTrouble.begin("relieved of what is old");
            const bool lIsMore = mpWriter->retire(sNow());
            mTrouble.succeed();
            mNextRetirement =
                Clock::now() + (lIsMore ? sBetweenRetirements : std::chrono::milliseconds(sRetireEvery));
        }
        if (lNow - mSizesShown >= sSizesEvery) {
            showSizes();
        }
    }

    void showSizes() {
        const ZTSStoreSize lSize = mpWriter->getSize();
        mrFigures.set(ZTSN_StoreBytes, lSize.mBytes);
        mrFigures.set(ZTSN_StoreWalBytes, lSize.mWalBytes);
        mrFigures.set(ZTSN_StoreRecords, lSize.mRecords);
        mSizesShown = Clock::now();
    }

    // ---- The thread of the checkpoints ----

    void runCheckpoints() {
        pthread_setname_np(pthread_self(), "checkpoints");
        Lock lLock(mLock);
        const auto lIsOver = [this] { return mIsEnding || mGivesUp || mFatal; };
        while (!lIsOver()) {
            mForCheckpoints.wait(lLock, [&] { return mIsLogNew || lIsOver(); });
            mForCheckpoints.wait_for(lLock, sCheckpointAfter, [&] { return mIsMuchLog || lIsOver(); });
            if (!lIsOver() && mpWriter != nullptr) {
                mIsLogNew = mIsMuchLog = false;
                mIsInCheckpoint = true;
                lLock.unlock();
                checkpoint();
                lLock.lock();
                mIsInCheckpoint = false;
                mChanged.notify_all();
                mForCheckpoints.wait_for(lLock, sBetweenCheckpoints, lIsOver);
            }
        }
        mHaveCheckpointsEnded = true;
        mChanged.notify_all();
    }

    void checkpoint() {
        try {
            mpWriter->checkpoint();
            mCheckpointTrouble.over();
        } catch (const ZTCStoreError& lrError) {
            if (lrError.getFault() == ZTEStoreFault::Damaged) {
                mIsDamaged = true;
                mrBuffer.wake();
            }
            mCheckpointTrouble.met(lrError.what());
        } catch (const std::exception& lrError) {
            mCheckpointTrouble.met(lrError.what());
        }
    }

    ZTSStoreOptions mOptions;
    ZTCSnBuffer& mrBuffer;
    ZTCSnFigures& mrFigures;
    ZTCSnLog& mrLog;
    const Opened mOpened;
    const Failed mFailed;
    ZTCStoreTrouble mTrouble;

    std::mutex mLock;  // of what follows up to the writer
    std::condition_variable mChanged;
    std::condition_variable mForCheckpoints;
    std::optional<ZTCStoreError> mFatal;
    bool mWasOpened = false;
    bool mIsKeepNew = false;
    bool mIsEnding = false;
    bool mGivesUp = false;
    bool mIsDrained = false;
    bool mHasEnded = false;
    bool mHaveCheckpointsEnded = false;
    bool mIsLogNew = false;
    bool mIsMuchLog = false;
    bool mIsInCheckpoint = false;
    std::unique_ptr<ZTCStoreWriter> mpWriter;  // the store's thread changes it, and not during a checkpoint

    std::atomic<bool> mIsDamaged{false};
    ZTCSnTrouble mCheckpointTrouble;

    // The store's thread alone.
    std::string mStoreName;
    ino_t mFile = 0;
    ZTCStoreMove mMove;
    std::uint64_t mNextId = 1;
    std::optional<ZTSStoreBatch> mBatch;  // what is not stored yet
    unsigned int mFailures = 0;
    Clock::time_point mNextRetirement;
    Clock::time_point mSizesShown;

    std::thread mStore;
    std::thread mCheckpoints;
};

ZTCStoreThread::ZTCStoreThread(ZTSStoreOptions aOptions, ZTCSnBuffer& arBuffer, ZTCSnFigures& arFigures,
                               ZTCSnLog& arLog, Opened aOpened, Failed aFailed)
    : mpImpl(std::make_unique<Impl>(std::move(aOptions), arBuffer, arFigures, arLog, std::move(aOpened),
                                    std::move(aFailed))) {}

ZTCStoreThread::~ZTCStoreThread() = default;

void ZTCStoreThread::waitUntilOpen(std::chrono::milliseconds aTime) {
    mpImpl->waitUntilOpen(aTime);
}

void ZTCStoreThread::setKeep(unsigned int aDays, std::uint64_t aBytes) {
    mpImpl->setKeep(aDays, aBytes);
}

bool ZTCStoreThread::finish(std::chrono::milliseconds aTime) {
    return mpImpl->finish(aTime);
}

std::string ZTCStoreThread::getTrouble() const {
    return mpImpl->getTrouble().getText();
}

void ZTCStoreThread::tellTrouble() {
    mpImpl->getTrouble().tell();
}
