// SQLite's files, which can be told to fail: the layer under all that a test opens while this stands.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <initializer_list>

enum class ZTEFileWork : unsigned char { Open, Delete, Read, Write, Truncate, Sync, ShmMap, ShmLock, Size };

/// One at a time; what is opened through it is closed before it goes.
class ZTCFaultyVfs {
  public:
    /// Of the calls of these kinds, the aFailing-th from now fails; for good: all from then on. 0: none.
    ZTCFaultyVfs(std::initializer_list<ZTEFileWork> aWork, unsigned int aFailing, bool aIsForGood = false);
    ~ZTCFaultyVfs();
    ZTCFaultyVfs(const ZTCFaultyVfs&) = delete;
    ZTCFaultyVfs& operator=(const ZTCFaultyVfs&) = delete;

    /// A write that fails then is one on a full disk, that leaves a part of it.
    void fill() { mIsFull = true; }
    /// Each call of these kinds takes so long.
    void delay(std::chrono::milliseconds aTime) { mDelay = aTime; }
    /// Nothing fails any longer.
    void stop() { mFailing = 0; }
    bool hasFailed() const { return mHasFailed; }
    unsigned int getCalls() const { return mCalls; }

    // For the layer. 0: go on.
    static int getFault(ZTEFileWork aWork);
    static bool isFull();

  private:
    const unsigned int mWork;
    std::atomic<unsigned int> mFailing;
    const bool mIsForGood;
    std::atomic<bool> mIsFull{false};
    std::atomic<std::chrono::milliseconds> mDelay{};
    std::atomic<unsigned int> mCalls{0};
    std::atomic<bool> mHasFailed{false};
};
