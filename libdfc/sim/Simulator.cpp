#include "Simulator.h"

#include <algorithm>
#include <cstdio>

namespace {

using Lock = std::unique_lock<std::mutex>;

// The counters have one writer, which saves it the cost of a locked addition.
void sIncrease(std::atomic<uint64_t>& arCounter, uint64_t aBy = 1) {
    arCounter.store(arCounter.load(std::memory_order_relaxed) + aBy, std::memory_order_relaxed);
}

void sAddCounts(ZTCSimulator::CallerState& arTo, const ZTCSimulator::CallerState& acrFrom) {
    sIncrease(arTo.mSent, acrFrom.mSent);
    sIncrease(arTo.mDelivered, acrFrom.mDelivered);
    sIncrease(arTo.mUnregistered, acrFrom.mUnregistered);
}

// Whether a status of a registration by category means that it was made.
bool sIsSuccess(uint32_t aStatus) {
    return aStatus == 0 || (aStatus >= 5 && aStatus <= 7);
}

std::string sTextOf(const HBA_wwn& acrName) {
    char lText[sizeof acrName.wwn * 3];
    char* lpAt = lText;
    for (const uint8_t lByte : acrName.wwn) {
        lpAt += snprintf(lpAt, 4, lpAt == lText ? "%02x" : ":%02x", lByte);
    }
    return lText;
}

std::string sLineOf(const ZTSSimRegistration& acrRegistration) {
    const ZTSSimEventId& lrId = acrRegistration.mId;
    const std::string lWhat = lrId.mMask != 0 ? " mask=" + std::to_string(lrId.mMask)
                                              : " port=" + sTextOf(acrRegistration.mPort) +
                                                    " category=" + std::to_string(lrId.mCategory) +
                                                    " subcategory=" + std::to_string(lrId.mSubcategory);
    return "registration board=" + std::to_string(acrRegistration.mBoard) + lWhat +
           " handle=" + std::to_string(acrRegistration.mHandle) + "\n";
}

}  // namespace

ZTCSimulator::ZTCSimulator(std::atomic<uint32_t>& arAdapters) : mrAdapters(arAdapters) {
    mrAdapters = DefaultAdapters;
}

void ZTCSimulator::noteChange() {
    ++mGeneration;
    mChanged.notify_all();
}

void ZTCSimulator::setAdapters(const ZTSSimStatement& acrStatement) {
    const Lock lLock(mMutex);
    mNode = acrStatement.getNumber("node", mNode);
    mPort = acrStatement.getNumber("port", mPort);
    mFail = acrStatement.has("fail") ? std::optional(acrStatement.getNumber("fail")) : std::nullopt;
    mIsDriverOld = acrStatement.has("old-driver");
    mrAdapters = acrStatement.getWord("count");
    noteChange();
}

bool ZTCSimulator::isDriverOld() {
    const Lock lLock(mMutex);
    return mIsDriverOld;
}

bool ZTCSimulator::isFailing(ZTESimFailingCall aWhat) {
    const Lock lLock(mMutex);
    return mFail == aWhat;
}

uint64_t ZTCSimulator::getPort(uint32_t aBoard) {
    const Lock lLock(mMutex);
    return mPort + aBoard;
}

uint64_t ZTCSimulator::getNode(uint32_t aBoard) {
    const Lock lLock(mMutex);
    return mNode + aBoard;
}

uint32_t ZTCSimulator::applyRule(ZTESimVerb aVerb, const ZTSSimRegistration& acrRegistration) {
    const auto lFound = std::ranges::find_if(mRules, [&](const Rule& acrRule) {
        return acrRule.mVerb == aVerb && acrRule.mId.value_or(acrRegistration.mId) == acrRegistration.mId &&
               acrRule.mBoard.value_or(acrRegistration.mBoard) == acrRegistration.mBoard;
    });
    if (lFound == mRules.end()) {
        return 0;
    }
    const uint32_t lStatus = lFound->mStatus;
    if (--lFound->mTimes == 0) {
        mRules.erase(lFound);
    }
    return lStatus;
}

