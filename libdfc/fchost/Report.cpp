#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr std::size_t sCodes = 64;  // without a kind that are told apart

}  // namespace

ZTCFcReport::ZTCFcReport(const ZTSFcSettings& acrSettings)
    : mSettings(acrSettings), mJournal(acrSettings.mLog) {}

void ZTCFcReport::tellThatNothingIsHeard(int aErrno) const {
    mJournal.note("the kernel's events are not received (%s): states are looked at every %.2f s, and no more",
                  strerror(aErrno), std::chrono::duration<double>(mSettings.mPeriod).count());
}

void ZTCFcReport::tellThatRightsStay(int aErrno) const {
    mJournal.note("the rights stay in effect: capset: %s", strerror(aErrno));
}

void ZTCFcReport::setHostsReadable(bool aIsReadable) {
    if (mIsReadable != aIsReadable) {
        mIsReadable = aIsReadable;
        mJournal.note(aIsReadable ? "the hosts below %s can be read again"
                                  : "the hosts below %s cannot be read: nothing is known to have changed",
                      mSettings.mSysfs.c_str());
    }
}

void ZTCFcReport::setMemoryGone() {
    if (!std::exchange(mIsMemoryGone, true)) {
        mJournal.note("no memory: what was left out is found by the next look, or counted as lost");
    }
}

void ZTCFcReport::add(const ZTCFcWatcher::Counts& acrCounts) {
    if (std::exchange(mHasOverrun, false)) {
        mJournal.note("the kernel had more to tell than there was room for: the next event shows how much");
    }
    mOfUnknownHosts.count(acrCounts.mOfUnknownHosts);
    mLost.set(mLost.get() + acrCounts.mLost - std::min(mLost.get(), acrCounts.mLate));
    if (acrCounts.mLost != 0) {
        mJournal.note("%llu events of the kernel were lost, %llu in all: states are read again",
                      static_cast<unsigned long long>(acrCounts.mLost),
                      static_cast<unsigned long long>(mLost.get()));
    }
    for (const auto& [lCode, lCount] : acrCounts.mWithoutKind) {
        const bool lIsToldApart = mWithoutKind.size() < sCodes || mWithoutKind.count(lCode) != 0;
        (lIsToldApart ? mWithoutKind[lCode] : mOfOtherCodes).count(lCount);
    }
}

void ZTCFcReport::tell() {
    tellSums(false);
}

void ZTCFcReport::tellAtEnd(const ZTCFcWatcher::Counts& acrLast) {
    try {
        add(acrLast);
    } catch (const std::bad_alloc&) {
        mJournal.note("no memory for the counts of what came last");
    }
    tellSums(true);
}

void ZTCFcReport::tellSums(bool aIsLast) {
    const auto lTell = [&](ZTCFcSum& arSum, const char* apWhat) { arSum.tell(mJournal, apWhat, aIsLast); };
    for (auto& [lCode, lrSum] : mWithoutKind) {
        char lWhat[64];
        snprintf(lWhat, sizeof lWhat, "events with code 0x%x had no kind", lCode);
        lTell(lrSum, lWhat);
    }
    if (aIsLast) {
        lTell(mLost, "events of the kernel were lost");  // each loss has been told as it was found
    }
    lTell(mOfOtherCodes, "events with further codes had no kind");
    lTell(mOfUnknownHosts, "events were of hosts that are not there, or not yet");
    lTell(mMalformed, "messages were malformed");
    lTell(mForeign, "messages were not the kernel's");
}
