#include "LogDrain.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "Log.h"
#include "Periods.h"
#include "StandardError.h"
#include "Statistics.h"

namespace {

constexpr char sFile[] = "LogDrain";
constexpr unsigned int sEchoed = ZTLL_Highest.mBit | ZTLL_Error.mBit;

// The head of a ring once no record with an earlier time than now is half written. A thread that was stopped
// in the middle of one is waited for only so long: its record may then stand behind a later one.
std::uint64_t sSettledHead(const ZTCLogRing& acrRing) {
    constexpr int lSpins = 100;
    constexpr int lYields = 100;
    for (int lTry = 0; acrRing.isBeingWritten() && lTry < lSpins + lYields; ++lTry) {
        if (lTry >= lSpins) {
            sched_yield();
        }
    }
    return acrRing.head();
}

bool sHasPassed(ZTEPeriod aPeriod, std::uint64_t aSince) {
    return std::chrono::nanoseconds(ztlog::now() - aSince) > ZTPeriod(aPeriod);
}

bool sIsUnmasked(unsigned int aLevel) {
    return (ztlog::gMask.load(std::memory_order_relaxed) & aLevel) != 0;
}

}  // namespace

// ---- The file ----

int ZTCLogDrain::open(const char* apPath) {
    const bool lIsFirst = !mFile.isOpen();
    if (const int lErrno = mFile.open(apPath); lErrno != 0) {
        if (!lIsFirst) {
            putOwn({ZTLL_Error.mpTag, "reopenLog", "Log",
                    "The log file could not be opened anew, the old one stays in use: %s", ZTLL_Error.mBit,
                    __LINE__},
                   ztlog::argument(strerrordesc_np(lErrno)));
        }
        return lErrno;
    }
    strcpy(mPath, apPath);
    mRotateAt = 0;
    if (lIsFirst) {
        drainAll();
        mIsMaskKnown = true;
    }
    return 0;
}

void ZTCLogDrain::forget() {
    mFile = ZTCLogFile();
    mUsed = 0;
    mSourceCount = 0;
}

// The file is moved away before it passes its limit.
void ZTCLogDrain::rotate() {
    const std::uint64_t lLimit = std::uint64_t{mLimit} << 20;
    if (mLimit == 0 || mFile.size() == 0 || mFile.size() + mUsed <= std::max(lLimit, mRotateAt)) {
        return;
    }
    const auto lMebibytes = ztlog::argument(mLimit);
    if (const int lErrno = mFile.rotate(mPath); lErrno != 0) {
        mRotateAt = mFile.size() + lLimit / 8;
        putOwn(
            {ZTLL_Warning.mpTag, __func__, sFile,
             "The log file has reached its limit of %u MiB and goes on growing, it cannot be moved away: %s",
             ZTLL_Warning.mBit, __LINE__},
            lMebibytes, ztlog::argument(strerrordesc_np(lErrno)));
        return;
    }
    mRotateAt = 0;
    putOwn({ZTLL_Highest.mpTag, __func__, sFile,
            "The log file had reached its limit of %u MiB: what came before is in %s.1", ZTLL_Highest.mBit,
            __LINE__},
           lMebibytes, ztlog::argument(static_cast<const char*>(mPath)));
}

void ZTCLogDrain::putToFile(const char* apLines, std::size_t aSize) {
    const std::uint64_t lLost = mFile.put(apLines, aSize);
    mUnwritten += lLost;
    ZTAddToStatistic(ZTS_LogLostError, lLost);
}

// ---- The rings ----

std::uint64_t ZTCLogDrain::drainOnce() {
    if (!mFile.isOpen()) {
        return 0;
    }
    tellUnwritten();
    const std::uint64_t lTaken = look();
    if (lTaken == 0 || sHasPassed(ZTP_LogTell, mToldAt)) {
        tellDropped();
    }
    return lTaken;
}

void ZTCLogDrain::drainAll() {
    if (mFile.isOpen()) {
        tellUnwritten();
    }
    look();
    look();  // what one look has seen, the next one takes
    if (mFile.isOpen()) {
        tellDropped();
    }
}

