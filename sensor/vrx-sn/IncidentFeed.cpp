#include "IncidentFeed.h"

#include <new>
#include <utility>

namespace {

constexpr std::size_t sHostPart = 4;   // of the limit, for what the host tells
constexpr std::size_t sOtherPart = 8;  // and for changes and losses
constexpr std::size_t sMostAsks = 1000;

std::uint64_t sCountLost(const std::vector<ZTSChange>& acrLost) {
    std::uint64_t lLost = 0;
    for (const ZTSChange& lrLost : acrLost) {
        lLost += std::stoull(lrLost.mAfter);
    }
    return lLost;
}

}  // namespace

bool ZTSIncidentInput::isEmpty() const {
    return mRows.empty() && mChanges.empty() && mLosses.empty() && mHost.isEmpty() && !mPorts && !mLabels &&
           mAsks.empty() && mLost == 0;
}

ZTCIncidentFeed::ZTCIncidentFeed(std::size_t aLimit)
    : mLimit(aLimit), mFolding(makeFolding()), mHost(mLimit / sHostPart) {}

ZTCFolding ZTCIncidentFeed::makeFolding() const {
    ZTCFolding lFolding({});
    lFolding.setLimit(mLimit / 2);
    return lFolding;
}

// What is not taken counts for so many events.
template <class Take>
void ZTCIncidentFeed::take(std::uint64_t aEvents, const Take& acrTake) noexcept {
    const std::lock_guard lLock(mLock);
    try {
        acrTake();
    } catch (const std::bad_alloc&) {
        mInput.mLost += aEvents;
    }
    mHasNews = true;
    mCame.notify_one();
}

void ZTCIncidentFeed::checkRoom(std::size_t aBytes) {
    if (mBytes + aBytes > mLimit / sOtherPart) {
        throw std::bad_alloc();
    }
    mBytes += aBytes;
}

// ---- Who learns of something ----

void ZTCIncidentFeed::takeRecords(const ZTSensorScopeData& acrData, const ZTCFolding::Namer& acrName,
                                  Clock::time_point aNow) noexcept {
    for (const ZTSSensorRecordList& lrList : acrData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            take(lrRecord.mOccurrences, [&] {
                const ZTSCollected lCollected{lrList.mInitiator,
                                              lrRecord.mCategory,
                                              lrRecord.mSubcategory,
                                              lrRecord.mTarget,
                                              toNanoseconds(lrRecord.mFirst),
                                              toNanoseconds(lrRecord.mLast),
                                              lrRecord.mOccurrences,
                                              lrRecord.mData};
                if (!mFolding.take(lCollected, aNow, acrName)) {
                    throw std::bad_alloc();
                }
            });
        }
    }
}

void ZTCIncidentFeed::takeChange(const ZTSChange& acrChange) noexcept {
    take(1, [&] {
        checkRoom(sizeof acrChange + acrChange.mName.size() + acrChange.mBefore.size() +
                  acrChange.mAfter.size());
        mInput.mChanges.push_back(acrChange);
    });
}

void ZTCIncidentFeed::takeLoss(const ZTSLoss& acrLoss) noexcept {
    take(1, [&] {
        checkRoom(sizeof acrLoss);
        mInput.mLosses.push_back(acrLoss);
    });
}

void ZTCIncidentFeed::takePorts(const ZTSHostPorts& acrPorts) noexcept {
    take(1, [&] { mInput.mPorts = acrPorts; });
}

void ZTCIncidentFeed::takeLabels(const ZTPortLabels& acrLabels) noexcept {
    take(1, [&] { mInput.mLabels = acrLabels; });
}

void ZTCIncidentFeed::takeHost(const ZTSHostNews& acrNews) noexcept {
    take(1, [&] { mHost.take(acrNews); });
}

void ZTCIncidentFeed::ask(ZTSIncidentAsked aAsk) noexcept {
    take(1, [&] {
        if (mInput.mAsks.size() >= sMostAsks) {
            throw std::bad_alloc();
        }
        mInput.mAsks.push_back(std::move(aAsk));
    });
}

// ---- Who looks at it ----

void ZTCIncidentFeed::wait(Clock::time_point aNotBefore, Clock::time_point aUntil) {
    std::unique_lock lLock(mLock);
    const auto lIsWoken = [this] { return mIsWoken; };
    mCame.wait_until(lLock, std::min(aNotBefore, aUntil), lIsWoken);
    mCame.wait_until(lLock, aUntil, [this] { return mHasNews || mIsWoken; });
    mIsWoken = false;
}

void ZTCIncidentFeed::wake() {
    const std::lock_guard lLock(mLock);
    mIsWoken = true;
    mCame.notify_one();
}

// What may throw comes first.
ZTSIncidentInput ZTCIncidentFeed::detach() {
    const std::lock_guard lLock(mLock);
    ZTCFolding lFolding = makeFolding();
    ZTSIncidentInput lInput;
    const std::uint64_t lLost = sCountLost(mHost.listLost(0));
    std::swap(lFolding, mFolding);
    std::swap(lInput, mInput);
    lInput.mRows.swap(lFolding.getRows());
    lInput.mHost = mHost.detach();
    lInput.mLost += lLost;
    mBytes = 0;
    mHasNews = false;
    return lInput;
}
