#include "StoreUpkeep.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "ServiceLog.h"
#include "SnFigures.h"
#include "StoreTrouble.h"

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds sRetireEvery = 1min;
constexpr std::chrono::milliseconds sBetweenRetirements = 20ms;
constexpr std::chrono::seconds sSizesEvery{1};
constexpr std::chrono::milliseconds sRequestsEvery = 1500ms;  // who asks sees it done within two seconds

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

ZTCStoreUpkeep::ZTCStoreUpkeep(const ZTSStoreOptions& acrOptions, ZTCSnFigures& arFigures,
                               ZTCServiceLog& arLog, ZTCStoreTrouble& arTrouble, Asked aAsked)
    : mrFigures(arFigures),
      mrLog(arLog),
      mrTrouble(arTrouble),
      mAsked(std::move(aAsked)),
      mDays(acrOptions.mKeepDays),
      mBytes(acrOptions.mKeepBytes) {
    mrFigures.set(ZTSN_StoreLimit, mBytes);
}

void ZTCStoreUpkeep::setKeep(unsigned int aDays, std::uint64_t aBytes) {
    const std::lock_guard lLock(mLock);
    mDays = aDays;
    mBytes = aBytes;
    mIsKeepNew = true;
    mrFigures.set(ZTSN_StoreLimit, aBytes);
}

void ZTCStoreUpkeep::begin(ZTCStoreWriter& arWriter) {
    {
        const std::lock_guard lLock(mLock);
        arWriter.setKeep(mDays, mBytes);
    }
    showSizes(arWriter);
}

std::chrono::milliseconds ZTCStoreUpkeep::getWait() {
    const std::lock_guard lLock(mLock);
    const auto lLeft = std::min(mNextRetirement, mNextRequests) - Clock::now();
    return mIsKeepNew ? 0ms : std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(lLeft));
}

// Whether there was something to tell.
bool ZTCStoreUpkeep::tellKeep(ZTCStoreWriter& arWriter) {
    const std::lock_guard lLock(mLock);
    if (mIsKeepNew) {
        arWriter.setKeep(mDays, mBytes);
    }
    return std::exchange(mIsKeepNew, false);
}

void ZTCStoreUpkeep::noteWritten(const ZTSStoreBatch& acrBatch) {
    const auto lNew = std::count_if(acrBatch.mRows.begin(), acrBatch.mRows.end(),
                                    [](const ZTSStoreRow& acrRow) { return acrRow.mIsNew; });
    mrFigures.count(ZTSN_Commits);
    mrFigures.set(ZTSN_LastCommit, static_cast<std::uint64_t>(sNow()));
    mrFigures.count(ZTSN_Rows, static_cast<std::uint64_t>(lNew));
}

void ZTCStoreUpkeep::work(ZTCStoreWriter& arWriter) {
    const auto lNow = Clock::now();
    if (tellKeep(arWriter) || lNow >= mNextRetirement) {
        mrTrouble.begin("relieved of what is old");
        const bool lIsMore = arWriter.retire(sNow());
        mrTrouble.succeed();
        mNextRetirement = Clock::now() + (lIsMore ? sBetweenRetirements : sRetireEvery);
    }
    if (lNow >= mNextRequests) {
        mrTrouble.begin("asked for requests");
        takeRequests(arWriter);
        mrTrouble.succeed();
        mNextRequests = Clock::now() + sRequestsEvery;
    }
    if (lNow - mSizesShown >= sSizesEvery) {
        showSizes(arWriter);
    }
}

void ZTCStoreUpkeep::takeRequests(ZTCStoreWriter& arWriter) {
    std::exception_ptr lpTrouble;
    for (const ZTSStoreRequest& lrRequest : arWriter.takeRequests()) {
        if (lrRequest.isNote()) {
            mrFigures.count(ZTSN_Requests);
            continue;
        }
        // They are taken, and none of them comes again: what is open is marked as it changes.
        bool lIsMarked = false;
        try {
            lIsMarked = !lpTrouble && arWriter.markIncident(lrRequest);
        } catch (const std::exception&) {
            lpTrouble = std::current_exception();
        }
        if (!mAsked || !mAsked(lrRequest, lIsMarked)) {
            const std::string lWhat =
                lrRequest.mWhat + (lrRequest.mSubject.empty() ? "" : " " + lrRequest.mSubject);
            mrLog.note(ZTSL_Warning, "nothing was done for %s, who asked for what is not known: %s",
                       lrRequest.mWho.c_str(), lWhat.c_str());
        }
    }
    if (lpTrouble) {
        std::rethrow_exception(lpTrouble);
    }
}

void ZTCStoreUpkeep::showSizes(const ZTCStoreWriter& acrWriter) {
    const ZTSStoreSize lSize = acrWriter.getSize();
    mrFigures.set(ZTSN_StoreBytes, lSize.mBytes);
    mrFigures.set(ZTSN_StoreWalBytes, lSize.mWalBytes);
    mrFigures.set(ZTSN_StoreRecords, lSize.mRecords);
    mSizesShown = Clock::now();
}
