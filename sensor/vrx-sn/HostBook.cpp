#include "HostBook.h"

#include <algorithm>
#include <string>

#include "SnBuffer.h"

namespace {

constexpr std::chrono::minutes sMeasuresEvery(1);
constexpr char sNotAsked[] = "it was not asked yet";

void sKeepKnown(ZTSHostFacts& arFacts, const ZTSHostFacts& acrBefore) {
    for (std::string ZTSHostFacts::*const lpFact :
         {&ZTSHostFacts::mKernel, &ZTSHostFacts::mBoot, &ZTSHostFacts::mMultipathConfig}) {
        if ((arFacts.*lpFact).empty()) {
            arFacts.*lpFact = acrBefore.*lpFact;
        }
    }
    arFacts.mBooted = arFacts.mBooted != 0 ? arFacts.mBooted : acrBefore.mBooted;
}

std::size_t sCountOfFc(const ZTSHostStorage& acrStorage) {
    return static_cast<std::size_t>(
        std::count_if(acrStorage.mLuns.begin(), acrStorage.mLuns.end(),
                      [](const ZTSLun& acrLun) { return acrLun.mInitiator != ZTSWwn(); }));
}

}  // namespace

ZTCHostBook::ZTCHostBook(ZTCSnBuffer& arBuffer, ZTCServiceLog& arLog) : mrBuffer(arBuffer), mrLog(arLog) {
    mSight.mNoMultipathd = sNotAsked;
}

void ZTCHostBook::close() {
    const std::lock_guard lLock(mLock);
    mIsClosed = true;
}

void ZTCHostBook::say(const std::function<void(ZTCServiceLog&)>& acrSay) const {
    const std::lock_guard lLock(mLock);
    if (!mIsClosed) {
        acrSay(mrLog);
    }
}

void ZTCHostBook::setStart(const ZTSStoreStart& acrStart) {
    const std::lock_guard lLock(mLock);
    mPorts.setStart(acrStart.mPorts);
    mStorage.setStart(acrStart.mStorage, acrStart.mMapsGone);
    mStartStalls = acrStart.mStalls;
    mStartFacts = acrStart.mFacts;
    tellPorts();
    tellStorage();
    tellFacts();
}

std::optional<std::vector<ZTSStall>> ZTCHostBook::takeStartStalls() {
    const std::lock_guard lLock(mLock);
    return std::exchange(mStartStalls, std::nullopt);
}

// ---- Ports ----

std::shared_ptr<const ZTSHostPorts> ZTCHostBook::getPorts() const {
    const std::lock_guard lLock(mLock);
    return mPorts.getPorts();
}

bool ZTCHostBook::hasSeenPorts() const {
    const std::lock_guard lLock(mLock);
    return mPorts.hasLooked();
}

void ZTCHostBook::seePorts(const ZTSHostPorts* apPorts, ZTNanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    if (mIsClosed) {
        return;
    }
    if (apPorts != nullptr) {
        mPorts.seeHost(*apPorts, aTime);
    }
    mPorts.settle();
    tellPorts();
}

void ZTCHostBook::seeAgent(ZTCPortBook::Names aPorts, ZTNanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    mPorts.seeAgent(std::move(aPorts), aTime);
    tellPorts();
}

bool ZTCHostBook::areLabels(const ZTPortLabels& acrLabels) const {
    const std::lock_guard lLock(mLock);
    return mPorts.getLabels() == acrLabels;
}

void ZTCHostBook::setLabels(ZTPortLabels aLabels, ZTNanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    if (mIsClosed) {
        return;
    }
    mrBuffer.takeLabels(aLabels);
    mPorts.setLabels(std::move(aLabels), aTime);
    tellPorts();
}

void ZTCHostBook::tellPorts() {
    tellChanges(mPorts.takeChanges());
    if (mPorts.haveNews()) {
        mrBuffer.takePorts(*mPorts.getPorts());
        mPorts.haveBeenTaken();
    }
    mSummary.mPorts = mPorts.getPorts()->mLocal.size();
}

void ZTCHostBook::tellChanges(std::vector<ZTSChange> aChanges) {
    for (ZTSChange& lrChange : aChanges) {
        mrBuffer.takeChange(std::move(lrChange));
    }
}

// ---- Everything else ----

void ZTCHostBook::seeStorage(ZTSHostStorage aStorage, ZTNanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    if (!mIsClosed) {
        mStorage.see(std::move(aStorage), aTime);
        tellStorage();
    }
}

void ZTCHostBook::accept(const std::vector<std::string>& acrMaps, ZTNanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    if (!mIsClosed) {
        mStorage.accept(acrMaps, aTime);
        tellStorage();
    }
}

void ZTCHostBook::tellStorage() {
    if (!mStorage.haveNews()) {
        return;
    }
    const ZTSHostStorage& lrStorage = *mStorage.getStorage();
    ZTSHostNews lNews;
    lNews.mStorage = lrStorage;
    tellChanges(mStorage.takeChanges());
    tell(std::move(lNews));
    mStorage.haveBeenTaken();
    mSight.mMaps = mSummary.mMaps = lrStorage.mMaps.size();
    mSight.mInferredMaps =
        static_cast<std::size_t>(std::ranges::count_if(lrStorage.mMaps, &ZTSMap::isInferred));
    mSight.mLuns = mSummary.mLuns = sCountOfFc(lrStorage);
    mSummary.mWholeMaps = mSummary.mPaths = mSummary.mUsablePaths = 0;
    for (const ZTSMap& lrMap : lrStorage.mMaps) {
        mSummary.mPaths += lrMap.mTotal;
        mSummary.mUsablePaths += lrMap.countUsable();
        mSummary.mWholeMaps += lrMap.countUsable() >= lrMap.mTotal ? 1 : 0;
    }
}

