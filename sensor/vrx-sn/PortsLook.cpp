#include "PortsLook.h"

#include <utility>

#include "LossBook.h"

namespace {

constexpr std::chrono::seconds sEvery(1);
constexpr std::chrono::minutes sSightEvery(1);

}  // namespace

ZTCPortsLook::ZTCPortsLook(const std::string& acrRoot, std::shared_ptr<ZTCHostBook> apBook)
    : mpBook(std::move(apBook)), mPorts(acrRoot), mCounters(acrRoot) {}

ZTCLooker::Clock::time_point ZTCPortsLook::look() {
    mIsUntold |= mPorts.look();
    const auto lNow = ZTSMoment::now();
    mpBook->seePorts(mIsUntold ? &mPorts.getPorts() : nullptr, lNow.mTime);
    mIsUntold = false;
    noteLeftOut();
    lookAtCounters(lNow.mSteady);
    return Clock::now() + sEvery;
}

void ZTCPortsLook::noteLeftOut() {
    const std::size_t lLeftOut = mPorts.getLeftOut();
    if (lLeftOut != 0 && mLeftOut == 0) {
        mpBook->say([&](ZTCServiceLog& arLog) {
            arLog.note(ZTSL_Warning, "%zu ports are left out: %zu ports and %zu remote ports are looked at",
                       lLeftOut, ZTCHostPorts::MostLocal, ZTCHostPorts::MostRemote);
        });
    }
    mLeftOut = lLeftOut;
}

void ZTCPortsLook::lookAtCounters(Clock::time_point aNow) {
    mCounters.step(*mpBook->getPorts(), ZTSMoment::now().mTime, mMeasures);
    mpBook->addMeasures(mMeasures, aNow);
    if (aNow >= mSightDue) {
        auto lSpots = mCounters.listBlindSpots();
        mpBook->see([&](ZTSSight& arSight) { arSight.mCounters = std::move(lSpots); });
        mSightDue = aNow + sSightEvery;
    }
}

void ZTCPortsLook::tellSlow(unsigned int aSeconds) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Warning, "the host's ports could not be seen for %u s: a driver was slow to answer",
                   aSeconds);
    });
}

void ZTCPortsLook::tellFailed(const char* apWhy) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Error, "a look at the host's ports failed: %s", apWhy);
    });
}

void ZTCPortsLook::tellHangs(unsigned int aSeconds) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Warning, "the host's ports cannot be seen: a driver has not answered for %u s",
                   aSeconds);
    });
}
