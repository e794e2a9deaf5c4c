#include "SnBuffer.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

#include "IncidentFeed.h"

namespace {

constexpr std::size_t sMostRuns = 64;   // that wait; of more the first ones are in the changes alone
constexpr std::size_t sBatchPart = 16;  // of the limit; so the store's log stays short as well
constexpr std::size_t sBatchSeries = 2000;
constexpr std::size_t sHostPart = 8;  // of the limit, for what the host tells
constexpr std::size_t sIncidentPart = 8;
constexpr std::size_t sLosses = 64;  // for so many kinds there is room in any case

constexpr ZTNanoseconds sMinute = 60 * ZTSecond;
constexpr ZTNanoseconds sSpans[] = {sMinute, 60 * sMinute, 24 * 60 * sMinute,
                                    std::numeric_limits<ZTNanoseconds>::max()};

bool sIsSameRun(const ZTSAgentRun& acrOne, const ZTSAgentRun& acrOther) {
    return acrOne.mStart == acrOther.mStart && acrOne.mProcess == acrOther.mProcess;
}

std::size_t sBytesOf(const ZTSChange& acrChange) {
    return 2 * sizeof acrChange + acrChange.mName.size() + acrChange.mBefore.size() + acrChange.mAfter.size();
}

std::size_t sBytesOf(const ZTSStoreRow& acrRow) {
    return sizeof acrRow + ZTBytesBeside(acrRow.mRecord);
}

// Whose port it is that an event concerns.
std::optional<ZTSWwn> sRemoteOf(const ZTSRecord& acrRecord, const ZTSHostPorts& acrPorts) {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    if (lrSeries.mTarget) {
        return lrSeries.mTarget->mPort;
    }
    const std::uint8_t lCategory = lrSeries.mCategory;
    const std::uint8_t lSubcategory = lrSeries.mSubcategory;
    if (const auto lPortId = findPortId(lCategory, lSubcategory, acrRecord.mData)) {
        const ZTSRemotePort* const lpPort = acrPorts.findAt(lrSeries.mFabric, *lPortId);
        return lpPort != nullptr ? std::optional(lpPort->mNames.mPort) : std::nullopt;
    }
    return findRemotePort(lCategory, lSubcategory, acrRecord.mData);
}

void sJoin(ZTSLoss& arLoss, const ZTSLoss& acrMore) {
    arLoss.mFirst = std::min(arLoss.mFirst, acrMore.mFirst);
    arLoss.mLast = std::max(arLoss.mLast, acrMore.mLast);
    const auto lAdd = [](std::optional<std::uint64_t>& arTo, const std::optional<std::uint64_t>& acrFrom) {
        arTo = arTo && acrFrom ? std::optional(*arTo + *acrFrom) : std::nullopt;
    };
    lAdd(arLoss.mEvents, acrMore.mEvents);
    lAdd(arLoss.mAtMost, acrMore.mAtMost);
}

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

ZTCSnBuffer::ZTCSnBuffer(ZTSBufferOptions aOptions)
    : mFolding(aOptions.mFold),
      mLimit(aOptions.mLimit),
      mpFeed(aOptions.mpFeed),
      mHost(mLimit / sHostPart),
      mIncidents(mLimit / sIncidentPart) {
    mRuns.reserve(sMostRuns);
    mLosses.reserve(sLosses);
}

void ZTCSnBuffer::setFold(ZTSFoldOptions aOptions) {
    const std::lock_guard lLock(mMutex);
    mFolding.setOptions(aOptions);
}

// ---- Who learns of something ----

void ZTCSnBuffer::takeRecords(const ZTSensorScopeData& acrData, const ZTSHostPorts& acrPorts,
                              ZTSAgentRun aRun, Clock::time_point aNow, std::vector<ZTSLoss> aLosses) {
    const auto lName = [&](ZTSRecord& arRecord) {
        arRecord.mSeries.mFabric = acrPorts.fabricOf(arRecord.mSeries.mInitiator.mPort);
        arRecord.mSeries.mRemote = sRemoteOf(arRecord, acrPorts);
    };
    const ZTCFolding::Namer lNamer(std::ref(lName));
    if (mpFeed != nullptr) {
        mpFeed->takeRecords(acrData, lNamer, aNow);
        std::ranges::for_each(aLosses, [this](const ZTSLoss& acrLoss) { mpFeed->takeLoss(acrLoss); });
    }
    const std::lock_guard lLock(mMutex);
    bool lHasNews = setRun(std::move(aRun)) || !aLosses.empty();
    for (const ZTSSensorRecordList& lrList : acrData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            takeRecord({lrList.mInitiator, lrRecord.mCategory, lrRecord.mSubcategory, lrRecord.mTarget,
                        toNanoseconds(lrRecord.mFirst), toNanoseconds(lrRecord.mLast), lrRecord.mOccurrences,
                        lrRecord.mData},
                       lNamer, aNow);
            lHasNews = true;
        }
    }
    addLosses(std::move(aLosses));
    if (lHasNews) {
        hasWork();
    }
}

