#include "StoreWriter.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

#include "Holders.h"
#include "LogBytes.h"
#include "StoreFile.h"
#include "StoreParts.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned int sRowsBetweenLooks = 256;
constexpr auto sRetireTime = 5ms;
constexpr unsigned int sRetireRows = 128;
constexpr auto sSweepEvery = 60s;
constexpr auto sTidyEvery = 1h;
constexpr std::uint64_t sRetireBytes = std::uint64_t{4} << 20;  // of the log, in need
constexpr int sShrinkPages = 64;

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

class ZTCStoreWriter::Impl {
  public:
    explicit Impl(ZTSStoreOptions aOptions)
        : mOptions(std::move(aOptions)),
          mKeep{mOptions.mKeepDays, mOptions.mKeepBytes},
          mClock(mOptions.mClockTrust) {
        try {
            open(openStoreToWrite(mOptions.mPath));
        } catch (const ZTCStoreError& lrError) {
            if (lrError.getFault() != ZTEStoreFault::Damaged) {
                throw;
            }
            // It opened, but what is known of it from before cannot be read.
            open(beginStoreAnew(openStoreToWrite(mOptions.mPath)));
        }
    }

    const ZTSStoreStart& getStart() const { return mStart; }
    void setKeep(unsigned int aDays, std::uint64_t aBytes);
    void beginAnew();
    void write(const ZTSStoreBatch& acrBatch);
    std::vector<ZTSStoreRequest> takeRequests();
    bool retire(ZTNanoseconds aNow);
    void checkpoint();
    std::string describeHolder() const { return describeHolders(mOptions.mPath); }
    ZTSStoreSize getSize() const;
    void finish();

  private:
    using Clock = std::chrono::steady_clock;

    void open(ZTSOpenedStore aFile);
    std::optional<ZTSOpenedStore> close();
    void loadStart();
    bool isThere(const ZTSStoreBatch& acrBatch) const;
    std::uint64_t countRecords() const;
    void writeRows(const ZTSStoreBatch& acrBatch);
    void writeRow(const ZTSStoreRow& acrRow);
    void writeMeta(const ZTSStoreBatch& acrBatch);
    ZTSRetentionFacts look(ZTNanoseconds aNow, bool aIsClockTrusted) const;
    void makeRoom();
    void retireToSize(Clock::time_point aEnd);
    bool retireByAge(ZTNanoseconds aTime, Clock::time_point aEnd);
    bool joinSeries(Clock::time_point aNow);
    bool tidy(Clock::time_point aNow);
    ZTSStoreParts& getStore() const;
    std::int64_t getMeta(const char* apName) const;
    void setMeta(const char* apName, std::int64_t aValue);
    template <class Work>
    std::invoke_result_t<Work> tell(const Work& acrWork) const;
    template <class Work>
    void inTransaction(const Work& acrWork);
    void rollBack() noexcept;

    const ZTSStoreOptions mOptions;
    ZTSKeep mKeep;
    ZTSStoreStart mStart;
    ZTCClockTrust mClock;
    Clock::time_point mNextSweep;
    Clock::time_point mNextJoin;  ///< of series
    Clock::time_point mNextTidy;
    std::uint64_t mRecords = 0;
    std::uint64_t mNewRecords = 0;  ///< of the running transaction
    std::uint64_t mGoneRecords = 0;
    bool mCouldRetire = true;    ///< something was there that could go
    ZTNanoseconds mLongest = 0;  ///< as the store has it; 0: not known
    std::mutex mLock;            ///< of mpStore, which comes and goes while another thread makes a checkpoint
    std::optional<ZTSOpenedStore> mFile;
    std::unique_ptr<ZTSStoreParts> mpStore;
};

// ---- Opening and closing ----

