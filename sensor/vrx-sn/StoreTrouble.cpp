#include "StoreTrouble.h"

#include <fmt/format.h>

#include "SnBuffer.h"
#include "SnFigures.h"

ZTCStoreTrouble::ZTCStoreTrouble(const ZTCSnBuffer& acrBuffer, ZTCSnFigures& arFigures, ZTCServiceLog& arLog)
    : mrBuffer(acrBuffer), mrFigures(arFigures), mTold(arLog, "the history is not written") {}

void ZTCStoreTrouble::begin(const char* apDoing) {
    const std::scoped_lock lLock(mLock);
    mpDoing = apDoing;
    mBegan = Clock::now();
}

void ZTCStoreTrouble::succeed() {
    const std::scoped_lock lLock(mLock);
    mpDoing = nullptr;
    mWhy.clear();
    tellAt(Clock::now(), &ZTCServiceTrouble::lasts);
}

void ZTCStoreTrouble::fail(ZTEStoreFault aFault, const std::string& acrWhy) {
    const std::scoped_lock lLock(mLock);
    mpDoing = nullptr;
    mFailsSince = mWhy.empty() ? mBegan : mFailsSince;
    mWhy = acrWhy;
    mIsBusy = aFault == ZTEStoreFault::Busy;
    tellAt(Clock::now(), &ZTCServiceTrouble::met);
}

std::string ZTCStoreTrouble::getTextAt(Clock::time_point aNow) const {
    const bool lStands = mpDoing != nullptr && aNow - mBegan >= StandsAfter;
    const bool lFails = !mWhy.empty() && (!mIsBusy || aNow - mFailsSince >= BusyAfter);
    if (!lStands && !lFails) {
        return "";
    }
    const std::string lWhy =
        lStands ? fmt::format("its disk stands still, {} for {} s", mpDoing,
                              std::chrono::duration_cast<std::chrono::seconds>(aNow - mBegan).count())
                : mWhy;
    return fmt::format("{}; {} KiB wait", lWhy, (mrBuffer.getBytes() + 1023) / 1024);
}

void ZTCStoreTrouble::tellAt(Clock::time_point aNow, Tell aTell) {
    const std::string lText = getTextAt(aNow);
    if (lText.empty()) {
        // What is tried just now may fail again.
        if (mWhy.empty()) {
            mTold.over(aNow);
            mrFigures.set(ZTSN_StoreStandsSince, 0);
        }
    } else {
        if (!mTold.isThere()) {
            const auto lNow = std::chrono::system_clock::now().time_since_epoch();
            mrFigures.set(ZTSN_StoreStandsSince,
                          static_cast<std::uint64_t>(std::chrono::nanoseconds(lNow).count()));
        }
        (mTold.*aTell)(lText, aNow);
    }
}

std::string ZTCStoreTrouble::getText() const {
    const std::scoped_lock lLock(mLock);
    return getTextAt(Clock::now());
}

void ZTCStoreTrouble::tell() {
    const std::scoped_lock lLock(mLock);
    tellAt(Clock::now(), &ZTCServiceTrouble::lasts);
}
