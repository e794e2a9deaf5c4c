#include "LogDrain.h"

#include <sched.h>
#include <unistd.h>

#include <cstring>

#include "Log.h"

namespace {

constexpr char sFile[] = "LogDrain";

// The head of a ring once no record with an earlier time than now is half written. A thread that was stopped
// in the middle of one is waited for only so long: its record may then stand behind a later one.
std::uint64_t settledHead(const ZTCLogRing& acrRing) {
    constexpr int lSpins = 100;
    constexpr int lYields = 100;
    for (int lTry = 0; acrRing.isBeingWritten() && lTry < lSpins + lYields; ++lTry) {
        if (lTry >= lSpins) {
            sched_yield();
        }
    }
    return acrRing.head();
}

}  // namespace

std::uint64_t ZTCLogDrain::drainOnce() {
    tellLost();
    const std::uint64_t lStart = ztlog::now();
    findSources(lStart);
    std::uint64_t lOthers = 0;
    std::uint64_t lTaken = 0;
    while (Source* const lpSource = earliest(lOthers)) {
        do {
            addLine(*lpSource->mpNext);
            lpSource->mAt += lpSource->mpNext->mSize;
            lTaken += lpSource->mpNext->mSize;
            advance(*lpSource, lStart);
        } while (lpSource->mpNext != nullptr && lpSource->mpNext->mStamp <= lOthers);
    }
    put();
    mSourceCount = 0;
    return lTaken;
}

void ZTCLogDrain::drainAll() {
    drainOnce();
    drainOnce();  // what one look has seen, the next one takes
}

void ZTCLogDrain::findSources(std::uint64_t aStart) {
    mSourceCount = 0;
    for (ZTCLogRing& lrRing : mrRings) {
        const bool lIsOrphan = lrRing.mState.load(std::memory_order_acquire) == ZTCLogRing::State::Orphaned;
        const std::uint64_t lHead = settledHead(lrRing);
        const std::uint64_t lSeen = lrRing.mSeen;
        lrRing.mSeen = lHead;
        if (lHead != lrRing.tail()) {
            Source& lrSource = mSources[mSourceCount++];
            lrSource = {&lrRing, lrRing.tail(), lHead, lSeen, nullptr};
            advance(lrSource, aStart);
        } else if (lIsOrphan) {
            lrRing.mState.store(ZTCLogRing::State::Free, std::memory_order_release);
        }
    }
}

// Moves a source to its next record. Of the records that the look before did not see, those made since this
// look began wait for the next one: an earlier one may have come to a ring that had been looked at already.
// (A time far ahead means that the clock was set back, and waits for nothing.)
void ZTCLogDrain::advance(Source& arSource, std::uint64_t aStart) {
    constexpr std::uint64_t lFarAhead = 1000000000;
    arSource.mpNext = nullptr;
    if (arSource.mAt == arSource.mEnd) {
        return;
    }
    const ZTCLogRecord* const lpRecord = arSource.mpRing->at(arSource.mAt);
    const bool lIsNew = arSource.mAt >= arSource.mSeen && lpRecord->mStamp > aStart;
    if (!lIsNew || lpRecord->mStamp - aStart > lFarAhead) {
        arSource.mpNext = lpRecord;
    }
}

// The source with the earliest record, or null; and the earliest time that the others have.
ZTCLogDrain::Source* ZTCLogDrain::earliest(std::uint64_t& arOthers) {
    Source* lpEarliest = nullptr;
    arOthers = ~std::uint64_t{0};
    for (std::size_t lAt = 0; lAt < mSourceCount; ++lAt) {
        Source& lrSource = mSources[lAt];
        if (lrSource.mpNext == nullptr) {
            continue;
        }
        if (lpEarliest == nullptr || lrSource.mpNext->mStamp < lpEarliest->mpNext->mStamp) {
            arOthers = lpEarliest != nullptr ? lpEarliest->mpNext->mStamp : arOthers;
            lpEarliest = &lrSource;
        } else {
            arOthers = std::min(arOthers, lrSource.mpNext->mStamp);
        }
    }
    return lpEarliest;
}

void ZTCLogDrain::addLine(const ZTCLogRecord& acrRecord) {
    if (mUsed + ZTCLogLine::MaxLine > sizeof mLines) {
        put();
    }
    char* const lpLine = mLines + mUsed;
    const auto lLength = static_cast<std::size_t>(mLine.format(acrRecord, lpLine) - lpLine);
    mUsed += lLength;
    const bool lIsEchoed =
        mEcho && mFile.isOpen() && (acrRecord.mSite.mLevel & (ZTLL_Highest.mBit | ZTLL_Error.mBit)) != 0;
    if (lIsEchoed && write(STDERR_FILENO, lpLine, lLength) < 0) {
        return;  // nobody reads standard error: the file has the line
    }
}

// A ring's tail moves only when its lines have been put, so a crash loses no more than what had not been put.
void ZTCLogDrain::put() {
    if (mUsed != 0) {
        mFile.put(mLines, mUsed);
        mUsed = 0;
    }
    for (std::size_t lAt = 0; lAt < mSourceCount; ++lAt) {
        mSources[lAt].mpRing->setTail(mSources[lAt].mAt);
    }
}

// Tells how many records were lost, once the file takes lines again.
void ZTCLogDrain::tellLost() {
    const std::uint64_t lLost = mFile.lost();
    if (!mFile.completeLine() || lLost == 0) {
        return;
    }
    static constinit ZTCLogRing sOwn;  // the drainer's own: it cannot wait for itself
    const auto lCount = ztlog::argument(lLost);
    const auto lReason = ztlog::argument(strerrordesc_np(mFile.lastError()));
    sOwn.begin(ZTCLogRecord::sizeWith(lCount, lReason), static_cast<std::uint32_t>(gettid()))
        .fill({ZTLL_Warning.mpTag, __func__, sFile, "%lu log records were lost: %s", ZTLL_Warning.mBit,
               __LINE__},
              lCount, lReason);
    sOwn.publish();
    std::uint64_t lAt = sOwn.tail();
    addLine(*sOwn.at(lAt));
    put();
    sOwn.setTail(sOwn.head());
    // What could not tell it is none of the lost records: these are told when the file takes lines.
    mFile.setLost(mFile.lost() == lLost ? 0 : lLost);
}