void ZTCStoreWriter::Impl::open(ZTSOpenedStore aFile) {
    if (!aFile.mSetAside.empty()) {
        mStart.mSetAside = aFile.mSetAside;
        mStart.mSetAsideMade = aFile.mLock.getBefore().mMade;
    }
    mFile.emplace(std::move(aFile));
    try {
        tell([&] { mpStore = std::make_unique<ZTSStoreParts>(mOptions, mKeep.mBytes, mFile->mDatabase); });
        inTransaction([&] { loadStart(); });
    } catch (...) {
        close();
        throw;
    }
}

std::optional<ZTSOpenedStore> ZTCStoreWriter::Impl::close() {
    mpStore.reset();
    return std::exchange(mFile, std::nullopt);
}

// What stands there now never changes again, whoever has written it.
void ZTCStoreWriter::Impl::loadStart() {
    SQLite::Database& lrDatabase = getStore().mDatabase;
    const std::int64_t lLast = lrDatabase.execAndGet("SELECT coalesce(max(id), 0) FROM records").getInt64();
    ZTSStoreStart lBefore = std::move(mStart);
    mStart = {};
    mStart.mSetAside = std::move(lBefore.mSetAside);
    mStart.mSetAsideMade = lBefore.mSetAsideMade;
    mStart.mIsMended = mFile->mIsMended;
    mStart.mStore = lrDatabase.execAndGet("SELECT value FROM meta WHERE name = 'store'").getString();
    mStart.mMade = getMeta("made");
    mFile->mLock.noteMade(mStart.mMade);
    mStart.mNextId = static_cast<std::uint64_t>(lLast) + 1;
    mStart.mWasInUse = getMeta("in_use") != 0;
    mStart.mWriter = mFile->mLock.getBefore().mProcess;
    mStart.mLastWrite = getMeta("last_write");
    mStart.mAgent = getStore().mTables.loadAgent();
    if (mStart.mLastWrite != 0) {
        mStart.mPorts = getStore().mTables.loadPorts(lrDatabase, mStart.mLastWrite);
    }
    getStore().mHost.load(mStart);
    mLongest = getMeta("longest");
    mRecords = countRecords();
    setMeta("in_use", 1);
    setMeta("closed_to", lLast);
    ZTCStatement(lrDatabase, "INSERT OR REPLACE INTO meta VALUES ('host', ?)").run(mOptions.mHostName);
}

std::uint64_t ZTCStoreWriter::Impl::countRecords() const {
    return static_cast<std::uint64_t>(getStore().mCountRecords.findNumber().value_or(0));
}

void ZTCStoreWriter::Impl::beginAnew() {
    const std::scoped_lock lLock(mLock);
    std::optional<ZTSOpenedStore> lFile = close();
    open(lFile ? beginStoreAnew(std::move(*lFile)) : openStoreToWrite(mOptions.mPath));
}

void ZTCStoreWriter::Impl::finish() {
    inTransaction([&] { setMeta("in_use", 0); });
    const std::scoped_lock lLock(mLock);
    tell([&] { mpStore->mWal.finish(); });
    close();
}

// ---- Transactions ----

ZTSStoreParts& ZTCStoreWriter::Impl::getStore() const {
    if (mpStore == nullptr) {
        throw ZTCStoreError(ZTEStoreFault::Unusable, mOptions.mPath + " is not open");
    }
    return *mpStore;
}

template <class Work>
std::invoke_result_t<Work> ZTCStoreWriter::Impl::tell(const Work& acrWork) const {
    try {
        return acrWork();
    } catch (const SQLite::Exception& lrError) {
        throw toStoreError(lrError, mOptions.mPath);
    }
}

template <class Work>
void ZTCStoreWriter::Impl::inTransaction(const Work& acrWork) {
    tell([&] {
        getStore().mBegin.run();
        try {
            acrWork();
            getStore().mCommit.run();
        } catch (...) {
            rollBack();
            throw;
        }
    });
}

