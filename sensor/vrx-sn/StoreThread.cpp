#include "StoreThread.h"

#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <new>
#include <optional>
#include <thread>

#include "ServiceLog.h"
#include "ServiceThread.h"
#include "SnBuffer.h"
#include "StoreCheckpoints.h"
#include "StoreMove.h"
#include "StoreTrouble.h"
#include "StoreUpkeep.h"

namespace {

using namespace std::chrono_literals;
using Lock = std::unique_lock<std::mutex>;

constexpr std::chrono::milliseconds sFirstPause = 50ms;
constexpr std::chrono::milliseconds sLongestPause = 3200ms;
// A disk that fails so often may want the file to be opened anew, as when it was mounted again.
constexpr unsigned int sPatience = 4;

// Of the log beside the file, so much is not left there for long.
constexpr std::uint64_t sMuchLog = std::uint64_t{4} << 20;

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

class ZTCStoreThread::Impl {
  public:
    Impl(ZTSStoreOptions aOptions, ZTCSnBuffer& arBuffer, ZTCSnFigures& arFigures, ZTCServiceLog& arLog,
         Opened aOpened, Failed aFailed, Asked aAsked)
        : mOptions(std::move(aOptions)),
          mrBuffer(arBuffer),
          mrLog(arLog),
          mOpened(std::move(aOpened)),
          mFailed(std::move(aFailed)),
          mTrouble(arBuffer, arFigures, arLog),
          mUpkeep(mOptions, arFigures, arLog, mTrouble, std::move(aAsked)),
          mCheckpoints(arLog, mOptions.mLogStays, [this] {
              mIsDamaged = true;
              mrBuffer.wake();
          }) {
        mStore = startServiceThread("vrx-sn-store", [this] { run(); });
    }
    ~Impl() {
        {
            const Lock lLock(mLock);
            mIsEnding = mGivesUp = true;
        }
        wakeAll();
        mStore.join();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void waitUntilOpen(std::chrono::milliseconds aTime) {
        Lock lLock(mLock);
        mChanged.wait_for(lLock, aTime, [this] { return mWasOpened || mFatal; });
        if (mFatal) {
            throw ZTCStoreError(*mFatal);
        }
    }

    void setKeep(unsigned int aDays, std::uint64_t aBytes) {
        mUpkeep.setKeep(aDays, aBytes);
        mrBuffer.wake();
    }

    bool finish(std::chrono::milliseconds aTime) {
        Lock lLock(mLock);
        mIsEnding = true;
        wakeAll();
        return mChanged.wait_for(lLock, aTime, [this] { return mHasEnded; });
    }

    ZTCStoreTrouble& getTrouble() { return mTrouble; }

  private:
    void wakeAll() {
        mChanged.notify_all();
        mrBuffer.wake();
        mIsEnding ? mCheckpoints.end() : void();
    }

    // ---- The store's thread ----

    void run() {
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
            if (tryStep()) {
                return;
            }
        } catch (const std::exception&) {
            // Where memory is short, to deal with a failure may fail as well.
            mrLog.note(ZTSL_Error, "no memory to tell why the history is not written");
        }
        pause();
    }

    bool tryStep() {
        try {
            step();
            mFailures = 0;
            return true;
        } catch (const ZTCStoreError& lrError) {
            take(lrError);
        } catch (const std::bad_alloc&) {
            mTrouble.fail(ZTEStoreFault::Memory, "no memory");
        } catch (const std::exception& lrError) {
            mTrouble.fail(ZTEStoreFault::Io, lrError.what());
        }
        return false;
    }

    void step() {
        if (mpWriter == nullptr) {
            hasNothingLeft() ? void() : open();
        } else if (mIsDamaged) {
            beginAnew();
        } else if (mIsStartNew) {
            takeStart(mpWriter->getStart());
        } else {
            work();
        }
    }

    bool isOver() {
        const Lock lLock(mLock);
        return mFatal || mGivesUp || (mIsEnding && mIsDrained);
    }

    bool isEnding() {
        const Lock lLock(mLock);
        return mIsEnding;
    }

    bool isGivenUp() {
        const Lock lLock(mLock);
        return mGivesUp;
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
        mTrouble.fail(acrError.getFault(), lWhy);
        const bool lIsDisk =
            acrError.getFault() == ZTEStoreFault::Io || acrError.getFault() == ZTEStoreFault::ReadOnly;
        if (lIsDisk && mFailures >= sPatience) {
            dropWriter();
        }
    }

    // ---- Opening and closing ----

    void open() {
        mTrouble.begin("opened");
        mpWriter = std::make_unique<ZTCStoreWriter>(mOptions);
        mIsStartNew = true;
        mTrouble.succeed();
    }

    // What a checkpoint that is under way finds is of the old one still.
    void beginAnew() {
        mTrouble.begin("set aside");
        mCheckpoints.setWriter(nullptr);
        mpWriter->beginAnew();
        mIsDamaged = false;
        mIsStartNew = true;
        mTrouble.succeed();
    }

