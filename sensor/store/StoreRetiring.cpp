// What of the history goes, a little at a time.
#include "StoreWriterImpl.h"

namespace {

using namespace std::chrono_literals;

constexpr auto sRetireTime = 5ms;
constexpr unsigned int sRetireRows = 128;
constexpr auto sSweepEvery = 60s;
constexpr auto sTidyEvery = 1h;
constexpr std::uint64_t sRetireBytes = std::uint64_t{4} << 20;  // of the log, in need
constexpr int sShrinkPages = 64;

}  // namespace

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
        mGoneRecords += mpStore->mRetention.removeFirst(2 * RowsBetweenLooks);
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
