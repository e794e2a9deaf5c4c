#include "AgentBook.h"

#include <utility>

#include "BookNews.h"
#include "SnBuffer.h"

namespace {

// How often a run that has nothing new goes to the store, for the time that it was seen.
constexpr std::chrono::seconds sStoreRun(60);

}  // namespace

ZTCAgentBook::ZTCAgentBook(ZTCSnBuffer& arBuffer, ZTCServiceLog& arLog)
    : mrBuffer(arBuffer), mLossLines(arLog) {}

void ZTCAgentBook::setStart(const ZTSStoreStart& acrStart) {
    const std::lock_guard lLock(mMutex);
    mBook.setStart(acrStart, ZTSMoment::now());
    deliver();
}

void ZTCAgentBook::seeNone() {
    const std::lock_guard lLock(mMutex);
    mBook.seeNone(ZTSMoment::now());
    deliver();
}

bool ZTCAgentBook::isAwaited(const ZTCAgentSight& acrSight) {
    const std::lock_guard lLock(mMutex);
    return mBook.isAwaited(acrSight.getStart(), acrSight.getProcess());
}

void ZTCAgentBook::begin(const ZTCAgentSight& acrSight, const ZTSBookFigures* apFigures) {
    const std::lock_guard lLock(mMutex);
    if (!mBook.hasRun() || !mBook.isOf(acrSight.getStart(), acrSight.getProcess())) {
        mBook.end(nullptr, ZTSMoment::now());  // one that was lost sight of
        mBook.begin(acrSight.getStart(), acrSight.getProcess(), apFigures, ZTSMoment::now());
    }
}

ZTSAgentRun ZTCAgentBook::end(const ZTSBookFigures* apFigures) {
    const std::lock_guard lLock(mMutex);
    mBook.end(apFigures, ZTSMoment::now());
    ZTSAgentRun lRun = mBook.getRun();
    deliver();
    return lRun;
}

void ZTCAgentBook::look(const ZTSBookFigures* apFigures, bool aIsFetchOpen) {
    const auto lNow = ZTSMoment::now();
    const std::lock_guard lLock(mMutex);
    mBook.look(apFigures, aIsFetchOpen, lNow);
    if (mBook.hasNews() || lNow.mSteady >= mNextRun) {
        mNextRun = lNow.mSteady + sStoreRun;
        deliver();
    }
}

ZTSAgentRun ZTCAgentBook::getRun() {
    const std::lock_guard lLock(mMutex);
    return mBook.getRun();
}

void ZTCAgentBook::take(const ZTSensorScopeData& acrData, const ZTSHostPorts& acrPorts, ZTSAgentRun aRun,
                        const ZTSMoment& acrNow) {
    const std::lock_guard lLock(mMutex);
    mBook.take(countEvents(acrData), acrNow);
    aRun.mTaken = mBook.getRun().mTaken;
    aRun.mSeen = acrNow.mTime;
    mrBuffer.takeRecords(acrData, acrPorts, std::move(aRun), acrNow.mSteady);
}

void ZTCAgentBook::loseAnswer() {
    const std::lock_guard lLock(mMutex);
    mBook.loseAnswer();
}

void ZTCAgentBook::settle(bool aIsFetchOpen) {
    const std::lock_guard lLock(mMutex);
    if (mBook.hasRun()) {
        mBook.settle(aIsFetchOpen, ZTSMoment::now());
        deliver();
    }
}

// With the lock: what is told later comes later.
void ZTCAgentBook::deliver() {
    ZTSBookNews lNews = mBook.takeNews();
    mLossLines.take(lNews.mLosses, Clock::now());
    storeNews(std::move(lNews), mrBuffer);
}