// What was found or made in a transaction that has failed may not be there.
void ZTCStoreWriter::Impl::rollBack() noexcept {
    if (sqlite3_get_autocommit(mpStore->mDatabase.getHandle()) == 0) {
        mpStore->mDatabase.tryExec("ROLLBACK");
    }
    mpStore->mSeries.forget();
    mpStore->mSums.forget();
    mpStore->mTables.forget();
    mpStore->mHost.forget();
    mLongest = 0;
}

std::int64_t ZTCStoreWriter::Impl::getMeta(const char* apName) const {
    return getStore().mGetMeta.findNumber(std::string(apName)).value_or(0);
}

void ZTCStoreWriter::Impl::setMeta(const char* apName, std::int64_t aValue) {
    getStore().mSetMeta.run(std::string(apName), aValue);
}

// ---- Writing ----

void ZTCStoreWriter::Impl::write(const ZTSStoreBatch& acrBatch) {
    if (!tell([&] { return getStore().mWal.hasRoom(estimateLogBytes(acrBatch)); })) {
        throw ZTCStoreError(
            ZTEStoreFault::Busy,
            mOptions.mPath + "-wal is as large as it may be: somebody reads, and does not end");
    }
    mNewRecords = mGoneRecords = 0;
    inTransaction([&] {
        if (isThere(acrBatch)) {
            mRecords = countRecords();
            return;
        }
        writeRows(acrBatch);
        mpStore->mSeries.flush();
        mpStore->mSums.flush();
        const ZTNanoseconds lNow = sNow();
        mpStore->mTables.write(acrBatch, lNow);
        mpStore->mHost.write(acrBatch, lNow);
        writeMeta(acrBatch);
    });
    mRecords = mRecords + mNewRecords - mGoneRecords;
}

// A commit that has failed may be there all the same: when it stands in the log, and only what follows fails.
bool ZTCStoreWriter::Impl::isThere(const ZTSStoreBatch& acrBatch) const {
    return acrBatch.mNumber != 0 && getMeta("batch") == static_cast<std::int64_t>(acrBatch.mNumber);
}

void ZTCStoreWriter::Impl::writeRows(const ZTSStoreBatch& acrBatch) {
    unsigned int lRows = 0;
    for (const ZTSStoreRow& lrRow : acrBatch.mRows) {
        writeRow(lrRow);
        if (++lRows % sRowsBetweenLooks == 0) {
            makeRoom();
        }
    }
    makeRoom();
}

// A row that has grown and is not there has begun in a store that was set aside: here stands what it got
// since.
void ZTCStoreWriter::Impl::writeRow(const ZTSStoreRow& acrRow) {
    const ZTSRecord& lrRecord = acrRow.mRecord;
    const std::uint64_t lEvents = acrRow.mIsNew ? lrRecord.mOccurrences : acrRow.mAdded;
    ZTSKnownSeries& lrSeries = mpStore->mSeries.find(lrRecord.mSeries);
    const std::span<const std::uint8_t> lData(lrRecord.mData);
    const bool lGrows =
        !acrRow.mIsNew && mpStore->mGrowRow.run(acrRow.mId, lrRecord.mLast, lEvents, lData) != 0;
    if (!lGrows) {
        ++mNewRecords;
        mpStore->mAddRow.run(acrRow.mId, lrSeries.mId, lrRecord.mFirst, lrRecord.mLast, lEvents, lData);
    }
    mpStore->mSeries.count(lrSeries, lrRecord, lEvents, !lGrows);
    if (lrRecord.mLast - lrRecord.mFirst > mLongest) {
        mLongest = lrRecord.mLast - lrRecord.mFirst;
        mpStore->mMaxMeta.run(std::string("longest"), mLongest);
    }
}

void ZTCStoreWriter::Impl::writeMeta(const ZTSStoreBatch& acrBatch) {
    setMeta("last_write", sNow());
    setMeta("batch", static_cast<std::int64_t>(acrBatch.mNumber));
    if (acrBatch.mClosedTo != 0) {
        setMeta("closed_to", static_cast<std::int64_t>(acrBatch.mClosedTo));
    }
}

