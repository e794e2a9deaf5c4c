#include "IncidentFinder.h"

#include <algorithm>

#include "IncidentFinderTallies.h"
#include "IncidentFinderTeller.h"

namespace {

constexpr std::size_t sMostUnused = 16384;          // signs for which there is room behind a storm
constexpr ZTNanoseconds sSetBack = 600 * ZTSecond;  // less than that a clock may be behind for other reasons
constexpr unsigned char sLastOfLink = 12;           // ranks up to there are of the host's ports and links

ZTNanoseconds sSeconds(unsigned int aSeconds) {
    return aSeconds * ZTSecond;
}

auto sTextOf(const ZTSSign& acrSign) {
    return std::tie(acrSign.mInitiator, acrSign.mRemote, acrSign.mFabric, acrSign.mDisk, acrSign.mDetail,
                    acrSign.mCategory, acrSign.mSubcategory, acrSign.mMaps);
}

// Whatever the order in which they came, they are looked at in this one. Of a map its paths go first, then it
// is counted what is left.
bool sIsBefore(const ZTSNewSign& acrOne, const ZTSNewSign& acrOther) {
    if (acrOne.mKey != acrOther.mKey) {
        return acrOne.mKey < acrOther.mKey;
    }
    const auto lKey = [](const ZTSNewSign& acrSign) {
        return std::tuple(acrSign.mpSign->mpRow->mRank, acrSign.mTotal != 0, acrSign.mFirst, acrSign.mEvents,
                          acrSign.mLeft, acrSign.mTotal);
    };
    const auto lOne = lKey(acrOne);
    const auto lOther = lKey(acrOther);
    return lOne != lOther ? lOne < lOther
                          : acrOne.mpSign != acrOther.mpSign &&
                                std::pair(acrOne.mpSign->mSign.mSign, sTextOf(acrOne.mpSign->mSign)) <
                                    std::pair(acrOther.mpSign->mSign.mSign, sTextOf(acrOther.mpSign->mSign));
}

}  // namespace

class ZTCIncidentFinder::Impl {
  public:
    explicit Impl(ZTSIncidentRules aRules)
        : mRules(std::move(aRules)),
          mGroups(mBook, mMaps, mRules),
          mTeller(mGroups, mMaps, mRules, mBook.getLabels()) {
        mTallies.setRules(mRules);
        mLookBack = lookBack();
    }

    void setStart(const ZTSIncidentStart& acrStart) {
        mKnownTo = acrStart.mTo != 0 ? acrStart.mTo + latest() : 0;
        mClock = std::max(mClock, acrStart.mTo - lookBack());
        mTallies.setBaselines(acrStart.mBaselines);
        mTeller.setNextId(acrStart.mNextId);
        for (const ZTSIncident& lrIncident : acrStart.mIncidents) {
            mTeller.setNextId(lrIncident.mId + 1);
            mTeller.restore(lrIncident, mKnownTo, forgetBehind());
        }
    }
    void setRules(ZTSIncidentRules aRules) {
        mRules = std::move(aRules);
        mTallies.setRules(mRules);
        mLookBack = lookBack();
        mBook.each([](ZTSKnownSign& arSign) { arSign.mHasTally = false; });
        mTeller.lookAtAll(mClock, forgetBehind());
    }
    void takeLabels(const ZTPortLabels& acrLabels) {
        if (mBook.getLabels() != acrLabels) {
            mBook.setLabels(acrLabels);
            mGroups.index();
        }
    }
    void takeStorage(const ZTSHostStorage& acrStorage, ZTNanoseconds aTime) {
        // Of the first one it is not known since when it has stood so.
        mStorages.emplace(mHasStorage ? std::max(aTime, mClock) : mClock, acrStorage);
        mHasStorage = true;
        passStorages(mClock);
    }
    void takeWindows(std::vector<ZTSWindow> aWindows) { mTeller.setWindows(std::move(aWindows)); }
    void takeChange(const ZTSChange& acrChange) { mTeller.takeChange(acrChange); }

    void take(const ZTSSign& acrSign);
    /// All that was before it is looked at first.
    bool ask(const ZTSIncidentAsk& acrAsk) {
        advance(acrAsk.mTime);
        return mTeller.ask(acrAsk, std::max(mClock, acrAsk.mTime));
    }
    /// Signs that are to be looked at up to a moment, and what time changes up to another.
    void advance(ZTNanoseconds aSignsTo, ZTNanoseconds aTimeTo);
    void advance(ZTNanoseconds aTo) { advance(aTo, aTo - latest()); }
    /// The host's clock was far ahead, and is not any more.
    void turnBack(ZTNanoseconds aTo);
    ZTNanoseconds getClock() const { return mClock; }
    ZTNanoseconds getDue() const;
    ZTNanoseconds settle() const { return sSeconds(mRules.mTimes.mSettle); }