void ZTCSimulator::addRule(const ZTSSimStatement& acrStatement) {
    Rule lRule{
        acrStatement.mpVerb->mVerb, {}, {}, acrStatement.getWord("status"), acrStatement.getNumber("times")};
    if (acrStatement.has("kind")) {
        lRule.mId = getSimKinds()[acrStatement.getNumber("kind")].mId;
    }
    if (acrStatement.has("board")) {
        lRule.mBoard = acrStatement.getWord("board");
    }
    const Lock lLock(mMutex);
    // The new one stands for the old ones that it covers, and goes before those that cover it.
    std::erase_if(mRules, [&](const Rule& acrOld) {
        return acrOld.mVerb == lRule.mVerb && (!lRule.mId || acrOld.mId == lRule.mId) &&
               (!lRule.mBoard || acrOld.mBoard == lRule.mBoard);
    });
    if (lRule.mStatus != 0) {
        mRules.insert(mRules.begin(), lRule);
    }
}

ZTCSimulator::Outcome ZTCSimulator::add(const Registration& acrRegistration) {
    const Lock lLock(mMutex);
    const bool lIsByMask = acrRegistration->mpByMask != nullptr;
    if (acrRegistration->mBoard >= mrAdapters || (!lIsByMask && mIsDriverOld)) {
        return {BadArgument, 0};
    }
    const uint32_t lStatus = applyRule(ZTESimVerb::OnRegister, *acrRegistration);
    if (lIsByMask ? lStatus != 0 : !sIsSuccess(lStatus)) {
        return {lStatus, 0};
    }
    acrRegistration->mHandle = ++mLastHandle;
    mRegistrations.push_back(acrRegistration);
    noteChange();
    return {lStatus, mLastHandle};
}

uint32_t ZTCSimulator::remove(uint32_t aBoard, uint32_t aHandle, bool aIsByMask) {
    Lock lLock(mMutex);
    const auto lFound = std::ranges::find_if(mRegistrations, [&](const Registration& acrRegistration) {
        return acrRegistration->mBoard == aBoard && acrRegistration->mHandle == aHandle &&
               (acrRegistration->mpByMask != nullptr) == aIsByMask && !acrRegistration->mIsLate;
    });
    if (lFound == mRegistrations.end()) {
        return BadArgument;
    }
    const Registration lRegistration = *lFound;
    const auto lCallers = mCallers;  // what needs memory comes before what is changed
    mLastEnded[aBoard] = lRegistration;
    const uint32_t lStatus = applyRule(ZTESimVerb::OnUnregister, *lRegistration);
    if (mFaults[ZTSF_LateCallbacks]) {
        lRegistration->mIsLate = true;
        return lStatus;
    }
    mRegistrations.erase(lFound);
    lRegistration->mIsEnded = true;  // a caller that has not seen this is found inside below
    noteChange();
    lLock.unlock();
    for (const auto& lrCaller : lCallers) {
        while (lrCaller->mpInside == lRegistration.get()) {
            lrCaller->mpInside.wait(lRegistration.get());
        }
    }
    return lStatus;
}

void ZTCSimulator::setFault(ZTESimFault aFault, Duration aDuration) {
    const Lock lLock(mMutex);
    mFaults[aFault] = aDuration;
}

std::optional<ZTCSimulator::Duration> ZTCSimulator::getFault(ZTESimFault aFault) {
    const Lock lLock(mMutex);
    return mFaults[aFault];
}

ZTCSimulator::Registration ZTCSimulator::findByMask(uint32_t aMask) {
    const Lock lLock(mMutex);
    const auto lFound = std::ranges::find(mRegistrations, aMask, [](const Registration& acrRegistration) {
        return acrRegistration->mId.mMask;
    });
    return lFound != mRegistrations.end() ? *lFound : nullptr;
}

ZTCSimulator::Registrations ZTCSimulator::getOneOfEach(bool aWithEnded) {
    const Lock lLock(mMutex);
    std::map<uint32_t, Registration> lOfBoard;
    for (const Registration& lrRegistration : mRegistrations) {
        lOfBoard.emplace(lrRegistration->mBoard, lrRegistration);
    }
    if (aWithEnded) {
        lOfBoard.insert(mLastEnded.begin(), mLastEnded.end());
    }
    Registrations lRegistrations;
    for (const auto& [lBoard, lRegistration] : lOfBoard) {
        lRegistrations.push_back(lRegistration);
    }
    return lRegistrations;
}