// A note is a change, and nothing more. What else is asked for, is the caller's to do or to refuse.
std::vector<ZTSStoreRequest> ZTCStoreWriter::Impl::takeRequests() {
    std::vector<ZTSStoreRequest> lRequests;
    if (!tell([&] { return getStore().mHost.hasRequests(); })) {
        return lRequests;
    }
    inTransaction([&] {
        lRequests = mpStore->mHost.takeRequests(sNow());
        for (const ZTSStoreRequest& lrRequest : lRequests) {
            if (lrRequest.isNote()) {
                mpStore->mTables.writeChange({lrRequest.mTime, "note", lrRequest.mWho, "noted",
                                              lrRequest.mSubject, "", lrRequest.mText});
            }
        }
    });
    return lRequests;
}

// ---- Retention ----

ZTSRetentionFacts ZTCStoreWriter::Impl::look(ZTNanoseconds aNow, bool aIsClockTrusted) const {
    ZTSRetentionFacts lFacts = getStore().mRetention.look();
    lFacts.mKeep = mKeep;
    lFacts.mNow = aNow;
    lFacts.mIsClockTrusted = aIsClockTrusted;
    return lFacts;
}

void ZTCStoreWriter::Impl::setKeep(unsigned int aDays, std::uint64_t aBytes) {
    mKeep = {aDays, aBytes};
    if (mpStore != nullptr) {
        mpStore->mSeries.setLimit(limitOfSeries(mOptions.mSeriesLimit, aBytes));
    }
}

// As much goes as comes, where there is no more room.
void ZTCStoreWriter::Impl::makeRoom() {
    if (isAtLimit(look(0, false))) {
        mGoneRecords += mpStore->mRetention.removeFirst(2 * sRowsBetweenLooks);
    }
}

bool ZTCStoreWriter::Impl::retire(ZTNanoseconds aNow) {
    const Clock::time_point lNow = Clock::now();
    const bool lIsTrusted = mClock.look(aNow, lNow);
    if (getStore().mWal.getBytes() + sRetireBytes > ZTCWal::Limit) {
        return false;  // what is left of the log is for what comes
    }
    const ZTSRetentionPlan lPlan = tell([&] { return planRetention(look(aNow, lIsTrusted)); });
    const bool lSweeps = lPlan.mOlderThan && lNow >= mNextSweep;
    const bool lJoins = lNow >= mNextJoin && tell([&] { return mpStore->mSeries.isNearLimit(); });
    const bool lTidies = lNow >= mNextTidy;
    bool lIsOlder = false;
    bool lIsMore = false;
    if (lPlan.mIsFull || lPlan.mShrinks || lSweeps || lJoins || lTidies) {
        mGoneRecords = 0;
        inTransaction([&] {
            if (lPlan.mIsFull) {
                retireToSize(lNow + sRetireTime);
            }
            lIsOlder = lSweeps && retireByAge(*lPlan.mOlderThan, lNow + sRetireTime);
            lIsMore = lJoins && joinSeries(lNow);
            lIsMore |= lTidies && tidy(lNow);
            if (lPlan.mShrinks) {
                mpStore->mDatabase.exec("PRAGMA incremental_vacuum(" + std::to_string(sShrinkPages) + ')');
            }
        });
        mRecords -= mGoneRecords;
        mNextSweep = lSweeps && !lIsOlder ? lNow + sSweepEvery : mNextSweep;
        const ZTSRetentionPlan lNext = tell([&] { return planRetention(look(aNow, false)); });
        lIsMore |= lIsOlder || lNext.mShrinks || (lNext.mIsFull && mCouldRetire);
    }
    return lIsMore;
}