void ZTCHostBook::seeFacts(const ZTSHostFacts& acrFacts, ZTNanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    ZTSHostFacts lFacts = acrFacts;
    sKeepKnown(lFacts, mFacts);
    if (mIsClosed || lFacts == mFacts) {
        return;
    }
    if (mAreFactsCompared) {
        tellChanges(listFactChanges(mFacts, lFacts, aTime));
        mrBuffer.takeFacts(lFacts);
    }
    mFactsTime = mFactsTime != 0 ? mFactsTime : aTime;
    mFacts = std::move(lFacts);
    tellFacts();
}

// What became of them while nobody looked: once both are known.
void ZTCHostBook::tellFacts() {
    if (mFactsTime == 0 || !mStartFacts) {
        return;
    }
    sKeepKnown(mFacts, *mStartFacts);
    tellChanges(listFactChanges(*mStartFacts, mFacts, mFactsTime));
    mrBuffer.takeFacts(mFacts);
    mStartFacts.reset();
    mAreFactsCompared = true;
}

void ZTCHostBook::takeFpins(std::vector<ZTSFpin>& arFpins) {
    const std::lock_guard lLock(mLock);
    for (const ZTSFpin& lrFpin : arFpins) {
        mSummary.mFpins += lrFpin.mTimes;
    }
    mSight.mFpins += arFpins.size();
    ZTSHostNews lNews;
    lNews.mFpins = std::exchange(arFpins, {});
    tell(std::move(lNews));
}

void ZTCHostBook::takeStalls(std::vector<ZTSStall> aStalls, std::size_t aStalled) {
    const std::lock_guard lLock(mLock);
    mSummary.mStalled = aStalled;
    for (const ZTSStall& lrStall : aStalls) {
        mSummary.mStalls += lrStall.mIsOver ? 1 : 0;
    }
    ZTSHostNews lNews;
    lNews.mStalls = std::move(aStalls);
    tell(std::move(lNews));
}

void ZTCHostBook::tell(ZTSHostNews aNews) {
    if (!mIsClosed && !aNews.isEmpty()) {
        mrBuffer.takeHost(std::move(aNews));
    }
}

void ZTCHostBook::loseMessages(std::uint64_t aCount, ZTNanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    if (!mIsClosed) {
        mSummary.mLostMessages += aCount;
        mrBuffer.takeChange(
            {aTime, "sensor", "kernel's messages", "changed", "lost_messages", "0", std::to_string(aCount)});
        mrLog.note(ZTSL_Warning, "messages of the kernel's were lost: at least %llu; FPINs may be among them",
                   static_cast<unsigned long long>(aCount));
    }
}

void ZTCHostBook::addMeasures(ZTCMeasures& arMeasures, Clock::time_point aNow) {
    const std::lock_guard lLock(mLock);
    mMeasures.join(std::exchange(arMeasures, {}));
    if (aNow >= mMeasuresDue) {
        tellMeasures();
        mMeasuresDue = aNow + sMeasuresEvery;
    }
}

void ZTCHostBook::tellMeasures() {
    ZTSHostNews lNews;
    lNews.mMeasures = std::exchange(mMeasures, {});
    tell(std::move(lNews));
}

void ZTCHostBook::settle() {
    const std::lock_guard lLock(mLock);
    tellMeasures();
}

void ZTCHostBook::noteSlice(std::chrono::nanoseconds aTime) {
    const std::lock_guard lLock(mLock);
    mSummary.mLongestSlice = std::max(mSummary.mLongestSlice, aTime);
}

void ZTCHostBook::setWindows(std::vector<ZTSWindow> aWindows) {
    const std::lock_guard lLock(mLock);
    ZTSHostNews lNews;
    lNews.mWindows = std::move(aWindows);
    tell(std::move(lNews));
}

void ZTCHostBook::seeAgentHere(bool aIsHere) {
    const std::lock_guard lLock(mLock);
    mIsAgentKnown = true;
    mSight.mIsAgentHere = aIsHere;
}

void ZTCHostBook::see(const std::function<void(ZTSSight&)>& acrChange) {
    const std::lock_guard lLock(mLock);
    acrChange(mSight);
}

void ZTCHostBook::tellBlindSpots(bool aIsLate) {
    const std::lock_guard lLock(mLock);
    const bool lIsAll =
        mPorts.hasLooked() && mStorage.hasLooked() && mSight.mNoMultipathd != sNotAsked && mIsAgentKnown;
    if (mIsClosed || (!mBlindSpots && !lIsAll && !aIsLate)) {
        return;
    }
    std::vector<ZTSBlindSpot> lSpots = listBlindSpots(mSight, *mPorts.getPorts());
    if (mBlindSpots != lSpots) {
        ZTSHostNews lNews;
        lNews.mBlindSpots = lSpots;
        mBlindSpots = std::move(lSpots);
        tell(std::move(lNews));
    }
}

ZTSHostSummary ZTCHostBook::getSummary() const {
    const std::lock_guard lLock(mLock);
    return mSummary;
}
