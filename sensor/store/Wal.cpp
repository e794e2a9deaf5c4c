#include "Wal.h"

#include <sqlite3.h>

#include <algorithm>

#include "StoreFile.h"

namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t sFrameHead = 24;
// Longer than a slice of a reader of ours, so one that began before is over.
constexpr auto sPatience = 400ms;
// A reader that stays is not waited for again and again: each time holds up the writer.
constexpr std::chrono::milliseconds sFirstPause = 1s;
constexpr std::chrono::milliseconds sLongestPause = 30s;

}  // namespace

ZTCWal::ZTCWal(SQLite::Database& arWriter, std::string aPath, std::chrono::nanoseconds aStays)
    : mrWriter(arWriter),
      mPath(std::move(aPath)),
      mFrameSize(static_cast<std::uint64_t>(arWriter.execAndGet("PRAGMA page_size").getInt()) + sFrameHead),
      mStays(aStays),
      mPause(sFirstPause) {
    sqlite3_wal_hook(mrWriter.getHandle(), written, this);
}

ZTCWal::~ZTCWal() {
    sqlite3_wal_hook(mrWriter.getHandle(), nullptr, nullptr);
}

int ZTCWal::written(void* apThis, sqlite3* /*apDatabase*/, const char* /*apName*/, int aFrames) {
    auto& lrThis = *static_cast<ZTCWal*>(apThis);
    const auto lFrames = static_cast<std::uint64_t>(aFrames);
    const std::uint64_t lBefore = lrThis.mFrames.exchange(lFrames);
    if (lBefore <= lrThis.mDone) {
        lrThis.mUndoneSince = Clock::now();
    }
    if (lFrames < lBefore) {
        lrThis.mDone = 0;  // it was begun anew
    }
    return SQLITE_OK;
}

// What is larger than the limit by itself fits once the log is as good as empty.
bool ZTCWal::hasRoom(std::uint64_t aBytes) {
    const auto lFits = [&] {
        const std::uint64_t lNow = getBytes();
        return lNow + aBytes <= Limit || lNow <= Worth;
    };
    mIsFull = !lFits();
    if (mIsFull) {
        checkpoint();
        mIsFull = !lFits();
    }
    return !mIsFull;
}

void ZTCWal::checkpoint() {
    const std::unique_lock lLock(mLock, std::try_to_lock);
    if (!lLock.owns_lock()) {
        return;  // one is under way
    }
    const std::uint64_t lUndone = (mFrames - std::min(mFrames.load(), mDone.load())) * mFrameSize;
    const auto lNow = Clock::now();
    if (lUndone >= Worth || mIsFull || (lUndone != 0 && lNow - mUndoneSince.load() >= mStays)) {
        run(SQLITE_CHECKPOINT_PASSIVE);
        mUndoneSince = lNow;  // of what came meanwhile, or a reader has kept back
    }
    if (mIsFull || (getBytes() >= Need && lNow >= mNextNeed)) {
        if (run(SQLITE_CHECKPOINT_RESTART)) {
            mPause = sFirstPause;
        } else {
            mNextNeed = lNow + mPause;
            mPause = std::min(2 * mPause, sLongestPause);
        }
    }
}

void ZTCWal::finish() {
    const std::scoped_lock lLock(mLock);
    run(SQLITE_CHECKPOINT_PASSIVE);
    run(SQLITE_CHECKPOINT_TRUNCATE);
}

bool ZTCWal::run(int aMode) {
    if (!mDatabase) {
        mDatabase.emplace(openStoreAgain(mPath));
        mDatabase->setBusyTimeout(static_cast<int>(sPatience.count()));
        mDatabase->exec("SELECT name FROM meta LIMIT 1");  // before it has read it knows of no log
    }
    int lFrames = 0;
    int lDone = 0;
    const int lResult = sqlite3_wal_checkpoint_v2(mDatabase->getHandle(), nullptr, aMode, &lFrames, &lDone);
    if (lResult == SQLITE_OK && lFrames >= 0 && aMode != SQLITE_CHECKPOINT_PASSIVE) {
        mFrames = 0;
        mDone = 0;
        return true;
    }
    if (lResult != SQLITE_OK && lResult != SQLITE_BUSY) {
        throw SQLite::Exception(mDatabase->getHandle(), lResult);
    }
    mDone = static_cast<std::uint64_t>(std::max(lDone, 0));
    return lResult == SQLITE_OK;
}