void ZTCSnBuffer::takeRecord(const ZTSCollected& acrCollected, const ZTCFolding::Namer& acrName,
                             Clock::time_point aNow) {
    do {
        const std::size_t lOthers = std::max(mBatchBytes, mLimit / sBatchPart) + countOthers();
        mFolding.setLimit(mLimit - std::min(mLimit, lOthers));
        try {
            if (mFolding.take(acrCollected, aNow, acrName)) {
                return;
            }
        } catch (const std::bad_alloc&) {
            // The same as no room.
        }
    } while (makeRoom());
    const auto [lFirst, lLast] = std::minmax(acrCollected.mFirst, acrCollected.mLast);
    count({lFirst, lLast, {}, {}, acrCollected.mOccurrences, {}});
}

// Folds more coarsely, first what does not change the sums of a minute. It takes a while: only where there
// is something to fold.
bool ZTCSnBuffer::makeRoom() {
    if (mFolding.getOpenedSince() <= mFolding.getRows().size() / 8) {
        return false;
    }
    const std::size_t lBefore = mFolding.getBytes();
    try {
        for (const ZTNanoseconds lSpan : sSpans) {
            mFolding.foldCoarsely(lSpan);
            if (mFolding.getBytes() < lBefore / 4 * 3) {
                break;
            }
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return mFolding.getBytes() < lBefore;
}

// Of what is lost here. There is always room for that.
void ZTCSnBuffer::count(const ZTSLoss& acrLoss) {
    const std::uint64_t lEvents = acrLoss.mEvents.value_or(acrLoss.mAtMost.value_or(0));
    const ZTSLoss lLoss{acrLoss.mFirst, acrLoss.mLast, {}, {}, lEvents, {}};
    if (mLost.mEvents) {
        sJoin(mLost, lLoss);
    } else {
        mLost = lLoss;
    }
}

bool ZTCSnBuffer::setRun(ZTSAgentRun&& arRun) {
    const Run lRun{arRun.mStart, arRun.mProcess, arRun.mWent, arRun.mTaken};
    const bool lHasNews = std::exchange(mKnown, lRun) != lRun;
    if (!mRuns.empty() && sIsSameRun(mRuns.back(), arRun)) {
        mRuns.back() = std::move(arRun);
        return lHasNews;
    }
    if (mRuns.size() == sMostRuns) {
        mRuns.erase(mRuns.begin());
    }
    mRuns.push_back(std::move(arRun));
    return lHasNews;
}

void ZTCSnBuffer::takeRun(ZTSAgentRun aRun, std::vector<ZTSLoss> aLosses) {
    if (mpFeed != nullptr) {
        std::ranges::for_each(aLosses, [this](const ZTSLoss& acrLoss) { mpFeed->takeLoss(acrLoss); });
    }
    const std::lock_guard lLock(mMutex);
    setRun(std::move(aRun));
    addLosses(std::move(aLosses));
    hasWork();
}

void ZTCSnBuffer::takeLoss(ZTSLoss aLoss) {
    mpFeed != nullptr ? mpFeed->takeLoss(aLoss) : void();
    const std::lock_guard lLock(mMutex);
    addLoss(std::move(aLoss));
    hasWork();
}

void ZTCSnBuffer::addLosses(std::vector<ZTSLoss>&& arLosses) {
    for (ZTSLoss& lrLoss : arLosses) {
        addLoss(std::move(lrLoss));
    }
}

void ZTCSnBuffer::addLoss(ZTSLoss&& arLoss) {
    const auto lAt = std::find_if(mLosses.begin(), mLosses.end(), [&](const ZTSLoss& acrLoss) {
        return acrLoss.mSource == arLoss.mSource && acrLoss.mReason == arLoss.mReason &&
               acrLoss.mEvents.has_value() == arLoss.mEvents.has_value();
    });
    if (lAt != mLosses.end()) {
        sJoin(*lAt, arLoss);
        return;
    }
    try {
        mLosses.push_back(std::move(arLoss));
    } catch (const std::bad_alloc&) {
        count(arLoss);
    }
}

void ZTCSnBuffer::takeChange(ZTSChange aChange) {
    mpFeed != nullptr ? mpFeed->takeChange(aChange) : void();
    const std::lock_guard lLock(mMutex);
    const std::size_t lBytes = sBytesOf(aChange);
    try {
        if (mFolding.getBytes() + mBatchBytes + countOthers() + lBytes > mLimit) {
            throw std::bad_alloc();
        }
        mChanges.push_back(std::move(aChange));
        mChangeBytes += lBytes;
    } catch (const std::bad_alloc&) {
        ++mLostChanges;
    }
    hasWork();
}

void ZTCSnBuffer::takePorts(ZTSHostPorts aPorts) {
    mpFeed != nullptr ? mpFeed->takePorts(aPorts) : void();
    const std::lock_guard lLock(mMutex);
    mPorts = std::move(aPorts);
    hasWork();
}

void ZTCSnBuffer::takeLabels(ZTPortLabels aLabels) {
    mpFeed != nullptr ? mpFeed->takeLabels(aLabels) : void();
    const std::lock_guard lLock(mMutex);
    mLabels = std::move(aLabels);
    hasWork();
}

void ZTCSnBuffer::takeHost(ZTSHostNews aNews) {
    mpFeed != nullptr ? mpFeed->takeHost(aNews) : void();
    const std::lock_guard lLock(mMutex);
    mHost.take(std::move(aNews));
    hasWork();
}

void ZTCSnBuffer::takeFacts(ZTSHostFacts aFacts) {
    const std::lock_guard lLock(mMutex);
    mFacts = std::move(aFacts);
    hasWork();
}

void ZTCSnBuffer::takeIncidents(ZTSIncidentNews aNews) {
    const std::lock_guard lLock(mMutex);
    mIncidents.take(std::move(aNews)) ? hasWork() : void();
}

void ZTCSnBuffer::closeDue(Clock::time_point aNow) {
    const std::lock_guard lLock(mMutex);
    if (mFolding.close(aNow)) {
        hasWork();
    }
}

void ZTCSnBuffer::closeAll() {
    closeDue(Clock::time_point::max());
}

bool ZTCSnBuffer::waitUntilStored(std::chrono::milliseconds aTime) {
    std::unique_lock lLock(mMutex);
    return mAllIsStored.wait_for(lLock, aTime, [this] { return !mHasWork && !mIsDetached; });
}

// ---- The store's thread ----

void ZTCSnBuffer::hasWork() {
    mHasWork = true;
    mWorkCame.notify_one();
}

void ZTCSnBuffer::wake() {
    const std::lock_guard lLock(mMutex);
    mIsWoken = true;
    mWorkCame.notify_one();
}

bool ZTCSnBuffer::waitForWork(std::chrono::milliseconds aTime) {
    std::unique_lock lLock(mMutex);
    mWorkCame.wait_for(lLock, aTime, [this] { return mHasWork || mIsWoken; });
    mIsWoken = false;
    return mHasWork;
}

// The rows that are new or have grown, as they are now, so many that the store's log stays short: each series
// has pages of its own there. How many events of others wait for the next batch.
std::uint64_t ZTCSnBuffer::copyRows(std::vector<ZTSStoreRow>& arRows, std::uint64_t aNextId) {
    std::size_t lRoom = mLimit / sBatchPart;
    std::set<std::reference_wrapper<const ZTSSeries>, std::less<ZTSSeries>> lSeries;
    std::uint64_t lLeft = 0;
    for (const ZTSFoldedRow& lrRow : mFolding.getRows()) {
        const std::uint64_t lAdded = lrRow.mRecord.mOccurrences - lrRow.mDetached;
        if (lrRow.hasNews() && lRoom > 0) {
            const bool lIsNew = lrRow.mId == 0;
            arRows.push_back({lIsNew ? aNextId++ : lrRow.mId, lIsNew, lrRow.mRecord, lAdded});
            lSeries.insert(lrRow.mRecord.mSeries);
            lRoom = lSeries.size() < sBatchSeries ? lRoom - std::min(lRoom, sBytesOf(arRows.back())) : 0;
        } else {
            lLeft += lAdded;
        }
    }
    return lLeft;
}

// What the rows that are left account for is not told as taken yet: the newest runs wait for them, and one is
// told in part. So after a kill what is missing is told of the run that was stored last.
std::size_t ZTCSnBuffer::limitRuns(std::vector<ZTSAgentRun>& arRuns, std::uint64_t aLeft) {
    while (aLeft != 0 && arRuns.size() > 1 && arRuns.back().mTaken <= aLeft) {
        aLeft -= arRuns.back().mTaken;
        arRuns.pop_back();
    }
    if (aLeft == 0 || arRuns.empty()) {
        return arRuns.size();
    }
    arRuns.back().mTaken -= std::min(aLeft, arRuns.back().mTaken);
    return arRuns.size() - 1;
}

// The first ones of very many.
std::vector<ZTSChange> ZTCSnBuffer::copyChanges() const {
    std::size_t lBytes = 0;
    auto lEnd = mChanges.begin();
    while (lEnd != mChanges.end() && lBytes < mLimit / sBatchPart) {
        lBytes += sBytesOf(*lEnd++);
    }
    return {mChanges.begin(), lEnd};
}

// What was lost here that is no event of the agent's.
std::vector<ZTSChange> ZTCSnBuffer::listLost() const {
    const ZTNanoseconds lNow = sNow();
    std::vector<ZTSChange> lLost = mHost.listLost(lNow);
    if (mLostChanges != 0) {
        lLost.push_back(
            {lNow, "sensor", "buffer", "changed", "lost_changes", "0", std::to_string(mLostChanges)});
    }
    if (const std::uint64_t lIncidents = mIncidents.getLost()) {
        lLost.push_back(
            {lNow, "sensor", "buffer", "changed", "lost_incidents", "0", std::to_string(lIncidents)});
    }
    return lLost;
}

// The rows up to this id never change again.
std::uint64_t ZTCSnBuffer::getClosedTo() {
    for (const ZTSFoldedRow& lrRow : mFolding.getRows()) {
        if (!lrRow.isFinal()) {
            return lrRow.mId != 0 ? lrRow.mId - 1 : mLastId;
        }
    }
    return mLastId;
}

void ZTCSnBuffer::noteDetached(ZTSStoreBatch& arBatch, std::uint64_t aNextId) {
    mLastId = aNextId - 1;
    mBatchBytes = 0;
    auto lRow = mFolding.getRows().begin();
    for (const ZTSStoreRow& lrStored : arBatch.mRows) {
        lRow = std::find_if(lRow, mFolding.getRows().end(),
                            [](const ZTSFoldedRow& acrRow) { return acrRow.hasNews(); });
        lRow->mId = lrStored.mId;
        lRow->mDetached = lrStored.mRecord.mOccurrences;
        mLastId = std::max(mLastId, lrStored.mId);
        mBatchBytes += sBytesOf(lrStored);
    }
    const std::uint64_t lClosedTo = getClosedTo();
    arBatch.mClosedTo = lClosedTo > mClosedTo ? lClosedTo : 0;
    mClosedTo = std::max(mClosedTo, lClosedTo);
}

ZTSStoreBatch ZTCSnBuffer::detach(std::uint64_t aNextId) {
    const std::lock_guard lLock(mMutex);
    // What may throw comes first.
    ZTSStoreBatch lBatch;
    const std::uint64_t lLeft = copyRows(lBatch.mRows, aNextId);
    lBatch.mLosses = mLosses;
    if (mLost.mEvents) {
        lBatch.mLosses.push_back({mLost.mFirst, mLost.mLast, "sensor", "buffer", mLost.mEvents, {}});
    }
    lBatch.mAgents = mRuns;
    std::vector<ZTSChange> lLost = listLost();
    lBatch.mChanges = copyChanges();
    lBatch.mChanges.reserve(lBatch.mChanges.size() + lLost.size());
    const std::size_t lIncidentBytes = mIncidents.getBytes();
    lBatch.mIncidents = mIncidents.detach();
    noteDetached(lBatch, aNextId);
    mBatchBytes += lIncidentBytes;
    mChanges.erase(mChanges.begin(), mChanges.begin() + static_cast<std::ptrdiff_t>(lBatch.mChanges.size()));
    for (const ZTSChange& lrChange : lBatch.mChanges) {
        const std::size_t lBytes = sBytesOf(lrChange);
        mBatchBytes += lBytes;
        mChangeBytes -= std::min(mChangeBytes, lBytes);
    }
    std::move(lLost.begin(), lLost.end(), std::back_inserter(lBatch.mChanges));
    mLostChanges = 0;
    mLosses.clear();
    mLost = {};
    lBatch.mPorts.swap(mPorts);
    lBatch.mLabels.swap(mLabels);
    lBatch.mFacts.swap(mFacts);
    mBatchBytes += mHost.getBytes();
    lBatch.mHost = mHost.detach();
    const auto lToldRuns = static_cast<std::ptrdiff_t>(limitRuns(lBatch.mAgents, lLeft));
    mRuns.erase(mRuns.begin(), mRuns.begin() + lToldRuns);
    mHasWork = lLeft != 0 || !mChanges.empty();
    mIsDetached = !lBatch.isEmpty();
    return lBatch;
}

void ZTCSnBuffer::stored() {
    const std::lock_guard lLock(mMutex);
    const auto& lrRows = mFolding.getRows();
    const auto lEnd = std::find_if(lrRows.begin(), lrRows.end(),
                                   [](const ZTSFoldedRow& acrRow) { return !acrRow.isFinal(); });
    mFolding.dropFirst(static_cast<std::size_t>(lEnd - lrRows.begin()));
    mBatchBytes = 0;
    mIsDetached = false;
    mAllIsStored.notify_all();
}

std::size_t ZTCSnBuffer::getBytes() const {
    const std::lock_guard lLock(mMutex);
    return mFolding.getBytes() + mBatchBytes + countOthers();
}
