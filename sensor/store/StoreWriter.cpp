#include <sqlite3.h>

#include <algorithm>

#include "LogBytes.h"
#include "StoreWriterImpl.h"

namespace {

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

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
    getStore().mIncidents.load(mStart, sNow());
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

// What was found or made in a transaction that has failed may not be there.
void ZTCStoreWriter::Impl::rollBack() noexcept {
    if (sqlite3_get_autocommit(mpStore->mDatabase.getHandle()) == 0) {
        mpStore->mDatabase.tryExec("ROLLBACK");
    }
    mpStore->mSeries.forget();
    mpStore->mSums.forget();
    mpStore->mTables.forget();
    mpStore->mTotals.forget();
    mpStore->mHost.forget();
    mpStore->mIncidents.forget();
    mpStore->mRetention.forget();
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
        mpStore->mTotals.flush();
        const ZTNanoseconds lNow = sNow();
        mpStore->mTables.write(acrBatch, lNow);
        mpStore->mHost.write(acrBatch, lNow);
        mpStore->mIncidents.write(acrBatch.mIncidents);
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
        if (++lRows % RowsBetweenLooks == 0) {
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
        mpStore->mRetention.noteRow(lrRecord.mFirst);
        mpStore->mAddRow.run(acrRow.mId, lrSeries.mId, lrRecord.mFirst, lrRecord.mLast, lEvents, lData);
    }
    mpStore->mSeries.count(lrSeries, lrRecord, lEvents, !lGrows);
    mpStore->mTotals.noteEvents(lrRecord, lEvents);
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

bool ZTCStoreWriter::Impl::markIncident(const ZTSStoreRequest& acrRequest) {
    bool lIsThere = false;
    inTransaction([&] { lIsThere = mpStore->mIncidents.mark(acrRequest); });
    return lIsThere;
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
bool ZTCStoreWriter::markIncident(const ZTSStoreRequest& acrRequest) {
    return mpImpl->markIncident(acrRequest);
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
