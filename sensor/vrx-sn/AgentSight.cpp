#include "AgentSight.h"

#include "AgentStatus.h"

namespace {

using Clock = ZTCWaitEnd::Clock;

// The library's rows that everybody has stand in front; behind them may be thousands, one a port and LUN.
constexpr std::size_t sLibraryRows = 64;
constexpr std::chrono::seconds sLookAtLibraryEvery(1);

ZTNanoseconds sNanosecondsOf(std::chrono::system_clock::time_point aTime) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(aTime.time_since_epoch()).count();
}

}  // namespace

std::unique_ptr<ZTCAgentSight> ZTCAgentSight::ofFigures(const std::string& acrDirectory) try {
    std::unique_ptr<ZTCAgentSight> lpSight(new ZTCAgentSight(acrDirectory));
    lpSight->mpAgent =
        std::make_unique<ZTCAgentStatistics>(acrDirectory, ZTWireStatistics, ZTEStatisticsOf::Any);
    lpSight->mStart = sNanosecondsOf(lpSight->mpAgent->getStart());
    lpSight->mProcess = lpSight->mpAgent->getProcess();
    lpSight->mFigures.mIsAsOfNow = lpSight->mpAgent->isInMemory();
    return lpSight;
} catch (const ZTCNoPermissionError&) {
    throw;
} catch (const ZTCSensorError&) {
    return nullptr;  // none, or some that are not to be believed
}

std::unique_ptr<ZTCAgentSight> ZTCAgentSight::ofLock(const std::string& acrDirectory) {
    ZTCSensorDescriptor lLock = openAgentLock(acrDirectory);
    if (!lLock.isOpen()) {
        return nullptr;
    }
    const ZTSAgentStatus lStatus = readAgentStatus(acrDirectory);
    std::unique_ptr<ZTCAgentSight> lpSight(new ZTCAgentSight(acrDirectory));
    lpSight->mLock = std::move(lLock);
    lpSight->mProcess = lStatus.mProcess;
    lpSight->mStart = lStatus.mSince ? sNanosecondsOf(*lStatus.mSince) : 0;
    return lpSight;
}

bool ZTCAgentSight::hasGone() const {
    return mpAgent != nullptr ? mpAgent->hasGone() : !isAgentLock(mLock.get());
}

const ZTSBookFigures* ZTCAgentSight::look() {
    if (mpAgent == nullptr) {
        return nullptr;
    }
    try {
        mFigures.mAgent = mpAgent->read();
        lookAtLibrary();
        return &mFigures;
    } catch (const ZTCSensorError&) {
        return nullptr;  // somebody has cut it
    }
}

// Its file comes and goes with the library's session. What was read last stays true.
void ZTCAgentSight::lookAtLibrary() {
    const auto lNow = Clock::now();
    const bool lHasGone = hasGone();
    if (!lHasGone && mLookedAtLibrary && lNow < *mLookedAtLibrary + sLookAtLibraryEvery) {
        return;
    }
    mLookedAtLibrary = lNow;
    try {
        // When both have gone, what stands in its place is the next agent's.
        if (mpLibrary == nullptr && !lHasGone) {
            mpLibrary = std::make_unique<ZTCAgentStatistics>(mDirectory, ZTWireLibraryStatistics);
            mFigures.mLibraryStart = static_cast<std::uint64_t>(sNanosecondsOf(mpLibrary->getStart()));
        }
        if (mpLibrary != nullptr) {
            mFigures.mLibrary = mpLibrary->read(sLibraryRows);
            if (mpLibrary->hasGone()) {
                mpLibrary.reset();
            }
        }
    } catch (const ZTCSensorError&) {
        mpLibrary.reset();  // none is loaded, mostly
    }
}

void ZTCAgentSight::noteWake() {
    mWake = mpAgent != nullptr ? mpAgent->readWake() : 0;
}

bool ZTCAgentSight::waitUntil(Clock::time_point aTime, const ZTCWaitEnd& acrEnd) const {
    const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aTime - Clock::now());
    if (lLeft.count() <= 0) {
        return false;
    }
    if (mpAgent != nullptr) {
        return mpAgent->waitForWake(mWake, lLeft, &acrEnd);
    }
    acrEnd.waitUntil(aTime);
    return false;
}
