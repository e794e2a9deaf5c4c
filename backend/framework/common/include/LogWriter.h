// The thread that writes the log: it alone waits for the log's disk and for standard error. See Log.h.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <climits>

#include "LogDrain.h"
#include "LogLock.h"

/// Any thread, unless said otherwise.
class ZTCLogWriter {
  public:
    /// What the thread can be asked for, beside writing what has been logged so far.
    enum Wish : unsigned int {
        ZTLW_Write = 0,
        ZTLW_Open = 1,  ///< open the file of the path, or open it anew
        ZTLW_Stop = 2,  ///< write nothing from then on: the process ends
    };

    explicit constexpr ZTCLogWriter(ZTCLogRings& arRings) : mrRings(arRings), mDrain(arRings) {}

    /// Starts the thread, with every signal blocked, unless it runs. Throws ZTCOsException.
    void start();
    bool isRunning() const { return mIsRunning.load(std::memory_order_relaxed); }

    /// Asks the thread, and waits so long until it has done it. False: it has not yet, or there is none.
    bool ask(Wish aWish, std::chrono::milliseconds aWait);

    /// Behind a record's publication: wakes the thread when it has to be.
    void published(bool aIsUrgent) {
        std::atomic_signal_fence(
            std::memory_order_seq_cst);  // with the writer's fence: published, then looked
        const auto lRest = mRest.load(std::memory_order_relaxed);
        if (lRest == Rest::Asleep || (lRest == Rest::Napping && aIsUrgent)) [[unlikely]] {
            wake();
        }
    }
    /// Whether there is hope that a full ring becomes less full soon: the one caller that gets true may wait
    /// for that, and no other until the file has taken something.
    bool mayWait() { return isRunning() && mMayWait.exchange(false); }

    /// Main thread, both. Throws ZTCInvalidEx when the path is too long.
    void setPath(const char* apPath);
    const char* getPath() const ZT_NO_THREAD_SAFETY_ANALYSIS { return mPath; }  // nobody else changes it
    /// The errno of the last opening: 0 when it went well.
    int getOpenErrno() const { return mOpenErrno.load(); }
    /// Whether a file is in use: the one that was opened last, or one before.
    bool hasFile() const { return mHasFile.load(); }
    /// Nobody waits for the opening any longer: when it fails, the thread says so, and tries again.
    void openWhenItCan() { mOpensAlone.store(true); }

    /// The thread's, or of the one that ends the process where it does not run.
    ZTCLogDrain& getDrain() { return mDrain; }

    void beforeFork() ZT_ACQUIRE(mPathLock) { mPathLock.lock(); }
    void afterForkInParent() ZT_RELEASE(mPathLock) { mPathLock.unlock(); }
    /// The thread is not there, and the file is the parent's.
    void afterForkInChild() ZT_RELEASE(mPathLock);

  private:
    enum class Rest : unsigned int {
        Awake,
        Napping,  ///< for a moment: wakes by itself, or for what is urgent
        Deaf,     ///< for a moment, without a file: wakes by itself, or when it is asked for something
        Asleep,   ///< until somebody logs
    };

    static void* threadMain(void* apWriter);
    void run();
    std::uint64_t work();
    void open();
    void rest(std::uint64_t aTaken);
    void wake();
    void doze(Rest aRest, std::chrono::milliseconds aTime);
    void sleep();

    ZTCLogRings& mrRings;
    std::atomic<bool> mIsRunning{false};
    std::atomic<Rest> mRest{Rest::Awake};
    std::atomic<bool> mMayWait{true};
    std::atomic<unsigned int> mWishes{0};
    std::atomic<unsigned int> mAsked{0};  ///< how often it was asked
    std::atomic<unsigned int> mDone{0};   ///< up to which time of asking it has done everything
    std::atomic<int> mOpenErrno{0};
    std::atomic<bool> mHasFile{false};
    std::atomic<bool> mOpensAlone{false};
    sem_t mWake{};
    ZTCLogLock mPathLock;  ///< never held while anything is waited for
    char mPath[PATH_MAX] ZT_GUARDED_BY(mPathLock) = "";
    ZTCLogDrain mDrain;
};