ZTCSimulator::Route ZTCSimulator::findRoute(const ZTCSimEvent& acrEvent) {
    const Lock lLock(mMutex);
    Route lRoute{mGeneration, {}};
    for (const Registration& lrRegistration : mRegistrations) {
        if (lrRegistration->mBoard == acrEvent.getBoard() && lrRegistration->mId == acrEvent.getId()) {
            lRoute.mTargets.push_back(lrRegistration);
        }
    }
    if (lRoute.mTargets.empty() && (acrEvent.isRaw() || acrEvent.getBoard() >= mrAdapters)) {
        const auto lFound =
            std::ranges::find(mRegistrations, acrEvent.getId().mMask,
                              [](const Registration& acrRegistration) { return acrRegistration->mId.mMask; });
        lRoute.mTargets.assign(lFound, lFound != mRegistrations.end() ? lFound + 1 : lFound);
    }
    return lRoute;
}

std::shared_ptr<ZTCSimulator::CallerState> ZTCSimulator::addCaller() {
    const Lock lLock(mMutex);
    return mCallers.emplace_back(std::make_shared<CallerState>());
}

void ZTCSimulator::removeCaller(const std::shared_ptr<CallerState>& acrCaller) {
    const Lock lLock(mMutex);
    sAddCounts(mPast, *acrCaller);
    std::erase(mCallers, acrCaller);
}

void ZTCSimulator::countStorms(int aChange) {
    const Lock lLock(mMutex);
    mStorms += aChange;
    mChanged.notify_all();
}

std::string ZTCSimulator::report() {
    const Lock lLock(mMutex);
    CallerState lTotal;
    sAddCounts(lTotal, mPast);
    for (const auto& lrCaller : mCallers) {
        sAddCounts(lTotal, *lrCaller);
    }
    std::string lText = "events sent=" + std::to_string(lTotal.mSent) +
                        " delivered=" + std::to_string(lTotal.mDelivered) +
                        " unregistered=" + std::to_string(lTotal.mUnregistered) +
                        "\nstorms running=" + std::to_string(mStorms) + "\n";
    for (const Registration& lrRegistration : mRegistrations) {
        lText += lrRegistration->mIsLate ? "" : sLineOf(*lrRegistration);
    }
    return lText;
}

void ZTCSimulator::stop() {
    const Lock lLock(mMutex);
    mIsStopped = true;
    mChanged.notify_all();
}

void ZTCSimulator::sleepUntil(Clock::time_point aTime) {
    Lock lLock(mMutex);
    mChanged.wait_until(lLock, aTime, [this] { return isStopped(); });
}

void ZTCSimulator::waitForStorms() {
    Lock lLock(mMutex);
    mChanged.wait(lLock, [this] { return isStopped() || mStorms == 0; });
}

void ZTCSimulator::waitForRegistrations(uint64_t aCount) {
    Lock lLock(mMutex);
    mChanged.wait(lLock, [&] {
        return isStopped() || (aCount == 0 ? isEveryKindRegistered() : countHeld() >= aCount);
    });
}

uint64_t ZTCSimulator::countHeld() const {
    return static_cast<uint64_t>(std::ranges::count(mRegistrations, false, &ZTSSimRegistration::mIsLate));
}

// An old driver takes registrations by mask only.
bool ZTCSimulator::isEveryKindRegistered() const {
    for (uint32_t lBoard = 0; lBoard < mrAdapters; ++lBoard) {
        for (const ZTSSimKind& lrKind : getSimKinds()) {
            const bool lIsWanted = !mIsDriverOld || lrKind.mId.mMask != 0;
            if (lIsWanted && std::ranges::none_of(mRegistrations, [&](const Registration& acrRegistration) {
                    return acrRegistration->mBoard == lBoard && acrRegistration->mId == lrKind.mId &&
                           !acrRegistration->mIsLate;
                })) {
                return false;
            }
        }
    }
    return true;
}

void ZTCSimCaller::deliver(const ZTCSimEvent& acrEvent, ZTCSimulator::Route& arRoute) {
    if (arRoute.mGeneration != mrSimulator.getGeneration()) {
        arRoute = mrSimulator.findRoute(acrEvent);
    }
    if (arRoute.mTargets.empty()) {
        sIncrease(mpState->mSent);
        sIncrease(mpState->mUnregistered);
    }
    for (const auto& lrTarget : arRoute.mTargets) {
        sIncrease(mpState->mSent);
        // First said, then looked: of this thread and one that ends the registration, one sees the other.
        mpState->mpInside = lrTarget.get();
        if (lrTarget->mIsEnded) {
            sIncrease(mpState->mUnregistered);
        } else {
            acrEvent.callBack(*lrTarget);
            sIncrease(mpState->mDelivered);
        }
        mpState->mpInside = nullptr;
        if (lrTarget->mIsEnded) {
            mpState->mpInside.notify_all();
        }
    }
}