void ZTCStoreWriter::Impl::retireToSize(Clock::time_point aEnd) {
    do {
        const unsigned int lGone = mpStore->mRetention.removeFirst(sRetireRows);
        mCouldRetire = lGone != 0;
        mGoneRecords += lGone;
    } while (mCouldRetire && planRetention(look(0, false)).mIsFull && Clock::now() < aEnd);
    if (const std::optional<ZTNanoseconds> lBegin = mpStore->mRetention.findBegin()) {
        mpStore->mRetention.removeSums(*lBegin);
    }
    if (!mCouldRetire) {
        mCouldRetire = mpStore->mRetention.removeOldestTold();
    }
}

// True: there is more.
bool ZTCStoreWriter::Impl::retireByAge(ZTNanoseconds aTime, Clock::time_point aEnd) {
    bool lIsMore = true;
    while (lIsMore && Clock::now() < aEnd) {
        lIsMore = mpStore->mRetention.removeOlder(aTime, sRetireRows, mGoneRecords);
    }
    return lIsMore || mpStore->mRetention.removeSums(aTime);
}

// True: there is more.
bool ZTCStoreWriter::Impl::joinSeries(Clock::time_point aNow) {
    std::uint64_t lGone = 0;
    const bool lIsMore = mpStore->mRetention.joinSeries(lGone);
    if (lGone != 0) {
        mpStore->mSeries.forget();
    }
    mNextJoin = lIsMore ? aNow : aNow + sSweepEvery;
    return lIsMore;
}

// Measures take a quarter of what is kept at most. True: there is more.
bool ZTCStoreWriter::Impl::tidy(Clock::time_point aNow) {
    ZTCHostRetention& lrHost = mpStore->mRetention.getHost();
    std::uint64_t lGone = 0;
    const bool lIsMore = lrHost.limitMeasures(mKeep.mBytes / 4) || lrHost.removeUnused(lGone);
    if (lGone != 0) {
        mpStore->mSeries.forget();
        mpStore->mSums.forget();
        mpStore->mHost.forgetMeasured();
    }
    mNextTidy = lIsMore ? aNow : aNow + sTidyEvery;
    return lIsMore;
}

// ---- What is beside the file ----

void ZTCStoreWriter::Impl::checkpoint() {
    const std::scoped_lock lLock(mLock);
    tell([&] { getStore().mWal.checkpoint(); });
}

ZTSStoreSize ZTCStoreWriter::Impl::getSize() const {
    const auto lBytesOf = [](const std::string& acrPath) -> std::uint64_t {
        std::error_code lError;
        const auto lBytes = std::filesystem::file_size(acrPath, lError);
        return lError ? 0 : lBytes;
    };
    return {lBytesOf(mOptions.mPath), lBytesOf(mOptions.mPath + "-wal"), mRecords};
}

// ---- The class itself ----

ZTCStoreWriter::ZTCStoreWriter(ZTSStoreOptions aOptions)
    : mpImpl(std::make_unique<Impl>(std::move(aOptions))) {}
ZTCStoreWriter::~ZTCStoreWriter() = default;

const ZTSStoreStart& ZTCStoreWriter::getStart() const {
    return mpImpl->getStart();
}
void ZTCStoreWriter::beginAnew() {
    mpImpl->beginAnew();
}
void ZTCStoreWriter::setKeep(unsigned int aDays, std::uint64_t aBytes) {
    mpImpl->setKeep(aDays, aBytes);
}
void ZTCStoreWriter::write(const ZTSStoreBatch& acrBatch) {
    mpImpl->write(acrBatch);
}
std::vector<ZTSStoreRequest> ZTCStoreWriter::takeRequests() {
    return mpImpl->takeRequests();
}
bool ZTCStoreWriter::retire(ZTNanoseconds aNow) {
    return mpImpl->retire(aNow);
}
void ZTCStoreWriter::checkpoint() {
    mpImpl->checkpoint();
}
std::string ZTCStoreWriter::describeHolder() const {
    return mpImpl->describeHolder();
}
ZTSStoreSize ZTCStoreWriter::getSize() const {
    return mpImpl->getSize();
}
void ZTCStoreWriter::finish() {
    mpImpl->finish();
}