    /// Behind that nothing is remembered of what is in no incident.
    ZTNanoseconds lookBack() const;
    ZTSIncidentNews takeNews();
    std::vector<ZTSIncidentTelling> takeTellings() { return mTeller.takeTellings(); }
    std::map<ZTEIncidentClass, std::size_t> countOpen() const;
    std::size_t getBytes() const {
        return mBook.getBytes() + mMaps.getBytes() + mTallies.getBytes() + mTeller.getBytes() +
               mQueue.capacity() * sizeof(ZTSNewSign);
    }

  private:
    ZTNanoseconds latest() const { return sSeconds(mRules.mTimes.mSkew); }
    ZTNanoseconds forgetBehind() const { return std::max(sSeconds(mRules.mTimes.mReopen), lookBack()); }
    void look(const ZTSNewSign& acrNew);
    void lose(const ZTSNewSign& acrNew);
    bool isKnown(const ZTSNewSign& acrNew) const;
    void passStorages(ZTNanoseconds aTo);
    void passDeadlines(ZTNanoseconds aTo);
    void forget();

    ZTSIncidentRules mRules;
    ZTCSignBook mBook;
    ZTCFinderMaps mMaps;
    ZTCTallies mTallies;
    ZTCCaseGroups mGroups;
    ZTCCaseTeller mTeller;
    std::vector<ZTSNewSign> mQueue;
    std::multimap<ZTNanoseconds, ZTSHostStorage> mStorages;  // that stand from then on
    bool mHasStorage = false;
    std::vector<ZTEIncidentClass> mReached;
    ZTNanoseconds mLookBack = 0;  // for so long a sign waits for what it belongs to
    ZTNanoseconds mClock = 0;     // all up to then has been looked at
    ZTNanoseconds mToldTo = 0;    // the news had that
    ZTNanoseconds mKnownTo = 0;   // what is looked at up to then was known before the start
    ZTNanoseconds mForgotAt = 0;  // what is too old was thrown away then
};

// Causes are looked at before what they may have caused, though another clock told of them.
void ZTCIncidentFinder::Impl::take(const ZTSSign& acrSign) {
    if (acrSign.mSign == ZTESign::Count) {
        return;
    }
    ZTSKnownSign& lrSign = mBook.find(acrSign);
    const bool lIsOfLink = rowOf(stateOf(acrSign.mSign)).mRank <= sLastOfLink;
    const ZTNanoseconds lKey = std::max(acrSign.mLast + (lIsOfLink ? 0 : latest()), mClock);
    mQueue.push_back({lKey, &lrSign, std::min(acrSign.mFirst, acrSign.mLast), acrSign.mLast, acrSign.mEvents,
                      acrSign.mLeft, acrSign.mTotal});
    ++lrSign.mHolders;
}

// What time alone changes at a moment is looked at when all signs of it have been.
void ZTCIncidentFinder::Impl::advance(ZTNanoseconds aSignsTo, ZTNanoseconds aTimeTo) {
    const auto lRest = std::partition(mQueue.begin(), mQueue.end(),
                                      [&](const ZTSNewSign& acrNew) { return acrNew.mKey <= aSignsTo; });
    std::sort(mQueue.begin(), lRest, sIsBefore);
    auto lAt = mQueue.begin();
    try {
        while (lAt != lRest) {
            passDeadlines(lAt->mKey - latest() - 1);
            passStorages(lAt->mKey);
            mClock = std::max(mClock, lAt->mKey);
            const ZTSNewSign lNew = *lAt++;
            --lNew.mpSign->mHolders;
            look(lNew);
        }
    } catch (...) {
        mQueue.erase(mQueue.begin(), lAt);
        throw;
    }
    mQueue.erase(mQueue.begin(), lRest);
    if (mQueue.capacity() > sMostUnused && mQueue.size() < mQueue.capacity() / 8) {
        mQueue.shrink_to_fit();
    }
    passDeadlines(aTimeTo);
    mClock = std::max(mClock, std::min(aSignsTo, aTimeTo + latest()));
    passStorages(mClock);
    forget();
}

