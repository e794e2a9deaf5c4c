#include "Wal.h"

#include <sqlite3.h>

#include <algorithm>

namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t sFrameHead = 24;
// Longer than a slice of a reader of ours, so one that began before is over.
constexpr auto sPatience = 400ms;
// A reader that stays is not waited for again and again: each time holds up the writer.
constexpr std::chrono::milliseconds sFirstPause = 1s;
constexpr std::chrono::milliseconds sLongestPause = 30s;

}  // namespace

ZTCWal::ZTCWal(SQLite::Database& arWriter, std::string aPath)
    : mrWriter(arWriter),
      mPath(std::move(aPath)),
      mFrameSize(static_cast<std::uint64_t>(arWriter.execAndGet("PRAGMA page_size").getInt()) + sFrameHead),
      mPause(sFirstPause) {
    sqlite3_wal_hook(mrWriter.getHandle(), written, this);
}

ZTCWal::~ZTCWal() {
    sqlite3_wal_hook(mrWriter.getHandle(), nullptr, nullptr);
}

int ZTCWal::written(void* apThis, sqlite3* /*apDatabase*/, const char* /*apName*/, int aFrames) {
    auto& lrThis = *static_cast<ZTCWal*>(apThis);
    const auto lFrames = static_cast<std::uint64_t>(aFrames);
    if (lFrames < lrThis.mFrames.exchange(lFrames)) {
        lrThis.mDone = 0;  // it was begun anew
    }
    return SQLITE_OK;
}

// What is larger than the limit by itself fits once the log is as good as empty.
bool ZTCWal::hasRoom(std::uint64_t aBytes) {
    const std::uint64_t lNow = getBytes();
    const bool lFits = lNow + aBytes <= Limit || lNow <= Worth;
    mIsFull = !lFits;
    return lFits;
}

void ZTCWal::checkpoint() {
    const std::scoped_lock lLock(mLock);
    const std::uint64_t lUndone = (mFrames - std::min(mFrames.load(), mDone.load())) * mFrameSize;
    if (lUndone >= Worth || mIsFull) {
        run(SQLITE_CHECKPOINT_PASSIVE);
    }
    const auto lNow = std::chrono::steady_clock::now();
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
        mDatabase.emplace(mPath, SQLite::OPEN_READWRITE, static_cast<int>(sPatience.count()));
    }
    int lFrames = 0;
    int lDone = 0;
    const int lResult = sqlite3_wal_checkpoint_v2(mDatabase->getHandle(), nullptr, aMode, &lFrames, &lDone);
    if (lResult == SQLITE_OK && aMode != SQLITE_CHECKPOINT_PASSIVE) {
        mFrames = 0;
        mDone = 0;
        return true;
    }
    if (lResult != SQLITE_OK && lResult != SQLITE_BUSY) {
        throw SQLite::Exception(mDatabase->getHandle(), lResult);
    }
    if (lDone >= 0) {
        mDone = static_cast<std::uint64_t>(lDone);
    }
    return lResult == SQLITE_OK;
}
