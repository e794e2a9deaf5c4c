// The thread that brings the store's log into its file.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "ServiceLog.h"

class ZTCStoreWriter;

/// Much of the log soon, a little of it when it has stood there for a while; an empty one wakes nobody. All
/// but the thread's own work never waits for the disk, except setWriter().
class ZTCStoreCheckpoints {
  public:
    using Damaged = std::function<void()>;

    /// aDamaged is called in the thread when the file has turned out to be damaged.
    ZTCStoreCheckpoints(ZTCServiceLog& arLog, std::chrono::milliseconds aLogStays, Damaged aDamaged);
    ~ZTCStoreCheckpoints();
    ZTCStoreCheckpoints(const ZTCStoreCheckpoints&) = delete;
    ZTCStoreCheckpoints& operator=(const ZTCStoreCheckpoints&) = delete;

    /// Whose log it is, null: nobody's. A checkpoint that is under way ends first.
    void setWriter(ZTCStoreWriter* apWriter);
    void noteWrite(bool aIsMuch);
    /// No further one is begun.
    void end();

  private:
    using Lock = std::unique_lock<std::mutex>;

    void run();
    void checkpoint();
    void tryCheckpoint();

    const std::chrono::milliseconds mLogStays;
    const Damaged mDamaged;
    ZTCServiceTrouble mTrouble;
    std::mutex mLock;  // of what follows
    std::condition_variable mChanged;
    std::condition_variable mIsOver;
    ZTCStoreWriter* mpWriter = nullptr;
    bool mIsLogNew = false;
    bool mIsMuchLog = false;
    bool mIsUnderWay = false;
    bool mEnds = false;
    std::thread mThread;
};