    // Where this fails, for want of memory, it is done again.
    void takeStart(const ZTSStoreStart& acrStart) {
        if (mOpened && !mIsStartTold) {
            mOpened(acrStart);
        }
        mIsStartTold = true;
        // An id that was given stays given, in whichever store its row is.
        mNextId = std::max(mNextId, acrStart.mNextId);
        if (acrStart.mStore != mStoreName) {
            takeOther(acrStart);
        }
        struct stat lStatus {};
        stat(mOptions.mPath.c_str(), &lStatus);
        mFile = lStatus.st_ino;
        mUpkeep.begin(*mpWriter);
        mCheckpoints.setWriter(mpWriter.get());
        mIsStartNew = false;
        const Lock lLock(mLock);
        mWasOpened = true;
        mChanged.notify_all();
    }

    // What may throw comes first.
    void takeOther(const ZTSStoreStart& acrStart) {
        std::string lName = acrStart.mStore;
        ZTSChange lChange{sNow(), "store", mOptions.mPath, "damaged", "", "", acrStart.mSetAside};
        ZTSLoss lLoss{mMade, sNow(), "sensor", "store", {}, {}};
        if (!acrStart.mSetAside.empty()) {
            mrLog.note(ZTSL_Error, "the history was damaged: it is %s now, and a new one is begun",
                       acrStart.mSetAside.c_str());
            mrBuffer.takeChange(std::move(lChange));
        }
        if (acrStart.mIsMended) {
            mrLog.note(
                ZTSL_Warning,
                "another program wrote the history while vrx-sn did not run: it is whole, and has its check "
                "sums again");
        }
        if (!mStoreName.empty()) {
            // What is still open goes into the new one; how much was closed nobody can say.
            mrBuffer.takeLoss(std::move(lLoss));
            mMove.begin(mNextId);
        }
        mStoreName = std::move(lName);
        mMade = acrStart.mMade;
    }

    // What was found of it is forgotten with it: who opens it anew sees for himself.
    void dropWriter() {
        mCheckpoints.setWriter(nullptr);
        mpWriter.reset();
        mIsDamaged = false;
    }

    void closeInOrder() {
        mCheckpoints.setWriter(nullptr);
        const bool lIsInOrder = mpWriter != nullptr && !isGivenUp();
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
        // First: what comes in between is not the last then.
        const bool lIsEnding = isEnding();
        if (!mBatch && mrBuffer.waitForWork(lIsEnding ? 0ms : mUpkeep.getWait())) {
            mBatch = mrBuffer.detach(mNextId);
            mBatch->mNumber = ++mBatchNumber;
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
            mIsDrained = lIsEnding && !lHadWork;
        }
        mUpkeep.work(*mpWriter);
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
        mUpkeep.noteWritten(*mBatch);
        mCheckpoints.noteWrite(mpWriter->getSize().mWalBytes >= sMuchLog);
    }

    const ZTSStoreOptions mOptions;  // but how much is kept
    ZTCSnBuffer& mrBuffer;
    ZTCServiceLog& mrLog;
    const Opened mOpened;
    const Failed mFailed;
    ZTCStoreTrouble mTrouble;
    ZTCStoreUpkeep mUpkeep;

    std::mutex mLock;  // of what follows
    std::condition_variable mChanged;
    std::optional<ZTCStoreError> mFatal;
    bool mWasOpened = false;
    bool mIsEnding = false;
    bool mGivesUp = false;
    bool mIsDrained = false;
    bool mHasEnded = false;

    std::atomic<bool> mIsDamaged{false};

    // The store's thread alone.
    std::unique_ptr<ZTCStoreWriter> mpWriter;
    bool mIsStartNew = false;  // it knows what was there, which nobody was told yet
    bool mIsStartTold = false;
    std::string mStoreName;
    ZTNanoseconds mMade = 0;
    ino_t mFile = 0;
    ZTCStoreMove mMove;
    std::uint64_t mNextId = 1;
    std::optional<ZTSStoreBatch> mBatch;  // what is not stored yet
    // Not one that another vrx-sn has given.
    std::uint64_t mBatchNumber = static_cast<std::uint64_t>(sNow());
    unsigned int mFailures = 0;

    ZTCStoreCheckpoints mCheckpoints;  // has the writer, and marks it as damaged
    std::thread mStore;
};

ZTCStoreThread::ZTCStoreThread(ZTSStoreOptions aOptions, ZTCSnBuffer& arBuffer, ZTCSnFigures& arFigures,
                               ZTCServiceLog& arLog, Opened aOpened, Failed aFailed, Asked aAsked)
    : mpImpl(std::make_unique<Impl>(std::move(aOptions), arBuffer, arFigures, arLog, std::move(aOpened),
                                    std::move(aFailed), std::move(aAsked))) {}

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