// What comes would wait until the clock is there again, and what was open would stay open until then.
void ZTCIncidentFinder::Impl::turnBack(ZTNanoseconds aTo) {
    const auto lTurn = [aTo](auto&... arTimes) { ((arTimes = std::min(arTimes, aTo)), ...); };
    passStorages(ZTNever);
    mTallies.forgetSeconds();
    lTurn(mClock, mToldTo, mForgotAt, mKnownTo);
    for (ZTSNewSign& lrNew : mQueue) {
        lTurn(lrNew.mKey, lrNew.mFirst, lrNew.mLast);
    }
    for (auto& [lNumber, lrpCase] : mGroups.getCases()) {
        lTurn(lrpCase->mCase.mLast, lrpCase->mRestored, lrpCase->mChecked, lrpCase->mKnownTo,
              lrpCase->mToldAt, lrpCase->mIncident.mClosed);
        lrpCase->mTellAt = lrpCase->mTellAt != ZTNever ? std::min(lrpCase->mTellAt, aTo) : ZTNever;
    }
    mTeller.lookAtAll(aTo, forgetBehind());
}

ZTNanoseconds ZTCIncidentFinder::Impl::getDue() const {
    ZTNanoseconds lDue = mTeller.getDeadline();
    lDue = lDue < ZTNever ? lDue + latest() + 1 : ZTNever;
    for (const ZTSNewSign& lrNew : mQueue) {
        lDue = std::min(lDue, lrNew.mKey);
    }
    lDue = mStorages.empty() ? lDue : std::min(lDue, mStorages.begin()->first);
    return lDue < ZTNever ? lDue + settle() : ZTNever;
}

void ZTCIncidentFinder::Impl::passStorages(ZTNanoseconds aTo) {
    while (!mStorages.empty() && mStorages.begin()->first <= aTo) {
        mMaps.take(mStorages.begin()->second);
        mStorages.erase(mStorages.begin());
    }
}

void ZTCIncidentFinder::Impl::passDeadlines(ZTNanoseconds aTo) {
    while (mTeller.getDeadline() <= aTo) {
        passStorages(mTeller.getDeadline());
        mTeller.lookAtDeadline(forgetBehind());
    }
}

// Of what was known before the start nothing is counted again.
bool ZTCIncidentFinder::Impl::isKnown(const ZTSNewSign& acrNew) const {
    return acrNew.mKey <= mKnownTo;
}

void ZTCIncidentFinder::Impl::look(const ZTSNewSign& acrNew) {
    ZTSKnownSign& lrSign = *acrNew.mpSign;
    lrSign.mUsed = std::max(lrSign.mUsed, acrNew.mLast);
    if (lrSign.mSign.mSign == ZTESign::Lost) {
        lose(acrNew);
        return;
    }
    mReached.clear();
    mGroups.setForgotten(mClock - mLookBack);
    if (!lrSign.mHasTally) {
        const ZTSSign& lrWhat = lrSign.mSign;
        lrSign.mpTally =
            mTallies.find(lrWhat.mSign, lrSign.mpRemote != nullptr ? lrWhat.mRemote : lrWhat.mInitiator);
        lrSign.mHasTally = true;
    }
    if (lrSign.mpTally != nullptr) {
        mTallies.add(*lrSign.mpTally, acrNew.mLast, acrNew.mEvents, !isKnown(acrNew), mReached);
    }
    if (stateOf(lrSign.mSign.mSign) != lrSign.mSign.mSign) {
        mGroups.takeBack(acrNew);
    } else if (ZTSOpenCase* const lpCase = mGroups.take(acrNew, lrSign.isState() || !mReached.empty())) {
        for (const ZTEIncidentClass lClass : mReached) {
            if (lpCase->mCase.mReached.emplace(lClass, lrSign.mSign.mSign).second) {
                mGroups.setStale(*lpCase);
            }
        }
    }
    mTeller.lookAtStale(acrNew.mKey);
}

void ZTCIncidentFinder::Impl::lose(const ZTSNewSign& acrNew) {
    if (isKnown(acrNew)) {
        return;
    }
    for (auto& [lNumber, lrpCase] : mGroups.getCases()) {
        if (!lrpCase->isClosed() && acrNew.mLast >= lrpCase->mCase.mOpened) {
            lrpCase->mCase.mLosses += acrNew.mEvents;
            lrpCase->mIsChanged = true;
        }
    }
}

