#include "StoreCheckpoints.h"

#include "ServiceThread.h"
#include "StoreWriter.h"

namespace {

constexpr std::chrono::milliseconds sBetween{100};

}  // namespace

ZTCStoreCheckpoints::ZTCStoreCheckpoints(ZTCServiceLog& arLog, std::chrono::milliseconds aLogStays,
                                         Damaged aDamaged)
    : mLogStays(aLogStays),
      mDamaged(std::move(aDamaged)),
      mTrouble(arLog, "the history's log is not brought into its file") {
    mThread = startServiceThread("vrx-sn-checks", [this] { run(); });
}

ZTCStoreCheckpoints::~ZTCStoreCheckpoints() {
    end();
    mThread.join();
}

void ZTCStoreCheckpoints::setWriter(ZTCStoreWriter* apWriter) {
    Lock lLock(mLock);
    mIsOver.wait(lLock, [this] { return !mIsUnderWay; });
    mpWriter = apWriter;
}

void ZTCStoreCheckpoints::noteWrite(bool aIsMuch) {
    const Lock lLock(mLock);
    if (!mIsLogNew || (aIsMuch && !mIsMuchLog)) {
        mIsLogNew = true;
        mIsMuchLog = mIsMuchLog || aIsMuch;
        mChanged.notify_one();
    }
}

void ZTCStoreCheckpoints::end() {
    const Lock lLock(mLock);
    mEnds = true;
    mChanged.notify_one();
}

void ZTCStoreCheckpoints::run() {
    Lock lLock(mLock);
    while (!mEnds) {
        mChanged.wait(lLock, [this] { return mIsLogNew || mEnds; });
        mChanged.wait_for(lLock, mLogStays, [this] { return mIsMuchLog || mEnds; });
        mIsLogNew = mIsMuchLog = false;
        if (!mEnds && mpWriter != nullptr) {
            mIsUnderWay = true;
            lLock.unlock();
            checkpoint();
            lLock.lock();
            mIsUnderWay = false;
            mIsOver.notify_all();
            mChanged.wait_for(lLock, sBetween, [this] { return mEnds; });
        }
    }
}

void ZTCStoreCheckpoints::checkpoint() {
    try {
        tryCheckpoint();
    } catch (const std::bad_alloc&) {
        // Nor is there memory to tell of it: the next one does.
    }
}

void ZTCStoreCheckpoints::tryCheckpoint() {
    try {
        mpWriter->checkpoint();
        mTrouble.over();
    } catch (const ZTCStoreError& lrError) {
        if (lrError.getFault() == ZTEStoreFault::Damaged) {
            mDamaged();
        }
        mTrouble.met(lrError.what());
    } catch (const std::exception& lrError) {
        mTrouble.met(lrError.what());
    }
}