std::uint64_t ZTCLogDrain::look() {
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

void ZTCLogDrain::findSources(std::uint64_t aStart) {
    mSourceCount = 0;
    for (ZTCLogRing& lrRing : mrRings) {
        const bool lIsOrphan = lrRing.mState.load(std::memory_order_acquire) == ZTCLogRing::State::Orphaned;
        const std::uint64_t lHead = sSettledHead(lrRing);
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
// So none waits for longer than that, however the clock is set.
void ZTCLogDrain::advance(Source& arSource, std::uint64_t aStart) {
    arSource.mpNext = nullptr;
    if (arSource.mAt == arSource.mEnd) {
        return;
    }
    const ZTCLogRecord* const lpRecord = arSource.mpRing->at(arSource.mAt);
    if (arSource.mAt < arSource.mSeen || lpRecord->mStamp <= aStart) {
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
    if (!mIsMaskKnown && !sIsUnmasked(acrRecord.mSite.mLevel)) {
        return;  // from before the options were read
    }
    if (mUsed + ZTCLogLine::MaxLine > sizeof mLines) {
        put();
    }
    char* const lpLine = mLines + mUsed;
    const auto lLength = static_cast<std::size_t>(mLine.format(acrRecord, lpLine) - lpLine);
    mUsed += lLength;
    ZTAddToStatistic(ZTS_LogRecords);
    if ((acrRecord.mSite.mLevel & sEchoed) != 0 && mFile.isOpen() && mEcho.load(std::memory_order_relaxed)) {
        showOnStandardError(lpLine, lLength, 0);
    }
}

// A ring's tail moves only when its lines have been put, so a crash loses no more than what had not been put.
void ZTCLogDrain::put() {
    if (mUsed != 0 && mFile.isOpen()) {
        rotate();
        putToFile(mLines, mUsed);
    } else if (mUsed != 0) {
        showOnStandardError(mLines, mUsed, static_cast<int>(ZTPeriod(ZTP_LogShow).count()));
    }
    mUsed = 0;
    for (std::size_t lAt = 0; lAt < mSourceCount; ++lAt) {
        mSources[lAt].mpRing->setTail(mSources[lAt].mAt);
    }
}

// ---- The drain's own records: it cannot wait for itself ----

// False: it could not be written. It is none of the lost records then: these are told later.
template <class... Arguments>
bool ZTCLogDrain::putOwn(const ztlog::Site& acrSite, const Arguments&... acrArguments) {
    constexpr std::size_t lRoom = sizeof(ZTCLogRecord) + sizeof...(Arguments) * (ztlog::MaxArgumentText + 16);
    if (!sIsUnmasked(acrSite.mLevel)) {
        return true;
    }
    alignas(ZTCLogRecord) unsigned char lBytes[lRoom];
    auto& lrRecord = *new (lBytes) ZTCLogRecord;
    lrRecord.mSize = static_cast<std::uint32_t>(ZTCLogRecord::sizeWith(acrArguments...));
    lrRecord.mThread = static_cast<std::uint32_t>(gettid());
    lrRecord.mStamp = ztlog::now();
    lrRecord.fill(acrSite, acrArguments...);
    char lLine[ZTCLogLine::MaxLine];
    return mFile.put(lLine, static_cast<std::size_t>(mLine.format(lrRecord, lLine) - lLine)) == 0;
}

bool ZTCLogDrain::putLost(std::uint64_t aCount, const char* apReason) {
    return putOwn(
        {ZTLL_Warning.mpTag, __func__, sFile, "%lu log records were lost: %s", ZTLL_Warning.mBit, __LINE__},
        ztlog::argument(aCount), ztlog::argument(apReason));
}

// Tells how many records could not be written, once the file takes lines again.
void ZTCLogDrain::tellUnwritten() {
    if (mFile.completeLine() && mUnwritten != 0 && putLost(mUnwritten, strerrordesc_np(mFile.lastError()))) {
        mUnwritten = 0;
    }
}

// Tells how many records found no room in their ring.
void ZTCLogDrain::tellDropped() {
    const std::uint64_t lDropped = ZTGetStatistic(ZTS_LogLostFull);
    if (lDropped > mToldDropped && putLost(lDropped - mToldDropped, "the file did not take them in time")) {
        mToldDropped = lDropped;
        mToldAt = ztlog::now();
    }
}