ZTNanoseconds ZTCIncidentFinder::Impl::lookBack() const {
    unsigned int lLongest = mRules.mTimes.mJoin;
    for (const ZTSClassRow& lrRow : mRules.mClasses) {
        lLongest = std::max(lLongest, lrRow.mPatience);
        for (const ZTSOpening& lrOpening : lrRow.mOpenings) {
            lLongest = std::max(lLongest, lrOpening.mSign != ZTESign::Count ? lrOpening.mWithin : 0);
        }
    }
    unsigned int lRows = 0;
    for (std::size_t lAt = 0; lAt < static_cast<std::size_t>(ZTESign::Count); ++lAt) {
        const ZTSSignRow& lrRow = rowOf(static_cast<ZTESign>(lAt));
        lRows = std::max({lRows, lrRow.mBefore, lrRow.mBehind});
    }
    return sSeconds(lLongest + 2 * lRows + mRules.mTimes.mSkew + mRules.mTimes.mSettle);
}

void ZTCIncidentFinder::Impl::forget() {
    if (mClock < mForgotAt + sSeconds(mRules.mTimes.mQuiet) && !mBook.isFull()) {
        return;
    }
    mForgotAt = mClock;
    mGroups.setForgotten(mClock - mLookBack);
    mGroups.forgetWaiting();
    mBook.forget(mClock - lookBack());
    mTallies.forget(mClock);
}

ZTSIncidentNews ZTCIncidentFinder::Impl::takeNews() {
    ZTSIncidentNews lNews;
    lNews.mBaselines = mTallies.takeBaselines();  // sums: what gets lost of them comes again
    lNews.mIncidents = mTeller.takeIncidents(mClock);
    if (mClock > mToldTo) {
        lNews.mTo = mClock - latest();
        mToldTo = mClock;
    }
    return lNews;
}

std::map<ZTEIncidentClass, std::size_t> ZTCIncidentFinder::Impl::countOpen() const {
    std::map<ZTEIncidentClass, std::size_t> lOpen;
    for (const auto& [lNumber, lrpCase] : mGroups.getCases()) {
        if (lrpCase->isIncident() && !lrpCase->isClosed()) {
            ++lOpen[lrpCase->mIncident.mClass];
        }
    }
    return lOpen;
}

ZTCIncidentFinder::ZTCIncidentFinder(ZTSIncidentRules aRules)
    : mpImpl(std::make_unique<Impl>(std::move(aRules))) {}

ZTCIncidentFinder::~ZTCIncidentFinder() = default;

void ZTCIncidentFinder::setStart(const ZTSIncidentStart& acrStart) {
    mpImpl->setStart(acrStart);
}
std::chrono::seconds ZTCIncidentFinder::getLookBack() const {
    return std::chrono::seconds(mpImpl->lookBack() / ZTSecond);
}
void ZTCIncidentFinder::setRules(ZTSIncidentRules aRules) {
    mpImpl->setRules(std::move(aRules));
}
void ZTCIncidentFinder::takeLabels(const ZTPortLabels& acrLabels) {
    mpImpl->takeLabels(acrLabels);
}
void ZTCIncidentFinder::takeStorage(const ZTSHostStorage& acrStorage, ZTNanoseconds aTime) {
    mpImpl->takeStorage(acrStorage, aTime);
}
void ZTCIncidentFinder::takeWindows(std::vector<ZTSWindow> aWindows) {
    mpImpl->takeWindows(std::move(aWindows));
}
void ZTCIncidentFinder::takeChange(const ZTSChange& acrChange) {
    mpImpl->takeChange(acrChange);
}
void ZTCIncidentFinder::take(const ZTSSign& acrSign) {
    mpImpl->take(acrSign);
}
bool ZTCIncidentFinder::ask(const ZTSIncidentAsk& acrAsk) {
    return mpImpl->ask(acrAsk);
}
void ZTCIncidentFinder::advance(ZTNanoseconds aNow) {
    const ZTNanoseconds lTo = aNow - mpImpl->settle();
    if (lTo < mpImpl->getClock() - sSetBack) {
        mpImpl->turnBack(lTo);
    }
    mpImpl->advance(lTo);
}
void ZTCIncidentFinder::finish(ZTNanoseconds aNow) {
    mpImpl->advance(ZTNever, aNow);
}
ZTNanoseconds ZTCIncidentFinder::getDue() const {
    return mpImpl->getDue();
}
ZTSIncidentNews ZTCIncidentFinder::takeNews() {
    return mpImpl->takeNews();
}
std::vector<ZTSIncidentTelling> ZTCIncidentFinder::takeTellings() {
    return mpImpl->takeTellings();
}
std::map<ZTEIncidentClass, std::size_t> ZTCIncidentFinder::countOpen() const {
    return mpImpl->countOpen();
}
std::size_t ZTCIncidentFinder::getBytes() const {
    return mpImpl->getBytes();
}
